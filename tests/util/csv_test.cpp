// Tables: what is read, what is written, fields, lines, searching, sorting, merging.
#include "util/csv.h"

#include "support.h"
#include "support/text.h"
#include "util/lines.h"

#include <fstream>
#include <memory>

namespace
{

struct Close {
    void operator()(csv *table) const { csv_close(table); }
};
using Table = std::unique_ptr<csv, Close>;

int next_of(void *ctx)
{
    auto &rest = *static_cast<std::string_view *>(ctx);
    if (rest.empty())
        return -1;
    const char c = rest.front();
    rest.remove_prefix(1);
    return static_cast<unsigned char>(c); // as getc gives them: 255 is no end here
}

// "NUMBER:CELL|CELL" and a line end.
std::string shown_line(const csv_line *line)
{
    std::string text = std::to_string(line->line_number);
    char mark = ':';
    for (const csv_cell *cell = line->cells; cell; cell = cell->next, mark = '|')
        text += mark + std::string(cell->text);
    return text + "\n";
}

std::string shown_table(const csv *table)
{
    std::string text = table->header ? "H" + shown_line(table->header) : "";
    for (const csv_line *line = table->lines; line; line = line->next)
        text += shown_line(line);
    return text;
}

class CsvTest : public testing::Test
{
protected:
    CsvTest()
    {
        char name[] = "/tmp/kutil_csv_XXXXXX";
        close(mkstemp(name));
        path_ = name;
    }
    ~CsvTest() override
    {
        csv_delim_reset();
        unlink(path_.c_str());
    }

    Table read(std::string_view text, uint32_t flags = 0)
    {
        Table table(csv_alloc());
        table->flags = flags;
        csv_read(table.get(), next_of, &text);
        return table;
    }

    // What the text reads as, the same by every way of reading, with the reports in front.
    std::string reading(const std::string &text, uint32_t flags = 0)
    {
        Table table(csv_alloc());
        table->flags = flags;
        std::string_view rest = text;
        const int result = csv_read(table.get(), next_of, &rest);
        const std::string reports = log_.take();
        EXPECT_EQ(result, reports.empty() ? 0 : -1);
        std::string all = reports + (result == 0 ? shown_table(table.get()) : "");

        Table head(csv_alloc());
        head->flags = flags;
        std::string lines;
        rest = text;
        const int streamed = csv_read_lines(
            head.get(), next_of, &rest,
            [](void *data, csv_line *line) {
                *static_cast<std::string *>(data) += shown_line(line);
                return 0;
            },
            &lines);
        EXPECT_EQ(streamed, result);
        EXPECT_EQ(log_.take() + (streamed == 0 ? shown_table(head.get()) + lines : ""), all);

        std::ofstream(path_, std::ios::binary) << text;
        const Table opened(csv_open(path_.c_str(), flags));
        const std::string said = log_.take();
        EXPECT_EQ(opened != nullptr, result == 0);
        if (opened)
            EXPECT_EQ(shown_table(opened.get()), all);
        else
            EXPECT_EQ(said.substr(0, 3) + said.substr(3 + path_.size()), all);
        return all;
    }

