// csv2sql among other programs: a database loads what it writes, Python reads it, the shell completes it.

#include "programs/child_program.h"

#include <sys/resource.h>
#include <sys/stat.h>

namespace
{

class Csv2sqlHost : public testing::Test
{
protected:
    ProgramResult bash(const std::string &script, const std::function<void()> &prepare = {})
    {
        return run_program(folder_, aside_, {"/bin/bash", "-c", "csv2sql='" KUTIL_CSV2SQL "'; " + script}, "",
                           prepare);
    }
    // What the script prints; it fails with a word on standard error.
    std::string output(const std::string &script)
    {
        const ProgramResult result = bash("set -e -o pipefail; " + script);
        EXPECT_EQ(result.exit_code, 0) << script;
        EXPECT_EQ(result.err, "") << script;
        return result.out;
    }

    const ScratchFolder folder_;
    const ScratchFolder aside_;
};

// Values that are easily damaged: every byte that a cell can hold in both forms, and what looks like a
// number.
constexpr const char kMakeTable[] = R"PY(
import csv, random
random.seed(7)
rows = [["id", "te'xt", "number", "day"]]
letters = "ab'\"`,;\\\t\n\x01\x7f\u00e9\u20ac %_-#"
for i in range(2000):
    text = "".join(random.choice(letters) for _ in range(random.randrange(20)))
    number = random.choice(["", "1.5", "-20.25", "3"])
    day = random.choice(["", "2026-02-28", "1999-12-31"])
    rows.append([str(i - 1000), text, number, day])
with open("t.csv", "w", newline="", encoding="utf-8") as f:
    csv.writer(f, lineterminator="\n").writerows(rows)
)PY";

} // namespace

TEST_F(Csv2sqlHost, DatabaseAndPythonReadTheSame)
{
    folder_.write("make.py", kMakeTable);
    folder_.write("compare.py", R"PY(
import csv, sqlite3, sys
rows = list(csv.reader(open("t.csv", newline="", encoding="utf-8")))
db = sqlite3.connect("t.db")
print([c[2] for c in db.execute("pragma table_info(t)")])
assert [c[1] for c in db.execute("pragma table_info(t)")] == rows[0]
for given, loaded in zip(rows[1:], db.execute("select * from t order by rowid"), strict=True):
    assert loaded == (int(given[0]), given[1], float(given[2]) if given[2] else None, given[3] or None), (given, loaded)
assert list(csv.reader(open("again.csv", newline="", encoding="utf-8"))) == rows
unescape = {"t": "\t", "n": "\n", "\\": "\\"}
def cell(text):
    parts = iter(text)
    return "".join(unescape[next(parts)] if c == "\\" else c for c in parts)
assert [[cell(c) for c in line.split("\t")] for line in open("t.tab", newline="", encoding="utf-8").read().split("\n")[:-1]] == rows
)PY");
    EXPECT_EQ(
        output("python3 make.py; $csv2sql -i t.csv -o t.tab csv tab; $csv2sql -i t.tab -o again.csv tab csv;"
               "cat t.csv | $csv2sql --table t csv sql | sqlite3 -bail t.db; python3 compare.py"),
        "['INTEGER', 'TEXT', 'REAL', 'DATE']\n");
}

TEST_F(Csv2sqlHost, MariadbLoadsTheSame)
{
    const std::string path = "export PATH=$PATH:/usr/sbin; ";
    if (bash(path + "command -v mariadbd mariadb").exit_code != 0)
        GTEST_SKIP() << "mariadbd is not installed";
    folder_.write("make.py", kMakeTable);
    folder_.write("compare.py", R"PY(
import csv, sys
rows = list(csv.reader(open("t.csv", newline="", encoding="utf-8")))[1:]
for given, line in zip(rows, sys.stdin, strict=True):
    id, text, number, day = line.rstrip("\n").split("|")
    loaded = [id, bytes.fromhex(text).decode("utf-8"), float(number) if number else None, day]
    assert loaded == [given[0], given[1], float(given[2]) if given[2] else None, given[3]], (given, loaded)
)PY");
    // A server that keeps Latin-1 and no backslash escapes unless it is told otherwise.
    EXPECT_EQ(
        output(
            path +
            "python3 make.py; mkdir data;"
            "mariadbd --no-defaults --user=$(id -un) --datadir=$PWD/data --tmpdir=$PWD/data --socket=$PWD/s"
            " --skip-networking --skip-grant-tables --innodb-buffer-pool-size=16M --innodb-log-file-size=8M"
            " --character-set-server=latin1 --sql-mode=NO_BACKSLASH_ESCAPES >log 2>&1 & trap 'kill $!; wait' "
            "EXIT;"
            "sql() { mariadb --no-defaults -S s --batch --skip-column-names --raw \"$@\"; };"
            "for i in {1..150}; do sql -e 'create database t' 2>/dev/null && break; sleep 0.2; done;"
            "$csv2sql -i t.csv --dialect mariadb csv sql | sql t;"
            "sql t -e \"select concat_ws('|', id, hex(convert(\\`te'xt\\` using utf8mb4)),"
            " ifnull(number, ''), ifnull(day, '')) from t order by id\" | python3 compare.py"),
        "");
}

