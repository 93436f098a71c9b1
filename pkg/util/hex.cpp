#include "hex.h"

#include "internal/number.h"
#include "internal/text.h"

#include <algorithm>
#include <charconv>

using namespace kutil;

int hex2int(const char *text) { return static_cast<int>(parse_u32(text_or_empty(text), nullptr, 16)); }

char *int2hex(int n)
{
    static char buffer[16];
    *std::to_chars(buffer, buffer + sizeof(buffer) - 1, static_cast<uint32_t>(n), 16).ptr = '\0';
    return buffer;
}

char *bin_2_hex(const void *bytes, size_t len, char *out)
{
    static constexpr char digits[] = "0123456789abcdef";
    if (!out)
        return out;
    const unsigned char *in = static_cast<const unsigned char *>(bytes);
    char *end = out;
    for (; in && len; in++, len--) {
        *end++ = digits[*in >> 4];
        *end++ = digits[*in & 15];
    }
    *end = '\0';
    return out;
}

size_t hex_2_bin(const char *text, void *out)
{
    const View digits = view(text);
    if (!out || digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), is_xdigit))
        return 0;
    unsigned char *bytes = static_cast<unsigned char *>(out);
    for (size_t i = 0; i < digits.size(); i += 2)
        *bytes++ = static_cast<unsigned char>(xdigit_value(digits[i]) * 16 + xdigit_value(digits[i + 1]));
    return digits.size() / 2;
}
