#include "base.h"

#include <charconv>

namespace mgmtd
{

void append_number(TextBuilder *out, uint64_t number)
{
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof(digits), number);
    out->append(View(digits, static_cast<size_t>(end.ptr - digits)));
}

const char *shown(View text)
{
    static char buffer[200 * 4 + 4];
    constexpr char kDigits[] = "0123456789abcdef";
    char *end = buffer;
    for (const char c : kutil::sub(text, 0, 200)) {
        if (kutil::is_print(c) && c != '&') {
            *end++ = c;
            continue;
        }
        *end++ = '&';
        *end++ = kDigits[static_cast<unsigned char>(c) >> 4];
        *end++ = kDigits[static_cast<unsigned char>(c) & 15];
        *end++ = ';';
    }
    if (text.size() > 200)
        end = kutil::put(end, "...");
    *end = '\0';
    return buffer;
}

} // namespace mgmtd
