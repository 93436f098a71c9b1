#include "set_value.h"

#include "hex.h"
#include "internal/c_locale.h"
#include "internal/heap.h"
#include "internal/number.h"
#include "internal/set_node.h"
#include "lines.h"
#include "mac.h"
#include "set_mask.h"
#include "str.h"

#include <climits>

using namespace kutil;

char *set_get_path_str(set **handle, const char *path) { return set_son_get_str(set_get(handle, path)); }

char *set_get_path_strz(set **handle, const char *path) { return set_son_get_strz(set_get(handle, path)); }

char *set_get_path_str_default(set **handle, const char *path, const char *def)
{
    char *text = set_get_path_str(handle, path);
    return text ? text : const_cast<char *>(def);
}

int set_get_path_int(set **handle, const char *path) { return set_son_get_int(set_get(handle, path)); }

int set_get_path_flag(set **handle, const char *path) { return set_get_path_int(handle, path); }

int set_get_path_int_default(set **handle, const char *path, int def)
{
    int32_t value = def;
    whole_i32(set_get_path_str(handle, path), &value);
    return value;
}

int set_get_path_flag_default(set **handle, const char *path, int def)
{
    return set_get_path_int_default(handle, path, def);
}

uint32_t set_get_path_u32(set **handle, const char *path) { return set_son_get_u32(set_get(handle, path)); }

uint32_t set_get_path_u32_default(set **handle, const char *path, uint32_t def)
{
    uint32_t value = def;
    whole_u32(set_get_path_str(handle, path), &value);
    return value;
}

uint64_t set_get_path_u64(set **handle, const char *path) { return set_son_get_u64(set_get(handle, path)); }

time_t set_get_path_time(set **handle, const char *path)
{
    return static_cast<time_t>(set_get_path_u64(handle, path));
}

int set_get_path_hex(set **handle, const char *path) { return set_son_get_hex(set_get(handle, path)); }

double set_get_path_float(set **handle, const char *path) { return set_son_get_float(set_get(handle, path)); }

int set_get_path_enum(set **handle, const char *path, const code_names *table)
{
    return set_get_path_enum_default(handle, path, table, -1);
}

int set_get_path_enum_default(set **handle, const char *path, const code_names *table, int def)
{
    const char *word = set_get_path_str(handle, path);
    return word ? str2code_ex(table, word) : def;
}

set **set_set_path_int(set **handle, const char *path, int n)
{
    return set_set_path_str(handle, path, itoa(n));
}

set **set_set_path_flag(set **handle, const char *path, int on)
{
    return set_set_path_str(handle, path, on ? "1" : "0");
}

set **set_set_path_u32(set **handle, const char *path, uint32_t n)
{
    return set_set_path_str(handle, path, u32toa(n));
}

set **set_set_path_u64(set **handle, const char *path, uint64_t n)
{
    return set_set_path_str(handle, path, u64toa(n));
}

set **set_set_path_time(set **handle, const char *path, time_t t)
{
    return set_set_path_u64(handle, path, static_cast<uint64_t>(static_cast<int64_t>(t)));
}

set **set_set_path_hex(set **handle, const char *path, int n)
{
    return set_set_path_str(handle, path, int2hex(n));
}

set **set_set_path_float(set **handle, const char *path, double n)
{
    const CLocale scope;
    return set_set_path_str(handle, path, ftoa(n));
}

set **set_set_path_enum(set **handle, const char *path, const code_names *table, int code)
{
    return set_set_path_str(handle, path, code2str_ex(table, code));
}

iaddr *set_get_path_ip_ex(iaddr *out, set **handle, const char *path)
{
    if (!out)
        return nullptr;
    *out = {};
    str2iaddr(out, set_get_path_str(handle, path));
    return out;
}

uint32_t *set_get_path_ip(uint32_t *out, set **handle, const char *path)
{
    if (!out)
        return nullptr;
    iaddr address;
    *out = 0;
    if (set_get_path_ip_ex(&address, handle, path)->family == AF_INET)
        iaddr2in_addr(&address, out);
    return out;
}

uint32_t *set_get_path_ip_default(uint32_t *out, set **handle, const char *path, const char *def)
{
    if (out && !zel_inet_aton(set_get_path_str(handle, path), out))
        zel_inet_aton(def, out);
    return out;
}

