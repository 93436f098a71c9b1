#include "str.h"

#include "internal/text.h"

#include <algorithm>
#include <cstring>
#include <regex.h>

namespace kutil
{
namespace
{

// What follows the token that strtokz returned last.
constinit char *next_token = nullptr;

int compare(char a, char b) { return static_cast<unsigned char>(a) - static_cast<unsigned char>(b); }
int compare_ignoring_case(char a, char b) { return compare(to_lower(a), to_lower(b)); }

// Compares at most `n` characters.
int compare_ignoring_case(const char *a, const char *b, size_t n)
{
    for (; n; a++, b++, n--) {
        const int difference = compare_ignoring_case(*a, *b);
        if (difference || !*a)
            return difference;
    }
    return 0;
}

using ComparePart = int (*)(const char *, const char *, size_t);

int compare_part(const char *s, const char *word, const char *delims, ComparePart compare_chars)
{
    const View text = view(s);
    const size_t length = str_cspn(s, delims);
    const size_t word_length = view(word).size();
    if (length == text.size())
        return compare_chars(text.data(), text_or_empty(word), word_length + 1);
    return length == word_length ? compare_chars(text.data(), text_or_empty(word), length) : 1;
}

template <class Test>
bool every(const char *s, Test test)
{
    const View text = view(s);
    return std::all_of(text.begin(), text.end(), test);
}

enum class Printable { kNo, kYes };

int is_acceptable(const char *s, const CharSet &forbidden, Printable printable)
{
    return every(s, [&forbidden, printable](char c) {
        return !forbidden.contains(c) && (printable == Printable::kNo || is_print(c));
    });
}

char *found(const char *hit) { return const_cast<char *>(hit); }

} // namespace
} // namespace kutil

using namespace kutil;

int str_cmp(const char *a, const char *b) { return strcmp(text_or_empty(a), text_or_empty(b)); }

int str_casecmp(const char *a, const char *b)
{
    return compare_ignoring_case(text_or_empty(a), text_or_empty(b), SIZE_MAX);
}

int str_cmpsub(const char *s, const char *prefix)
{
    return strncmp(text_or_empty(s), text_or_empty(prefix), view(prefix).size());
}

int str_casecmpsub(const char *s, const char *prefix)
{
    return compare_ignoring_case(text_or_empty(s), text_or_empty(prefix), view(prefix).size());
}

int str_rcasecmpsub(const char *s, const char *suffix)
{
    const View text = view(s);
    const View end = view(suffix);
    if (text.empty() || end.empty() || text.size() < end.size())
        return 1;
    return compare_ignoring_case(s + (text.size() - end.size()), suffix, end.size());
}

int str_ends_with(const char *s, const char *suffix) { return ends_with(view(s), view(suffix)); }

int str_cmpdelim(const char *s, const char *word, const char *delims)
{
    return compare_part(s, word, delims, strncmp);
}

int str_casecmpdelim(const char *s, const char *word, const char *delims)
{
    return compare_part(s, word, delims, compare_ignoring_case);
}

int str_wscmp(const char *a, const char *b)
{
    a = skip_space(text_or_empty(a));
    b = skip_space(text_or_empty(b));
    while (*a && *a == *b) {
        a = skip_space(a + 1);
        b = skip_space(b + 1);
    }
    // Deliberate: b minus a, the opposite of strcmp.
    return static_cast<signed char>(*b) - static_cast<signed char>(*a);
}

int str_isempty(const char *s) { return !s || !*s; }

int str_isspace(const char *s) { return every(s, is_space); }

int str_hasspace(const char *s)
{
    return !every(s, [](char c) { return !is_space(c); });
}

int str_isnumber(const char *s, int allow_ws)
{
    const View digits = allow_ws ? trim(view(s)) : view(s);
    return digits.size() >= 1 && digits.size() <= 10 && std::all_of(digits.begin(), digits.end(), is_digit);
}

