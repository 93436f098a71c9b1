#include "common/tree_diff.h"
#include "common/tree_list.h"

#include "support/trees.h"
#include "util/set.h"

#include <algorithm>

using namespace kutil::common;
using std::string;

namespace
{

void add_line(void *text, const char *line, size_t length)
{
    EXPECT_EQ(strlen(line), length);
    *static_cast<string *>(text) += string(line, length) + "\n";
}

string listing(set **tree, bool *exact = nullptr)
{
    string text;
    const bool all_read_back = tree_list(tree, add_line, &text);
    if (exact)
        *exact = all_read_back;
    return text;
}

string difference(set **from, set **to, Marks marks = Marks::ignored)
{
    string text;
    const size_t lines = tree_diff(from, to, add_line, &text, marks);
    EXPECT_EQ(lines, static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
    return text;
}

// Sets each line in a tree.
void set_lines(const string &lines, set **tree)
{
    for (size_t start = 0; start < lines.size();) {
        const size_t end = lines.find('\n', start);
        TreeLine line;
        size_t offset = 0;
        ASSERT_EQ(tree_line_read(lines.data() + start, end - start, &line, &offset), nullptr) << lines;
        if (line.value)
            EXPECT_NE(set_set_path_str(tree, line.path, line.value), nullptr);
        else
            EXPECT_NE(set_set(tree, line.path), nullptr);
        start = end + 1;
    }
}

TEST(TreeList, EveryKeyIsALineThatReadsBack)
{
    const struct {
        const char *tree;
        const char *path; // of the node that is listed
        const char *lines;
    } rows[] = {
        {"r", "", ""},
        {"r(v)", "", "v/\n"},
        {"r(a(1) b(c(2) d) e)", "", "a=1\nb/c=2\nb/d/\ne/\n"},
        {"r(a(1) b(c(2) d) e)", "b", "b/c=2\nb/d/\n"},
        {"r(a(1) b(c(2) d))", "a", "a=1\n"},
        {"r(a(1) b(c(2) d))", "b/d", "b/d/\n"},
        {"r(a(1) b(c(2) d))", "b/c/2", "b/c/2/\n"},
        {"r(a(1 b(2)))", "", "a/1/\na/b=2\n"}, // 1 is no value here
        {"r(a() b)", "", "a=\nb/\n"},          // an empty value is one
        {"r:3(a:3(1 2:2) b:2)", "", "a=1\n"},  // what the mask shows
        {"r:2(a:2)", "", ""},
        {"r(a/b(c=d\\e;&f) \\/(x))", "", "a\\/b=c=d\\e;&26;f\n\\\\\\/=x\n"},
        {"r(=(=) x=y(1))", "", "\\===\nx\\=y=1\n"},
        {"r(\x01\x1f\x7f(\xff\xc3!~) #a ;)", "", "&01;&1f;&7f;=&ff;&c3;!~\n#a/\n;/\n"},
    };
    for (const auto &row : rows) {
        Tree tree(row.tree);
        bool exact = false;
        const string lines = listing(tree.at(row.path), &exact);
        EXPECT_EQ(lines, row.lines);
        EXPECT_TRUE(exact) << row.tree;
        Tree again("r");
        set_lines(lines, &again);
        if (!*row.path && tree.show().find(':') == string::npos) {
            EXPECT_EQ(again.show(), tree.show());
        }
    }
    EXPECT_EQ(listing(nullptr), "");
}

TEST(TreeList, SaysWhenTheLinesDoNotReadBack)
{
    const struct {
        const char *tree;
        const char *lines;
        bool exact;
    } rows[] = {
        {"r(a(b(1) b(2)))", "a/b=1\na/b=2\n", false},
        {"r(a b a)", "a/\nb/\na/\n", false},
        {"r(a:2 b a)", "b/\na/\n", true},
        {"r(a(x) b(x))", "a=x\nb=x\n", true},
        {"r(a((1) b))", "a/=1\na/b/\n", false},
        {"r( b)", "//\nb/\n", false},
        {"r((1) b)", "/=1\nb/\n", false},
    };
    for (const auto &row : rows) {
        Tree tree(row.tree);
        bool exact = !row.exact;
        EXPECT_EQ(listing(&tree, &exact), row.lines);
        EXPECT_EQ(exact, row.exact) << row.tree;
    }
}

TEST(TreeList, EveryByteComesBack)
{
    string name;
    for (int byte = 1; byte < 256; byte++)
        name += static_cast<char>(byte);
    Tree tree("r"), again("r");
    set *key = *kutil::find_or_add_son(tree.root, name.c_str(), 1);
    kutil::find_or_add_son(key, name.c_str(), 1);
    const string lines = listing(&tree);
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end() - 1, [](char c) { return c >= 32 && c < 127; }));
    set_lines(lines, &again);
    EXPECT_EQ(again.show(), tree.show());
    char *path = tree_path_write(&tree.root->sons);
    EXPECT_EQ(string(path) + "=", lines.substr(0, strlen(path) + 1));
    size_t offset = 0;
    char *read = tree_path_read(path, strlen(path), &offset);
    EXPECT_EQ(*set_get(&tree, read), key);
    free(path);
    free(read);
    EXPECT_EQ(taken(tree_path_write(&tree)), "");
    EXPECT_EQ(tree_path_write(nullptr), nullptr);
}

