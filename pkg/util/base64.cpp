#include "base64.h"

#include "internal/chars.h"

#include <climits>
#include <cstddef>
#include <cstdint>

using namespace kutil;

namespace
{

constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
static_assert(sizeof(kLetters) == 64 + 1);

// The six bits of a letter, or -1.
constexpr int letter_value(char c)
{
    if (is_upper(c))
        return c - 'A';
    if (is_lower(c))
        return c - 'a' + 26;
    if (is_digit(c))
        return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

constexpr bool letters_read_back()
{
    for (int i = 0; i < 64; i++) {
        if (letter_value(kLetters[i]) != i)
            return false;
    }
    return true;
}
static_assert(letters_read_back());

} // namespace

int base64_enc(char *dst, const void *src, int len)
{
    if (!dst)
        return 0;
    const size_t size = src && len > 0 ? static_cast<size_t>(len) : 0;
    if ((size + 2) / 3 > INT_MAX / 4)
        return -1;
    const unsigned char *bytes = static_cast<const unsigned char *>(src);
    char *out = dst;
    for (size_t at = 0; at < size; at += 3) {
        const size_t present = size - at < 3 ? size - at : 3;
        uint32_t group = static_cast<uint32_t>(bytes[at]) << 16;
        if (present > 1)
            group |= static_cast<uint32_t>(bytes[at + 1]) << 8;
        if (present > 2)
            group |= bytes[at + 2];
        *out++ = kLetters[group >> 18];
        *out++ = kLetters[(group >> 12) & 63];
        *out++ = present > 1 ? kLetters[(group >> 6) & 63] : '=';
        *out++ = present > 2 ? kLetters[group & 63] : '=';
    }
    *out = '\0';
    return static_cast<int>(out - dst);
}

int base64_dec(void *dst, const char *src)
{
    if (!dst || !src)
        return -1;
    unsigned char *out = static_cast<unsigned char *>(dst);
    size_t count = 0;
    uint32_t bits = 0; // the newest bits; those above `held` were written
    int held = 0;
    for (; *src; src++) {
        if (is_space(*src))
            continue;
        const int value = letter_value(*src);
        if (value < 0)
            break;
        bits = bits << 6 | static_cast<uint32_t>(value);
        held += 6;
        if (held < 8)
            continue;
        held -= 8;
        if (count == INT_MAX)
            return -1;
        out[count++] = static_cast<unsigned char>(bits >> held);
    }
    return count ? static_cast<int>(count) : -1;
}
