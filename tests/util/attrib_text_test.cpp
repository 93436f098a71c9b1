#include "util/attrib_text.h"
#include "util/hex.h"
#include "util/lines.h"
#include "util/str.h"

#include "support.h"

#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

constexpr uint32_t kLenient = ATTRIB_F_LENIENT;

// "name=value|" in order; byte values as hexadecimal text in brackets.
std::string text_of(const attrib *entry)
{
    std::string all;
    for (; entry; entry = entry->next) {
        char digits[64] = "";
        if (entry->len >= 0)
            bin_2_hex(entry->value, static_cast<size_t>(entry->len), digits);
        all += std::string(entry->name) + "=";
        all += entry->len < 0 ? std::string(entry->value) : "[" + std::string(digits) + "]";
        all += "|";
    }
    return all;
}

std::string joined(char **lines)
{
    char *text = nullptr;
    str_join_lines(&text, lines, "/", 0);
    const std::string all = text;
    str_free(&text);
    return all;
}

struct Lines {
    char **list = nullptr;
    explicit Lines(const char *text) { lines_str_split_nl(&list, text); }
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;
    ~Lines() { lines_free(&list); }
};

struct Header {
    attrib *first;
    Header(const char *text, uint32_t flags) : first(attrib_hdr_lines_to_attrib("f", Lines(text).list, flags))
    {
    }
    Header(const Header &) = delete;
    Header &operator=(const Header &) = delete;
    ~Header() { attrib_free(&first); }
};

TEST(AttribText, HeaderLines)
{
    const uint32_t loose = kLenient | ATTRIB_F_BLANK_NAMES | ATTRIB_F_LOOSE_LINES;
    const struct {
        const char *lines;
        uint32_t flags;
        const char *entries;
        const char *reports;
    } rows[] = {
        {"Name: a\n  b", 0, "Name=a\nb|", ""},
        {"N: a\n b\n\tc\n    d\n  \n ", 0, "N=a\nb\nc\n  d\n\n|", ""},
        {"N_1-x:\nN_1-x:  two \nM:\tt", 0, "N_1-x=|N_1-x= two |M=\tt|", ""},
        {"N:a", kLenient, "", "8: f:1: error: needs space after ':'\n"},
        {"N:a:b", ATTRIB_F_NO_BLANK, "N=a:b|", ""},
        {"A: 1\nN :a", kLenient, "A=1|", "8: f:2: error: space before ':'\n"},
        {"N : a", kLenient | ATTRIB_F_BLANK_COLON, "N=a|", ""},
        {"N  : a", kLenient | ATTRIB_F_BLANK_COLON, "", "8: f:1: error: no ':' after attrib field name\n"},
        {"N  : a", kLenient | ATTRIB_F_BLANK_COLON | ATTRIB_F_BLANK_NAMES, "N=a|", ""},
        {"a b c: d", ATTRIB_F_BLANK_NAMES, "a b c=d|", ""},
        {"a b c : d", kLenient | ATTRIB_F_BLANK_NAMES, "", "8: f:1: error: space before ':'\n"},
        {"a.b: x", kLenient, "", "8: f:1: error: no ':' after attrib field name\n"},
        {"a.b: x", ATTRIB_F_DOT_NAMES, "a.b=x|", ""},
        {": x", kLenient, "", "8: f:1: error: empty attrib name\n"},
        {"A: 1\nplain\n  more", kLenient, "A=1\nmore|", "8: f:2: error: no ':' after attrib field name\n"},
        {"A: 1\nno colon", kLenient | ATTRIB_F_BLANK_NAMES, "A=1|",
         "8: f:2: error: multiline should start with a space\n"},
        {"A: 1\nno colon\n\n indent", loose, "A=1\nno colon\n\nindent|", ""},
        {"A: 1\nno colon", kLenient | ATTRIB_F_LOOSE_LINES, "A=1|",
         "8: f:2: error: no ':' after attrib field name\n"},
        {" x\ny\nA: 1", loose, "A=1|",
         "8: f:1: error: Line is not an attrib or a multiline\n  ( x)\n"
         "8: f:2: error: Line is not an attrib or a multiline\n  (y)\n"},
        {"\xC3\xA9: x", kLenient, "", "8: f:1: error: no ':' after attrib field name\n"},
    };
    ReportLog reports;
    for (const auto &row : rows) {
        const Header header(row.lines, row.flags);
        EXPECT_EQ(text_of(header.first), row.entries) << row.lines << " flags " << row.flags;
        EXPECT_EQ(reports.take(), row.reports) << row.lines << " flags " << row.flags;
    }
    EXPECT_EQ(attrib_hdr_lines_to_attrib("f", nullptr, 0), nullptr);
    attrib_hdr_lines_to_attrib(nullptr, Lines(":").list, kLenient);
    EXPECT_EQ(reports.take(), "8: :1: error: empty attrib name\n");
    expect_fatal("f:1: error: needs space after ':'", [] { Header("N:a", 0); });
}

