#include "util/str.h"

#include "support.h"
#include "support/text.h"

#include <climits>
#include <cstdarg>
#include <cwchar>
#include <malloc.h>

namespace
{
using Edit = char **(*)(char **);
struct EditRow {
    const char *start, *what;
    Edit edit;
    const char *result;
};

// Every editor returns the variable's address, and touches nothing when it is given none. Those of `on_null`
// make NULL an empty string, whatever they do else.
enum class OnNull { kOther, kBecomesEmpty };

void check_edits(std::initializer_list<EditRow> rows, OnNull on_null = OnNull::kOther)
{
    for (const EditRow &row : rows) {
        SCOPED_TRACE(shown(row.start) + std::string(": ") + row.what);
        Str s(row.start);
        EXPECT_EQ(row.edit(s), &s.p);
        EXPECT_STREQ(s.p, row.result);
        EXPECT_EQ(row.edit(nullptr), nullptr);
        Str null;
        if (on_null == OnNull::kBecomesEmpty && *row.what != '*') {
            EXPECT_EQ(row.edit(null), &null.p);
            EXPECT_STREQ(null.p, "");
        }
    }
}

// Columns `what` and `edit`; the second form is for arguments from the string itself, which cannot be NULL
// then.
#define DO(call) #call, [](char **s) { return call; }
#define OWN(call) "*" #call, [](char **s) { return s ? call : s; }
} // namespace

TEST(Str, AssignmentMakesACopyBeforeItFreesTheOldText)
{
    check_edits({{"abc", DO(str_alloc(s)), ""},
                 {"abc", DO(str_free(s)), nullptr},
                 {nullptr, DO(str_cpy(s, "abc")), "abc"},
                 {"abc", DO(str_cpy(s, nullptr)), ""},
                 {"abcdef", OWN(str_cpy(s, *s + 2)), "cdef"},
                 {"x", DO(str_ncpy(s, "abc", 9)), "abc"},
                 {"x", DO(str_ncpy(s, "abc", 2)), "ab"},
                 {"x", DO(str_ncpy(s, nullptr, 2)), ""},
                 {"abcdef", OWN(str_ncpy(s, *s + 1, 3)), "bcd"},
                 {nullptr, DO(str_cpy_truncate(s, "abcdef", 3)), "abc..."},
                 {nullptr, DO(str_cpy_truncate(s, "abcdef", 6)), "abcdef"},
                 {nullptr, DO(str_cpy_truncate(s, "abcdef", 0)), "..."},
                 {nullptr, DO(str_cpy_truncate(s, "", 0)), ""},
                 {"x", DO(str_cpy_truncate(s, nullptr, 0)), ""},
                 {"abcdef", OWN(str_cpy_truncate(s, *s, 2)), "ab..."},
                 {nullptr, DO(str_cpytok(s, "ab,cd", ",")), "ab"},
                 {nullptr, DO(str_cpytok(s, ",,ab,cd", ",")), ",,ab"},
                 {"x", DO(str_cpytok(s, nullptr, nullptr)), ""},
                 {"ab,cd,", OWN(str_cpytok(s, *s, *s + 5)), "ab"},
                 {"abc", OWN(str_use(s, *s)), "abc"},
                 {"abc", DO(str_use(s, nullptr)), ""}});
    Str s("old");
    str_use(s, strdup("new"));
    EXPECT_STREQ(s.p, "new");
    str_cpytok(s, "one two three", " ");
    EXPECT_EQ(strtok(nullptr, " "), s.p + 4) << "strtok goes on in the copy";
    for (char *fresh : {str_init(), strndup_null("abcdef", 0), strndup_null(nullptr, 4)}) {
        EXPECT_STREQ(fresh, "");
        free(fresh);
    }
    str_use(s, strndup_null("abcdef", 4));
    EXPECT_STREQ(s.p, "abcd");
}