int str_isxdigit(const char *s) { return s && every(s, is_xdigit); }

int str_is_ascii(const char *s)
{
    return every(s, [](char c) { return static_cast<unsigned char>(c) < 128; });
}

int char_is_valid(int ch) { return ch >= 32 && ch <= 126; }

int charset_is_valid(const char *s) { return every(s, is_print); }

int sip_username_charset_is_valid(const char *s)
{
    static constexpr CharSet forbidden(" :@\"|\\=<>[]?,;");
    return is_acceptable(s, forbidden, Printable::kYes);
}

int knet_password_charset_is_valid(const char *s)
{
    static constexpr CharSet forbidden(" :@\"|\\/=+<>[]*?,;_");
    return is_acceptable(s, forbidden, Printable::kYes);
}

int username_charset_is_valid(const char *s)
{
    static constexpr CharSet forbidden(" :\"|\\/=+<>[]*?,;");
    return is_acceptable(s, forbidden, Printable::kYes);
}

int credentials_charset_is_valid(const char *s)
{
    static constexpr CharSet forbidden(" :@\"|\\/=+<>[]*?,;");
    return is_acceptable(s, forbidden, Printable::kNo);
}

size_t str_nlen(const char *s, size_t max) { return s ? strnlen(s, max) : 0; }

char *strrevchr(const char *start, int ch, const char *end)
{
    if (!start || !end || start > end)
        return nullptr;
    return static_cast<char *>(memrchr(found(start), ch, static_cast<size_t>(end - start) + 1));
}

char *strchrs(const char *s, const char *chars) { return s && chars ? found(strpbrk(s, chars)) : nullptr; }

size_t str_cspn(const char *s, const char *chars) { return strcspn(text_or_empty(s), text_or_empty(chars)); }

size_t str_count_chrs(const char *s, const char *chars)
{
    const View text = view(s);
    const CharSet members(view(chars));
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [&members](char c) { return members.contains(c); }));
}

size_t str_count_str(const char *s, const char *sub)
{
    const View wanted = view(sub);
    if (wanted.empty())
        return 0;
    View text = view(s);
    size_t hits = 0;
    for (const char *hit = find(text, wanted); hit; hit = find(text, wanted)) {
        text.remove_prefix(static_cast<size_t>(hit - text.data()) + wanted.size());
        hits++;
    }
    return hits;
}

char *strnstr(const char *s, const char *sub, size_t n)
{
    return s && sub ? found(find(View(s, n), sub)) : nullptr;
}

char *str_memstr(const void *buf, const char *sub, size_t n)
{
    return strnstr(static_cast<const char *>(buf), sub, n);
}

char *strstrcase(const char *s, const char *sub)
{
    if (!s || !sub)
        return nullptr;
    const size_t length = strlen(sub);
    for (; *s; s++) {
        if (!compare_ignoring_case(s, sub, length))
            return found(s);
    }
    return nullptr;
}

char *strtokz(char *s, const char *delims)
{
    char *token = s ? s : next_token;
    if (!token)
        return nullptr;
    char *end = strchrs(token, delims);
    next_token = end ? end + 1 : nullptr;
    if (end)
        *end = '\0';
    return token;
}

char *tok_match(const char *s, const char *tok)
{
    return s && tok && !str_casecmpsub(s, tok) ? found(s) + strlen(tok) : nullptr;
}

char *tok_match_skip(const char *s, const char *tok)
{
    char *behind = tok_match(s, tok);
    while (behind && is_blank(*behind))
        behind++;
    return behind;
}

int str_re(const char *text, const char *pattern)
{
    regex_t expression;
    if (!pattern || regcomp(&expression, pattern, REG_EXTENDED | REG_NOSUB) != 0)
        return REG_NOMATCH;
    const int result = regexec(&expression, text_or_empty(text), 0, nullptr, 0);
    regfree(&expression);
    return result;
}