TEST_F(Csv2sqlHost, AFailedLoadLeavesNothing)
{
    folder_.write("t.csv", "a\n1\n\"x\n");
    EXPECT_EQ(bash("$csv2sql -i t.csv --type a=text -o t.sql csv sql").exit_code, 1);
    EXPECT_EQ(output("ls"), "t.csv\n");
    folder_.write("t.csv", "a\n1\n2\n");
    EXPECT_EQ(output("$csv2sql -i t.csv csv sql | head -n -1 | sqlite3 t.db; sqlite3 t.db .tables"), "");
}

TEST_F(Csv2sqlHost, SortsAsSortDoes)
{
    EXPECT_EQ(output("(echo n,t; for i in {1..3000}; do echo $((i * 7919 % 101 - 50)),$i; done) > t.csv;"
                     "$csv2sql -i t.csv --type n=int --sort n csv csv | tail -n +2 > sorted;"
                     "tail -n +2 t.csv | sort -s -t, -k1,1n | cmp - sorted;"
                     "$csv2sql -i t.csv --type n=int --sort n:desc csv csv | tail -n +2 > sorted;"
                     "tail -n +2 t.csv | sort -s -t, -k1,1nr | cmp - sorted"),
              "");
}

TEST_F(Csv2sqlHost, MemoryStaysBounded)
{
    const int fd = open((folder_ / "sparse").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(2) << 30), 0);
    close(fd);
    const ProgramResult result = bash("$csv2sql -i sparse --stats csv csv");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_NE(result.err.find("sparse:1: a line of more than 64 MB\n"), std::string::npos) << result.err;
#ifndef __SANITIZE_ADDRESS__
    const std::string peak = "sed -n 's/.* \\([0-9]*\\) KB .*/\\1/p'";
    const std::string make = "awk 'BEGIN { print \"id,name,price,note\"; for (i = 0; i < 200000; i++)"
                             " print i * 7919 % 200003 \",user\" i \",\" i / 4 \",a note of some words\" }' "
                             "> t.csv; size=$(stat -c %s t.csv);";
    // Streaming needs no memory that grows with the file, sorting and merging less than ten times the file.
    output(make + "for to in csv tab sql; do used=$($csv2sql -i t.csv -o out --stats csv $to 2>&1 | " + peak +
           "); test $used -lt 16384; done;"
           "for options in '--sort name' '--merge t.csv --key id'; do"
           " used=$($csv2sql -i t.csv -o out --stats $options csv csv 2>&1 | " +
           peak + "); test $used -lt $((size / 1024 * 10)); done");
#endif
}

TEST_F(Csv2sqlHost, TheShellCompletesOptionsFormsFieldsAndFiles)
{
    folder_.write("t.csv", "Name,b c\n1,2\n");
    const std::string complete =
        "source '" KUTIL_SOURCE_DIR "/packaging/completion/csv2sql' || exit; c() {"
        " COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); COMPREPLY=(); _csv2sql; echo \"${COMPREPLY[*]}\"; }; ";
    const struct {
        const char *words; // the last one is being typed
        const char *replies;
    } rows[] = {
        {"--sp", "--spreadsheet"},
        {"--extra w", "widen"},
        {"--dialect ''", "sqlite mariadb"},
        {"''", "csv tab"},
        {"-i t.csv csv ''", "csv tab sql"},
        {"-i t", "t.csv"},
        {"-i t.csv --sort ''", "Name b\\ c"},
        {"-i t.csv --key N", "Name"},
        {"-i none --key N", ""},
    };
    for (const auto &row : rows) {
        const ProgramResult result = bash(complete + "c \"$csv2sql\" " + row.words);
        EXPECT_EQ(result.out, std::string(row.replies) + "\n") << row.words;
        EXPECT_EQ(result.err, "") << row.words;
    }
}
