#include "secrets.h"

#include "util/code2str.h"
#include "util/conf_crypt.h"
#include "util/hex.h"
#include "util/internal/padded_secret.h"
#include "util/internal/text_builder.h"
#include "util/set_value.h"

#include <algorithm>
#include <climits>

namespace kutil::common
{

namespace
{

constexpr size_t kBlockDigits = 32; // of the 16 bytes that are encrypted at once

bool is_bytes(View text)
{
    return text.size() % 2 == 0 && text.size() / 2 <= INT_MAX &&
           std::all_of(text.begin(), text.end(), is_xdigit);
}

// The built-in key is current inside the scope.
class BuiltInKey
{
public:
    BuiltInKey() { zel_conf_crypt_key_select(CONF_KEY_DEFAULT); }
    ~BuiltInKey() { zel_conf_crypt_key_deselect(); }
    BuiltInKey(const BuiltInKey &) = delete;
    BuiltInKey &operator=(const BuiltInKey &) = delete;
};

// Bytes in the clear, overwritten before they are freed.
class ClearBytes
{
public:
    explicit ClearBytes(size_t size) : size_(size), bytes_(new_array<unsigned char>(size + 1)) {}
    ~ClearBytes() { explicit_bzero(bytes_.get(), size_); }
    ClearBytes(const ClearBytes &) = delete;
    ClearBytes &operator=(const ClearBytes &) = delete;
    unsigned char *get() const { return bytes_.get(); }
    size_t size() const { return size_; }
    int length() const { return static_cast<int>(size_); }

private:
    size_t size_;
    Heap<unsigned char> bytes_;
};

char *read_bytes(set **tree, const char *path)
{
    const ClearBytes bytes(static_cast<size_t>(set_get_path_bin_len(tree, path)));
    if (set_get_path_bin_buf_unobscured(tree, path, bytes.get()) != bytes.length())
        return nullptr;
    return bin_2_hex(bytes.get(), bytes.size(), new_text(mul_sizes(bytes.size(), 2)));
}

bool write_bytes(set **tree, const char *path, View digits)
{
    if (!is_bytes(digits))
        return false;
    const ClearBytes bytes(digits.size() / 2);
    hex_2_bin(digits.data(), bytes.get());
    return set_set_path_bin_obscured(tree, path, bytes.length(), bytes.get()) == 0;
}

} // namespace

char *normal_path(const char *path)
{
    TextBuilder normal;
    bool in_name = false;
    for (const char *c = path; *c; c++) {
        if (*c == '/') {
            in_name = false;
            continue;
        }
        if (*c == '\\' && !*++c)
            return nullptr;
        if (!in_name && normal.size() > 0)
            normal.append('/');
        in_name = true;
        if (*c == '/' || *c == '\\')
            normal.append('\\');
        normal.append(*c);
    }
    return normal.release();
}

void for_each_secret(set **tree, void (*visit)(void *context, const char *path, Secret kind), void *context)
{
    visit(context, kDeviceKeyPath, Secret::key);
    visit(context, kFactoryKeyPath, Secret::key);
    set **params = set_get(tree, "encryption/obscured_params");
    for (set **param = set_get_son(params, 0); param; param = set_get_next(param)) {
        const HeapText path(normal_path(set_get_path_strz(param, "name")));
        const int type = str2code(obscure_type_str, set_get_path_str(param, "type"));
        if (path && *path)
            visit(context, path.get(), type == 0 ? Secret::text : Secret::bytes);
    }
}

Secret secret_at(set **tree, const char *path)
{
    const HeapText normal(normal_path(path));
    struct {
        const char *path;
        Secret kind;
    } wanted = {normal.get(), Secret::none};
    if (!normal || !*normal)
        return Secret::none;
    const auto look = [](void *context, const char *listed, Secret kind) {
        auto *const self = static_cast<decltype(wanted) *>(context);
        if (self->kind == Secret::none && strcmp(listed, self->path) == 0)
            self->kind = kind;
    };
    for_each_secret(tree, look, &wanted);
    return wanted.kind;
}

bool looks_obscured(View text, Secret kind)
{
    const size_t unit = kind == Secret::bytes ? 2 : kBlockDigits;
    return !text.empty() && text.size() % unit == 0 && is_bytes(text);
}

char *secret_read(set **tree, const char *path, Secret kind)
{
    const char *stored = set_get_path_strz(tree, path);
    if (!*stored)
        return copy_text("");
    if (!looks_obscured(stored, kind))
        return nullptr;
    if (kind == Secret::bytes)
        return read_bytes(tree, path);
    if (kind == Secret::text)
        return read_padded_secret(tree, path);
    const BuiltInKey scope;
    return read_padded_secret(tree, path);
}

bool secret_write(set **tree, const char *path, Secret kind, const char *clear)
{
    if (kind == Secret::bytes)
        return write_bytes(tree, path, clear);
    if (kind == Secret::text)
        return set_set_path_obscured(tree, path, clear) == 0;
    if (strlen(clear) != size_t{2} * CONF_KEY_SIZE || !is_bytes(clear))
        return false;
    const BuiltInKey scope;
    return set_set_path_obscured(tree, path, clear) == 0;
}

} // namespace kutil::common