TEST(TreeLines, AreReadStrictly)
{
    const struct {
        const char *text;
        const char *path; // or NULL: a fault
        const char *value;
        size_t offset = 0; // of the fault
    } rows[] = {
        {"a/b=1", "a/b", "1"},
        {"a=", "a", ""},
        {"=", "", ""},
        {"a/", "a", nullptr},
        {"/", "", nullptr},
        {"a=b/", "a", "b/"},
        {" a = b ", " a ", " b "},
        {"a&2f;b&5C;&3d;/", "a\\/b\\\\\\=", nullptr}, // escaped bytes have no meaning in a path
        {"a\\&2f;b=", "a\\/b", ""},
        {"a\\==\\", "a\\=", "\\"},
        {"a=&41;&c3;\xc3", "a", "A\xc3\xc3"},
        {"", nullptr, nullptr, 0},
        {"a", nullptr, nullptr, 1},
        {"a\\=1", nullptr, nullptr, 4},
        {"a\\/", nullptr, nullptr, 3},
        {"a\\", nullptr, nullptr, 2},
        {"a&/", nullptr, nullptr, 1},
        {"a&4/", nullptr, nullptr, 1},
        {"&4g;=", nullptr, nullptr, 0},
        {"a=b&41", nullptr, nullptr, 3},
        {"a=&-1;", nullptr, nullptr, 2},
        {"a=&00;", nullptr, nullptr, 2},
        {"&00;=", nullptr, nullptr, 0},
    };
    for (const auto &row : rows) {
        TreeLine line;
        size_t offset = 99;
        const char *fault = tree_line_read(row.text, strlen(row.text), &line, &offset);
        EXPECT_EQ(fault == nullptr, row.path != nullptr) << row.text;
        EXPECT_EQ(string(line.path ? line.path : "-"), row.path ? row.path : "-") << row.text;
        EXPECT_EQ(string(line.value ? line.value : "-"), row.value ? row.value : "-") << row.text;
        if (fault) {
            EXPECT_EQ(offset, row.offset) << row.text;
        }
        const string uncut = string(row.text) + "=/junk"; // the length counts, not what follows
        TreeLine same;
        EXPECT_EQ(tree_line_read(uncut.data(), strlen(row.text), &same, &offset), fault) << row.text;
    }
    TreeLine line;
    size_t offset = 0;
    EXPECT_EQ(tree_line_read("a=1", 3, &line, &offset), nullptr);
    EXPECT_NE(tree_line_read("a=\0x", 4, &line, &offset), nullptr);
    EXPECT_EQ(offset, 2U);
    EXPECT_STREQ(line.value, "1") << "as it was";
    EXPECT_EQ(tree_path_read("a&", 2, &offset), nullptr);
    EXPECT_EQ(offset, 1U);
    EXPECT_EQ(tree_path_read("a\\", 2, &offset), nullptr);
}

struct DiffRow {
    const char *from;
    const char *to;
    const char *lines;
};

