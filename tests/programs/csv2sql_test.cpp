// csv2sql from outside: what it writes, what it refuses, and that a file is replaced whole or not at all.

#include "programs/child_program.h"
#include "support.h"
#include "util/csv.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

namespace
{

class Csv2sql : public testing::Test
{
protected:
    ProgramResult run(std::vector<std::string> words, const std::string &input = "",
                      const std::function<void()> &prepare = {})
    {
        words.insert(words.begin(), KUTIL_CSV2SQL);
        return run_program(folder_, aside_, words, input, prepare);
    }
    // The result of a call that is done without a word.
    std::string output(std::vector<std::string> words, const std::string &input)
    {
        const ProgramResult result = run(std::move(words), input);
        EXPECT_EQ(result.exit_code, 0) << result.err;
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    const ScratchFolder folder_;
    const ScratchFolder aside_;
};

struct Row {
    std::vector<std::string> words;
    std::string input;
    int exit_code;
    std::string out;
    std::string err; // "csv2sql: " goes in front of every line
};

void expect(const ProgramResult &result, const Row &row)
{
    std::string call;
    for (const std::string &word : row.words)
        call += word + " ";
    std::string err = row.err.empty() ? "" : "csv2sql: " + row.err;
    for (size_t at = 0; (at = err.find('\n', at)) + 1 < err.size() && at != std::string::npos; at++)
        err.insert(at + 1, "csv2sql: ");
    EXPECT_EQ(result.exit_code, row.exit_code) << call << row.input;
    EXPECT_EQ(result.out, row.out) << call << row.input;
    EXPECT_EQ(result.err, err) << call << row.input;
}

} // namespace

TEST_F(Csv2sql, NormalisesAndConverts)
{
    using namespace std::string_literals;
    const Row rows[] = {
        {{"csv", "csv"}, "a,b\n1\n\n\"x,\"\"y\"\"\n\",2\r\n", 0, "a,b\n1,\n\"x,\"\"y\"\"\n\",2\n", ""},
        {{"csv", "csv"}, "", 0, "", ""},
        {{"csv", "csv"}, "\xef\xbb\xbf", 0, "", "standard input:1: a byte order mark is left out\n"},
        {{"csv", "csv"}, "a,b\n", 0, "a,b\n", ""},
        {{"csv", "csv"}, "a\n1\n\"\"\n", 0, "\"a\"\n\"1\"\n\"\"\n", ""}, // no line is lost in reading again
        {{"csv", "csv"},
         "a,\xc3\xa9\n\xe9,\xff",
         1,
         "",
         "standard input:2: byte 255, at which reading would stop\n"},
        {{"csv", "csv"},
         "\xef\xbb\xbf"
         "a,b\n1,2",
         0,
         "a,b\n1,2\n",
         "standard input:1: a byte order mark is left out\n"
         "standard input:2: the last line has no line feed; it is read as if it had\n"},
        {{"csv", "csv"},
         "a,b\n\0001,\"x\r\ny\"\r2,\r\n3,4\r"s,
         1,
         "",
         "standard input:2: a NUL byte is left out\n"
         "standard input:2: a carriage return inside quotes is left out\n"
         "standard input:3: a carriage return without a line feed is left out\n"
         "standard input:3: invalid char outside of quotation, expected new field.\n"},
        {{"csv", "csv"}, "a\n\"b", 1, "", "standard input:2: file ended without closing quotation\n"},
        {{"tab", "tab"}, "a\tb\n\\t\\\\\t\\n\\rx\n", 0, "a\tb\n\\t\\\\\t\\n\\rx\n", ""},
        {{"tab", "tab"}, "a\tb\nx\ty\\", 1, "", "standard input:2: file ended in middle of escape\n"},
        {{"tab", "tab"}, "a\n\\0\nb\n", 0, "a\n\\0\nb\n", ""},
        {{"csv", "tab"}, "a,b\n\"x\ty\n\",\\\n", 0, "a\tb\nx\\ty\\n\t\\\\\n", ""},
        {{"tab", "csv"},
         "a\tb\n\"\t,\\r\n",
         0,
         "a,b\n\"\"\"\",\",\r\"\n",
         "standard input:2: a carriage return in a value will be left out when the result is read again\n"},
        {{"--spreadsheet", "csv", "csv"}, "a,b\n=1,\n", 0, "'a,'b\n'=1,'\n", ""},
        {{"--type", "a=text", "--type", "b=int", "csv", "csv"}, "a,b\n1,2\n", 0, "a,b\n\"1\",2\n", ""},
    };
    for (const Row &row : rows)
        expect(run(row.words, row.input), row);
}

TEST_F(Csv2sql, LinesThatAreTooLong)
{
    const std::string text = "a,b\n1,2,3\n4\n5,6,7,8\n";
    const std::string first = "standard input:2: too many cells\n";
    const std::string both = first + "standard input:4: too many cells\n";
    const Row rows[] = {
        {{"csv", "csv"}, text, 1, "", first},
        {{"--sort", "a", "csv", "csv"}, text, 1, "", first},
        {{"--extra=drop", "csv", "csv"}, text, 0, "a,b\n1,2\n4,\n5,6\n", both},
        {{"--extra=widen", "csv", "csv"}, text, 0, "a,b,field3,field4\n1,2,3,\n4,,,\n5,6,7,8\n", ""},
        {{"--extra=widen", "--sort", "a:desc", "csv", "csv"},
         text,
         0,
         "a,b,field3,field4\n5,6,7,8\n4,,,\n1,2,3,\n",
         both.substr(0, 0)},
        {{"--extra=widen", "csv", "csv"}, "field2\n1,2\n", 0, "field2,field2_\n1,2\n", ""},
        {{"--check", "csv", "csv"},
         text,
         1,
         "standard input: 2 fields, 3 lines\n",
         first + "standard input:3: too few cells\nstandard input:4: too many cells\n"},
        {{"--check", "csv", "sql"}, "a\n1\n", 0, "standard input: 1 fields, 1 lines\n", ""},
    };
    for (const Row &row : rows)
        expect(run(row.words, row.input), row);
    std::string many = "a\n";
    for (int i = 0; i < 50; i++)
        many += "1,2\n";
    const ProgramResult result = run({"--check", "csv", "csv"}, many);
    EXPECT_NE(result.err.find("too many cells, 45 times more\n"), std::string::npos) << result.err;
    EXPECT_LT(result.err.size(), 500U);
}

TEST_F(Csv2sql, SelectsSortsAndCuts)
{
    const std::string text = "n,Name,d\n10,b,2026-01-02\n9,A,01-Jan-2026\n10,a,\n-1,B,2025-12-31\n";
    const std::string header = "n,Name,d\n";
    const std::string ten_b = "10,b,2026-01-02\n", nine = "9,A,01-Jan-2026\n", ten_a = "10,a,\n",
                      minus = "-1,B,2025-12-31\n";
    const Row rows[] = {
        {{"--sort", "n", "csv", "csv"}, text, 0, header + minus + ten_b + ten_a + nine, ""},
        {{"--type", "N=int", "--sort", "n:desc,name", "csv", "csv"},
         text,
         0,
         header + ten_a + ten_b + nine + minus,
         ""},
        {{"--type=n=float", "--sort", "n", "csv", "csv"}, text, 0, header + minus + nine + ten_b + ten_a, ""},
        {{"--sort=name:asc", "--columns", "name", "csv", "tab"}, text, 0, "Name\nA\na\nb\nB\n", ""},
        {{"--select", "name=A", "csv", "csv"}, text, 0, header + nine + ten_a, ""},
        {{"--select", "name=A", "--select", "n=10", "csv", "csv"}, text, 0, header + ten_a, ""},
        {{"--type", "d=date", "--columns", "d,n,d", "--select", "d=2026-01-01", "csv", "csv"},
         text,
         0,
         "d,n,d\n\"01-Jan-2026\",9,\"01-Jan-2026\"\n",
         ""},
        {{"--columns", "a\\,b,c\\=", "--select", "c\\==\\=", "csv", "csv"},
         "\"a,b\",c=\n1,\\=\n2,\n",
         0,
         "\"a,b\",c=\n1,\\=\n",
         ""},
        {{"--sort", "x", "csv", "csv"}, text, 2, "", "standard input: no field x\n"},
        {{"--select", "x=", "csv", "csv"}, text, 2, "", "standard input: no field x\n"},
        {{"--columns", "n,", "csv", "csv"}, text, 2, "", "standard input: no field \n"},
        {{"--type", "x=int", "csv", "csv"}, text, 2, "", "standard input: no field x\n"},
        {{"--type", "d=date", "--sort", "d", "csv", "csv"},
         "d\nx\n2026-01-01\n",
         0,
         "\"d\"\n\"x\"\n\"2026-01-01\"\n",
         "date_atoi: invalid date format 'x'\n"},
    };
    for (const Row &row : rows)
        expect(run(row.words, row.input), row);
}

TEST_F(Csv2sql, MergesAsTheLibraryDoes)
{
    folder_.write("m.csv", "new,ID,a\nN1,x,1\nN2,y,2\nN3,X,3\n,,\nN4,z,4\n");
    const Row rows[] = {
        {{"--merge", "m.csv", "--key", "id", "csv", "csv"},
         "id,a,b\nX,,B\nx,,\ny,7,\n",
         0,
         "id,a,b,new\nX,1,B,N1\nx,,,\ny,7,,N2\n",
         "m.csv: 2 of 5 lines matched nothing\n"},
        {{"--merge", "m.csv", "--key", "id", "--sort", "new:desc", "--select", "a=1", "csv", "csv"},
         "id,a\nx,\ny,1\n",
         0,
         "id,a,new\ny,1,N2\nx,1,N1\n",
         "m.csv: 2 of 5 lines matched nothing\n"},
        {{"--merge", "m.csv", "--key", "id", "csv", "csv"},
         "id\nq\n",
         0,
         "\"id\"\n\"q\"\n",
         "m.csv: 5 of 5 lines matched nothing\n"},
        {{"--merge", "m.csv", "--key", "a", "--type", "a=float", "--columns", "new,a", "csv", "csv"},
         "a\n01.0\nnan\n2\n",
         0,
         "new,a\nN1,01.0\nN2,nan\n,2\n",
         "m.csv: 1 of 5 lines matched nothing\n"},
        {{"--merge", "m.csv", "--key", "q", "csv", "csv"}, "q\n1\n", 2, "", "m.csv: no field q\n"},
        {{"--merge", "m.csv", "--key", "new", "csv", "csv"},
         "q\n1\n",
         2,
         "",
         "standard input: no field new\n"},
        {{"--merge", "none.csv", "--key", "q", "csv", "csv"},
         "q\n1\n",
         2,
         "",
         std::string("none.csv: ") + strerror(ENOENT) + "\n"},
    };
    for (const Row &row : rows)
        expect(run(row.words, row.input), row);
}

// Random tables of few keys: the program hashes the key, the library looks at line after line.
TEST_F(Csv2sql, MergesRandomTablesAsTheLibraryDoes)
{
    constexpr const char *kKeys[] = {"1", "01", "2",   "a",          "A",          "nan",
                                     "",  "-0", "1.5", "2026-01-01", "01-Jan-2026"};
    constexpr std::pair<const char *, int> kTypes[] = {
        {"int", CSV_TYPE_INT}, {"float", CSV_TYPE_FLOAT}, {"date", CSV_TYPE_DATE}, {"text", CSV_TYPE_TEXT}};
    const ReportLog log; // what is no date is reported
    uint32_t random = 5;
    const auto pick = [&](uint32_t below) { return (random = random * 1103515245 + 12345) / 65536 % below; };
    const auto random_table = [&](std::string text, size_t columns) {
        for (uint32_t lines = pick(9); lines > 0; lines--) {
            for (size_t i = 0; i < columns; i++)
                text += std::string(i ? "," : "") + "\"" + kKeys[pick(std::size(kKeys))] + "\"";
            text += "\n";
        }
        return text;
    };
    for (int round = 0; round < 24; round++) {
        const auto &[name, type] = kTypes[round % 4];
        folder_.write("dst", random_table("x,Key\n", 2));
        folder_.write("src", random_table("new,key,x,new\n", 4));
        csv *dst = csv_open((folder_ / "dst").c_str(), 0);
        csv *src = csv_open((folder_ / "src").c_str(), 0);
        csv_type_set(dst, "key", type, NULL);
        for (csv_line *line = src->lines; line; line = line->next) {
            if (*csv_field_get(src, line, "key"))
                csv_merge_line_by_field(dst, "key", src, line, nullptr);
        }
        ASSERT_EQ(csv_write(dst, (folder_ / "expected").c_str()), 0);
        const ProgramResult result = run({"-i", "dst", "--merge", "src", "--key", "key", "--type",
                                          std::string("key=") + name, "csv", "csv"});
        EXPECT_EQ(result.out, folder_.read("expected")) << name << "\n"
                                                        << folder_.read("dst") << folder_.read("src");
        csv_close(src);
        csv_close(dst);
    }
}

TEST_F(Csv2sql, ChoosesTheColumnsTypes)
{
    const struct {
        std::vector<std::string> cells;
        const char *type;
        const char *values;
        std::vector<std::string> options = {};
    } rows[] = {
        {{"0", "-12", "9223372036854775807", "-9223372036854775808", ""},
         "INTEGER",
         "0 -12 9223372036854775807 -9223372036854775808 NULL"},
        {{"007"}, "TEXT", "'007'"},
        {{"9223372036854775808"}, "TEXT", "'9223372036854775808'"},
        {{"+1"}, "TEXT", "'+1'"},
        {{"-0"}, "REAL", "-0"},
        {{"1", "2.50", ""}, "REAL", "1 2.50 NULL"},
        {{"1.2345678901234567"}, "TEXT", "'1.2345678901234567'"},
        {{"1.", ".5"}, "TEXT", "'1.' '.5'"},
        {{"1e5"}, "TEXT", "'1e5'"},
        {{"2026-02-28", ""}, "DATE", "'2026-02-28' NULL"},
        {{"2026-02-28 23:59:59", "2026-01-01"}, "DATETIME", "'2026-02-28 23:59:59' '2026-01-01'"},
        {{"2026-02-30"}, "TEXT", "'2026-02-30'"},
        {{"", ""}, "TEXT", "'' ''"},
        {{"1", "x", ""}, "TEXT", "'1' 'x' ''"},
        {{"1"}, "TEXT", "'1'", {"--type", "c=text"}},
        {{"15-Nov-2026 10:00:00", "2026-01-01"},
         "DATETIME",
         "'2026-11-15 10:00:00' '2026-01-01'",
         {"--type", "c=date"}},
        {{"1", "2"}, "REAL", "1 2", {"--type", "c=float"}},
        {{"1"}, "BIGINT", "1", {"--dialect", "mariadb"}},
        {{"1.5"}, "DOUBLE", "1.5", {"--dialect", "mariadb"}},
        {{std::string(70000, 'x')}, "LONGTEXT", nullptr, {"--dialect", "mariadb"}},
    };
    for (const auto &row : rows) {
        std::string text = "c\n";
        for (const std::string &cell : row.cells)
            text += "\"" + cell + "\"\n";
        std::vector<std::string> words = row.options;
        words.insert(words.end(), {"csv", "sql"});
        const std::string sql = output(words, text);
        const size_t type = sql.find("c", sql.find("(\n")) + 3;
        EXPECT_EQ(sql.substr(type, sql.find('\n', type) - type), row.type) << text.substr(0, 80);
        std::string values;
        for (size_t at = sql.find(" VALUES\n"); (at = sql.find('(', at)) != std::string::npos; at++)
            values += (values.empty() ? "" : " ") + sql.substr(at + 1, sql.find(')', at) - at - 1);
        EXPECT_TRUE(!row.values || values == row.values) << values;
    }
}

TEST_F(Csv2sql, WritesSql)
{
    folder_.write("my \"t`.x.csv", "\"a\"\"`\",b\n1,it's \\\n\n");
    EXPECT_EQ(output({"-i", "my \"t`.x.csv", "csv", "sql"}, ""),
              "BEGIN TRANSACTION;\nCREATE TABLE \"my \"\"t`.x\" (\n  \"a\"\"`\" INTEGER,\n  \"b\" TEXT\n);\n"
              "INSERT INTO \"my \"\"t`.x\" VALUES\n(1,'it''s \\');\nCOMMIT;\n");
    EXPECT_EQ(output({"-i", "my \"t`.x.csv", "--dialect=mariadb", "--table=t", "csv", "sql"}, ""),
              "SET NAMES utf8mb4;\n"
              "SET SESSION sql_mode = REPLACE(@@SESSION.sql_mode, 'NO_BACKSLASH_ESCAPES', '');\n"
              "CREATE TABLE `t` (\n  `a\"``` BIGINT,\n  `b` TEXT\n) DEFAULT CHARACTER SET utf8mb4;\n"
              "START TRANSACTION;\n"
              "INSERT INTO `t` VALUES\n(1,'it\\'s \\\\');\nCOMMIT;\n");
    EXPECT_EQ(output({"csv", "sql"}, "a\n"),
              "BEGIN TRANSACTION;\nCREATE TABLE \"data\" (\n  \"a\" TEXT\n);\nCOMMIT;\n");
    std::string wide = "f";
    for (int i = 0; i < 2000; i++)
        wide += ",f" + std::to_string(i);
    const Row rows[] = {
        {{"csv", "sql"}, "", 1, "", "standard input: no header, so there is no table to make\n"},
        {{"csv", "sql"}, "a,,b\n", 1, "", "standard input: the name of field 2 is empty\n"},
        {{"csv", "sql"}, "a,b,A\n", 1, "", "standard input: two fields are named A\n"},
        {{"csv", "sql"}, wide + "\n", 1, "", "standard input: 2001 fields; a table has 2000 at most\n"},
        {{"--type=a=int", "csv", "sql"},
         "a\n1\n 7\n",
         1,
         "",
         "standard input:3: field a: not a whole number of 64 bits:  7\n"},
        {{"--type=a=float", "csv", "sql"}, "a\n1x\n", 1, "", "standard input:2: field a: not a number: 1x\n"},
        {{"--type=a=date", "csv", "sql"},
         "a\n31-Feb-2026\n",
         1,
         "",
         "standard input:2: field a: not a date: 31-Feb-2026\n"},
    };
    for (const Row &row : rows)
        expect(run(row.words, row.input), row);
}

TEST_F(Csv2sql, ReplacesAFileWholeOrNotAtAll)
{
    folder_.write("t.csv", "a,b\n1");
    chmod((folder_ / "t.csv").c_str(), 0640);
    ASSERT_EQ(symlink("t.csv", (folder_ / "link").c_str()), 0);
    EXPECT_EQ(run({"-i", "link", "-o", "link", "csv", "csv"}).exit_code, 0);
    EXPECT_EQ(folder_.read("t.csv"), "a,b\n1,\n");
    struct stat status;
    ASSERT_EQ(lstat((folder_ / "t.csv").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);

    folder_.write("t.csv", "a,b\n1,2\n1,2,3\n");
    EXPECT_EQ(run({"-i", "t.csv", "-o", "t.csv", "csv", "csv"}).exit_code, 1);
    EXPECT_EQ(run({"-i", "t.csv", "-o", "t.csv", "--check", "csv", "csv"}).exit_code, 1);
    EXPECT_EQ(folder_.read("t.csv"), "a,b\n1,2\n1,2,3\n");
    EXPECT_EQ(folder_.list(), "link t.csv") << "nothing else is left behind";

    EXPECT_EQ(
        run({"-i", "t.csv", "-o", "new", "--extra=drop", "csv", "csv"}, "", [] { umask(027); }).exit_code, 0);
    ASSERT_EQ(stat((folder_ / "new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    const auto small = [] {
        const rlimit limit = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    folder_.write("big", "a\n" + std::string(300000, 'x') + "\n");
    EXPECT_EQ(run({"-i", "big", "-o", "new", "csv", "csv"}, "", small).exit_code, 3);
    EXPECT_EQ(folder_.read("new"), "a,b\n1,2\n1,2\n");
    EXPECT_EQ(folder_.list(), "big link new t.csv");
}

TEST_F(Csv2sql, EndsWithAStatusThatSaysWhy)
{
    const struct {
        std::vector<std::string> words;
        int exit_code;
        const char *said;
    } rows[] = {
        {{}, 2, "usage: "},
        {{"csv"}, 2, "two forms"},
        {{"csv", "csv", "csv"}, 2, "two forms"},
        {{"csv", "xml"}, 2, "no such form: xml"},
        {{"sql", "csv"}, 2, "only written"},
        {{"--frob", "csv", "csv"}, 2, "no such option: --frob"},
        {{"-xq", "csv", "csv"}, 2, "no such option: -x"},
        {{"csv", "csv", "-i"}, 2, "needs an argument: -i"},
        {{"--type", "a=x", "csv", "csv"},
         2,
         "--type takes FIELD=int, FIELD=float, FIELD=date or FIELD=text: a=x"},
        {{"--type", "a", "csv", "csv"}, 2, "--type takes"},
        {{"--sort", "a:up", "csv", "csv"}, 2, "behind commas: a:up"},
        {{"--select", "a", "csv", "csv"}, 2, "--select takes FIELD=VALUE: a"},
        {{"--extra=keep", "csv", "csv"}, 2, "--extra takes drop or widen: keep"},
        {{"--merge", "x", "csv", "csv"}, 2, "belong together"},
        {{"--merge", "-", "--key", "a", "csv", "csv"}, 2, "both"},
        {{"--spreadsheet", "csv", "sql"}, 2, "--spreadsheet"},
        {{"-i", "none", "csv", "csv"}, 2, "none: "},
        {{"-i", ".", "csv", "csv"}, 2, ".: "},
        {{"-o", "none/x", "csv", "csv"}, 3, "none/x: "},
        {{"-o", ".", "csv", "csv"}, 3, ".: "},
        {{"-o", "/dev/full", "csv", "csv"}, 3, "/dev/full: "},
        {{"-o", "/dev/null", "csv", "csv"}, 0, ""},
        {{"--stats", "csv", "csv"}, 0, "1 lines read, 1 written, "},
    };
    for (const auto &row : rows) {
        const ProgramResult result = run(row.words, "a\n1\n");
        const std::string call = row.words.empty() ? "" : row.words[0];
        EXPECT_EQ(result.exit_code, row.exit_code) << call << result.err;
        EXPECT_NE(result.err.find(row.said), std::string::npos) << call << result.err;
    }
    EXPECT_EQ(run({"--version"}).out.substr(0, 8), "csv2sql ");
    EXPECT_EQ(run({"--help"}).out.substr(0, 6), "usage:");
}

TEST_F(Csv2sql, TenThousandColumns)
{
    std::string header = "f0", line = "0";
    for (int i = 1; i < 10000; i++) {
        header += ",f" + std::to_string(i);
        line += "," + std::to_string(i);
    }
    EXPECT_EQ(output({"csv", "csv"}, header + "\n" + line + "\n"), header + "\n" + line + "\n");
}
