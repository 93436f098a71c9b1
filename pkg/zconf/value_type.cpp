#include "value_type.h"

#include "common/secrets.h"
#include "util/code_tables.h"
#include "util/hex.h"
#include "util/internal/c_locale.h"
#include "util/internal/chars.h"
#include "util/internal/number.h"
#include "util/mac.h"
#include "util/set_value.h"
#include "util/str.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <strings.h>

namespace zconf
{

using kutil::HeapText;
using kutil::View;

// The checks are stricter than the accessors, which take the number that a text starts with; what passes is
// read and written by the accessors themselves, so it becomes what every program stores.
struct TypeRow {
    const char *name;
    const char *description;
    bool (*is_stored)(const char *text); // a program reads the whole text as such a value
    bool (*is_exact)(const char *text);  // besides: storing it loses and changes nothing; NULL: always
    set **(*rewrite)(set **key);
};

namespace
{

bool has_no_minus(const char *text) { return !strchr(text, '-'); }

bool is_int(const char *text)
{
    int32_t value;
    return kutil::whole_i32(text, &value);
}

bool is_u32(const char *text)
{
    uint32_t value;
    return kutil::whole_u32(text, &value);
}

// A number whose digits fit 64 bits, which is when they come back from it.
bool read_u64(const char *text, bool *negative, uint64_t *magnitude)
{
    const char *digits = text + strspn(text, " \t\n\v\f\r");
    *negative = *digits == '-';
    digits += *digits == '-' || *digits == '+';
    if (!kutil::is_digit(*digits))
        return false;
    const char *rest = nullptr;
    *magnitude = kutil::parse_u64(digits, &rest);
    digits += strspn(digits, "0");
    return !*rest && strcmp(*magnitude ? u64toa(*magnitude) : "", digits) == 0;
}

bool is_u64(const char *text)
{
    bool negative;
    uint64_t magnitude;
    return read_u64(text, &negative, &magnitude);
}

bool is_time(const char *text)
{
    constexpr uint64_t kMax = std::numeric_limits<int64_t>::max();
    bool negative;
    uint64_t magnitude;
    return read_u64(text, &negative, &magnitude) && magnitude <= kMax + negative;
}

bool is_hex(const char *text)
{
    const char *digits = text + (text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? 2 : 0);
    const size_t length = strspn(digits, "0123456789abcdefABCDEF");
    return length > 0 && !digits[length] && strlen(digits + strspn(digits, "0")) <= 8;
}

// A fraction with an exponent and whatever else strtod takes, up to what the text form has room for.
bool is_float(const char *text)
{
    constexpr double kTooLarge = 1e70;
    const kutil::CLocale scope;
    char *rest = nullptr;
    const double value = strtod(text, &rest);
    return rest != text && !*rest && std::isfinite(value) && std::fabs(value) < kTooLarge;
}

bool is_float_of_six_digits(const char *text)
{
    const kutil::CLocale scope;
    const double value = strtod(text, nullptr);
    return strtod(ftoa(value), nullptr) == value;
}

bool is_ip(const char *text)
{
    iaddr address;
    return str2iaddr(&address, text) == 0;
}

// No zone, which an address has no room for, and no short or octal form, which is another address than it
// seems.
bool is_plain_ip(const char *text)
{
    iaddr address;
    if (strchr(text, ':'))
        return !strchr(text, '%');
    return str2iaddr(&address, text) == 0 && strcmp(iaddr2str(&address), text) == 0;
}

bool is_mac(const char *text)
{
    const uint8_t *mac = atomacz(text);
    return mac && strcasecmp(mactoa(mac), text) == 0;
}

bool is_bin(const char *text)
{
    const size_t length = strspn(text, "0123456789abcdefABCDEF");
    return length % 2 == 0 && !text[length] && length / 2 <= INT_MAX;
}

set **rewrite_int(set **key) { return set_set_path_int(key, "", set_get_path_int(key, "")); }
set **rewrite_u32(set **key) { return set_set_path_u32(key, "", set_get_path_u32(key, "")); }
set **rewrite_u64(set **key) { return set_set_path_u64(key, "", set_get_path_u64(key, "")); }
set **rewrite_hex(set **key) { return set_set_path_hex(key, "", set_get_path_hex(key, "")); }
set **rewrite_float(set **key) { return set_set_path_float(key, "", set_get_path_float(key, "")); }
set **rewrite_flag(set **key) { return set_set_path_flag(key, "", set_get_path_flag(key, "")); }
set **rewrite_time(set **key) { return set_set_path_time(key, "", set_get_path_time(key, "")); }

set **rewrite_ip(set **key)
{
    iaddr address;
    return set_set_path_ip_ex(key, "", set_get_path_ip_ex(&address, key, ""));
}

set **rewrite_mac(set **key)
{
    uint8_t mac[6];
    return set_set_path_mac(key, "", set_get_path_mac(mac, key, ""));
}

set **rewrite_bin(set **key)
{
    const int len = set_get_path_bin_len(key, "");
    const kutil::Heap<uint8_t> bytes(kutil::new_array<uint8_t>(static_cast<size_t>(len) + 1));
    return set_set_path_bin(key, "", set_get_path_bin_buf(key, "", bytes.get()), bytes.get());
}

// The rows with a meaning of their own stand at the end, in this order.
constexpr TypeRow kRows[] = {
    {"int", "a decimal number from -2147483648 to 2147483647", is_int, nullptr, rewrite_int},
    {"u32", "a decimal number from 0 to 4294967295", is_u32, has_no_minus, rewrite_u32},
    {"u64", "a decimal number from 0 to 18446744073709551615", is_u64, has_no_minus, rewrite_u64},
    {"hex", "a hexadecimal number of at most 32 bits", is_hex, nullptr, rewrite_hex},
    {"float", "a decimal number with at most six digits behind the point", is_float, is_float_of_six_digits,
     rewrite_float},
    {"flag", "a number: 0 for off, any other for on", is_int, nullptr, rewrite_flag},
    {"time", "a decimal number of seconds since 1970", is_u64, is_time, rewrite_time},
    {"ip", "an IPv4 or IPv6 address", is_ip, is_plain_ip, rewrite_ip},
    {"mac", "a MAC address like 00:11:22:aa:bb:cc", is_mac, nullptr, rewrite_mac},
    {"bin", "bytes of two hexadecimal digits each", is_bin, nullptr, rewrite_bin},
    {"enum:", "a word of the enumeration", nullptr, nullptr, nullptr},
    {"secret", "an obscured text", nullptr, nullptr, nullptr},
    {"bin-secret", "obscured bytes, of two hexadecimal digits each", nullptr, nullptr, nullptr},
};
constexpr const TypeRow *kBinSecret = std::end(kRows) - 1;
constexpr const TypeRow *kSecret = kBinSecret - 1;
constexpr const TypeRow *kEnum = kSecret - 1;
constexpr const TypeRow *kTime = kEnum - 4;
static_assert(View(kTime->name) == "time");

const code_names *find_words(View name)
{
    char exact[80];
    char with_suffix[sizeof(exact) + 4];
    if (name.empty() || name.size() >= sizeof(exact))
        return nullptr;
    *kutil::put(exact, name) = '\0';
    snprintf(with_suffix, sizeof(with_suffix), "%s_str", exact);
    const code_names *words = code_names_find(exact);
    return words ? words : code_names_find(with_suffix);
}

// A key that holds a text, to let the accessors loose on.
class Scratch
{
public:
    explicit Scratch(const char *text) { set_set_path_str(&key_, "", text); }
    ~Scratch() { set_free(&key_); }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    set **key() { return &key_; }
    HeapText text() { return HeapText(kutil::copy_text(set_get_path_strz(&key_, ""))); }

private:
    set *key_ = set_alloc("scratch");
};

} // namespace

bool ValueType::read(View name)
{
    if (kutil::starts_with(name, kEnum->name)) {
        row_ = kEnum;
        words_ = find_words(kutil::sub(name, strlen(kEnum->name)));
        return words_ != nullptr;
    }
    row_ = std::find_if(kRows, std::end(kRows), [&](const TypeRow &row) { return name == row.name; });
    return row_ != std::end(kRows);
}

bool ValueType::is_secret() const { return row_ == kSecret || row_ == kBinSecret; }
bool ValueType::is_bytes() const { return row_ == kBinSecret; }
const char *ValueType::description() const { return row_->description; }

HeapText ValueType::to_stored(const char *text) const
{
    Scratch scratch(text);
    if (words_) {
        const int code = str2code_ex(words_, text);
        return code != -1 && set_set_path_enum(scratch.key(), "", words_, code) ? scratch.text() : nullptr;
    }
    if (!row_->is_stored(text) || (row_->is_exact && !row_->is_exact(text)))
        return nullptr;
    row_->rewrite(scratch.key());
    return scratch.text();
}

HeapText ValueType::to_shown(const char *stored) const
{
    if (words_)
        return to_stored(stored);
    if (is_secret()) {
        const auto kind = is_bytes() ? kutil::common::Secret::bytes : kutil::common::Secret::text;
        return HeapText(looks_obscured(stored, kind) ? kutil::copy_text(stored) : nullptr);
    }
    if (!row_->is_stored(stored))
        return nullptr;
    Scratch scratch(stored);
    if (row_ == kTime) {
        char text[24];
        snprintf(text, sizeof(text), "%lld", static_cast<long long>(set_get_path_time(scratch.key(), "")));
        return HeapText(kutil::copy_text(text));
    }
    row_->rewrite(scratch.key());
    return scratch.text();
}

} // namespace zconf
