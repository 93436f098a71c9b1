#include "util/str.h"

#include "support/text.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace
{
int sign(int n) { return (n > 0) - (n < 0); }

using Compare = int (*)(const char *, const char *);
using CharTest = int (*)(const char *);

// The characters that `test` refuses as a text of their own.
std::string refused(CharTest test)
{
    std::string characters;
    for (int c = 1; c < 256; c++) {
        const char text[] = {static_cast<char>(c), '\0'};
        if (!test(text))
            characters += text;
    }
    return characters;
}

std::string range(int first, int last)
{
    std::string characters;
    for (int c = first; c <= last; c++)
        characters += static_cast<char>(c);
    return characters;
}

std::string sorted(std::string text)
{
    std::sort(text.begin(), text.end(),
              [](char a, char b) { return static_cast<unsigned char>(a) < static_cast<unsigned char>(b); });
    return text;
}
} // namespace

TEST(StrCompare, Signs)
{
    struct Pair {
        const char *a, *b;
        int sign;
    };
    const std::pair<Compare, std::vector<Pair>> functions[] = {
        {str_cmp, {{"abc", "abd", -1}, {nullptr, "", 0}, {nullptr, "a", -1}, {"\xff", "a", 1}}},
        {str_casecmp,
         {{"aBc", "AbC", 0},
          {"a", nullptr, 1},
          {"a", "_", 1},
          {"A", "_", 1},
          {"\xc4", "\xe4", -1},
          {"AB", "abc", -1}}},
        {str_cmpsub, {{"abc", "ab", 0}, {"ab", "abc", -1}, {nullptr, nullptr, 0}, {"aBc", "ab", -1}}},
        {str_casecmpsub, {{"aBc", "ab", 0}, {"a", "ab", -1}, {nullptr, "a", -1}}},
        {str_rcasecmpsub,
         {{"file.TXT", ".txt", 0},
          {"file.txt", ".abc", 1},
          {"", "", 1},
          {"a", nullptr, 1},
          {"txt", ".txt", 1}}},
        {str_ends_with,
         {{"file.txt", ".txt", 1}, {"file.txt", ".TXT", 0}, {"xt", "txt", 0}, {nullptr, nullptr, 1}}},
        {str_wscmp,
         {{" a b", "ab ", 0},
          {nullptr, " \t\n\v\f\r", 0},
          {"a", "b", 1},
          {"ab", "a", -1},
          {"\xff", "a", 1},
          {"a", "\xff", -1}}}};
    for (const auto &[compare, pairs] : functions) {
        for (const Pair &pair : pairs)
            EXPECT_EQ(sign(compare(pair.a, pair.b)), pair.sign) << shown(pair.a) << " " << shown(pair.b);
    }
    EXPECT_EQ(str_wscmp("a \xff", "a b"), 'b' + 1) << "the difference of signed characters";

    struct {
        const char *s, *word, *delims;
        int plain, ignoring_case;
    } const parts[] = {{"key=value", "key", "=:", 0, 0}, {"KEY:value", "key", "=:", -1, 0},
                       {"key=value", "ke", "=", 1, 1},   {"key=value", "keys", "=", 1, 1},
                       {"key", "key", "=", 0, 0},        {"key", "kez", "=", -1, -1},
                       {"key", "ke", "=", 1, 1},         {"ke", "key", "=", -1, -1},
                       {"=value", "", "=", 0, 0},        {nullptr, nullptr, nullptr, 0, 0},
                       {"abd=", "abc", "=", 1, 1},       {"key=value", "key=value", nullptr, 0, 0}};
    for (const auto &row : parts) {
        EXPECT_EQ(sign(str_cmpdelim(row.s, row.word, row.delims)), row.plain)
            << shown(row.s) << " " << shown(row.word);
        EXPECT_EQ(sign(str_casecmpdelim(row.s, row.word, row.delims)), row.ignoring_case) << shown(row.s);
    }
    EXPECT_EQ(str_cmpdelim("a=", "zzzz", "="), 1) << "other lengths give 1, whatever stands there";
}

