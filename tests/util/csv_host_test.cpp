// Tables among other programs: Python's csv module and sqlite3 read what is written and write what is read.
#include "util/csv.h"

#include "programs/scratch_folder.h"

#include <random>

namespace
{

// Every byte but NUL, CR and 255, which a table drops or ends at.
std::string random_text(std::mt19937 &random)
{
    constexpr std::string_view kDangerous = "\"',;\n\t \\";
    std::string text(random() % 12, ' ');
    for (char &c : text) {
        c = random() % 2 ? kDangerous[random() % kDangerous.size()] : static_cast<char>(1 + random() % 254);
        if (c == '\r')
            c = ' ';
    }
    return text;
}

csv *random_table(int lines, int types)
{
    std::mt19937 random(20261115);
    csv *table = csv_alloc_with_hdr("a", "b,c", "\"d\"", NULL);
    csv_type_set(table, "a", types, "b,c", types, NULL);
    csv_line *last = nullptr;
    for (int i = 0; i < lines; i++) {
        const std::string a = random_text(random), b = random_text(random), d = random_text(random);
        last = csv_line_add(table, csv_line_alloc_cells(a.c_str(), b.c_str(), d.c_str(), NULL), last);
    }
    return table;
}

void expect_same(csv *a, csv *b)
{
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(csv_lines_count(a), csv_lines_count(b));
    for (csv_line *x = a->lines, *y = b->lines; x; x = x->next, y = y->next) {
        for (const char *field : {"a", "b,c", "\"d\""})
            ASSERT_STREQ(csv_field_get(a, x, field), csv_field_get(b, y, field)) << y->line_number;
    }
}

} // namespace

TEST(CsvHost, OthersReadAndWriteTheSame)
{
    const struct {
        const char *reader; // copies in.csv to out.csv
        const char *tool;
    } rows[] = {
        {"python3 -c 'import csv\nr = csv.reader(open(\"in.csv\", newline=\"\", encoding=\"latin-1\"), "
         "strict=True)\n"
         "csv.writer(open(\"out.csv\", \"w\", newline=\"\", encoding=\"latin-1\")).writerows(r)'",
         "python3"},
        {"sqlite3 -bail :memory: '.mode csv' '.import in.csv t' '.headers on' '.once out.csv' 'select * from "
         "t'",
         "sqlite3"},
    };
    for (const auto &row : rows) {
        for (const int type : {CSV_TYPE_NONE, CSV_TYPE_TEXT}) {
            SCOPED_TRACE(row.tool);
            const ScratchFolder folder;
            csv *table = random_table(1000, type);
            ASSERT_EQ(csv_write(table, (folder / "in.csv").c_str()), 0);
            ASSERT_EQ(system(("cd '" + folder.path() + "' && " + row.reader).c_str()), 0);
            csv *back = csv_open((folder / "out.csv").c_str(), CSV_F_MANY_FATAL | CSV_F_FEW_FATAL);
            expect_same(table, back);
            csv_close(back);
            csv_close(table);
        }
    }
}