TEST(TreeDiff, SaysWhatWasAddedRemovedAndChanged)
{
    static const DiffRow rows[] = {
        {"r", "r", ""},
        {"r", "s", ""}, // the names at the top do not count
        {"r(a(1) b(2))", "s(b(2) a(1))", ""},
        {"r(a(1))", "r(a(2))", "~ a=2\n"},
        {"r(a(1) k)", "r(a k(1) b(x(y) z))", "~ a/\n~ k=1\n+ b/x=y\n+ b/z/\n"},
        {"r(a(x(1) y) b)", "r(b)", "- a/x=1\n- a/y/\n"},
        {"r(a(x(1) y(2)) b(3))", "r(b(3) a(y(4) n x(1)))", "~ a/y=4\n+ a/n/\n"},
        // A value against a structure.
        {"r(a(1) z)", "r(a(1 b(2)) z)", "- a=1\n+ a/1/\n+ a/b=2\n"},
        {"r(a(x(1)) z)", "r(a z)", "- a/x=1\n+ a/\n"},
        // At the top.
        {"r(v)", "s(v)", ""},
        {"r(v)", "r(w)", "- v/\n+ w/\n"},
        {"r", "r(w)", "+ w/\n"},
        {"r(v)", "r", "- v/\n"},
        {"r(v(1) v)", "r(v(1))", "- v/\n"},
        {"", "r(a(1))", "+ a=1\n"},
        {"r(a(1))", "", "- a=1\n"},
        {"", "r", ""},
        {"r:2(a:2)", "r(b)", "+ b/\n"},
        {"r", "r()", "+ //\n"},
        // Escapes.
        {"r(p/q(1) k)", "r(p/q(&) k)", "~ p\\/q=&26;\n"},
        // Repeated names: equal ones belong together, the others are paired in order.
        {"r(n(x(1)) n(x(2)) k)", "r(n(x(2)) n(x(1)) k)", ""},
        {"r(n(x(1) y) n(x(2)))", "r(n(x(2)) n(y x(1)))", ""},
        {"r(n(1) n(2) n(3))", "r(n(3) n(4))", "~ n=4\n- n=2\n"},
        {"r(n(1) k)", "r(n(1) n(1) k n(5))", "+ n=1\n+ n=5\n"},
        {"r(n n n)", "r(n n)", "- n/\n"},
        {"r(n(x(1) x(2)) k)", "r(n(x(2) x(2)) k)", "~ n/x=2\n"},
    };
    for (const DiffRow &row : rows) {
        Tree from(row.from), to(row.to);
        EXPECT_EQ(difference(&from, &to), row.lines) << row.from << " to " << row.to;
        EXPECT_EQ(difference(&from, &from) + difference(&to, &to), "");
    }
    Tree tree("r:3(a:3(1 2:2) p(x(1) y(2)) q(x(1)))");
    EXPECT_EQ(difference(tree.at("p"), tree.at("q")), "- y=2\n") << "paths start below the nodes";
    EXPECT_EQ(difference(nullptr, nullptr), "");
}

// Removes a key and the parents that hold nothing else.
void remove(set **tree, string path)
{
    do {
        set_free(set_get(tree, path.c_str()));
        path.resize(path.find_last_of('/') == string::npos ? 0 : path.find_last_of('/'));
    } while (!path.empty() && set_get_nsons(set_get(tree, path.c_str())) == 0);
}

// Random trees: the difference must turn the first into the second.
TEST(TreeDiff, AppliedToTheFirstTreeGivesTheSecond)
{
    uint32_t seed = 12345;
    const auto random = [&seed](uint32_t below) {
        return (seed = seed * 1103515245U + 12345U) / 65536U % below;
    };
    const auto fill = [&](set **tree) {
        for (uint32_t i = random(12); i > 0; i--) {
            string path;
            for (uint32_t depth = random(4); depth > 0; depth--)
                path += string(1, static_cast<char>('a' + random(3))) + "/";
            set_set_path_str(tree, (path + static_cast<char>('p' + random(3))).c_str(),
                             random(2) ? "1" : "2");
        }
    };
    for (int round = 0; round < 2000; round++) {
        Tree from("r"), to("r");
        fill(&from);
        fill(&to);
        const string before = from.show();
        const string lines = difference(&from, &to);
        string removed, added;
        for (size_t start = 0; start < lines.size(); start = lines.find('\n', start) + 1) {
            const string line = lines.substr(start + 2, lines.find('\n', start) - start - 1);
            (lines[start] == '-' ? removed : added) += line;
        }
        for (size_t start = 0; start < removed.size(); start = removed.find('\n', start) + 1) {
            TreeLine line;
            size_t offset = 0;
            ASSERT_EQ(
                tree_line_read(removed.data() + start, removed.find('\n', start) - start, &line, &offset),
                nullptr);
            remove(&from, line.path);
        }
        set_lines(added, &from);
        EXPECT_EQ(set_compare(&from, &to), 0) << before << " to " << to.show() << ":\n" << lines;
    }
}