TEST(StrTest, Classes)
{
    const std::string space = "\t\n\v\f\r ", high = range(128, 255);
    const std::string not_printable = range(1, 31) + "\x7f" + high;
    struct {
        const char *what;
        CharTest test;
        std::string refused_characters;
        int null_result, empty_result;
    } const rows[] = {
        {"isempty", str_isempty, range(1, 255), 1, 1},
        {"not hasspace", [](const char *s) { return !str_hasspace(s) ? 1 : 0; }, space, 1, 1},
        {"isnumber", [](const char *s) { return str_isnumber(s, 0); },
         range(1, '0' - 1) + range('9' + 1, 255), 0, 0},
        {"isxdigit", str_isxdigit,
         range(1, '0' - 1) + range('9' + 1, 'A' - 1) + range('F' + 1, 'a' - 1) + range('f' + 1, 255), 0, 1},
        {"is_ascii", str_is_ascii, high, 1, 1},
        {"isspace", str_isspace, range(1, 8) + range(14, 31) + range(33, 255), 1, 1},
        {"charset", charset_is_valid, not_printable, 1, 1},
        {"sip", sip_username_charset_is_valid, sorted(not_printable + " :@\"|\\=<>[]?,;"), 1, 1},
        {"password", knet_password_charset_is_valid, sorted(not_printable + " :@\"|\\/=+<>[]*?,;_"), 1, 1},
        {"username", username_charset_is_valid, sorted(not_printable + " :\"|\\/=+<>[]*?,;"), 1, 1},
        {"credentials", credentials_charset_is_valid, sorted(" :@\"|\\/=+<>[]*?,;"), 1, 1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(refused(row.test), row.refused_characters) << row.what;
        EXPECT_EQ(row.test(nullptr), row.null_result) << row.what;
        EXPECT_EQ(row.test(""), row.empty_result) << row.what;
    }
    for (int c = -300; c < 600; c++)
        EXPECT_EQ(char_is_valid(c), c >= 32 && c <= 126) << c;
    EXPECT_EQ(charset_is_valid("ab\n"), 0) << "the last character counts";
    EXPECT_EQ(username_charset_is_valid("ab;cd"), 0);

    struct {
        const char *text;
        int plain, with_space;
    } const numbers[] = {{"1234567890", 1, 1}, {"12345678901", 0, 0},     {" 42 ", 0, 1}, {"-1", 0, 0},
                         {"4 2", 0, 0},        {" \t1234567890\n", 0, 1}, {"  ", 0, 0},   {"\xb2", 0, 0}};
    for (const auto &row : numbers) {
        EXPECT_EQ(str_isnumber(row.text, 0), row.plain) << row.text;
        EXPECT_EQ(str_isnumber(row.text, 1), row.with_space) << row.text;
    }
}

TEST(StrScan, Searching)
{
    const char text[] = "abcabd\0xyzABC";
    const char again[] = "aab";
    const char *const none = nullptr;
    struct {
        const char *what;
        const char *result, *expected;
    } const rows[] = {{"revchr", strrevchr(text, 'a', text + 5), text + 3},
                      {"revchr end included", strrevchr(text, 'd', text + 5), text + 5},
                      {"revchr start included", strrevchr(text, 'a', text + 2), text},
                      {"revchr one character", strrevchr(text, 'a', text), text},
                      {"revchr passes NUL", strrevchr(text, 'd', text + 9), text + 5},
                      {"revchr none", strrevchr(text, 'q', text + 9), none},
                      {"revchr reversed", strrevchr(text + 1, 'a', text), none},
                      {"revchr NULL", strrevchr(nullptr, 'a', text), none},
                      {"chrs", strchrs(text, "dc"), text + 2},
                      {"chrs none", strchrs(text, "xq"), none},
                      {"chrs empty", strchrs(text, ""), none},
                      {"chrs NULL", strchrs(nullptr, "a"), none},
                      {"chrs NULL set", strchrs(text, nullptr), none},
                      {"nstr", strnstr(text, "abd", 6), text + 3},
                      {"nstr ends within", strnstr(text, "abd", 5), none},
                      {"nstr passes NUL", strnstr(text, "xy", sizeof(text)), text + 7},
                      {"nstr empty", strnstr(text, "", 0), text},
                      {"nstr longer", strnstr(text, "abcabdabcabdabcabd", 6), none},
                      {"nstr NULL", strnstr(nullptr, "a", 0), none},
                      {"nstr NULL sub", strnstr(text, nullptr, 3), none},
                      {"memstr", str_memstr(text, "yz", sizeof(text)), text + 8},
                      {"memstr ends within", str_memstr(text, "yz", 9), none},
                      {"memstr retry", str_memstr(again, "ab", 3), again + 1},
                      {"memstr NULL", str_memstr(nullptr, "a", 0), none},
                      {"strcase", strstrcase(text, "ABD"), text + 3},
                      {"strcase end", strstrcase(again, "AB"), again + 1},
                      {"strcase none", strstrcase(text, "abda"), none},
                      {"strcase empty sub", strstrcase(text, ""), text},
                      {"strcase empty text", strstrcase("", ""), none},
                      {"strcase NULL", strstrcase(nullptr, "a"), none},
                      {"tok shorter", tok_match("abc", "abcd"), none},
                      {"tok", tok_match(text, "ABC"), text + 3},
                      {"tok NULL", tok_match(nullptr, ""), none},
                      {"tok NULL tok", tok_match(text, nullptr), none}};
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, row.expected) << row.what;
    }
    EXPECT_STREQ(tok_match_skip("Host: \t x", "host:"), "x");
    EXPECT_STREQ(tok_match_skip("Host:\nx", "host:"), "\nx") << "blanks and tabs only";
    EXPECT_EQ(tok_match_skip("Hos", "host:"), nullptr);
    EXPECT_STREQ(tok_match("Host: x", "host:"), " x");
}

