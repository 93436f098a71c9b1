// The accessors that need the cryptographic library, so that a program without secrets is linked without it.

#include "set_value.h"

#include "conf_crypt.h"
#include "internal/crypto.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "str.h"

using namespace kutil;

int set_set_path_obscured(set **handle, const char *path, const char *text)
{
    int len = 0;
    const Heap<unsigned char> bytes(obscure_str(text, &len));
    return bytes && set_set_path_bin(handle, path, len, bytes.get()) ? 0 : -1;
}

char *set_get_path_unobscured(set **handle, const char *path)
{
    const int len = set_get_path_bin_len(handle, path);
    if (len == 0)
        return copy_text("");
    const Heap<unsigned char> bytes(new_array<unsigned char>(static_cast<size_t>(len)));
    if (set_get_path_bin_buf(handle, path, bytes.get()) != len)
        return nullptr; // no hexadecimal text: deciphering zeros would make up a secret
    return unobscure_str(bytes.get(), len);
}

int set_path_unobscured_is_equal(set **handle, const char *path, const char *text)
{
    const SecretText secret(set_get_path_unobscured(handle, path));
    return secret.get() && strcmp(secret.get(), text_or_empty(text)) == 0;
}

void set_get_path_unobscured_buf(set **handle, const char *path, char *buf, int size)
{
    if (!buf || size <= 0)
        return;
    const SecretText secret(set_get_path_unobscured(handle, path));
    *put(buf, sub(view(secret.get()), 0, static_cast<size_t>(size) - 1)) = '\0';
}

int set_set_path_bin_obscured(set **handle, const char *path, int len, const void *bytes)
{
    if (len <= 0)
        return set_set_path_bin(handle, path, 0, nullptr) ? 0 : -1;
    const Heap<void> copy(bytes ? memdup_l(bytes, static_cast<size_t>(len)) : nullptr);
    if (!copy)
        return -1;
    obscure_bin(copy.get(), len);
    return set_set_path_bin(handle, path, len, copy.get()) ? 0 : -1;
}

int set_get_path_bin_buf_unobscured(set **handle, const char *path, void *buf)
{
    const int len = set_get_path_bin_buf(handle, path, buf);
    unobscure_bin(buf, len);
    return len;
}
