#ifndef KUTIL_INTERNAL_TEXT_H
#define KUTIL_INTERNAL_TEXT_H

// Views of text, and the few operations on them that the standard type offers only with the C++ run-time
// library.

#include "chars.h"

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kutil
{

using View = std::string_view;

// NULL counts as "".
inline View view(const char *text) { return text ? View(text) : View("", 0); }

inline const char *text_or_empty(const char *text) { return text ? text : ""; }

// At most `count` characters of `text` from `pos`; both are clipped.
constexpr View sub(View text, size_t pos, size_t count = View::npos)
{
    if (pos > text.size())
        pos = text.size();
    if (count > text.size() - pos)
        count = text.size() - pos;
    return View(text.data() + pos, count);
}

inline bool starts_with(View text, View prefix) { return sub(text, 0, prefix.size()) == prefix; }

inline bool ends_with(View text, View suffix)
{
    return text.size() >= suffix.size() && sub(text, text.size() - suffix.size()) == suffix;
}

// The first `part` in `text`, or NULL; the time is linear in the text whatever they hold.
inline const char *find(View text, View part)
{
    return static_cast<const char *>(memmem(text.data(), text.size(), part.data(), part.size()));
}

constexpr bool equal_ignoring_case(View a, View b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); i++) {
        if (to_lower(a[i]) != to_lower(b[i]))
            return false;
    }
    return true;
}

// memcpy that takes an empty source of any address; returns the end of what it wrote.
inline char *put(char *to, View text)
{
    if (!text.empty())
        memcpy(to, text.data(), text.size());
    return to + text.size();
}

// The first character from `at` on that is no white space.
constexpr const char *skip_space(const char *at)
{
    while (is_space(*at))
        at++;
    return at;
}

constexpr View trim_left(View text)
{
    while (!text.empty() && is_space(text.front()))
        text.remove_prefix(1);
    return text;
}

constexpr View trim_right(View text)
{
    while (!text.empty() && is_space(text.back()))
        text.remove_suffix(1);
    return text;
}

constexpr View trim(View text) { return trim_left(trim_right(text)); }

// Membership in a set of characters, one test per character instead of a search per character. The NUL that
// ends a text is never a member.
class CharSet
{
public:
    constexpr explicit CharSet(View members)
    {
        for (const char c : members)
            bits_[index(c)] |= bit(c);
    }
    constexpr bool contains(char c) const { return (bits_[index(c)] & bit(c)) != 0; }

private:
    static constexpr unsigned index(char c) { return static_cast<unsigned char>(c) >> 5; }
    static constexpr unsigned bit(char c) { return 1U << (static_cast<unsigned char>(c) & 31); }
    unsigned bits_[8] = {};
};

} // namespace kutil

#endif