TEST(StrScan, Counting)
{
    EXPECT_EQ(str_nlen("abc", 2), 2U);
    EXPECT_EQ(str_nlen("abc", SIZE_MAX), 3U);
    EXPECT_EQ(str_nlen(nullptr, 5), 0U);
    EXPECT_EQ(str_cspn("abc=d", "=:"), 3U);
    EXPECT_EQ(str_cspn("abc", nullptr), 3U);
    EXPECT_EQ(str_cspn(nullptr, "a"), 0U);
    EXPECT_EQ(str_count_chrs("a,b;c,\xff", ",;\xff"), 4U);
    EXPECT_EQ(str_count_chrs("abc", nullptr), 0U);
    struct {
        const char *s, *sub;
        size_t count;
    } const rows[] = {{"aaaaa", "aa", 2}, {"abab", "ab", 2},     {"abc", "", 0},
                      {"", "a", 0},       {nullptr, nullptr, 0}, {"aab", "ab", 1}};
    for (const auto &row : rows)
        EXPECT_EQ(str_count_str(row.s, row.sub), row.count) << shown(row.s) << " " << shown(row.sub);
}

TEST(StrScan, TokensKeepEmptyOnes)
{
    const auto tokens = [](const char *text, const char *delims) {
        std::string result;
        Str copy(text);
        for (char *token = strtokz(copy.p, delims); token; token = strtokz(nullptr, delims))
            result += std::string("<") + token + ">";
        return result;
    };
    EXPECT_EQ(strtokz(nullptr, ","), nullptr);
    EXPECT_EQ(tokens("a,,b", ","), "<a><><b>");
    EXPECT_EQ(tokens(",a;", ",;"), "<><a><>");
    EXPECT_EQ(tokens("", ","), "<>");
    EXPECT_EQ(tokens("a,b", nullptr), "<a,b>");
    EXPECT_EQ(strtokz(nullptr, ","), nullptr);
    char first[] = "a b c", second[] = "x y";
    strtokz(first, " ");
    strtokz(second, " ");
    EXPECT_STREQ(strtokz(nullptr, " "), "y") << "one position for the process";
}

TEST(StrScan, RegularExpressions)
{
    struct {
        const char *text, *pattern;
        bool match;
    } const rows[] = {{"wan0", "^(wan|lan)[0-9]+$", true},
                      {"wan", "^(wan|lan)[0-9]+$", false},
                      {"xaby", "ab", true},
                      {"AB", "ab", false},
                      {"a+", "a\\+", true},
                      {"ab", "(", false},
                      {nullptr, "^$", true},
                      {"ab", nullptr, false},
                      {"aaa", "^a{3}$", true},
                      {"ab", "", true}};
    for (const auto &row : rows)
        EXPECT_EQ(str_re(row.text, row.pattern) == 0, row.match)
            << shown(row.text) << " " << shown(row.pattern);
}