TEST(Str, Appending)
{
    check_edits({{"ab", DO(str_cat(s, "cd")), "abcd"},
                 {nullptr, DO(str_cat(s, "cd")), "cd"},
                 {"ab", DO(str_cat(s, nullptr)), "ab"},
                 {nullptr, DO(str_cat(s, nullptr)), ""},
                 {"abc", OWN(str_cat(s, *s + 1)), "abcbc"},
                 {"ab", DO(str_ncat(s, "cdef", 2)), "abcd"},
                 {nullptr, DO(str_ncat(s, "cdef", 2)), "cd"},
                 {nullptr, DO(str_ncat(s, nullptr, 2)), ""},
                 {"abc", OWN(str_ncat(s, *s, 2)), "abcab"},
                 {"abcd", DO(str_insert(s, 1, 2, "XYZ")), "aXYZd"},
                 {"ab", DO(str_insert(s, 9, 9, "X")), "abX"},
                 {"abcd", DO(str_insert(s, 3, SIZE_MAX, "X")), "abcX"},
                 {nullptr, DO(str_insert(s, 1, 1, "X")), "X"},
                 {"abcd", DO(str_insert(s, 1, 1, nullptr)), "acd"},
                 {"abcd", OWN(str_insert(s, 1, 2, *s)), "aabcdd"},
                 {"abc", DO(str_valid_terminate_nl(s)), "abc "},
                 {"abc\n", DO(str_valid_terminate_nl(s)), "abc\n"},
                 {"", DO(str_valid_terminate_nl(s)), ""},
                 {nullptr, DO(str_valid_terminate_nl(s)), ""}});
    Str bytes(nullptr);
    str_ncat(bytes, "a\0b", 3);
    EXPECT_EQ(memcmp(bytes.p, "a\0b", 4), 0) << "exactly the bytes given, and a NUL";
}

TEST(Str, AppendingAtAKnownLength)
{
    Str s;
    uint32_t length = 7;
    EXPECT_EQ(str_catfast(s, nullptr, &length), &s.p);
    EXPECT_STREQ(s.p, "");
    EXPECT_EQ(length, 0U);
    std::string expected;
    for (int i = 0; i < 2000; i++) {
        const std::string piece(static_cast<size_t>(i % 7), static_cast<char>('a' + i % 26));
        str_catfast(s, piece.c_str(), &length);
        expected += piece;
    }
    EXPECT_EQ(length, expected.size());
    EXPECT_EQ(s.p, expected);
    str_catfast(s, s.p + 10, &length);
    expected += expected.substr(10);
    EXPECT_EQ(s.p, expected) << "its own text moves while it grows";
    EXPECT_EQ(str_catfast(nullptr, "x", &length), nullptr);
    EXPECT_EQ(str_catfast(s, "x", nullptr), nullptr);
    EXPECT_EQ(length, expected.size());
    // The offset is taken as it is: the text is not scanned.
    length = 2;
    str_catfast(s, "XY", &length);
    EXPECT_STREQ(s.p, (expected.substr(0, 2) + "XY").c_str());
    EXPECT_EQ(length, 4U);
    expect_fatal("realloc_e(-1): failed", [&] {
        length = UINT32_MAX;
        str_catfast(s, "x", &length);
    });
}

TEST(Str, AppendingLeavesALargeBlockAlone)
{
    Str s;
    uint32_t length = 0;
    while (length < 300000)
        str_catfast(s, "0123456789", &length);
    const size_t before = malloc_usable_size(s.p);
    for (int i = 0; i < 1000; i++)
        str_catfast(s, "x", &length);
    EXPECT_EQ(malloc_usable_size(s.p), before);
}