int set_get_path_ip_prefix_len(set **handle, const char *path)
{
    const char *text = set_get_path_strz(handle, path);
    if (str_isnumber(text, 0))
        return parse_i32(text) & 0xFF;
    iaddr mask;
    return iaddr_mask2prefix_len(*set_get_path_ip_ex(&mask, handle, path)) & 0xFF;
}

uint8_t *set_get_path_mac(uint8_t out[6], set **handle, const char *path)
{
    constexpr size_t kMacSize = 6;
    if (!out)
        return nullptr;
    memset(out, 0, kMacSize);
    atomac_cpy(set_get_path_str(handle, path), out);
    return out;
}

int set_get_path_bin_len(set **handle, const char *path)
{
    const size_t digits = strlen(set_get_path_strz(handle, path));
    return digits % 2 == 0 && digits / 2 <= INT_MAX ? static_cast<int>(digits / 2) : 0;
}

int set_get_path_bin_buf(set **handle, const char *path, void *buf)
{
    const int promised = set_get_path_bin_len(handle, path);
    if (!buf || promised == 0)
        return 0;
    const auto len = static_cast<int>(hex_2_bin(set_get_path_strz(handle, path), buf));
    if (len == 0)
        memset(buf, 0, static_cast<size_t>(promised));
    return len;
}

set **set_set_path_ip_ex(set **handle, const char *path, const iaddr *a)
{
    return set_set_path_str(handle, path, iaddr2str(a));
}

set **set_set_path_ip(set **handle, const char *path, uint32_t ip)
{
    iaddr address;
    return set_set_path_ip_ex(handle, path, ip2iaddr(&address, ip));
}

set **set_set_path_mac(set **handle, const char *path, const uint8_t *mac)
{
    return mac ? set_set_path_str(handle, path, mactoa(mac)) : nullptr;
}

set **set_set_path_bin(set **handle, const char *path, int len, const void *bytes)
{
    const size_t count = bytes && len > 0 ? static_cast<size_t>(len) : 0;
    const HeapText text(new_text(mul_sizes(count, 2)));
    return set_set_path_str(handle, path, bin_2_hex(count ? bytes : nullptr, count, text.get()));
}

void ip_set_set_or_free_ex(set **handle, const char *path, const iaddr *a)
{
    if (iaddr_is_valid(a) && !iaddr_is_any(a))
        set_set_path_ip_ex(handle, path, a);
    else
        set_free(set_get(handle, path));
}

void ip_set_set_or_free(set **handle, const char *path, uint32_t ip)
{
    if (ip)
        set_set_path_ip(handle, path, ip);
    else
        set_free(set_get(handle, path));
}

void set_set_path_delim_list(set **handle, const char *path, const char *text, const char *delims,
                             int skip_empty)
{
    // Copies first: the text and the path may lie in the sons that go.
    char **pieces = nullptr;
    lines_str_split(&pieces, text, delims, skip_empty);
    const HeapLines owner(pieces);
    const HeapText below(path ? copy_text(path) : nullptr);
    set_free_sons(handle);
    set **son = nullptr;
    for (char **piece = pieces; *piece; piece++) {
        son = son ? tree_index_add_behind(son, writing_mask()) : set_index_add(handle, -1);
        set_set_path_str(son, below.get(), *piece);
    }
}

int set_set_path_key_list(set **handle, const char *path, const code_names *table, uint32_t bits)
{
    set **list = set_set(handle, path);
    for (; list && table && table->code != -1; table++) {
        const char *word = table->names ? table->names[0] : nullptr;
        if (word)
            set_set_path_flag(list, word, (bits & static_cast<uint32_t>(table->code)) != 0);
    }
    return -1;
}

static const char *split_path(int kind)
{
    return kind == 1 ? "split/shared" : kind == 2 ? "split/specific" : nullptr;
}

set **set_split_get(set **handle, int kind)
{
    const char *path = split_path(kind);
    return path ? set_get(handle, path) : handle;
}

set **set_split_set(set **handle, int kind)
{
    const char *path = split_path(kind);
    return path ? set_set(handle, path) : handle;
}
