#include "util/str.h"
#include "util/str_escape.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

using Escaper = char **(*)(char **);

// What a function makes of a text; NULL goes in and comes out as "(null)".
std::string result(Escaper escaper, const char *text)
{
    char *s = text ? strdup(text) : nullptr;
    EXPECT_EQ(escaper(&s), &s);
    const std::string after = s ? s : "(null)";
    free(s);
    return after;
}

char **sql(char **s) { return str_escape_sql(s, 0); }
char **sql_like(char **s) { return str_escape_sql(s, STR_SQL_LIKE); }
char **csv_forced(char **s) { return _str_escape_csv(s, ';', '\'', '\r', 1); }
char **csv_without_quote(char **s) { return _str_escape_csv(s, ',', -1, '\n', 1); }
char **csv_nul_quote(char **s) { return _str_escape_csv(s, ',', 0, '\n', 1); }
char **csv_quote_only(char **s) { return _str_escape_csv(s, -1, '"', -1, 0); }
char **csv_high(char **s) { return _str_escape_csv(s, 0xE9, '"', -1, 0); }

TEST(StrEscape, EveryForm)
{
    const struct {
        Escaper escaper;
        const char *text;
        const char *expected;
    } rows[] = {
        {str_escape_javascript, "a\\\"'\r\n</x>\t", "a\\\\\\\"\\'\\r\\n</x>\t"},
        {str_escape_xml, "<a b=\"c\" d='&amp;'>\n%", "&lt;a b=&quot;c&quot; d=&apos;&amp;amp;&apos;&gt;\n%"},
        {str_escape_html_text, "\"&<>'%\n\r", "&quot;&amp;&lt;&gt;&#039;&#037;<br>\r"},
        {str_escape_html_field, "\"&<>'%\n", "&quot;&amp;&lt;&gt;&#039;&#037;\n"},
        {str_escape_exec, "a\"b'c\\d$`", "a\\\"b\\'c\\\\d$`"},
        {str_escape_uri, "a b/c~*_-.Z9\n", "a%20b%2Fc%7E%2A%5F-.Z9%0A"},
        {str_escape_uri, "\xC3\xA9\x80\xFF\x7F", "\xC3\xA9\x80\xFF%7F"},
        {str_escape_url_query_field, "a b*_-.+&=/\xE9", "a+b*_-.%2B%26%3D%2F\xE9"},
        {str_escape_http, "a b/-._*\xC3\xFF", "a+b%2f%2d%2e%5f%2a%c3%ff"},
        {str_unescape_uri, "a+b%41%4%zz%%41%2f%2F%fF%", "a+bA%4%zz%A//\xFF%"},
        {str_unescape_http, "a+b%41%4", "a bA%4"},
        {str_unescape_http, "a%2Bb%00c", "a+b"},
        {str_unescape_uri, "%4g%G4%", "%4g%G4%"},
        {str_escape_html_textarea, "a<b \t\n_\x7F\xC3\xFF", "a&#060;b \t\n&#095;&#127;&#195;&#255;"},
        {str_escape_shell, "/usr/file_1-2.TXT", "/usr/file_1-2.TXT"},
        {str_escape_shell, "a b", "$'a b'"},
        {str_escape_shell, "it's", "$'it\\047s'"},
        {str_escape_shell, "\n\\\xFF\x01$", "$'\\n\\134\\377\\001\\044'"},
        {sql, "50%_a'b", "50%_a\\'b"},
        {sql, "\n\r\x1A\"\\\t", "\\n\\r\\Z\\\"\\\\\t"},
        {sql_like, "50%_a'b", "50\\%\\_a\\'b"},
        {sql_like, "\n\r\x1A\"\\\t", "\\n\\r\\Z\\\"\\\\\\\\\t"},
        {str_escape_csv, "a,b", "\"a,b\""},
        {str_escape_csv, "say \"hi\"", "\"say \"\"hi\"\"\""},
        {str_escape_csv, "a\nb", "\"a\nb\""},
        {str_escape_csv, "a;b\rc'", "a;b\rc'"},
        {csv_forced, "it's", "'it''s'"},
        {csv_without_quote, "a,\"\nb\xFF", "a,\"\nb\xFF"},
        {csv_nul_quote, "a,b", "a,b"},
        {csv_quote_only, "a,\n\xFF", "a,\n\xFF"},
        {csv_high, "caf\xE9", "\"caf\xE9\""},
        {str_escape_c, "a\tb", "\"a\\tb\""},
        {str_escape_c, "\n\r\"\\'\x01", "\"\\n\\r\\\"\\\\'\x01\""},
        {str_unescape_c, "\"a \\\"b\" \t c", "a \"bc"},
        {str_unescape_c, "a b\"c d", "a bc d"},
        {str_unescape_c, "a\" b\" c", "abc"},
        {str_unescape_c, "\\t\\n\\r\\\\\\q\\'", "\t\n\r\\q'"},
        {str_unescape_c, "\"a\\", "a\\"},
        {str_unescape_c, "  \\\" x", "\" x"},
        {str_escape_im_convert, "a\"'\\ b", "a\\\"\\'\\\\ b"},
        {str_esc_quotes, "it's \\'", "it\\'s \\\\'"},
        {str_esc_quotes, "its\\", "its\\"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(result(row.escaper, row.text), row.expected) << "from: " << row.text;
}

TEST(StrEscape, NullAndEmpty)
{
    const struct {
        Escaper escaper;
        const char *of_null;
        const char *of_empty;
    } rows[] = {
        {str_escape_javascript, "", ""},   {str_escape_uri, "", ""},
        {str_escape_http, "", ""},         {str_unescape_uri, "", ""},
        {str_unescape_http, "", ""},       {str_escape_html_textarea, "", ""},
        {str_escape_shell, "''", "''"},    {sql, "", ""},
        {str_escape_csv, "", ""},          {csv_forced, "''", "''"},
        {str_escape_c, "''", "\"\""},      {str_unescape_c, "''", ""},
        {str_escape_im_convert, "''", ""}, {str_esc_quotes, "(null)", ""},
    };
    for (const auto &row : rows) {
        const ptrdiff_t number = &row - rows;
        EXPECT_EQ(result(row.escaper, nullptr), row.of_null) << number;
        EXPECT_EQ(result(row.escaper, ""), row.of_empty) << number;
        EXPECT_EQ(row.escaper(nullptr), nullptr) << number;
    }
}

TEST(StrEscape, TablesAreReadAsCode2strReadsThem)
{
    char *indirect = strdup("[x]");
    const code_str table[] = {{'a', "hidden", nullptr, 1},   {'a', "first", nullptr, 0},
                              {'a', "second", nullptr, 0},   {'b', "name", &indirect, 0},
                              {'c', nullptr, nullptr, 0},    {'c', "late", nullptr, 0},
                              {'d', "", nullptr, 0},         {-23, "e9", nullptr, 0},
                              {233, "unsigned", nullptr, 0}, {-1, nullptr, nullptr, 0}};
    char *s = strdup("abcd\xE9\xFFz");
    str_escape(&s, table);
    EXPECT_STREQ(s, "first[x]ce9\xFFz");
    free(s);

    const code_str with_default[] = {
        {'a', "A", nullptr, 0}, {'b', nullptr, nullptr, 0}, {-1, "?", nullptr, 0}};
    s = strdup("abc\xFF\n");
    str_escape(&s, with_default);
    EXPECT_STREQ(s, "Ab???");

    str_escape(&s, nullptr);
    EXPECT_STREQ(s, "Ab???");
    free(s);

    // The text of a row may be the very string that is being replaced.
    const code_str self[] = {{'x', nullptr, &indirect, 0}, {-1, nullptr, nullptr, 0}};
    str_escape(&indirect, self);
    EXPECT_STREQ(indirect, "[[x]]");
    free(indirect);
}

TEST(StrEscape, CopiesWithBackslashes)
{
    const struct {
        const char *text;
        const char *expected;
    } rows[] = {{"it's", "it\\'s"}, {"it\\'s", "it\\'s"}, {"'", "\\'"},         {"\\\\'", "\\\\'"},
                {"end\\", "end"},   {"\\", ""},           {"end\\\\", "end\\"}, {"''", "\\'\\'"},
                {nullptr, ""},      {"\"", "\""}};
    for (const auto &row : rows) {
        char *copy = str_escape_apostrophe(row.text);
        EXPECT_STREQ(copy, row.expected);
        free(copy);
    }

    char buffer[32];
    memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(str_escape_with_slash("$\\\xFF", "a$b\\\xFF", nullptr), 8U);
    EXPECT_EQ(str_escape_with_slash("$\\\xFF", "a$b\\\xFF", buffer), 8U);
    EXPECT_EQ(memcmp(buffer, "a\\$b\\\\\\\xFF\0#", 10), 0);
    EXPECT_EQ(str_escape_with_slash(nullptr, "a$", buffer), 2U);
    EXPECT_EQ(str_escape_with_slash("$", nullptr, buffer), 0U);
    EXPECT_EQ(buffer[0], '\0');

    memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(str_buf_escape_xml(nullptr, "a<b"), 6U);
    EXPECT_EQ(str_buf_escape_xml(buffer, "a<b"), 6U);
    EXPECT_EQ(memcmp(buffer, "a&lt;b#", 7), 0);
    EXPECT_EQ(str_buf_escape_xml(buffer, nullptr), 0U);
}

TEST(StrEscape, WhatNeedsAnEscape)
{
    for (int ch = -128; ch < 256; ch++) {
        const bool needs =
            ch >= 0 && ch < 128 &&
            !strchr("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", ch ? ch : '!');
        EXPECT_EQ(str_escape_is_char_alnum_or_unicode(ch) != 0, needs) << ch;
    }
}

// Each pair undoes itself over every byte in every neighbourhood of two.
TEST(StrEscape, RoundTrips)
{
    const struct {
        Escaper there;
        Escaper back;
    } pairs[] = {
        {str_escape_uri, str_unescape_uri},
        {str_escape_url_query_field, str_unescape_http},
        {str_escape_http, str_unescape_http},
        {str_escape_c, str_unescape_c},
    };
    for (const auto &pair : pairs) {
        for (int first = 1; first < 256; first++) {
            std::string text;
            for (int second = 1; second < 256; second++) {
                text += static_cast<char>(first);
                text += static_cast<char>(second);
            }
            char *s = strdup(text.c_str());
            pair.back(pair.there(&s));
            EXPECT_EQ(s, text) << first << " pair " << &pair - pairs;
            free(s);
        }
    }
}

} // namespace