// A copy that is edited: going down only where it is marked finds the same, with brothers of one name too.
TEST(TreeDiff, MarksLeadToEveryChange)
{
    uint32_t seed = 777;
    const auto random = [&seed](uint32_t below) {
        return (seed = seed * 1103515245U + 12345U) / 65536U % below;
    };
    for (int round = 0; round < 2000; round++) {
        Tree from("r");
        const auto pick = [&](set **tree) {
            set **node = tree;
            for (uint32_t depth = 1 + random(3); depth > 0 && set_get_nsons(node) > 0; depth--)
                node =
                    set_get_son(node, static_cast<int>(random(static_cast<uint32_t>(set_get_nsons(node)))));
            return node;
        };
        const auto add = [&](set **tree) {
            set *parent = *pick(tree);
            set **end = &parent->sons;
            while (*end)
                end = &(*end)->next;
            *end = kutil::new_node(string(1, static_cast<char>('a' + random(4))).c_str(), 1, parent);
            kutil::mark_changed(*end);
        };
        for (uint32_t i = random(30); i > 0; i--)
            add(&from);
        set *copy = set_dup(&from);
        set_clear_changed(copy);
        EXPECT_EQ(difference(&from, &copy, Marks::trusted), "");
        for (uint32_t i = random(4); i > 0; i--) {
            set **node = pick(&copy);
            if (random(2) || node == &copy)
                add(&copy);
            else
                set_free(node);
        }
        EXPECT_EQ(difference(&from, &copy, Marks::trusted), difference(&from, &copy)) << from.show();
        set_free(&copy);
    }
    Tree from("r"), to("r");
    set_set_path_str(&from, "a/b", "1");
    set_set_path_str(&to, "a/b", "1");
    set_clear_changed(to.root);
    (*to.at("a/b"))->sons->value[0] = '2';
    EXPECT_EQ(difference(&from, &to, Marks::trusted), "") << "nothing is marked";
}

TEST(TreeDiff, LongListsAndDeepTreesAreNoProblem)
{
    Tree from("r"), to("r"), deep("r"), deeper("r");
    set **from_end = &from.root->sons;
    set **to_end = &to.root->sons;
    for (int i = 0; i < 20000; i++) {
        const auto add = [](set **place, set *parent, const string &name, int value) {
            *place = kutil::new_node(name.c_str(), 1, parent);
            kutil::find_or_add_son(*place, std::to_string(value).c_str(), 1);
            return &(*place)->next;
        };
        from_end = add(from_end, from.root, i % 2 ? "same" : "k" + std::to_string(i), i);
        to_end = add(to_end, to.root, i % 2 ? "k" + std::to_string(19999 - i) : "same", 19999 - i);
    }
    (*kutil::find_son((*to.root->sons).next, "19998"))->value[0] = '5';
    EXPECT_EQ(difference(&from, &to), "~ k19998=59998\n");
    set *bottom = deep.root, *other_bottom = deeper.root;
    for (int i = 0; i < 30000; i++) {
        bottom = *kutil::find_or_add_son(bottom, "n", 1);
        other_bottom = *kutil::find_or_add_son(other_bottom, "n", 1);
    }
    EXPECT_EQ(difference(&deep, &deeper), "");
    kutil::find_or_add_son(other_bottom, "x", 1);
    EXPECT_EQ(difference(&deep, &deeper).size(), 2 * (30000 * 2 + 3));
}

} // namespace
