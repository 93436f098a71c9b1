#include "conf_key.h"

#include "code2str.h"
#include "conf_crypt.h"
#include "internal/crypto.h"
#include "internal/heap.h"
#include "internal/padded_secret.h"
#include "internal/report.h"
#include "lines.h"
#include "set_value.h"

using namespace kutil;

namespace
{

constexpr const char *kDeviceKeyPath = "manufacturer/zel_conf/key";
constexpr const char *kFactoryKeyPath = "manufacturer/zel_conf/factory_key";
constexpr const char *kSecretsPath = "encryption/obscured_params";

bool is_key_text(const char *text)
{
    View digits = view(text);
    const size_t wanted = size_t{2} * CONF_KEY_SIZE;
    for (const char c : digits) {
        if (!is_xdigit(c))
            return false;
    }
    return digits.size() == wanted;
}

// Runs with the built-in key current.
bool load_entry(set **conf, int type, const char *path)
{
    const SecretText hex(set_get_path_unobscured(conf, path));
    const bool usable = is_key_text(hex.get());
    zel_conf_crypt_key_set(type, usable ? hex.get() : nullptr);
    return usable;
}

// Whether the bytes, already deciphered, are what a text of their size looks like before it is obscured: the
// text, its NUL and zeros up to the size that just this length takes.
bool is_padded_text(const char *bytes, int len)
{
    constexpr size_t kBlock = 16;
    const auto size = static_cast<size_t>(len);
    const size_t length = strnlen(bytes, size);
    for (size_t i = length; i < size; i++) {
        if (bytes[i])
            return false;
    }
    return ((length + 1) / kBlock + 1) * kBlock == size;
}

void reobscure_text(set **conf, const char *path)
{
    zel_conf_crypt_key_select(CONF_KEY_DEFAULT);
    const SecretText text(read_padded_secret(conf, path));
    zel_conf_crypt_key_deselect();
    if (!text.get() || set_set_path_obscured(conf, path, text.get()))
        zel_error_full(kEntity, kWarn, "%s is not obscured with the built-in key and is left as it is", path);
}

void reobscure_bytes(set **conf, const char *path, int len)
{
    const Heap<unsigned char> bytes(new_array<unsigned char>(static_cast<size_t>(len)));
    if (set_get_path_bin_buf_unobscured(conf, path, bytes.get()) == len)
        set_set_path_bin_obscured(conf, path, len, bytes.get());
    else
        zel_error_full(kEntity, kWarn, "%s holds no obscured bytes and is left as it is", path);
}

void reobscure(set **conf, const char *path, int type)
{
    const char *stored = set_get_path_strz(conf, path);
    const int len = set_get_path_bin_len(conf, path);
    if (!*stored)
        return;
    if (len == 0)
        zel_error_full(kEntity, kWarn, "%s holds no obscured bytes and is left as it is", path);
    else if (type == 0)
        reobscure_text(conf, path);
    else
        reobscure_bytes(conf, path, len);
}

} // namespace

char *kutil::read_padded_secret(set **conf, const char *path)
{
    const int len = set_get_path_bin_len(conf, path);
    if (len == 0)
        return nullptr;
    const Heap<unsigned char> bytes(new_array<unsigned char>(static_cast<size_t>(len)));
    if (set_get_path_bin_buf(conf, path, bytes.get()) != len)
        return nullptr;
    char *text = unobscure_str(bytes.get(), len);
    if (text && !is_padded_text(text, len)) {
        const SecretText refused(text);
        return nullptr;
    }
    return text;
}

int zel_conf_crypt_key_load(set **conf)
{
    if (!conf || !*conf)
        return 0;
    zel_conf_crypt_key_change(CONF_KEY_DEFAULT);
    load_entry(conf, CONF_KEY_FACTORY, kFactoryKeyPath);
    if (!load_entry(conf, CONF_KEY_DEVICE, kDeviceKeyPath))
        return -1;
    zel_conf_crypt_key_change(CONF_KEY_DEVICE);
    return 0;
}

void zel_conf_crypt_key_factory_set_new(set **conf, const char *hex)
{
    // Not by a select, of which there is one level: the caller may be inside of one.
    const int current = zel_conf_crypt_key_get_curr_type();
    zel_conf_crypt_key_change(CONF_KEY_DEFAULT);
    set_set_path_obscured(conf, kFactoryKeyPath, hex);
    zel_conf_crypt_key_change(current);
}

int zel_conf_crypt_key_factory_apply_new(set **conf)
{
    const char *stored = set_get_path_str(conf, kFactoryKeyPath);
    if (!stored || !*stored)
        return 0;
    set_set_path_str(conf, kDeviceKeyPath, stored);
    set_free(set_get(conf, kFactoryKeyPath));
    return 1;
}

void reobscure_zel_conf_params(set **conf, const char *prefix)
{
    struct Secret {
        char *path;
        int type;
    };
    // The list first: a secret may stand anywhere in the tree that the walk goes over.
    Heap<Secret> secrets;
    size_t count = 0;
    for (set **son = set_get_son(set_get(conf, kSecretsPath), 0); son; son = set_get_next(son)) {
        const char *name = set_get_path_str(son, "name");
        if (!name || !*name || !starts_with(name, view(prefix)))
            continue;
        secrets.reset(grow_array(secrets.release(), count + 1));
        secrets.get()[count++] = {copy_text(name), str2code(obscure_type_str, set_get_path_str(son, "type"))};
    }
    for (size_t i = 0; i < count; i++) {
        const HeapText path(secrets.get()[i].path);
        reobscure(conf, path.get(), secrets.get()[i].type);
    }
}
