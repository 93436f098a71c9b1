#include "util/set_text.h"

#include "support.h"
#include "support/trees.h"

#include <algorithm>

using std::string;

namespace
{

string written(set **handle) { return taken(set_write_alloc(handle)); }

string dos(const string &text)
{
    string result;
    for (const char c : text)
        result += c == '\n' ? "\r\n" : string(1, c);
    return result;
}

TEST(SetText, LayoutOfTheWrittenText)
{
    static const struct {
        const char *tree;
        uint32_t mask;
        const char *text;
    } rows[] = {
        {"a", 1, "(a)\n"},
        {"k(v)", 1, "(k(v))\n"},
        {"k(v w)", 1, "(k\n  (v)\n  (w)\n)\n"},
        {"k:2", 1, "(null)"},
        {"conf(a(1) b(c(2)))", 1, "(conf\n  (a(1))\n  (b\n    (c(2))\n  )\n)\n"},
        {"", 1, "(null)"},
        {"k(a(b(c)))", 1, "(k\n  (a\n    (b(c))\n  )\n)\n"},
        {"x(y z&)", 1, "(x\n  (y)\n  (z&26;)\n)\n"},
        {"r s", 1, "(r)\n"},
        {"k(())", 1, "(k\n  (())\n)\n"},
        {"k:3(v:2)", 1, "(k)\n"},
        {"k:3(v:2(w:2))", 1, "(k)\n"},
        {"k:3(v:2 w:1)", 1, "(k\n  (w)\n)\n"},
        {"k:3(v:2 w:2)", 1, "(k\n)\n"},
        {"k:3(v:2 w:1)", 2, "(k\n  (v)\n)\n"},
    };
    for (const auto &row : rows) {
        const Masks masks(row.mask, 1);
        Tree tree(row.tree);
        EXPECT_EQ(written(&tree), row.text) << row.tree;
        EXPECT_EQ(taken(set_write_alloc_dos(&tree)), dos(row.text)) << row.tree;
    }
    EXPECT_EQ(set_write_alloc(nullptr), nullptr);
}

TEST(SetText, EveryByteIsWrittenPlainOrEscapedAndReadsBack)
{
    const string plain =
        " !#$%*+,-./0123456789:<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[]^_`abcdefghijklmnopqrstuvwxyz{|}~";
    for (int byte = 1; byte < 256; byte++) {
        const char text[] = {'a', static_cast<char>(byte), 'b', '\0'};
        char escape[8];
        snprintf(escape, sizeof(escape), "&%02x;", static_cast<unsigned>(byte));
        const bool is_plain = plain.find(static_cast<char>(byte)) != string::npos;
        const string expected = "a" + (is_plain ? string(1, static_cast<char>(byte)) : escape) + "b";
        char buffer[8] = "???????";
        EXPECT_EQ(set_write_special_chars(text, nullptr), expected.size());
        EXPECT_EQ(set_write_special_chars(text, buffer), expected.size());
        EXPECT_EQ(string(buffer), expected + string(7 - expected.size(), '?')) << "no terminator";
        EXPECT_EQ(taken(set_read_special_chars_alloc(expected.data(), expected.size())), text);
        Tree tree;
        tree.root = set_alloc(text);
        set_set_path_str(&tree, "k", text);
        Tree read;
        read.root = set_read(written(&tree).c_str());
        EXPECT_EQ(read.show(), tree.show()) << byte;
    }
    EXPECT_EQ(set_write_special_chars(nullptr, nullptr), 0U);
}

TEST(SetText, EscapesAreReadAsStrtoulReadsTwoCharacters)
{
    static const struct {
        const char *text;
        const char *result;
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"&41;&42;", "AB"},
        {"x&4z;y", "x\4y"},
        {"&zz;", ""},
        {"&7E_", "~"},
        {"& 5;", "\5"},
        {"&+5;", "\5"},
        {"&-0;", ""},
        {"&-1;", "(null)"},
        {"&-f;", "(null)"},
        {"&0x;", ""},
        {"&26;26;", "&26;"},
        {"&", "(null)"},
        {"&4", "(null)"},
        {"&41", "(null)"},
        {"abc&41", "(null)"},
        {"&c3;&b6;", "\xc3\xb6"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(taken(set_read_special_chars_alloc(row.text, strlen(row.text))), row.result) << row.text;
    char *text = set_read_special_chars_alloc("&&41;x&00;y", 10);
    EXPECT_EQ(string(text, 4), string("\0;x\0", 4)) << "the ampersand inside an escape is no other one";
    free(text);
    EXPECT_EQ(taken(set_read_special_chars_alloc("abcdef", 3)), "abc");
    EXPECT_EQ(set_read_special_chars_alloc(nullptr, 0), nullptr);
}

TEST(SetText, ReadingTakesWhatCanBeNodesAndIgnoresTheRest)
{
    static const struct {
        const char *tree;
        std::vector<const char *> texts;
    } rows[] = {
        {"",
         {"(a", "(a))", "(a(b)", ")(", "", "a", " (a)", "\n(a)", "x(a)", "(a&)", "(a(b&4))", "(a)(b(&-1;))"}},
        {"conf(a(1) b(c(2)))", {"(conf\n  (a(1))\n  (b\n    (c(2))\n  )\n)\n"}},
        {"a(b c)", {"(a(b)(c))", "(a\r\r\n \t(b)\v\f(c) ) "}},
        {"a b", {"(a)(b)", "(a)\n\n  (b)\n", "(a)(b)x(c)"}}, // what can be no node ends all lists
        {"a(b(1))", {"(a\r\n  (b(1))\r\n)\r\n", "(a(b(1)x))", "(a(b(1)x(c))(d))"}},
        {"a", {"(a)x(b)"}},
        {"a()", {"(a())"}},
        {"A&", {"(&41;&26;)"}},
        {"(a b)", {"((a)(b))"}},
        {" b", {"(\n  (b)\n)\n"}}, // a line end right behind "(" ends the list of sons
        {"a( b)", {"(a\n  (\n    (b)\n  )\n)\n"}},
    };
    for (const auto &row : rows) {
        for (const char *text : row.texts) {
            Tree read;
            read.root = set_read(text);
            EXPECT_EQ(read.show(), row.tree) << text;
        }
    }
    // A blank belongs to the name.
    Tree blank;
    blank.root = set_read("(a (b))");
    EXPECT_STREQ(blank.root->value, "a ");
    EXPECT_EQ(set_read(nullptr), nullptr);
}

TEST(SetText, ReadNodesAreMarkedAndInTheSetMask)
{
    Tree read;
    {
        const Masks masks(1, 6);
        read.root = set_read("(a(b(1)))(c)");
        EXPECT_EQ(read.marks(), "a:6*(b:6*(1:6*)) c:6*");
        EXPECT_EQ(set_free(&read), 1);
        EXPECT_EQ(set_free(&read), 1);
        EXPECT_EQ(read.root, nullptr);
    }
    const Masks none(1, 0);
    EXPECT_EQ(set_read("(a)"), nullptr);
}

// --- The strict check.

// What a check must promise: the text is read whole, as one tree, and what is written of it says the same.
void expect_kept(const string &text)
{
    Tree read;
    read.root = set_read(text.c_str());
    ASSERT_NE(read.root, nullptr) << text;
    EXPECT_EQ(read.root->next, nullptr) << text;
    const string again = written(&read);
    EXPECT_EQ(set_read_check(again.data(), again.size(), nullptr), 0) << text;
    Tree reread;
    reread.root = set_read(again.c_str());
    EXPECT_EQ(reread.show(), read.show()) << text;
    // Every node and escape is in the tree, so nothing but layout and spelling may differ.
    EXPECT_EQ(std::count(again.begin(), again.end(), '('), std::count(text.begin(), text.end(), '(')) << text;
}

constexpr size_t kGood = SIZE_MAX;

size_t fault(const string &text)
{
    size_t offset = 1234567;
    if (set_read_check(text.data(), text.size(), &offset) != 0)
        return offset;
    EXPECT_EQ(offset, 1234567U) << "written although there is no fault";
    return kGood;
}

TEST(SetTextCheck, FaultsAreFoundWhereTheyStand)
{
    static const struct {
        size_t fault;
        std::vector<const char *> texts;
    } rows[] = {
        {kGood, {"(a)", "(a)\n \r\n", "(a\n  (b(1))\r\n  (c))", "(a (b))", "(a(\xc3\xa4\t'))", "(a())"}},
        {kGood, {"(a\n  (())\n  ((1)) (b))", "(&c3;&A4;)"}},
        {0, {"", " (a)", ")"}},
        {2, {"(a", "(a&)", "(a&4z;)", "(a& 4;)", "(a&-0;)", "(a&41 )", "(a&41", "(a&00;)"}},
        {3, {"(a\n", "(a))", "(a)(b)", "(a)x"}},
        {4, {"(a)\n(b)"}},
        {5, {"(a(b)", "(a(1)x)", "(a\n  x)"}},
        {6, {"(a&41;&0;)"}},
        {1, {"(\n  (b)\n)\n"}},
        {4, {"((a)(b))"}}, // it and the next would be written as the one above
        {5, {"(x((a(1))))"}},
    };
    for (const auto &row : rows) {
        for (const char *text : row.texts) {
            EXPECT_EQ(fault(text), row.fault) << text;
            if (row.fault == kGood)
                expect_kept(text);
        }
    }
    EXPECT_EQ(fault(string("(a\0)", 4)), 2U);
    EXPECT_EQ(fault(string("(a)\0", 4)), 3U);
    EXPECT_EQ(set_read_check("(a)", 2, nullptr), -1);
    EXPECT_EQ(set_read_check(nullptr, 0, nullptr), -1);
    for (const size_t levels : {256U, 257U}) {
        string text;
        for (size_t i = 0; i < levels; i++)
            text += "(a";
        EXPECT_EQ(fault(text + string(levels, ')')), levels > 256 ? 2 * 256 : kGood);
    }
}

TEST(SetTextCheck, ADamagedTextIsRefusedOrLosesNothing)
{
    const string good = "(conf\n  (lan(1))\n  (wan &41;\r\n    (ip(10.0.0.1)) (e())\n  )\n)\n";
    for (size_t at = 0; at < good.size(); at++) {
        const string cut = good.substr(0, at);
        Tree read;
        read.root = set_read(cut.c_str());
        EXPECT_TRUE(fault(cut) == kGood || at < good.size() - 1);
        for (const char byte : string("\0()&;\n\r \t0afx\\/\x7f\xff", 17)) {
            const string behind = good.substr(at);
            for (const string &damaged : {cut + byte + behind.substr(1), cut + byte + behind}) {
                Tree tree;
                tree.root = set_read(damaged.c_str());
                if (fault(damaged) == kGood)
                    expect_kept(damaged);
            }
        }
    }
}

TEST(SetTextPrint, TheTreeIsDrawnToTheRight)
{
    Tree tree("conf:3(lan(1:3) w:3(n:3 x:2) h:2 z:3(a b))");
    const ChildResult one = run_in_child([&] { set_print_tree(&tree); });
    EXPECT_EQ(one.output, "[ conf <0x1> ]--[ lan <0x1> ]--[ 1 <0x1> ]\n"
                          "                  |\n"
                          "                [ w <0x1> ]--[ n <0x1> ]\n"
                          "                  |\n"
                          "                [ z <0x1> ]--[ a <0x1> ]\n"
                          "                               |\n"
                          "                             [ b <0x1> ]\n");
    const ChildResult none = run_in_child([&] {
        set_print_tree(nullptr);
        set_print_tree_mask(&tree, 4);
        set_print_tree_mask(tree.at("lan"), 2);
    });
    EXPECT_EQ(none.output, "");
    Tree brackets("r:ff(n:20)");
    const ChildResult masked = run_in_child([&] {
        free(brackets.root->value);
        brackets.root->value = strdup("(");
        set_print_tree_mask(&brackets, 0xf);
    });
    EXPECT_EQ(masked.output, "[ &28; <0xf> ]--\n") << "a son that is not seen still gives the line";
}

} // namespace
