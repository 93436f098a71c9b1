#ifndef KUTIL_INTERNAL_CHARS_H
#define KUTIL_INTERNAL_CHARS_H

// Character classes of the POSIX locale, whatever locale the process has set. Bytes from 128 up belong to
// none.

namespace kutil
{

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
constexpr bool is_lower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool is_upper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool is_alpha(char c) { return is_lower(c) || is_upper(c); }
constexpr bool is_alnum(char c) { return is_alpha(c) || is_digit(c); }
constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }
constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_print(char c) { return c >= 32 && c <= 126; }
constexpr bool is_xdigit(char c) { return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
constexpr char to_lower(char c) { return is_upper(c) ? static_cast<char>(c + ('a' - 'A')) : c; }
constexpr char to_upper(char c) { return is_lower(c) ? static_cast<char>(c - ('a' - 'A')) : c; }

// The value of a hexadecimal digit, or -1.
constexpr int xdigit_value(char c)
{
    if (is_digit(c))
        return c - '0';
    const char lower = to_lower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace kutil

#endif