TEST(Str, CuttingAndConverting)
{
    check_edits({{"abcdef", DO(str_left(s, 2)), "ab"},
                 {"abc", DO(str_left(s, SIZE_MAX)), "abc"},
                 {"abcdef", DO(str_right(s, 2)), "ef"},
                 {"abc", DO(str_right(s, 9)), "abc"},
                 {"abc", DO(str_right(s, 0)), ""},
                 {"abcdef", DO(str_mid(s, 2, 2)), "cdef"},
                 {"abc", DO(str_mid(s, 4, 1)), ""},
                 {" \t\n\v\f\r a b ", DO(str_ltrim(s)), "a b "},
                 {" a b \t\n\v\f\r", DO(str_rtrim(s)), " a b"},
                 {"a\r\n", DO(str_chomp(s)), "a"},
                 {"  a b  ", DO(str_trim(s)), "a b"},
                 {" \n ", DO(str_trim(s)), ""},
                 {"\xa0 a", DO(str_trim(s)), "\xa0 a"},
                 {"az{\xe4}1", DO(str_toupper(s)), "AZ{\xe4}1"},
                 {"AZ[\xc4]1", DO(str_tolower(s)), "az[\xc4]1"},
                 {"a-b-c", DO(str_strip(s, "-b", 1)), "ac"},
                 {"a-b-c", DO(str_strip(s, "-b", 0)), "-b-"},
                 {"abc", DO(str_strip(s, nullptr, 0)), ""},
                 {"abc\xff", DO(str_strip(s, "", 7)), "abc\xff"},
                 {"banana", OWN(str_strip(s, *s + 4, 1)), "b"},
                 {"+49 (30) 1", DO(str_strip_non_digit(s)), "49301"},
                 {"\x1b[1;31mred\x1b[0m", DO(str_strip_ansi(s)), "red"},
                 {"a\x1b[?25#=lb", DO(str_strip_ansi(s)), "ab"},
                 {"a\x1b[12", DO(str_strip_ansi(s)), "a"},
                 {"a\x1b[", DO(str_strip_ansi(s)), "a"},
                 {"\033a\033", DO(str_strip_ansi(s)), "\033a\033"},
                 {"\x1b[m\x1b[K\x1b[\x1b[m", DO(str_strip_ansi(s)), "[m"}},
                OnNull::kBecomesEmpty);
}

TEST(Str, ReplacedTextIsNotSearchedAgain)
{
    check_edits({{"a.b.c", DO(str_replace(s, ".", "::")), "a::b::c"},
                 {"aaa", DO(str_replace(s, "a", "aa")), "aaaaaa"},
                 {"aaaaa", DO(str_replace(s, "aa", "b")), "bba"},
                 {"aabb", DO(str_replace(s, "ab", "")), "ab"},
                 {"xxx", DO(str_replace(s, "x", "")), ""},
                 {"axb", DO(str_replace(s, "x", nullptr)), "ab"},
                 {"abc", DO(str_replace(s, "", "x")), "abc"},
                 {"abc", DO(str_replace(s, nullptr, "x")), "abc"},
                 {"abc", DO(str_replace(s, "abcd", "x")), "abc"},
                 {"b-ab", OWN(str_replace(s, *s + 3, *s)), "b-ab-ab-ab"}},
                OnNull::kBecomesEmpty);
}

// The editors against the same edits of std::string, with arguments from inside the string too. The
// two-letter alphabet makes hits, overlaps and near misses frequent.
TEST(Str, RandomEditsAgreeWithAModel)
{
    uint32_t state = 1;
    const auto random = [&state](uint32_t below) {
        state = state * 1664525U + 1013904223U;
        return (state >> 8) % below;
    };
    const auto random_text = [&](uint32_t longest) {
        std::string text(random(longest + 1), 'a');
        for (char &c : text)
            c = static_cast<char>('a' + random(2));
        return text;
    };
    Str s("");
    std::string model;
    for (int round = 0; round < 20000; round++) {
        const std::string other = random_text(4), from = random_text(3);
        const size_t at = random(static_cast<uint32_t>(model.size()) + 1);
        const bool own = random(4) == 0;
        const char *argument = own ? s.p + at : other.c_str();
        const std::string text = argument;
        const size_t pos = random(static_cast<uint32_t>(model.size()) + 1), count = random(6);
        const uint32_t kind = random(5);
        if (kind == 0) {
            str_cat(s, argument), model += text;
        } else if (kind == 1) {
            str_insert(s, pos, count, argument), model.replace(pos, count, text);
        } else if (kind == 2) {
            str_replace(s, from.c_str(), argument);
            for (size_t hit = from.empty() ? model.npos : model.find(from); hit != model.npos;
                 hit = model.find(from, hit + text.size()))
                model.replace(hit, from.size(), text);
        } else if (kind == 3) {
            str_catprintf(s, "%s|%s", argument, s.p), model += text + "|" + model;
        } else {
            str_printf(s, "%s%s", s.p, argument), model += text;
        }
        ASSERT_EQ(s.p, model) << "round " << round << " kind " << kind;
        if (model.size() > 600)
            str_mid(s, pos, 0), str_left(s, 20), model = model.substr(pos, 20);
    }
}