TEST(AttribText, EntriesKnowTheirFileAndLine)
{
    const char *const name = "some.conf";
    const Lines lines("a: 1\n  2\nb: 3");
    attrib *list = attrib_hdr_lines_to_attrib(name, lines.list, 0);
    EXPECT_EQ(list->user[0], reinterpret_cast<uintptr_t>(name));
    EXPECT_EQ(list->user[1] * 10 + list->next->user[1], 13U);
    attrib_free(&list);
}

TEST(AttribText, HeaderLinesComeBack)
{
    const std::vector<std::string> values = {"",   "x",   " x ",  "a\nb",     "a\n\n b",
                                             "\n", "\nx", "a: b", "\tx\n\ty", "\n\n\nz"};
    for (const uint32_t flags : {0U, ATTRIB_F_NO_BLANK}) {
        attrib *list = nullptr;
        for (const std::string &value : values)
            attrib_addset(&list, "n", value.c_str());
        char **lines = attrib_to_lines(&list, flags);
        attrib *again = attrib_hdr_lines_to_attrib("f", lines, flags);
        for (attrib *entry = list; entry; entry = entry->next) { // the line end at the very end is lost
            if (entry->value[0] && entry->value[strlen(entry->value) - 1] == '\n')
                entry->value[strlen(entry->value) - 1] = '\0';
        }
        EXPECT_EQ(text_of(again), text_of(list));
        attrib_free(&list);
        attrib_free(&again);
        lines_free(&lines);
    }
    attrib *list = nullptr;
    attrib_addset(attrib_addset(&list, "a", "1\n\n 2\n"), "b", "");
    char **lines = attrib_to_lines(&list, 0);
    EXPECT_EQ(joined(lines), "a: 1/  /   2/b:");
    lines_use(&lines, attrib_to_lines(&list, ATTRIB_F_SPACE_LINES));
    EXPECT_EQ(joined(lines), "a: 1/   2/b:");
    lines_use(&lines, attrib_to_lines(nullptr, 0));
    EXPECT_EQ(lines_count(lines), 0);
    lines_free(&lines);
    attrib_free(&list);
}

TEST(AttribText, FilesComeBackAsTheyWere)
{
    char path[] = "/tmp/kutil_attrib_XXXXXX";
    close(mkstemp(path));
    const struct {
        const char *content;
        uint32_t flags;
        const char *entries;
        const char *body;
        int separator;
        const char *written; // NULL: the content
    } rows[] = {
        {"a: 1\nb: 2\n  3\n", 0, "a=1|b=2\n3|", "", 0, nullptr},
        {"a: 1\n\n", 0, "a=1|", "", 1, nullptr},
        {"a: 1\n\nbody\n\nx: y\n", 0, "a=1|", "body//x: y", 1, nullptr},
        {"\nbody\n", 0, "", "body", 1, nullptr},
        {"", 0, "", "", 0, nullptr},
        {"a: 1\n \nbody\n", ATTRIB_F_SPACE_LINES, "a=1|", "body", 1, "a: 1\n\nbody\n"},
        {"a: 1\n \n\nbody\n", 0, "a=1\n|", "body", 1, "a: 1\n\nbody\n"},
        {"a:1\nno end", ATTRIB_F_NO_BLANK | ATTRIB_F_BLANK_NAMES | ATTRIB_F_LOOSE_LINES, "a=1\nno end|", "",
         0, "a: 1\n  no end\n"},
    };
    for (const auto &row : rows) {
        FILE *stream = fopen(path, "w");
        fputs(row.content, stream);
        fclose(stream);
        attrib_file *file = attrib_file_alloc(path, nullptr, row.flags);
        EXPECT_EQ(text_of(file->attribs), row.entries) << row.content;
        EXPECT_EQ(joined(file->body), row.body) << row.content;
        EXPECT_EQ(file->separator, row.separator) << row.content;
        EXPECT_STREQ(file->file_name, path);
        EXPECT_TRUE(!file->attribs || file->attribs->user[0] == reinterpret_cast<uintptr_t>(file->file_name));
        EXPECT_EQ(attrib_file_write(file, nullptr), 0);
        attrib_file_free(file);
        char *content = str_read_file(nullptr, path);
        EXPECT_STREQ(content, row.written ? row.written : row.content);
        free(content);
    }
    unlink(path);
    expect_fatal("/tmp/kutil_attrib_", [&path] { attrib_file_alloc(path, nullptr, 0); });
}