    std::string written(csv *table)
    {
        EXPECT_EQ(csv_write(table, path_.c_str()), 0);
        std::ifstream file(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    ReportLog log_;
    std::string path_;
};

struct ReadRow {
    std::string text;
    std::string expected;
};

TEST_F(CsvTest, CommaModeReading)
{
    using namespace std::string_literals;
    const std::string kMiddle = "4: :1: got enclose in middle of field\n";
    const std::string kInvalid = "4: :1: invalid char outside of quotation, expected new field.\n";
    const ReadRow rows[] = {
        {"a,b\n1,2\n", "H1:a|b\n2:1|2\n"},
        {"", ""},
        {"a,b\n1,2\n3,4", "H1:a|b\n2:1|2\n3:3|\n"}, // the last field of a line without its end is lost
        {"a,b", "H1:a\n"},
        {"a", "H1\n"},
        {"\na\n", "H1:\n2:a\n"}, // an empty first line is a header with one empty name
        {"a\n\n\nb\n\n", "H1:a\n4:b\n"},
        {"a\r\nb\r\n\r\nc\r\n", "H1:a\n2:b\n4:c\n"},
        {"a,b\n\"1,\"\"2\"\"\n3\",4\n5,6\n", "H1:a|b\n2:1,\"2\"\n3|4\n4:5|6\n"},
        {"a\n\"x\ry\rz\"\n", "H1:a\n2:xyz\n"}, // CR is dropped inside quotes too
        {"\"a\"\r\"b\"\n", "H1:a\"b\n"},
        {"a, \t\"b\" \t,c\n", "H1:a|b \t|c\n"}, // white space goes before a quote and stays behind it
        {"a,\"\",\"\"\"\"\n", "H1:a||\"\n"},
        {" a , b\n  \n", "H1: a | b\n2:  |\n"},
        {"a\0b\n\"\0\"\n"s, "H1:ab\n2:\n"},
        {"a\n\0\n"s, "H1:a\n2:\n"}, // a NUL begins a line
        {"a,b,c\n1\n1,2,3,4\n", "H1:a|b|c\n2:1||\n3:1|2|3|4\n"},
        {"a,\"b\"x\n", kInvalid},
        {"a,\"b\"\0\n"s, kInvalid},
        {"a,b\"c\"\n", kMiddle},
        {"a\nb\n \"c\" \"d\"\n", "4: :3: invalid \" outside of quotation, expected new field.\n"},
        {"a\n\"b\n\n", "4: :4: file ended without closing quotation\n"},
        {"a\n\"b\"", "4: :2: file ended without closing quotation\n"},
        {"a\n\"b\" ", "H1:a\n2:\n"},
        {"\\n,a\\\n", "H1:\\n|a\\\n"},
    };
    for (const ReadRow &row : rows)
        EXPECT_EQ(reading(row.text), row.expected) << row.text;
    // A byte 255 ends a file; a source of characters says -1 for that.
    EXPECT_EQ(shown_table(read("a\xff\nb\n").get()), "H1:a\xff\n2:b\n");
    std::ofstream(path_, std::ios::binary) << "a\nb\xff\nc\n";
    EXPECT_EQ(shown_table(Table(csv_open(path_.c_str(), 0)).get()), "H1:a\n2:\n");
}

TEST_F(CsvTest, TabModeReading)
{
    csv_delim_set_tab();
    const ReadRow rows[] = {
        {"a\tb\n\"1\",2\t\\t\\n\\r\\b\\\\\\x\n", "H1:a|b\n2:\"1\",2|\t\n\r\b\\x\n"},
        {"a\tb\nx\\0y\\tz\t1\n", "H1:a|b\n2:x|1\n"},       // an escaped NUL ends the value
        {"a\nx\\\ny\\\rz\nw\n", "H1:a\n2:x\ny\rz\n3:w\n"}, // the raw character, uncounted
        {"a\nb\\", "4: :2: file ended in middle of escape\n"},
        {"\\", "4: :1: file ended in middle of escape\n"},
    };
    for (const ReadRow &row : rows)
        EXPECT_EQ(reading(row.text), row.expected) << row.text;
    EXPECT_EQ(csv_delim_set(';', '|', '\'', '!'), '\t');
    EXPECT_EQ(reading("a|'b;!'';1|' !n';"), "H1:a|b;'\n3:1| \n\n") << "escapes work in quotes too";
    EXPECT_EQ(csv_delim_set('\n', 0xa7, -1, -1), '|');
    EXPECT_EQ(reading("a\xa7"
                      "b,\"\n"),
              "H1:a|b,\"\n")
        << "delimiters are signed bytes";
    EXPECT_EQ(csv_delim_set_comma(), 0xa7);
    EXPECT_EQ(csv_silent_mode(3), 0);
    EXPECT_EQ(csv_silent_mode(0), 3);
}

TEST_F(CsvTest, LongFieldsAndManyColumns)
{
    const std::string value(70000, 'x');
    std::string header, cells, expected;
    for (int i = 0; i < 5000; i++) {
        header += (i ? ",f" : "f") + std::to_string(i);
        cells += i ? ",\"\"" : "";
        expected += i ? "|" : "";
    }
    const std::string shown = reading(header + "\n" + value + cells + "\nshort\n");
    EXPECT_EQ(shown.substr(shown.find('\n') + 1), "2:" + value + expected + "\n3:short" + expected + "\n");
}

TEST_F(CsvTest, ReadingWithoutHeaderAndBehindOne)
{
    EXPECT_EQ(reading("a,b\nc\n", CSV_F_NO_HEADER), "1:a|b\n2:c\n");
    const Table table = read("a,b\n1,2\n");
    std::string_view more = "3\n";
    EXPECT_EQ(csv_read(table.get(), next_of, &more), 0);
    EXPECT_EQ(shown_table(table.get()), "H1:a|b\n2:1|2\n1:3|\n");
    EXPECT_EQ(table->fields_count, 2);
}

TEST_F(CsvTest, LineCallbackStopsReading)
{
    Table table(csv_alloc());
    std::string_view text = "a\n1\n2\n\"";
    const auto stop = [](void *, csv_line *line) { return line->line_number == 3 ? 7 : 0; };
    EXPECT_EQ(csv_read_lines(table.get(), next_of, &text, stop, nullptr), 7);
    EXPECT_EQ(text, "\"") << "a line is given away before anything behind it is read";
    EXPECT_EQ(log_.take(), "");
    EXPECT_EQ(table->lines, nullptr);
}

TEST_F(CsvTest, WhatCannotBeOpened)
{
    EXPECT_EQ(csv_open("/nonexistent/x", 0), nullptr);
    EXPECT_EQ(csv_open(nullptr, 0), nullptr);
    EXPECT_EQ(log_.take(), "");
    const Table table = read("a\n");
    EXPECT_EQ(csv_write(table.get(), "/nonexistent/x"), -1);
    EXPECT_EQ(log_.take(), "4: Failed opening /nonexistent/x\n");
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(csv_write(table.get(), "/dev/full"), -1);
        EXPECT_EQ(csv_line_write(table.get(), table->header, "/dev/full"), -1);
    }
    EXPECT_EQ(csv_open("/tmp", 0), nullptr) << "a folder opens, but cannot be read";
    EXPECT_NE(log_.take().find("4: /tmp: reading failed: "), std::string::npos);
}

TEST_F(CsvTest, WritingQuotesByTypeAndNeed)
{
    Table table(csv_alloc_with_hdr("n,", "t", "c", "d", "f", NULL));
    csv_type_set(table.get(), "T", CSV_TYPE_TEXT, "c", CSV_TYPE_TEXT_CASE, "d", CSV_TYPE_DATE, "f",
                 CSV_TYPE_FORMULA, NULL);
    csv_line *line = csv_line_add_empty(table.get());
    csv_fields_set(table.get(), line, "n,", "a\nb", "t", "\"", "c", "x", "d", "", "f", "1+1", NULL);
    csv_line_add(table.get(), csv_line_alloc_cells("1", "2", "3", "4", "5", "lost", NULL), line);
    EXPECT_EQ(written(table.get()), "\"n,\",t,c,d,f\n"
                                    "\"a\nb\",\"\"\"\",\"x\",\"\",1+1\n"
                                    "1,\"2\",\"3\",\"4\",5\n");
    table->flags = CSV_F_SPREADSHEET;
    EXPECT_EQ(written(table.get()), "\"'n,\",'t,'c,'d,'f\n"
                                    "\"'a\nb\",\"'\"\"\",\"'x\",\"'\",=1+1\n"
                                    "'1,\"'2\",\"'3\",\"'4\",=5\n");
    table->flags |= CSV_F_PLAIN;
    EXPECT_EQ(written(table.get()).substr(0, 5), "\"n,\",");

    csv_delim_set_tab();
    EXPECT_EQ(written(table.get()).substr(0, 11), "n,\tt\tc\td\tf\n");
    csv_delim_set(';', -1, '\'', -1);
    table->flags = 0;
    csv_cell_set(line->cells, "x;'");
    EXPECT_EQ(written(table.get()).substr(0, 22), "n,tcdf\n'x;''''\"''x'''1") << "lines end with LF";
}

TEST_F(CsvTest, WritingElsewhere)
{
    const Table table = read("a,b\n1,2\n");
    EXPECT_EQ(csv_line_write(table.get(), table->lines, path_.c_str()), 0);
    EXPECT_EQ(csv_line_write(table.get(), table->lines, path_.c_str()), 0);
    std::ifstream file(path_);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "1,2\n1,2\n");
    const ChildResult result = run_in_child([&] {
        csv_write(table.get(), nullptr); // the name is empty: standard output
        csv_line_print(table.get(), table->header, 1, stdout);
    });
    EXPECT_EQ(result.output, "a,b\n1,2\na,b\n");
    EXPECT_EQ(written(read("a,b\n1\n", CSV_F_NO_HEADER).get()), "\n\n");
    EXPECT_EQ(written(read("").get()), "");
    Str cell("a");
    EXPECT_EQ(*str_escape_csv_bytype(cell, CSV_TYPE_FORMULA, CSV_F_SPREADSHEET), std::string("=a"));
}

TEST_F(CsvTest, FieldsAreFoundIgnoringCase)
{
    const Table table = read("Name,x,NAME\n1,2,3\n4\n");
    csv *t = table.get();
    csv_line *first = t->lines;
    EXPECT_EQ(csv_get_field_idx(t, "name"), 0);
    EXPECT_EQ(csv_get_field_idx(t, "nam"), -1);
    EXPECT_STREQ(csv_field_get(t, first, "NAME"), "1");
    EXPECT_STREQ(csv_field_get(t, first, "y"), "");
    EXPECT_EQ(csv_field_get_cell(t, first, "y"), nullptr);
    csv_cell *third = t->header->cells->next->next;
    EXPECT_STREQ(csv_field_get_fast(t, first, third), "3");
    csv_field_set_fast(t, first, third, csv_field_get(t, first, "x"));
    csv_field_set(t, first, "x", nullptr);
    csv_field_set_printf(t, first, "name", "%s-%d", csv_field_get(t, first, "name"), 7);
    EXPECT_EQ(shown_line(first), "2:1-7||2\n");
    csv_fields_set(t, first, "name", "9", "x", csv_field_get(t, first, "name"), NULL); // its text before
    EXPECT_EQ(shown_line(first), "2:9|1-7|2\n");
    csv_cell other{};
    csv_field_set_fast(t, first, &other, "no");
    EXPECT_STREQ(csv_field_get_fast(t, first, &other), "");

    csv_line *line = csv_line_alloc(9);
    csv_field_set_fast(t, line, third, "z"); // a short line gets the cells up to it
    EXPECT_EQ(shown_line(line), "9:||z\n");
    EXPECT_STREQ(csv_line_get(t, line), ":9");
    csv_line_free(line);

    char **headers = nullptr;
    csv_get_headers(&headers, t);
    const Table same(csv_alloc_with_hdr_lines(headers));
    lines_free(&headers);
    EXPECT_EQ(shown_table(same.get()), "H0:Name|x|NAME\n");
    EXPECT_EQ(same->fields_count, 3);
}

TEST_F(CsvTest, AddingAndDeletingFields)
{
    const Table table = read("a,b\n1\n1,2,3\n");
    csv *t = table.get();
    csv_field_add(t, "A");
    EXPECT_EQ(t->fields_count, 2) << "there is one";
    csv_field_add(t, "c");
    EXPECT_EQ(shown_table(t), "H1:a|b|c\n2:1||\n3:1|2|3\n");
    csv_delete_field(t, "B");
    csv_delete_field_by_index(t, 7);
    csv_delete_field_by_index(t, -1);
    EXPECT_EQ(shown_table(t), "H1:a|c\n2:1|\n3:1|3\n");
    EXPECT_EQ(t->fields_count, 2);

    const Table bare(csv_alloc());
    csv_line_add_empty(bare.get());
    csv_field_add(bare.get(), "new");
    EXPECT_EQ(shown_table(bare.get()), "H0:new\n0:\n");
}

TEST_F(CsvTest, TypesAreCombined)
{
    const Table table(csv_alloc_with_hdr("a", "b", NULL));
    csv_type_set(table.get(), "a", CSV_TYPE_TEXT, "a", CSV_TYPE_TEXT_CASE, "b", 0x45, NULL);
    const csv_cell *a = table->header->cells;
    EXPECT_EQ(a->type, uint32_t{CSV_TYPE_INT}); // 1 and 2
    EXPECT_EQ(a->next->type, 0x45U);
    csv_type_set_all(table.get(), 0x80);
    EXPECT_EQ(a->type, 0x83U);
    EXPECT_EQ(a->next->type, 0x85U);
}

TEST_F(CsvTest, Lines)
{
    const Table table(csv_alloc_with_hdr("a", "b", NULL));
    csv *t = table.get();
    csv_line *first = csv_line_add(t, csv_line_alloc_cells("1", NULL), nullptr);
    csv_line_add_fields_set(t, "b", "3", NULL);
    csv_line *second = csv_line_add(t, csv_line_alloc_cells(nullptr, NULL), first);
    EXPECT_EQ(shown_table(t), "H0:a|b\n0:1|\n0:|\n0:|3\n");
    EXPECT_EQ(csv_lines_count(t), 3);
    csv_line_delete(t, second);
    csv_line *stranger = csv_line_alloc(0);
    csv_line_delete(t, stranger);
    csv_line_free(stranger);
    csv_line_delete(t, t->header);
    EXPECT_EQ(csv_lines_count(t), 2);
}

TEST_F(CsvTest, CellCounts)
{
    const Table table = read("a,b\n1\n");
    EXPECT_EQ(reading("a,b\n1,2\n", CSV_F_MANY_FATAL | CSV_F_FEW_FATAL), "H1:a|b\n2:1|2\n");
    free(table->name);
    table->name = strdup("t.csv");
    csv_line *line = csv_line_alloc_cells("1", NULL);
    line->line_number = 5;
    expect_fatal(
        "t.csv:5: too few cells (has 1 needs 2). use 'csv2sql -i t.csv -o t.csv csv csv' to normalize the "
        "CSV file.",
        [&] {
            table->flags = CSV_F_FEW_FATAL;
            csv_line_normalize(table.get(), line, 0);
        });
    table->flags = CSV_F_FEW_FATAL;
    csv_line_add(table.get(), line, nullptr); // which allows it
    csv_field_add(table.get(), "c");
    EXPECT_EQ(shown_line(line), "5:1||\n");
    expect_fatal("t.csv:0: too many cells (has 4 needs 3)", [&] {
        table->flags = CSV_F_MANY_FATAL;
        csv_line_add(table.get(), csv_line_alloc_cells("1", "2", "3", "4", NULL), nullptr);
    });
    expect_fatal(":1: too many cells (has 1 needs 0)",
                 [&] { read("\n1\n", CSV_F_MANY_FATAL | CSV_F_NO_HEADER); });
}

TEST_F(CsvTest, UnknownFieldsEndTheProcess)
{
    const Table table = read("a\n1\n");
    csv *t = table.get();
    csv_line *line = t->lines;
    expect_fatal(": field x does not exist", [&] { csv_field_set(t, line, "x", "1"); });
    expect_fatal(": field x does not exist", [&] { csv_type_set(t, "x", CSV_TYPE_INT, NULL); });
    expect_fatal("Cannot find x", [&] { csv_delete_field(t, "x"); });
    expect_fatal("Invalid key field x", [&] { csv_sort(t, "a", 0, "x", 0, NULL); });
    expect_fatal("csv: name x does not exist", [&] { csv_search(t, "x", "1", NULL); });
    expect_fatal("csv: got search name with no value", [&] { csv_search(t, "a", nullptr, NULL); });
    expect_fatal(":2, field x does not exist in the line you want to merge.",
                 [&] { csv_merge_line_by_field(t, "x", t, line, nullptr); });
}

struct CompareRow {
    int type;
    const char *low, *high; // "low < high", or equal when `equal`
    bool equal;
};

TEST_F(CsvTest, TypesDecideTheOrder)
{
    const CompareRow rows[] = {
        {CSV_TYPE_NONE, "abc", "ABC", true},
        {CSV_TYPE_TEXT, "a", "B", false},
        {CSV_TYPE_TEXT, "9", "a", false},
        {CSV_TYPE_TEXT_CASE, "B", "a", false},
        {CSV_TYPE_FORMULA, "x", "X", true},
        {CSV_TYPE_INT, "9", "10", false},
        {CSV_TYPE_INT, "-2147483648", "2147483647", false}, // a difference beyond 32 bits
        {CSV_TYPE_INT, " 7x", "7", true},
        {CSV_TYPE_INT, "", "0", true},
        {CSV_TYPE_DATE, "2026-12-01", "01-Jan-2027", false},
        {CSV_TYPE_DATE, "1900-01-01", "2100-01-01", false},
        {CSV_TYPE_FLOAT, "-1e3", "0.25", false},
        {CSV_TYPE_FLOAT, "nan", "5", true},
        {7, "a", "b", true},
        {15, "1", "2", true},
    };
    for (const CompareRow &row : rows) {
        SCOPED_TRACE(std::string(row.low) + " and " + row.high + " as " + std::to_string(row.type));
        const Table table(csv_alloc_with_hdr("k", NULL));
        csv_type_set(table.get(), "k", row.type, NULL);
        csv_line *high = csv_line_add_fields_set(table.get(), "k", row.high, NULL);
        csv_line *low = csv_line_add_fields_set(table.get(), "k", row.low, NULL);
        EXPECT_EQ(csv_search(table.get(), "K", row.low, NULL), row.equal ? high : low);
        csv_sort(table.get(), "k", 0, NULL);
        EXPECT_EQ(table->lines, row.equal ? high : low);
        csv_sort(table.get(), "k", static_cast<int>(CSV_KEY_DESC), NULL);
        EXPECT_EQ(table->lines, high);
    }
}

TEST_F(CsvTest, SortingIsStableByManyKeys)
{
    std::string text = "n,p,k\n";
    std::vector<std::pair<std::pair<int, int>, int>> expected;
    uint32_t random = 1;
    for (int i = 0; i < 3000; i++) {
        random = random * 1103515245 + 12345;
        const int n = static_cast<int>(random >> 16) % 20 - 10;
        const int p = static_cast<int>(random >> 8) % 7;
        expected.push_back({{-n, p}, i});
        text += std::to_string(n) + "," + std::to_string(p) + "," + std::to_string(i) + "\n";
    }
    std::sort(expected.begin(), expected.end());
    const Table table = read(text);
    csv_type_set(table.get(), "n", CSV_TYPE_INT, NULL);
    csv_sort(table.get(), "n", static_cast<int>(CSV_KEY_DESC), "p", 0, NULL);
    csv_line *line = table->lines;
    for (const auto &row : expected) {
        ASSERT_STREQ(csv_field_get(table.get(), line, "k"), std::to_string(row.second).c_str());
        line = line->next;
    }
    EXPECT_EQ(line, nullptr);
    EXPECT_EQ(table->lines_count, -1);
    EXPECT_EQ(table->sort_index, nullptr);
    // Values that equal everything must not lead the sort astray.
    csv_type_set(table.get(), "p", CSV_TYPE_FLOAT, NULL);
    int at = 0;
    for (line = table->lines; line; line = line->next, at++) {
        if (at % 3 == 0)
            csv_field_set(table.get(), line, "p", "nan");
    }
    csv_sort(table.get(), "p", 0, NULL);
    EXPECT_EQ(csv_lines_count(table.get()), 3000);
}

TEST_F(CsvTest, BadDateIsReportedOnceARow)
{
    const Table table = read("d\nnever\n2026-01-02\n2025-01-02\n2024-01-02\n");
    csv_type_set(table.get(), "d", CSV_TYPE_DATE, NULL);
    csv_sort(table.get(), "d", 0, NULL);
    EXPECT_EQ(log_.take(), "5: date_atoi: invalid date format 'never'\n");
    EXPECT_EQ(shown_table(table.get()), "H1:d\n2:never\n5:2024-01-02\n4:2025-01-02\n3:2026-01-02\n");
}

TEST_F(CsvTest, SearchingGoesOn)
{
    const Table table = read("a,b\nx,1\nX,2\ny,2\nx,2\nx\n");
    csv *t = table.get();
    EXPECT_EQ(csv_search(t, "a", "x", "b", "2", NULL)->line_number, 3);
    csv_line *found = csv_search_from(t, t->lines->next->next, "a", "x", NULL);
    EXPECT_EQ(found->line_number, 5);
    EXPECT_EQ(csv_search(t, "b", "", NULL)->line_number, 6);
    EXPECT_EQ(csv_search(t, "a", "z", NULL), nullptr);
    EXPECT_EQ(csv_search_from(t, nullptr, "a", "x", NULL), nullptr);
}

TEST_F(CsvTest, MergingFillsWhatIsEmpty)
{
    const Table dst = read("key,a,b\n1,,B\n2,A,\n1,,\n");
    const Table src = read("b,KEY,a,new\nb1,1,a1,n1\nb2,2,a2,n2\nb3,3,a3,n3\n");
    csv_line *line = src->lines;
    char *only[] = {const_cast<char *>("A"), nullptr};
    EXPECT_EQ(csv_merge_line_by_field(dst.get(), "key", src.get(), line, only), 0);
    EXPECT_EQ(shown_table(dst.get()), "H1:key|a|b\n2:1|a1|B\n3:2|A|\n4:1||\n");
    EXPECT_EQ(csv_merge_line_by_field(dst.get(), "key", src.get(), line->next, nullptr), 0);
    EXPECT_EQ(shown_table(dst.get()), "H1:key|a|b|new\n2:1|a1|B|\n3:2|A|b2|n2\n4:1|||\n");
    EXPECT_EQ(csv_merge_line_by_field(dst.get(), "key", src.get(), line->next->next, nullptr), -1);
}

TEST_F(CsvTest, NullIsEmpty)
{
    csv_close(nullptr);
    csv_line_list_free(nullptr);
    csv_cell_set(nullptr, "a");
    csv_field_add(nullptr, "a");
    csv_field_set(nullptr, nullptr, "a", "b");
    csv_sort(nullptr, "a", 0, NULL);
    csv_normalize(nullptr, 0);
    EXPECT_EQ(csv_search(nullptr, "a", "b", NULL), nullptr);
    EXPECT_EQ(csv_lines_count(nullptr), 0);
    EXPECT_STREQ(csv_field_get(nullptr, nullptr, nullptr), "");
    EXPECT_STREQ(csv_line_get(nullptr, nullptr), ":0");
    EXPECT_EQ(csv_read(nullptr, next_of, nullptr), -1);
    EXPECT_EQ(csv_merge_line_by_field(nullptr, "a", nullptr, nullptr, nullptr), -1);
    csv_cell *cell = csv_cell_alloc(nullptr);
    EXPECT_STREQ(cell->text, "");
    csv_line line{nullptr, cell, 0};
    csv_cell_set(cell, "x");
    csv_cell_set(cell, cell->text);
    EXPECT_EQ(shown_line(&line), "0:x\n");
    free(cell->text);
    free(cell);
}

} // namespace