TEST(Str, Formatting)
{
    const std::string longer(3000, 'x');
    Str s;
    EXPECT_EQ(str_printf(s, "%d-%s", 7, "ab"), &s.p);
    EXPECT_STREQ(s.p, "7-ab");
    EXPECT_EQ(str_printf(s, "[%s]", s.p), &s.p);
    EXPECT_STREQ(s.p, "[7-ab]") << "the old text among the values";
    str_catprintf(s, "%s%c%s", s.p, '|', s.p + 4);
    EXPECT_STREQ(s.p, "[7-ab][7-ab]|b]") << "the old text among the values, appending";
    str_printf(s, "%s%s", longer.c_str(), s.p);
    EXPECT_EQ(s.p, longer + "[7-ab][7-ab]|b]");
    str_printf(s, nullptr);
    EXPECT_STREQ(s.p, "");
    Str fresh;
    str_catprintf(fresh, "%s", "x");
    EXPECT_STREQ(fresh.p, "x");
    EXPECT_EQ(str_printf(nullptr, "x"), nullptr);
    EXPECT_EQ(str_catprintf(nullptr, "x"), nullptr);

    const auto with_list = [](char **text, uint32_t flags, const char *format, ...) {
        va_list ap;
        va_start(ap, format);
        str_vprintf_full(text, flags, format, ap);
        va_end(ap);
    };
    with_list(fresh, STR_F_APPEND | 0x10, "%u", 5U);
    EXPECT_STREQ(fresh.p, "x5");
    with_list(fresh, 0x10, "%u", 5U);
    EXPECT_STREQ(fresh.p, "5") << "only bit 0 appends";
    // Every length around the size up to which no memory is taken.
    for (int width = 250; width < 262; width++) {
        str_printf(s, "%*d", width, 1);
        EXPECT_EQ(s.p, std::string(static_cast<size_t>(width) - 1, ' ') + "1");
    }
}

TEST(Str, ARefusedFormatEndsTheProcess)
{
    // A wide character outside the set of the locale cannot be converted.
    const char *const wide = "%lc";
    const wint_t euro = 0x20ac;
    Str s("old");
    char buffer[8] = "";
    const std::string message = "Error in printf format (%lc)";
    expect_fatal(message, [&] { str_printf(s, wide, euro); });
    expect_fatal(message, [&] { str_catprintf(s, wide, euro); });
    expect_fatal(message, [&] { strcat_printf(buffer, wide, euro); });
    expect_fatal(message, [&] { str2buf(buffer, wide, euro); });
}

