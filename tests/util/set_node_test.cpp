#include "util/set.h"

#include "support.h"
#include "support/trees.h"

#include <cmath>

using std::string;

namespace
{

// How a place prints: the text of its node, or "-".
string at(set **place) { return place ? (*place ? (*place)->value : "(empty)") : "-"; }

// --- Paths.

struct PathRow {
    const char *path;
    const char *found; // the value below, or "-"
};

TEST(SetPath, SeparatorsAndBackslashesChooseTheNode)
{
    static const PathRow rows[] = {
        {"", "root"},      {"/", "root"},     {"//", "root"},     {"a", "A"},       {"a/b", "AB"},
        {"a//b/", "AB"},   {"//a///b", "AB"}, {"a\\/b", "slash"}, {"a\\\\b", "bs"}, {"\\a/\\b", "AB"},
        {"a\\/b/c", "sc"}, {"A", "-"},        {"b", "-"},         {"a/b/c", "-"},   {"a\\", "-"},
        {"\\", "-"},       {"a/b/\\", "-"},   {"aa", "-"},        {"\\/", "-"},     {"dup", "1"},
    };
    Tree tree("r(=root a(=A b(=AB)) a/b(=slash c(=sc)) a\\b(=bs) dup(=1) dup(=2))");
    for (const PathRow &row : rows) {
        set **node = set_get(&tree, row.path);
        string found = "-";
        for (set *son = node ? (*node)->sons : nullptr; son; son = son->next)
            found = son->value[0] == '=' ? son->value + 1 : found;
        EXPECT_EQ(found, row.found) << row.path;
    }
    EXPECT_EQ(set_get(&tree, "//"), &tree) << "the handle itself";
    EXPECT_EQ(set_get(&tree, nullptr), nullptr);
}

TEST(SetPath, EveryLengthAroundTheScratchBufferBehavesAlike)
{
    for (size_t length = 120; length < 135; length++) {
        for (const string &path :
             {string(length, 'n'), string(length - 2, 'n') + "/m", string(length, '/') + "n"}) {
            Tree tree("r");
            set **made = set_set(&tree, path.c_str());
            ASSERT_NE(made, nullptr) << length;
            EXPECT_EQ(set_get(&tree, path.c_str()), made) << length;
            EXPECT_EQ(set_get(&tree, (path + "/x").c_str()), nullptr) << length;
            EXPECT_EQ(set_get(&tree, (path + "\\").c_str()), nullptr) << length;
        }
    }
}

TEST(SetPath, JoinedPathIsNeverCutAndMayHoldThePreviousOne)
{
    EXPECT_STREQ(set_path_create(nullptr, nullptr), "");
    EXPECT_STREQ(set_path_create(nullptr, "a", nullptr), "/a");
    EXPECT_STREQ(set_path_create("a", "", "b/c", nullptr), "a//b/c");
    for (const size_t length : {251U, 252U, 253U, 5000U}) { // "/wan" makes 255 to 257
        const string name(length, 'x');
        const char *first = set_path_create(name.c_str(), "wan", nullptr);
        EXPECT_EQ(first, name + "/wan");
        EXPECT_EQ(set_path_create("l", first, first, nullptr), "l/" + name + "/wan/" + name + "/wan");
    }
    const char *one = set_path_create("a", nullptr);
    EXPECT_EQ(one, set_path_create("b", nullptr)) << "one static buffer";
    Tree tree("r(a(b(1)))");
    EXPECT_EQ(at(set_get_path_create(&tree, "a", "b", nullptr)), "b");
    EXPECT_EQ(set_get_path_create(&tree, "a", "x", nullptr), nullptr);
    EXPECT_EQ(at(set_set_path_create(&tree, "a", "x/y", nullptr)), "y");
    EXPECT_EQ(tree.show(), "r(a(b(1) x(y)))");
}

TEST(SetPath, PathOfANodeIsItsNamesBelowTheRoot)
{
    Tree tree("r:3(a:3(b:3(x/y:3)) i:2)");
    EXPECT_EQ(taken(set_get_path(&tree)), "(null)");
    EXPECT_EQ(taken(set_get_path(tree.at("a"))), "a");
    EXPECT_EQ(taken(set_get_path(tree.at("a/b/x\\/y"))), "a/b/x/y");
    EXPECT_EQ(taken(set_get_path(tree.at("i"))), "(null)") << "not visible";
}

// --- Reading.

TEST(SetRead, AnAbsentOrInvisibleNodeGivesTheAbsentResultEverywhere)
{
    Tree empty("");
    Tree hidden("r:2(a:1(5:1))");
    for (set **handle : {static_cast<set **>(nullptr), &empty, &hidden}) {
        EXPECT_EQ(set_get(handle, ""), nullptr);
        EXPECT_EQ(set_get(handle, "a"), nullptr);
        EXPECT_EQ(set_get_son(handle, 0), nullptr);
        EXPECT_EQ(set_get_next(handle), nullptr);
        EXPECT_EQ(set_get_nsons(handle), 0);
        EXPECT_EQ(set_get_value(handle), nullptr);
        EXPECT_EQ(set_get_int(handle), 0);
        EXPECT_EQ(set_son_get_str(handle), nullptr);
        EXPECT_STREQ(set_son_get_strz(handle), "");
        EXPECT_EQ(set_son_get_int(handle), 0);
        EXPECT_EQ(set_son_get_u32(handle), 0U);
        EXPECT_EQ(set_son_get_u64(handle), 0U);
        EXPECT_EQ(set_son_get_hex(handle), 0);
        EXPECT_EQ(set_son_get_float(handle), 0.0);
        EXPECT_EQ(set_get_path(handle), nullptr);
        EXPECT_EQ(set_get_byname(handle, "a", "5"), nullptr);
        EXPECT_EQ(set_dup(handle), nullptr);
        EXPECT_EQ(set_free(handle), 0);
        EXPECT_EQ(set_set_str(handle, "x"), nullptr);
        EXPECT_STREQ(set_get_path_strz(handle, "a"), "");
        set_free_sons(handle == &hidden ? nullptr : handle);
        if (handle == &hidden)
            continue;
        EXPECT_EQ(set_set(handle, "a"), nullptr);
        EXPECT_EQ(set_set_path_str(handle, "a", "1"), nullptr);
        EXPECT_EQ(set_link(handle, hidden.root, 0), nullptr);
    }
    EXPECT_EQ(hidden.marks(), "r:2(a(5))");
    EXPECT_EQ(set_alloc(nullptr), nullptr);
    EXPECT_EQ(set_use(nullptr, hidden.root), nullptr);
    set_clear_changed(nullptr);
}

TEST(SetRead, OnlyVisibleSonsAreFoundAndCounted)
{
    Tree tree("r:3(a:2 b:1 c:3 d:2 e:1 e:2(in:2))");
    const struct {
        uint32_t mask;
        const char *sons;
        const char *e_in;
    } rows[] = {{1, "bce", "-"}, {2, "acde", "in"}, {3, "abcdee", "-"}, {4, "", "-"}};
    for (const auto &row : rows) {
        const Masks masks(row.mask, 1);
        string by_number, by_next;
        for (int i = 0; set_get_son(&tree, i); i++)
            by_number += *set_get_son(&tree, i)[0]->value;
        for (set **son = set_get_son(&tree, 0); son; son = set_get_next(son))
            by_next += *set_get_value(son);
        EXPECT_EQ(by_number, row.sons);
        EXPECT_EQ(by_next, row.sons);
        EXPECT_EQ(static_cast<size_t>(set_get_nsons(&tree)), by_next.size());
        EXPECT_EQ(set_get_son(&tree, -1), nullptr);
        // With both layers visible the first "e" answers, although the second has the son.
        EXPECT_EQ(at(set_get(&tree, "e/in")), row.e_in) << row.mask;
    }
}

TEST(SetRead, TheValueIsTheVisibleSonOfTheHighestLayersThenTheFirst)
{
    const struct {
        const char *tree;
        uint32_t mask;
        const char *value;
    } rows[] = {
        {"k:3(one:1 two:2)", 3, "two"}, {"k:3(two:2 one:1)", 3, "two"},
        {"k:3(two:2 one:1)", 1, "one"}, {"k:3(first:1 second:1)", 1, "first"},
        {"k:7(a:3 b:4 c:5)", 1, "c"},   {"k:80000000(low:80000000 top:c0000000)", 0x80000000U, "top"},
        {"k:3(one:2)", 1, "-"},         {"k", 1, "-"},
    };
    for (const auto &row : rows) {
        const Masks masks(row.mask, 1);
        Tree tree(row.tree);
        const char *value = set_son_get_str(&tree);
        EXPECT_STREQ(value ? value : "-", row.value) << row.tree;
        EXPECT_STREQ(set_get_path_strz(&tree, ""), value ? value : "");
    }
}

TEST(SetRead, ValuesConvertWithTheSizesOfTheTarget)
{
    const struct {
        const char *text;
        int as_int;
        uint32_t as_u32;
        uint64_t as_u64;
        int as_hex;
        double as_float;
    } rows[] = {
        {"1500", 1500, 1500, 1500, 0x1500, 1500},
        {"-5", -5, 4294967291U, 18446744073709551611U, -5, -5},
        {"2147483648", INT32_MAX, 2147483648U, 2147483648U, -1, 2147483648.0},
        {"4294967296", INT32_MAX, UINT32_MAX, 4294967296U, -1, 4294967296.0},
        {"99999999999999999999", INT32_MAX, UINT32_MAX, UINT64_MAX, -1, 1e20},
        {"ff", 0, 0, 0, 255, 0},
        {"0x10", 0, 0, 0, 16, 16},
        {"1.5e3x", 1, 1, 1, 1, 1500},
        {"", 0, 0, 0, 0, 0},
    };
    for (const auto &row : rows) {
        Tree tree("r(k)");
        set_set_path_str(&tree, "k", row.text);
        set **key = tree.at("k");
        EXPECT_EQ(set_son_get_int(key), row.as_int) << row.text;
        EXPECT_EQ(set_get_path_int(&tree, "k"), row.as_int) << row.text;
        EXPECT_EQ(set_get_int(set_get_son(key, 0)), row.as_int) << row.text;
        EXPECT_EQ(set_son_get_u32(key), row.as_u32) << row.text;
        EXPECT_EQ(set_son_get_u64(key), row.as_u64) << row.text;
        EXPECT_EQ(set_son_get_hex(key), row.as_hex) << row.text;
        EXPECT_DOUBLE_EQ(set_son_get_float(key), row.as_float) << row.text;
    }
}

TEST(SetRead, ByNameFindsTheFirstSonWhoseFieldHoldsTheValue)
{
    Tree tree("r:3(0(name(lan)) 1(name(LAN) x(y(up))) 2:2(name:2(wan:2)) 3 4(name(lan)))");
    const struct {
        const char *field, *value, *exact, *folded;
    } rows[] = {
        {"name", "lan", "0", "0"},  {"name", "LAN", "1", "0"},   {"name", "wan", "-", "-"},
        {"x/y", "UP", "-", "1"},    {"/", "name", "0", "0"},     {"name", "", "-", "-"},
        {"", "name", "-", "-"},     {"name\\", "lan", "-", "-"}, {"name", nullptr, "-", "-"},
        {nullptr, "lan", "-", "-"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(at(set_get_byname(&tree, row.field, row.value)), row.exact)
            << row.field << " " << row.value;
        EXPECT_EQ(at(set_get_case_byname(&tree, row.field, row.value)), row.folded);
        EXPECT_EQ(at(set_get_byname_case_aware(&tree, row.field, row.value, 7)), row.exact);
    }
}

// --- Writing: each row is a tree, a call in a mask, and the tree with its marks afterwards.

struct ChangeRow {
    const char *before;
    uint32_t mask;
    const char *path;
    const char *text;
    const char *result; // the text of the node that is returned, or "-"
    const char *after;
};

TEST(SetWrite, PathsAreCreatedInTheLayersOfTheMask)
{
    static const ChangeRow rows[] = {
        {"r", 1, "a/b", "", "b", "r*(a*(b*))"},
        {"r(a(b))", 1, "a/b", "", "b", "r(a(b))"},                    // nothing is missing, nothing is marked
        {"r(a(b))", 2, "a/b", "", "b", "r:3*(a:3*(b:3*))"},           // found in the other layer
        {"r(a z)", 1, "a/b/c", "", "c", "r*(a*(b*(c*)) z)"},          // the brother keeps its place and mark
        {"r(x)", 1, "a", "", "a", "r*(x a*)"},                        // appended
        {"r(a)", 2, "", "", "r", "r:3(a)"},                           // only layers, which mark nothing
        {"r(dup(1) dup)", 1, "dup/2", "", "2", "r*(dup*(1 2*) dup)"}, // the first of a name
        {"r", 6, "a", "", "a", "r:7*(a:6*)"},
        {"r", 0, "a", "", "-", "r"},
        {"r", 1, "a/b\\", "", "-", "r"}, // refused before anything is made
        {"r:2", 1, "a\\", "", "-", "r:2"},
    };
    for (const ChangeRow &row : rows) {
        const Masks masks(1, row.mask);
        Tree tree(row.before);
        EXPECT_EQ(at(set_set(&tree, row.path)), row.result) << row.before << " " << row.path;
        EXPECT_EQ(tree.marks(), row.after) << row.before << " " << row.path;
    }
    Tree tree("r(a)");
    EXPECT_EQ(at(set_set(tree.at("a"), "b")), "b") << "below another node than the root";
    EXPECT_EQ(tree.marks(), "r*(a*(b*))");
}

TEST(SetWrite, StoringAValueReplacesTheSonsOnlyWhenItIsNew)
{
    static const ChangeRow rows[] = {
        {"r", 1, "a/b", "1", "1", "r*(a*(b*(1*)))"},
        {"r(k(1))", 1, "k", "1", "1", "r(k(1))"},
        {"r(k(1))", 1, "k", "2", "2", "r*(k*(2*))"},
        {"r(k(1))", 2, "k", "1", "1", "r:3*(k:3*(1:3*))"},
        {"r(k(1))", 2, "k", "2", "2", "r:3*(k:3*(1 2:2*))"},
        {"r:3(k:3(1 2:2))", 2, "k", "1", "1", "r:3*(k:3*(1:3*))"}, // the survivor is used again
        {"r:3(k:3(1 2:2))", 1, "k", "2", "2", "r:3*(k:3*(2:3*))"},
        {"r(k(1(2)))", 1, "k", "1", "1", "r*(k*(1*))"}, // that was no value
        {"r(k(1 1))", 1, "k", "1", "1", "r*(k*(1*))"},
        {"r(k(a(b)))", 1, "k/a", "x/y", "x/y", "r*(k*(a*(x/y*)))"}, // a value is no path
        {"r(k(1))", 1, "k", "", "", "r*(k*(*))"},
        {"r(k())", 1, "k", "", "", "r(k())"},
        {"r", 1, "", "v", "v", "r*(v*)"},
        {"r(k(1))", 1, "k", nullptr, "-", "r(k(1))"},
        {"r(k(1))", 1, nullptr, "2", "-", "r(k(1))"},
        {"r(k(1))", 1, "k\\", "2", "-", "r(k(1))"},
        {"r(k(1))", 0, "k", "2", "-", "r(k(1))"},
    };
    for (const ChangeRow &row : rows) {
        const Masks masks(1, row.mask);
        Tree tree(row.before);
        EXPECT_EQ(at(set_set_path_str(&tree, row.path, row.text)), row.result)
            << row.before << " " << row.after;
        EXPECT_EQ(tree.marks(), row.after) << row.before;
    }
}

TEST(SetWrite, TextsMayLieInWhatTheCallFrees)
{
    Tree tree("r(k(deep(value)))");
    EXPECT_EQ(at(set_set_path_str(&tree, "k", (*tree.at("k/deep/value"))->value)), "value");
    EXPECT_EQ(tree.show(), "r(k(value))");
    EXPECT_EQ(at(set_set_str(tree.at("k"), (*tree.at("k/value"))->value)), "value");
    EXPECT_EQ(tree.show(), "r(value(value))");
    EXPECT_EQ(set_set_str(&tree, (*tree.at("value"))->value), &tree);
    EXPECT_EQ(set_set_str(&tree, tree.root->value + 2), &tree);
    EXPECT_EQ(tree.show(), "lue(value(value))");
}

TEST(SetWrite, RenamingMovesTheSubtreeOfTheMask)
{
    static const ChangeRow rows[] = {
        {"r(a(1))", 1, "a", "b", "b", "r*(b*(1*))"},
        {"r(x a(1) z)", 1, "a", "b", "b", "r*(x b*(1*) z)"}, // the new node stands where the old one stood
        {"r(a(1))", 1, "a", "a", "a", "r(a(1))"},            // the same name marks nothing
        {"r(a(1 2(x)) m b(2(y) 3))", 1, "a", "b", "b",
         "r*(m b*(2*(y x*) 3 1*))"}, // merged, duplicates by name
        {"r(b(1) m a(2))", 1, "a", "b", "b", "r*(b*(1 2*) m)"},
        {"r:3(a:3(one:1 two:2))", 1, "a", "b", "b", "r:3*(a:2*(two:2) b*(one*))"}, // half of it stays
        {"r:3(a:3(one:1) b:2)", 1, "a", "b", "b", "r:3*(a:2* b:3*(one*))"},
        {"r(a(1))", 3, "a", "b", "b",
         "r:3*(b:3*(1*))"}, // the target is in all layers written, with its ancestors
        {"r(a(1))", 2, "a", "b", "-", "r(a(1))"},
        {"r", 1, "", "s", "s", "s*"},
        {"r:2", 2, "", "s", "s", "s:2*"},
        {"r(a)", 1, "a", nullptr, "-", "r(a)"},
    };
    for (const ChangeRow &row : rows) {
        const Masks masks(1, row.mask);
        Tree tree(row.before);
        set **result = set_set_str(tree.at(row.path), row.text);
        EXPECT_EQ(at(result), row.result) << row.before << " " << row.after;
        EXPECT_EQ(tree.marks(), row.after) << row.before;
    }
    Tree tree("r(a(1) b)");
    set **place = tree.at("a");
    EXPECT_EQ(set_set_str(place, "b"), place) << "the next brother took the place of the old node";
    EXPECT_EQ(set_set_int(place, INT32_MIN), place);
    EXPECT_EQ(tree.show(), "r(-2147483648(1))");
}

TEST(SetWrite, ASecondRootEndsTheProcess)
{
    for (const char *root : {"r:3", "r:3(a:1)"}) {
        expect_fatal("Set cannot have more than one root", [&] {
            Tree tree(root);
            set_set_str(&tree, "s");
        });
    }
}

TEST(SetWrite, FreeingTakesOutLayersAndThenNodes)
{
    static const struct {
        const char *before;
        uint32_t mask;
        const char *path;
        int result;
        const char *after;
    } rows[] = {
        {"r(a b(x y) c)", 1, "b", 1, "r*(a c)"},
        {"r(a b c)", 1, "a", 1, "r*(b c)"},
        {"r:3(a:3(x:1 y:2 z:3))", 1, "a", 0, "r:3*(a:2*(y:2 z:2*))"},
        {"r:3(a:3(x:1))", 3, "a", 1, "r:3*"},
        {"r(a)", 2, "a", 0, "r(a)"},
        {"r(a)", 0, "a", 0, "r(a)"},
        {"r(a(1(2(3) 4) 5))", 1, "", 1, ""},
        {"r s t", 1, "", 1, "s t"},                  // a brother takes the root's place
        {"r:3(a:1(x:6(y:4) z))", 1, "a", 1, "r:3*"}, // sons outside the parent's layers go along
        {"r:7(a:7(b:5(c:4) b:3(c:2)) d:7)", 5, "", 0, "r:2*(a:2*(b:2*(c:2)) d:2*)"},
    };
    for (const auto &row : rows) {
        const Masks masks(1, row.mask);
        Tree tree(row.before);
        EXPECT_EQ(set_free(tree.at(row.path)), row.result) << row.before;
        EXPECT_EQ(tree.marks(), row.after) << row.before;
    }
    Tree tree("r:3(a:3 b:1 c:3(x) d:2)");
    set_free_sons(&tree);
    EXPECT_EQ(tree.marks(), "r:3*(a:2* c:2* d:2)");
    set_clear_changed(tree.root);
    set_free_sons(&tree);
    EXPECT_EQ(tree.marks(), "r:3(a:2 c:2 d:2)") << "nothing to free, nothing changed";
}

// --- Whole trees.

TEST(SetTree, ACopyHasTheVisibleNodesAndTheirLayersInTheMask)
{
    Tree tree("r:7(a:3(x:1 y:2(z:2)) b:4 c:5)");
    const struct {
        uint32_t mask;
        const char *copy;
    } rows[] = {
        {1, "r*(a*(x*) c*)"},
        {2, "r:2*(a:2*(y:2*(z:2*)))"},
        {5, "r:5*(a*(x*) b:4* c:5*)"},
        {8, ""},
    };
    for (const auto &row : rows) {
        const Masks masks(row.mask, 1);
        Tree copy;
        copy.root = set_dup(&tree);
        EXPECT_EQ(copy.marks(), row.copy);
    }
    Tree part;
    part.root = set_dup(tree.at("a"));
    EXPECT_EQ(part.marks(), "a*(x*)") << "a copy of a part is a root";
    EXPECT_EQ(tree.marks(), "r:7(a:3(x y:2(z:2)) b:4 c:5)");
}

TEST(SetTree, LinkingReplacesSonsOrLaterBrothers)
{
    const struct {
        const char *tree, *path;
        int where;
        const char *after;
    } rows[] = {
        {"r(a(1:2(x) 2) b)", "a", 0, "r:5*(a:5*(n:4*(m:4)) b)"},
        {"r(a(1) b:2(x) c)", "a", 1, "r:5*(a(1) n:4*(m:4))"},
        {"r(a)", "a", 0, "r:5*(a:5*(n:4*(m:4)))"},
        {"r s", "", 1, "r n:4*(m:4)"},
        {"r(a)", "a", 2, "r(a)"},
        {"r(a)", "a", -1, "r(a)"},
    };
    for (const auto &row : rows) {
        Tree tree(row.tree);
        Tree node("n:4(m:4)");
        set **place = set_link(tree.at(row.path), node.root, row.where);
        EXPECT_EQ(at(place), row.where == 0 || row.where == 1 ? "n" : "-");
        if (place)
            node.root = nullptr;
        EXPECT_EQ(tree.marks(), row.after) << row.tree;
    }
}

TEST(SetTree, LinkingRefusesWhatWouldLoopOrDangle)
{
    Tree tree("r(a(b(c) d) e(f))");
    const struct {
        const char *handle, *node;
        int where;
    } rows[] = {
        {"a", "a", 0},   {"a", "a", 1},     {"a/b", "a", 0}, {"a/b/c", "", 1}, // itself and ancestors
        {"a", "a/b", 0}, {"a", "a/b/c", 0}, {"", "e/f", 0},                    // sons that go, at any depth
        {"a", "e", 1},   {"a/b", "a/d", 1}, {"a", "e/f", 1},                   // brothers that go
    };
    for (const auto &row : rows)
        EXPECT_EQ(set_link(tree.at(row.handle), *tree.at(row.node), row.where), nullptr)
            << row.handle << row.node;
    EXPECT_EQ(set_link(&tree, nullptr, 0), nullptr);
    EXPECT_EQ(tree.marks(), "r(a(b(c) d) e(f))");
}

TEST(SetTree, BrothersThatCameAlongAreFreedAndCopiedAlthoughTheirParentIsAnother)
{
    Tree chain("n(1) m(2(3))");
    Tree tree("r");
    set_link(&tree, chain.root, 0);
    chain.root = nullptr;
    EXPECT_EQ(tree.marks(), "r*(n*(1) m!(2(3)))");
    Tree copy;
    copy.root = set_dup(&tree);
    EXPECT_EQ(copy.show(), "r(n(1) m(2(3)))");
    set_clear_changed(tree.root);
    {
        const Masks masks(1, 3);
        Tree other("r:2(n:2(1:2) m:2(2:2(3:2)))");
        kutil::tree_join(tree.root, other.root, 2);
        EXPECT_EQ(tree.marks(), "r:3*(n:3*(1:3*) m:3*!(2:3*(3:3*)))") << "marks go up the way the walk came";
    }
    EXPECT_EQ(set_free(&tree), 0);
    const Masks masks(1, 2);
    EXPECT_EQ(set_free(&tree), 1);
    EXPECT_EQ(tree.root, nullptr);
}

TEST(SetTree, JoiningGivesTheTargetLayersOnlyWhenItSharesNone)
{
    const struct {
        const char *target;
        uint32_t mask;
        const char *after;
    } rows[] = {
        {"t(x)", 3, "t*(x:3*(y:2*) z:2*)"}, // its sons get whatever they lack
        {"t:4(x)", 3, "t:7*(x:3*(y:2*) z:2*)"},
        {"t(x(y))", 1, "t(x(y))"},
    };
    for (const auto &row : rows) {
        Tree target(row.target);
        Tree source("s:3(x:3(y:2) z:2)");
        kutil::tree_join(target.root, source.root, row.mask);
        EXPECT_EQ(target.marks(), row.after) << row.target;
    }
}

TEST(SetTree, UsePutsANodeIntoThePlace)
{
    Tree tree("r(a(1))");
    Tree other("s(x)");
    EXPECT_EQ(set_use(&tree, tree.root), &tree) << "the node that is there already";
    EXPECT_EQ(set_use(&tree, *tree.at("a/1")), nullptr) << "a node that would be freed on the way";
    for (set **place : {tree.at("a/1"), &(*tree.at("a/1"))->sons, &tree.root->next})
        EXPECT_EQ(set_use(place, tree.root), nullptr) << "the tree would stand in itself";
    EXPECT_EQ(tree.marks(), "r(a(1))");
    EXPECT_EQ(set_use(&tree, other.root), &tree);
    EXPECT_EQ(tree.show(), "s(x)");
    other.root = nullptr;
    EXPECT_EQ(set_use(&tree, nullptr), &tree);
    EXPECT_EQ(tree.root, nullptr);
}

TEST(SetTree, ANewRootHasTheSetMaskAndIsMarked)
{
    const Masks masks(1, 6);
    Tree tree;
    tree.root = set_alloc("conf");
    EXPECT_EQ(tree.marks(), "conf:6*");
}

// --- Changed marks.

TEST(SetChanged, ClearingFollowsMarkedNodesOnly)
{
    Tree tree("r(a(b(c)) d(e))");
    for (const char *path : {"", "a", "a/b/c", "d"})
        (*tree.at(path))->changed = 1;
    set_clear_changed(tree.root);
    EXPECT_EQ(tree.marks(), "r(a(b(c*)) d(e))") << "c stands below an unmarked node";
    (*tree.at("a/b/c"))->changed = 0;
    set_set_path_str(&tree, "a/b/new", "1");
    EXPECT_EQ(tree.marks(), "r*(a*(b*(c new*(1*))) d(e))");
    EXPECT_EQ(set_changed_check(tree.root), 1);
    set_clear_changed(*tree.at("d"));
    EXPECT_EQ(set_changed_check(*tree.at("a")), 1);
    set_clear_changed(tree.root);
    EXPECT_EQ(set_changed_check(tree.root), 0);
    EXPECT_EQ(set_changed_check(nullptr), 1);
}

TEST(SetChanged, ComparingTwoStatesOfATree)
{
    Tree before("r(a(b(1)) gone(x) h:2)");
    Tree now("r(a(b(1)) c(d(2)) h:2)");
    for (const char *path : {"", "c"})
        (*now.at(path))->changed = 1;
    const struct {
        const char *path;
        int changed;
    } rows[] = {
        {"", 1},     {"a", 0},      {"a/b", 0},   {"a/none", 0}, // a is unmarked: nobody looks below
        {"c", 1},    {"c/d", 0},    {"c/d/9", 0},                // the node's own mark counts
        {"gone", 1}, {"gone/x", 1}, {"none", 0},  {"h", 0},      {"gone\\", 0}, {nullptr, 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(set_comp_changed_path(&before, &now, row.path), row.changed) << row.path;
    Tree empty;
    EXPECT_EQ(set_comp_changed_path(&before, nullptr, "a"), 1);
    EXPECT_EQ(set_comp_changed_path(nullptr, &empty, "a"), 0);
    EXPECT_EQ(set_comp_changed(&before, &now), 1);
    EXPECT_EQ(set_comp_changed(&before, now.at("a")), 0);
    EXPECT_EQ(set_comp_changed(&before, nullptr), 1);
    EXPECT_EQ(set_comp_changed(&before, &empty), 1);
    EXPECT_EQ(set_comp_changed(nullptr, nullptr), 0);
    EXPECT_EQ(set_comp_changed(&empty, nullptr), 0);
}

} // namespace