TEST(AttribText, FilesWithoutAFile)
{
    const Lines lines("a: 1\n\nrest");
    attrib_file *file = attrib_file_alloc(nullptr, lines.list, 0);
    EXPECT_NE(file->lines[0], lines.list[0]);
    EXPECT_EQ(joined(file->header) + joined(file->body) + file->file_name, "a: 1rest");
    expect_fatal("attrib_file_write: Cannot open file  for writing",
                 [file] { attrib_file_write(file, nullptr); });
    attrib_file_free(file);

    file = attrib_file_alloc(nullptr, nullptr, 0);
    EXPECT_EQ(lines_count(file->lines), 1);
    EXPECT_EQ(file->separator, 1);
    EXPECT_EQ(file->attribs, nullptr);
    if (access("/dev/full", W_OK) == 0) {
        ReportLog reports;
        EXPECT_EQ(attrib_file_write(file, "/dev/full"), -1);
        EXPECT_EQ(reports.take(), "4: attrib_file_write: Failed writing file /dev/full\n");
    }
    attrib_file_free(file);
    attrib_file_free(nullptr);
    EXPECT_EQ(attrib_file_write(nullptr, "x"), -1);
}

TEST(AttribText, Queries)
{
    const struct {
        const char *query;
        const char *entries;
        const char *again;
    } rows[] = {
        {"a=1&b&a=2", "a=1|b=|a=2|", "a=1&b=&a=2"},
        {"", "", ""},
        {"&", "=|=|", "=&="},
        {"a==b=&=", "a==b=|=|", "a=%3db%3d&="},
        {"x+y=1%2b2%zz%&%41%=%00cut", "x y=1+2%zz%|A%=|", "x+y=1%2b2%25zz%25&A%25="},
        {"_HEX_k=610a00&_HEX_=&_HEX_bad=6&_HEX_bad=zz", "k=[610a00]|=[]|bad=[]|bad=[]|",
         "_HEX_k=610a00&_HEX_=&_HEX_bad=&_HEX_bad="},
        {"%5fHEX_a+b=FF", "a b=[ff]|", "_HEX_a+b=ff"},
    };
    attrib *list = nullptr;
    char *s = nullptr;
    for (const auto &row : rows) {
        EXPECT_EQ(str_http_to_attrib(&list, row.query), &list);
        EXPECT_EQ(text_of(list), row.entries) << row.query;
        EXPECT_STREQ(*attrib_to_str_http(&s, &list), row.again);
    }
    // The text may be a value of the list, and the string may be a value too.
    str_http_to_attrib(&list, "q=a%3d1%26b&r=x");
    str_http_to_attrib(&list, attrib_get(&list, "q"));
    EXPECT_EQ(text_of(list), "a=1|b=|");
    attrib_to_str_http(attrib_get_val_p(&list, "a"), &list);
    EXPECT_EQ(text_of(list), "a=a=1&b=|b=|");
    str_escape_url_query(attrib_get_val_p(&list, "b"), &list);
    EXPECT_EQ(text_of(list), "a=a=1&b=|b=a=a%3D1%26b%3D&b=|");
    str_http_to_attrib(&list, nullptr);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(str_http_to_attrib(nullptr, "a"), nullptr);
    str_free(&s);
}

TEST(AttribText, LineFormAndAppendedQuery)
{
    attrib *list = nullptr;
    attrib_set_multi(&list, "a b", "1*2", "c", "", nullptr);
    attrib_set_len(&list, "d", "x\0y", 3);
    char *s = nullptr;
    EXPECT_STREQ(*attrib_to_str(&s, &list), "a b:1*2\r\nc:\r\nd:x\r\n");
    str_cpy(&s, "/p?x=1");
    EXPECT_STREQ(*str_escape_url_query(&s, &list), "/p?x=1&a+b=1*2&c=&d=x");
    str_free(&s);
    EXPECT_STREQ(*str_escape_url_query(&s, &list), "a+b=1*2&c=&d=x");
    attrib_free(&list);
    EXPECT_STREQ(*attrib_to_str(&s, &list), "");
    str_free(&s);
    EXPECT_STREQ(*str_escape_url_query(&s, nullptr), "");
    EXPECT_EQ(str_escape_url_query(nullptr, &list), nullptr);
    str_free(&s);
}

} // namespace