TEST(Str, CallersBuffers)
{
    char buffer[64] = "ab";
    EXPECT_EQ(strcat_printf(buffer, "%d%s", 5, buffer), buffer);
    EXPECT_STREQ(buffer, "ab5ab");
    EXPECT_EQ(str2buf(buffer + 1, "%s", "XY"), 2U);
    EXPECT_STREQ(buffer, "aXYab") << "no NUL";
    EXPECT_EQ(str2buf(nullptr, "%s", "XY"), 0U);
    EXPECT_EQ(strcat_printf(nullptr, "x"), nullptr);
    buf2str(buffer, "12\0x", 4);
    EXPECT_EQ(memcmp(buffer, "12\0x", 5), 0);
    buf2str(buffer, nullptr, 4);
    EXPECT_STREQ(buffer, "");
    memset(buffer, 'x', sizeof(buffer));
    strncpyz(buffer, "abc", 5);
    EXPECT_EQ(memcmp(buffer, "abc\0\0\0x", 7), 0);
    strncpyz(buffer, "abcdef", 2);
    EXPECT_STREQ(buffer, "ab");
    strncpyz(buffer, nullptr, 1);
    EXPECT_STREQ(buffer, "");
    buf2str(nullptr, "a", 1);
    strncpyz(nullptr, "a", 1);

    struct {
        char *(*edit)(char *);
        const char *result;
    } const rows[] = {{strltrim, "aB \t"},
                      {strrtrim, " \naB"},
                      {strtrim, "aB"},
                      {strchomp, " \naB"},
                      {strtoupper, " \nAB \t"}};
    for (const auto &row : rows) {
        strcpy(buffer, " \naB \t");
        EXPECT_EQ(row.edit(buffer), buffer);
        EXPECT_STREQ(buffer, row.result);
        EXPECT_EQ(row.edit(nullptr), nullptr);
    }
}

TEST(Str, GrowingRecord)
{
    str_buf buf = {};
    EXPECT_EQ(str_buf_fastcat(&buf, "", nullptr), 0);
    EXPECT_STREQ(buf.data, "");
    EXPECT_EQ(str_buf_fastcat(&buf, "abc", "de"), 5);
    EXPECT_EQ(buf.size, 10) << "(3 + 2 + 0) * 2";
    EXPECT_EQ(str_buf_fastcat(&buf, "1234", nullptr), 9);
    EXPECT_EQ(buf.size, 10) << "4 are less than the 5 that are free";
    EXPECT_EQ(str_buf_fastcat(&buf, nullptr, "x"), 10);
    EXPECT_EQ(buf.size, 22) << "(0 + 1 + 10) * 2";
    EXPECT_EQ(str_buf_fastcat(&buf, buf.data, buf.data + 8), 22);
    EXPECT_STREQ(buf.data, "abcde1234xabcde1234x4x") << "its own text moves while it grows";
    EXPECT_EQ(str_buf_fastcat(nullptr, "a", "b"), 0);
    expect_fatal("realloc_e(-1): failed", [&] {
        buf.size = INT_MAX / 2 + 1;
        buf.len = INT_MAX / 2 + 1;
        str_buf_fastcat(&buf, "a", "b");
    });
    free(buf.data);
}

TEST(Str, NumbersHaveABufferForEachFunction)
{
    EXPECT_STREQ(itoa(INT_MIN), "-2147483648");
    EXPECT_STREQ(utoa(UINT32_MAX), "4294967295");
    EXPECT_STREQ(ulltoa(UINT64_MAX), "18446744073709551615");
    EXPECT_STREQ(u32toa(UINT32_MAX - 1), "4294967294");
    EXPECT_STREQ(u64toa(UINT64_MAX - 1), "18446744073709551614");
    EXPECT_STREQ(ftoa(-1.5), "-1.500000");
    const char *texts[] = {itoa(-1), utoa(2), ulltoa(3), u32toa(4), u64toa(5), ftoa(6)};
    const char *const expected[] = {"-1", "2", "3", "4", "5", "6.000000"};
    for (size_t i = 0; i < 6; i++)
        EXPECT_STREQ(texts[i], expected[i]);
    EXPECT_EQ(itoa(0), texts[0]);
    EXPECT_STREQ(texts[0], "0");
    const std::string cut = ftoa(-1e300);
    EXPECT_EQ(cut.size(), 77U);
    EXPECT_EQ(cut.compare(0, 6, "-10000"), 0);
}
