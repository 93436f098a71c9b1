#include "util/set.h"

#include "support.h"
#include "support/trees.h"

#include <algorithm>
#include <utility>

using std::string;

namespace
{

// What an operation makes of a tree "r", with marks, and what it gives.
using Operation = int (*)(Tree &tree);
struct Row {
    const char *before;
    Operation operation;
    const char *after;
    int result = 0;
};

template <size_t N>
void check(const Row (&rows)[N])
{
    int number = 0;
    for (const Row &row : rows) {
        Tree tree(row.before);
        EXPECT_EQ(row.operation(tree), row.result) << "row " << number << ": " << row.before;
        EXPECT_EQ(tree.marks(), row.after) << "row " << number << ": " << row.before;
        number++;
    }
}

constexpr int kNull = -1;
constexpr int kSelf = 1; // the handle that was passed
int given(const void *result, const void *expected) { return !result ? kNull : result == expected; }

// --- Masks and layers.

TEST(SetMaskStack, UnmaskedCallsTakeTheMasksOnTop)
{
    EXPECT_EQ(kutil::mask_stack.top->get, 1U);
    const set_mask_entry *outer = set_mask_push(2, 4);
    const set_mask_entry *inner = set_mask_push(4, 2);
    EXPECT_EQ(inner->prev, outer);
    Tree tree("r:7(two:2 four:4)");
    EXPECT_EQ(set_get(&tree, "two"), nullptr);
    EXPECT_NE(set_get(&tree, "four"), nullptr);
    set_set(&tree, "new");
    set_mask_pop();
    set_set(&tree, "newer");
    set *fresh = set_alloc("fresh");
    set_mask_pop();
    EXPECT_EQ(tree.show(), "r:7(two:2 four:4 new:2 newer:4)");
    EXPECT_EQ(fresh->layers, 4U);
    EXPECT_EQ(set_free_mask(&fresh, 4), 1);
    expect_fatal("Cannot pop set mask stack beyond the default entry", set_mask_pop);
}

TEST(SetLayers, FourExistAndTheLowestFreeOneIsGiven)
{
    for (const uint32_t layer : {1U, 2U, 4U, 8U})
        EXPECT_EQ(set_layer_register(), layer);
    expect_fatal("Too many assigned set layers", [] { set_layer_register(); });
    set_layer_unregister(6);
    EXPECT_EQ(set_layer_register(), 2U);
    EXPECT_EQ(set_layer_register(), 4U);
    set_layer_unregister(15);
}

TEST(SetMaskedForms, TheMaskArgumentReplacesTheStacks)
{
    Tree tree("r:7(a:6(x:2 y:4) b:1)");
    const auto value = [](set **place) { return string(place ? (*place)->value : "-"); };
    EXPECT_EQ(value(set_get_mask(&tree, 2, "a/x")), "x");
    EXPECT_EQ(value(set_get_mask(&tree, 1, "a")), "-");
    EXPECT_EQ(value(set_get_path_create_mask(&tree, 4, "a", "y", nullptr)), "y");
    EXPECT_EQ(value(set_get_son_mask(&tree, 4, 0)), "a");
    EXPECT_EQ(set_get_nsons_mask(&tree, 7), 2);
    EXPECT_EQ(value(set_get_next_mask(tree.at("a/x"), 2)), "-");
    EXPECT_EQ(value(set_get_next_mask(tree.at("a/x"), 6)), "y");
    EXPECT_STREQ(set_get_value_mask(tree.at("b"), 1), "b");
    EXPECT_EQ(set_get_value_mask(tree.at("b"), 2), nullptr);
    EXPECT_STREQ(set_son_get_str_mask(tree.at("a"), 6), "y");
    EXPECT_STREQ(set_son_get_str_mask(tree.at("a"), 2), "x");
    set *copy = set_dup_mask(&tree, 2);
    EXPECT_EQ(Tree::show_list(copy, nullptr, false), "r:2(a:2(x:2))");
    EXPECT_EQ(set_free_mask(&copy, 2), 1);
    EXPECT_EQ(value(set_set_mask(&tree, 2, "b/c")), "c");
    EXPECT_EQ(value(set_set_path_create_mask(&tree, 8, "b", "d", nullptr)), "d");
    EXPECT_EQ(value(set_set_str_mask(tree.at("a"), 4, "e")), "e");
    EXPECT_EQ(tree.show(), "r:f(a:2(x:2) e:4(y:4) b:b(c:2 d:8))");
    EXPECT_EQ(set_set_mask(&tree, 0, "none"), nullptr);
    set *made = set_alloc_mask("n", 12);
    EXPECT_EQ(Tree::show_list(made, nullptr, true), "n:c*");
    kutil::free_chain(made);
}

TEST(SetLayers, OneLayerIsComparedWithMergedIntoAndReplacesAnother)
{
    static const Row rows[] = {
        {"r:3(a:3(1:3) b:4)", [](Tree &t) { return set_compare_mask(&t, 1, 2); }, "r:3(a:3(1:3) b:4)"},
        {"r:3(a:3(1:1 2:2))", [](Tree &t) { return set_compare_mask(&t, 1, 2); }, "r:3(a:3(1 2:2))", -1},
        {"r:3(a:1)", [](Tree &t) { return set_compare_mask(&t, 1, 2); }, "r:3(a)", -1},
        {"r:3(a:4(b:1))", [](Tree &t) { return set_compare_mask(&t, 1, 2); }, "r:3(a:4(b))"},
        {"r:1", [](Tree &t) { return set_compare_mask(&t, 1, 2); }, "r", -1},
        {"r:4", [](Tree &t) { return set_compare_mask(&t, 1, 2); }, "r:4"},
        // Values replace values, structures are gone through, what only `to` has stays.
        {"r:3(mtu:3(1500:1 1400:2) b:2(c:2(d:2)) only:1)",
         [](Tree &t) { return set_merge_mask(&t, 1, 2), 0; }, "r:3*(mtu:3*(1400:3*) b:3*(c:3*(d:3*)) only)"},
        {"r:3(mtu:3(1500:1 1400:2))", [](Tree &t) { return set_merge_mask(&t, 3, 1), 0; },
         "r:3*(mtu:3*(1500:3*))"},
        {"r:3(k:1(v:1))", [](Tree &t) { return set_merge_mask(&t, 1, 2), 0; }, "r:3(k(v))"},
        // Below the top: its ancestors get the layers too.
        {"r:2(a:2(k:2(v:2)))", [](Tree &t) { return set_merge_mask(t.at("a"), 4, 2), 0; },
         "r:6*(a:6*(k:6*(v:6*)))"},
        {"r:1(a:1)", [](Tree &t) { return set_merge_mask(&t, 4, 2), 0; }, "r(a)"},
        {"r:3(mtu:3(1500:1 1400:2) only:1(x:1) b:2)",
         [](Tree &t) { return given(set_replace_mask(&t, 1, 2), &t); }, "r:3*(mtu:3*(1400:3*) b:3*)", kSelf},
        {"r:3(a:1 b:2)", [](Tree &t) { return given(set_replace_mask(t.at("a"), 1, 2), &t.root->sons); },
         "r:3*(b:2)", kSelf},
        {"r:3(a:3 b)", [](Tree &t) { return given(set_replace_mask(&t, 3, 3), &t); }, "r:3*(a:3 b:3*)",
         kSelf},
    };
    check(rows);
    EXPECT_EQ(set_compare_mask(nullptr, 1, 2), 0);
    set_merge_mask(nullptr, 1, 2);
    EXPECT_EQ(set_replace_mask(nullptr, 1, 2), nullptr);
}

// --- Merge and replace.

struct TwoTrees {
    const char *dst;
    const char *src;
    uint32_t dst_mask;
    uint32_t src_mask;
    const char *after;
    int result = 0;
};

TEST(SetMerge, ValuesReplaceValuesAndConflictsStay)
{
    static const TwoTrees rows[] = {
        {"r(a(1))", "s(a(2) b(c(3)))", 1, 1, "r*(a*(2*) b*(c*(3*)))"},
        {"r(a(1))", "s(a b)", 1, 1, "r*(a(1) b*)"},
        {"r(a(x(1) y))", "s(a b)", 1, 1, "r*(a(x(1) y) b*)"},
        {"r(a b)", "s(a(x(1) y))", 1, 1, "r*(a*(x*(1*) y*) b)"},
        // A value against a structure: that key alone is left out.
        {"r(a(x(1) y))", "s(z a(5) b)", 1, 1, "r*(a(x(1) y) z* b*)", -1},
        {"r(a(5))", "s(a(x(1) y) b)", 1, 1, "r*(a(5) b*)", -1},
        {"r:3(a:2(5:2))", "s(a(x(1)) b)", 1, 1, "r:3*(a:2(5:2) b*)", -1},
        {"r(1)", "s(a(x))", 1, 1, "r(1)", -1},
        // Odd and wanted: one childless key is a value.
        {"r(a(b))", "s(a(c))", 1, 1, "r*(a*(c*))"},
        {"r(a(b(1)))", "s(a(c))", 1, 1, "r(a(b(1)))", -1},
        // The greatest layers word of what src_mask sees; other layers of dst keep their value.
        {"r:3(a:3(1:1 7:2))", "s:f(a:f(2:2 4:4 8:8))", 1, 6, "r:3*(a:3*(7:2 4*))"},
        {"r:3(a:3(1:1 7:2))", "s(a(7))", 1, 1, "r:3*(a:3*(7:3*))"},
        {"r(a(1))", "s:3(a:3(2:2))", 1, 1, "r(a(1))"},
        // dst_layers and not the source's are given, upward from dst, and src_mask chooses.
        {"r(a b)", "s:6(b:2(c:2) d:4 e:3)", 8, 2, "r:9*(a b:9*(c:8*) e:8*)"},
        {"r(a)", "s:2(b:2)", 1, 1, "r(a)"},
        {"r", "s(b)", 1, 1, "r*(b*)"},
        {"r(a)", "s(b)", 0, 1, "r(a)"},
        {"r(d(1) d(2))", "s(d(3) d(4))", 1, 1, "r*(d*(4*) d(2))"},
    };
    for (const TwoTrees &row : rows) {
        Tree dst(row.dst), src(row.src);
        EXPECT_EQ(set_merge_sets_mask(&dst, row.dst_mask, &src, row.src_mask), row.result) << row.src;
        EXPECT_EQ(dst.marks(), row.after) << row.dst << " and " << row.src;
        EXPECT_EQ(src.marks(), row.src);
    }
    const Masks masks(2, 4);
    Tree dst("r:4"), src("s:3(a:1 b:2)");
    EXPECT_EQ(set_merge(&dst, &src), 0);
    EXPECT_EQ(dst.show(), "r:4(b:4)");
    EXPECT_EQ(set_merge(nullptr, &src) | set_merge(&dst, nullptr), 0);
}

TEST(SetReplace, TheCopyHasTheSourcesNameAndLayers)
{
    static const TwoTrees rows[] = {
        {"r(a(1))", "r(b)", 1, 1, "r*(b*)"},
        {"", "s:3(b:2 c)", 1, 1, "s*(c*)"},
        {"", "s:3(b:2 c)", 1, 3, "s:3*(b:2* c*)"},
        {"r(a)", "s", 1, 1, "s*"}, // the root went, so its name is free
        {"r:3(a b:2(v:2))", "r(b(w))", 1, 1, "r:3*(b:3*(v:2 w*))"},
        {"r:2(a:2)", "r(b)", 1, 1, "r:3*(a:2 b*)"},
        // Deliberate: not dst_mask.
        {"r:3(a:1)", "r:4(b:4)", 1, 4, "r:6*(b:4*)"},
        // An empty or unseen source only frees.
        {"r:3(a:1)", "", 1, 1, "r:2*"},
        {"r:3(a:1)", "s:2", 1, 1, "r:2*"},
        {"r", "s:2", 1, 1, ""},
    };
    for (const TwoTrees &row : rows) {
        Tree dst(row.dst), src(row.src);
        EXPECT_EQ(set_replace_sets_mask(&dst, row.dst_mask, &src, row.src_mask), &dst);
        EXPECT_EQ(dst.marks(), row.after) << row.dst << " by " << row.src;
        EXPECT_EQ(src.marks(), row.src);
    }
    static const Row inside[] = {
        // Below a root, another name takes the place, in front of what stays there.
        {"r(a b(1) c)",
         [](Tree &t) {
             Tree src("n(2)");
             return given(set_replace(t.at("b"), &src), &t.root->sons->next);
         },
         "r*(a n*(2*) c)", kSelf},
        {"r:3(a b:2(1:2) c)",
         [](Tree &t) {
             Tree src("n(2)");
             return given(set_replace(t.at("b"), &src), &t.root->sons->next);
         },
         "r:3*(a n*(2*) b:2(1:2) c)", kSelf},
        // One tree inside the other, the same, and the source in the node that goes.
        {"r(a(b(c(1))))", [](Tree &t) { return given(set_replace(t.at("a"), t.at("a/b")), &t.root->sons); },
         "r*(b*(c*(1*)))", kSelf},
        {"r(a(b(c(1))))",
         [](Tree &t) { return given(set_replace(t.at("a/b"), t.at("a")), &t.root->sons->sons); },
         "r*(a*(a*(b*(c*(1*)))))", kSelf},
        {"r(a(b))", [](Tree &t) { return given(set_replace(t.at("a"), t.at("a")), &t.root->sons); },
         "r*(a*(b*))", kSelf},
        {"r(a(1) b(2))", [](Tree &t) { return given(set_replace(t.at("a"), t.at("b")), &t.root->sons); },
         "r*(b*(2*) b(2))", kSelf},
        // An empty place in the source, which does not know its parent.
        {"r(a)", [](Tree &t) { return given(set_replace(&t.root->sons->sons, &t), &t.root->sons->sons); },
         "r(a(r*!(a*)))", kSelf},
        {"r(a(x(1)))", [](Tree &t) { return set_merge(t.at("a"), &t); }, "r*(a*(x(1) a*(x*(1*))))"},
        {"r(a(x(1)))", [](Tree &t) { return set_merge(&t, t.at("a")); }, "r*(a(x(1)) x*(1*))"},
        {"r(a(x(1)))", [](Tree &t) { return set_merge(&t, &t); }, "r*(a*(x*(1*)))"},
        {"r(a(1))", [](Tree &t) { return set_merge(t.at("a"), t.at("a")); }, "r*(a*(1*))"},
    };
    check(inside);
    Tree tree("r");
    EXPECT_EQ(set_replace(nullptr, &tree), nullptr);
    EXPECT_EQ(set_replace(&tree, nullptr), nullptr);
    EXPECT_EQ(tree.marks(), "r");
    expect_fatal("Set cannot have more than one root", [] {
        Tree dst("r:3"), src("s");
        set_replace(&dst, &src);
    });
}

TEST(SetJoin, TheSourceMovesAmongTheSons)
{
    const struct {
        const char *dst;
        const char *src;
        set_order_func order;
        const char *after;
        const char *joined;
    } rows[] = {
        {"r(a c)", "b(1)", nullptr, "r*(a c b*(1*))", "b"},
        {"r(a c e)", "b(1)", strcmp, "r*(a b*(1*) c e)", "b"},
        {"r(a c)", "x", strcmp, "r*(a c x*)", "x"},
        {"r", "x", strcmp, "r*(x*)", "x"},
        {"r(a b(1 2) c)", "b(3)", strcmp, "r*(a b*(3*) c)", "b"},
        {"r:3(a b:2(1:2))", "b(3)", nullptr, "r:3*(a b:3*(1:2 3*))", "b"},
        {"r(a)", "b:5(x:4 y)", nullptr, "r:5*(a b:5*(x:4* y*))", "b"},
        {"r", "b:0", nullptr, "r", nullptr},
        {"", "b", nullptr, "", nullptr},
        {"r", "", nullptr, "r", nullptr},
    };
    for (const auto &row : rows) {
        const Masks masks(~0U, ~0U);
        Tree dst(row.dst), src(row.src);
        set **joined = set_join_ordered(&dst, &src, row.order);
        EXPECT_EQ(dst.marks(), row.after) << row.src;
        EXPECT_EQ(joined, row.joined ? dst.at(row.joined) : nullptr) << row.src;
        if (!joined)
            continue;
        EXPECT_EQ(src.root, *joined) << "src holds the joined son, which is dst's";
        src.root = nullptr;
    }
    static const Row related[] = {
        {"r(a(b))", [](Tree &t) { return given(set_join(&t, t.at("a/b")), nullptr); }, "r(a(b))", kNull},
        {"r(a(b))", [](Tree &t) { return given(set_join(t.at("a/b"), &t), nullptr); }, "r(a(b))", kNull},
        {"r(a(b))", [](Tree &t) { return given(set_join(&t, &t), nullptr); }, "r(a(b))", kNull},
        {"r", [](Tree &t) { return given(set_join(&t, nullptr), nullptr); }, "r", kNull},
    };
    check(related);
}

// --- Compare.

TEST(SetCompare, OrderDoesNotCountButEverythingVisibleDoes)
{
    static const TwoTrees rows[] = {
        {"r(a(1) b(2))", "r(b(2) a(1))", 1, 1, "", 0},
        {"r(a(1))", "s(a(1))", 1, 1, "", -1},
        {"r(a(1))", "r(a(2))", 1, 1, "", -1},
        {"r(a(1))", "r(a(1) b)", 1, 1, "", -1},
        {"r(a(1) b)", "r(a(1))", 1, 1, "", -1},
        {"r(a(b(c)))", "r(a(b(c(d))))", 1, 1, "", -1},
        {"r:3(a:3(1:1 2:2))", "r:2(a:2(2:2))", 2, 2, "", 0},
        {"r:3(a:3(1:1 2:2))", "r(a(1))", 1, 1, "", 0},
        {"r:3(a:3(1:1 2:2))", "r:2(a:2(2:2))", 3, 2, "", -1},
        {"r:2", "s:2", 1, 1, "", 0},
        {"r:2", "r", 1, 1, "", -1},
        {"", "", 1, 1, "", 0},
        // Repeated names: the first one of the second tree answers for all.
        {"r(d(1) d(1))", "r(d(1) d(2))", 1, 1, "", 0},
        {"r(d(1) d(2))", "r(d(1) d(1))", 1, 1, "", -1},
        {"r(d(1) d(2))", "r(d(1) d(2))", 1, 1, "", -1},
        {"r(:2(1:2) (1))", "r((1))", 1, 1, "", 0},
    };
    for (const TwoTrees &row : rows) {
        Tree a(row.dst), b(row.src);
        EXPECT_EQ(set_compare_sets_mask(&a, row.dst_mask, &b, row.src_mask), row.result)
            << row.dst << " with " << row.src;
    }
    Tree a("r(x(1) y(2) z)"), b("r(x(1) y(3))");
    EXPECT_EQ(set_compare_path(&a, &b, "x"), 0);
    EXPECT_EQ(set_compare_path(&a, &b, "y"), -1);
    EXPECT_EQ(set_compare_path(&a, &b, "z"), -1);
    EXPECT_EQ(set_compare_path(&a, &b, "none"), 0);
    EXPECT_EQ(set_compare(nullptr, nullptr), 0);
    EXPECT_EQ(set_compare(&a, nullptr), -1);
}

TEST(SetStructure, LongListsGiveTheAnswersOfShortOnes)
{
    for (const int count : {3, 9, 10, 20, 40}) {
        string forward, backward;
        for (int i = 0; i < count; i++) {
            const string son = "k" + std::to_string(i) + "(" + std::to_string(i) + ")";
            forward += son + " ";
            backward = son + " " + backward;
        }
        Tree a(("r(" + forward + "d(1) d(1))").c_str());
        Tree same(("r(" + backward + "d(1) d(2))").c_str()); // the first d answers
        Tree other(("r(" + backward + "d(2) d(1))").c_str());
        Tree hidden(("r(d:2(2) " + backward + "d(1) d(1))").c_str());
        EXPECT_EQ(set_compare(&a, &same), 0) << count;
        EXPECT_EQ(set_compare(&a, &other), -1) << count;
        EXPECT_EQ(set_compare(&a, &hidden), 0) << count;
        // Repeated names, in any layer, come to the first; new ones are appended once.
        Tree source(("r(d(3) n(1) " + backward + "d(4) n(2) h(x y))").c_str());
        Tree joined(("r:3(" + forward + "d(1) d(2) h:2(z:2))").c_str());
        Tree merged(("r:3(" + forward + "d(1) d(2) h:2(z:2))").c_str());
        kutil::tree_join(joined.root, source.root, 1);
        EXPECT_EQ(joined.show(), "r:3(" + forward + "d(1 3 4) d(2) h:3(z:2 x y) n(1 2))") << count;
        EXPECT_EQ(set_merge(&merged, &source), -1);
        EXPECT_EQ(merged.show(), "r:3(" + forward + "d(4) d(2) h:2(z:2) n(2))") << count;
    }
}

// --- Swap.

TEST(SetSwap, NodesOrTheirContentsChangePlaces)
{
    static const Row rows[] = {
        {"r(a(x(1)) m b(y z))", [](Tree &t) { return set_swap(&t, "a", "b"), 0; },
         "r*(b*(y* z*) m a*(x*(1*)))"},
        // Layers go along, as they were; parents get what they lack.
        {"r:3(p(a(1)) q:2(b:2(2:2 3:2)))", [](Tree &t) { return set_swap(&t, "p/a", "q/b"), 0; },
         "r:3*(p:3*(b:2*(2:2* 3:2*)) q:3*(a*(1*)))"},
        {"r(a(x) b(y))", [](Tree &t) { return set_swap_mask(&t, 1, "a", "b"), 0; }, "r*(a*(y*) b*(x*))"},
        {"r:3(a:3(x:1 u:2) b:3(y:1 v:2))", [](Tree &t) { return set_swap_mask(&t, 1, "a", "b"), 0; },
         "r:3*(a:3*(u:2 y*) b:3*(v:2 x*))"},
        // Contents in a layer that the other node lacks stay in reach.
        {"r:3(a(x) b:3(y:2))", [](Tree &t) { return set_swap_mask(&t, 3, "a", "b"), 0; },
         "r:3*(a:3*(y:2*) b:3*(x*))"},
        {"r(0(x) 1(y) 10(z))", [](Tree &t) { return set_index_swap(&t, 0, 10), 0; },
         "r*(0*(z*) 1(y) 10*(x*))"},
        {"r(0(x) 1:2(y:2))", [](Tree &t) { return set_index_swap(&t, 0, 1), 0; }, "r(0(x) 1:2(y:2))"},
        {"r:2(-1:2(x:2) 1:2(y:2))", [](Tree &t) { return set_index_swap_mask(&t, 2, -1, 1), 0; },
         "r:2*(-1:2*(y:2*) 1:2*(x:2*))"},
        // Not there, the same, one inside the other.
        {"r(a(b(c)))",
         [](Tree &t) {
             for (const char *path : {"none", "a", "a/b", "", "a\\"}) {
                 set_swap(&t, "a", path);
                 set_swap(&t, path, "a");
                 set_swap_mask(&t, 1, "a", path);
             }
             return set_swap(nullptr, "a", "b"), 0;
         },
         "r(a(b(c)))"},
    };
    check(rows);
}

TEST(SetSwitch, TwoPlacesExchangeTheirNodes)
{
    Tree one("a(b c)"), two("x(y(z)) w");
    EXPECT_EQ(set_switch_sets(&one, &two), one.root);
    EXPECT_EQ(one.show() + " | " + two.show(), "x(y(z)) | a(b c) w");
    EXPECT_STREQ(set_switch_sets(one.at("y"), two.at("b"))->value, "b");
    EXPECT_EQ(one.show() + " | " + two.show(), "x(b) | a(y(z) c) w");
    Tree empty;
    EXPECT_EQ(set_switch_sets(&empty, &one), empty.root);
    EXPECT_EQ(empty.show() + " | " + one.show(), "x(b) | ");
    EXPECT_EQ(set_switch_sets(&empty, &one), nullptr);
    EXPECT_EQ(empty.show() + " | " + one.show(), " | x(b)");
    // Two places of one tree, and the node that is then at the first.
    const struct {
        const char *before;
        const char *a;
        const char *b;
        const char *after;
        const char *at_a;
    } rows[] = {
        {"r(a b c)", "a", "c", "r(c b a)", "c"},
        {"r(a(b) c)", "a/b", "c", "r(a(c) b)", "c"},
        {"r(a(b(c)) d(e))", "a", "d/e", "r(e d(a(b(c))))", "e"},
        // Inside one another, and the same.
        {"r(a b)", "b", "a", "r(a b)", "b"},
        {"r(a b)", "a", "b", "r(a b)", "a"},
        {"r(a(b(c)))", "a", "a/b", "r(a(b(c)))", "a"},
        {"r(a(b(c)))", "a/b/c", "", "r(a(b(c)))", "c"},
        {"r(a)", "", "", "r(a)", "r"},
    };
    for (const auto &row : rows) {
        Tree tree(row.before);
        set **a = tree.at(row.a);
        const set *now = set_switch_sets(a, tree.at(row.b));
        EXPECT_EQ(now, *a) << row.before;
        EXPECT_STREQ(now->value, row.at_a) << row.before;
        EXPECT_EQ(tree.show(), row.after) << row.before;
        EXPECT_EQ(set_switch_sets(nullptr, &tree), nullptr);
        EXPECT_EQ(set_switch_sets(&tree, nullptr), nullptr);
    }
    Tree chain("a(b)");
    EXPECT_STREQ(set_switch_sets(&chain, &(*chain.at("b"))->sons)->value, "a") << "an empty place inside";
    EXPECT_EQ(chain.show(), "a(b)");
}

// --- Index lists.

TEST(SetIndexAdd, FindsOrMakesTheNumber)
{
    const struct {
        const char *before;
        int index;
        const char *after;
        const char *added; // its number, or NULL
        uint32_t mask = 1;
    } rows[] = {
        {"r", -1, "r*(0*)", "0"},
        {"r", -2, "r*(0*)", "0"},
        {"r", -3, "r*(1*)", "1"},
        {"r", -4, "r*(1*)", "1"},
        {"r", 5, "r*(5*)", "5"},
        {"r", -5, "r", nullptr},
        {"r", 0, "r", nullptr, 0},
        {"r(0 1 3)", -2, "r*(0 1 2* 3)", "2"},
        {"r(0 1 3)", -4, "r*(0 1 3 4*)", "4"},
        {"r(0 1)", -4, "r*(0 1 3*)", "3"}, // odd and wanted
        {"r(1 3)", -4, "r*(1 2* 3)", "2"},
        {"r(1 2)", -2, "r*(0* 1 2)", "0"},
        {"r(0 1 3)", -1, "r*(0 1 3 4*)", "4"},
        {"r(7)", -3, "r*(7 8*)", "8"},
        // A taken number pushes the ones up to the first gap.
        {"r(0(a) 1(b) 2(c))", 1, "r*(0(a) 1* 2*(b*) 3*(c*))", "1"},
        {"r(0(a) 1(b) 5(c))", 0, "r*(0* 1*(a*) 2*(b*) 5(c))", "0"},
        {"r(0 2)", 1, "r*(0 1* 2)", "1"},
        {"r(0 2)", 9, "r*(0 2 9*)", "9"},
        // Other layers: a son of the number at the place is reused, others end a run.
        {"r:3(0 1:2(v:2) 2)", 1, "r:3*(0 1:3*(v:2) 2)", "1"},
        {"r:3(0 1:2)", -1, "r:3*(0 1:3*)", "1"},
        {"r:3(0:2 1)", -2, "r:3*(0:3* 1)", "0"},
        {"r:2(0:2 5:2)", -1, "r:3*(0:3* 5:2)", "0"},
        {"r(0 1)", -1, "r:5*(0:5* 1)", "0", 4},
        // Names that are no numbers count as 0; the largest number cannot be passed.
        {"r(x(1))", 0, "r*(0* 1*(1*))", "0"},
        {"r(1 0)", 1, "r*(1* 2* 0)", "1"},
        {"r(2147483647)", -1, "r(2147483647)", nullptr},
        {"r(2147483646 2147483647)", 2147483646, "r(2147483646 2147483647)", nullptr},
        {"r(0)", 2147483647, "r*(0 2147483647*)", "2147483647"},
    };
    for (const auto &row : rows) {
        Tree tree(row.before);
        set **place = set_index_add_mask(&tree, row.mask, row.index);
        EXPECT_EQ(tree.marks(), row.after) << row.before << " add " << row.index;
        ASSERT_EQ(place != nullptr, row.added != nullptr) << row.before << " add " << row.index;
        if (!place)
            continue;
        EXPECT_STREQ((*place)->value, row.added);
        EXPECT_TRUE((*place)->layers & row.mask);
        EXPECT_TRUE(place == &tree.root->sons || place == &(*place)->parent->sons ||
                    std::string(tree.marks()).find(row.added) != string::npos);
    }
    const Masks masks(1, 2);
    Tree tree("r:3(0 1)");
    EXPECT_STREQ((*set_index_add(&tree, -1))->value, "0") << "by the set mask";
    EXPECT_EQ(set_index_add(nullptr, 0), nullptr);
    expect_fatal("Cannot add index to more than one layer simultaneously", [] {
        Tree other("r:3");
        set_index_add_mask(&other, 3, -1);
    });
}

TEST(SetIndexReindex, NumbersFollowTheListInOneLayer)
{
    static const Row rows[] = {
        {"r(3(a) 7(b) 9(c))", [](Tree &t) { return set_index_reindex(&t); }, "r*(0*(a*) 1*(b*) 2*(c*))", 2},
        {"r(0 1 2)", [](Tree &t) { return set_index_reindex(&t); }, "r(0 1 2)", 2},
        {"r:3(4 8:2 9)", [](Tree &t) { return set_index_reindex(&t); }, "r:3*(0* 8:2 1*)", 1},
        // A son in other layers too leaves its number to them.
        {"r:3(4:3(a:1 b:2) 6)", [](Tree &t) { return set_index_reindex(&t); }, "r:3*(4:2*(b:2) 0*(a*) 1*)",
         1},
        // Deliberate: numbers that are still taken merge.
        {"r(1(a) 0(b))", [](Tree &t) { return set_index_reindex(&t); }, "r*(0*(b a*))", 0},
        {"r(5(a) 7(b) 0(c))", [](Tree &t) { return set_index_reindex(&t); }, "r*(1*(b*) 2*(c* a*))", 2},
        {"r:2(4:2)", [](Tree &t) { return set_index_reindex(&t); }, "r:2(4:2)", -1},
        {"r:2(4:2)", [](Tree &t) { return set_index_reindex_mask(&t, 2); }, "r:2*(0:2*)", 0},
        {"r", [](Tree &t) { return set_index_reindex(&t); }, "r", -1},
        {"", [](Tree &t) { return set_index_reindex(&t); }, "", -1},
    };
    check(rows);
    EXPECT_EQ(set_index_reindex(nullptr), -1);
    expect_fatal("Cannot reindex more than one layer simultaneously", [] {
        Tree tree("r(1)");
        set_index_reindex_mask(&tree, 3);
    });
}

TEST(SetIndexNext, WalksTheNumbersInAscendingOrder)
{
    Tree tree("r:3(4 1 x 2:2 9 1(second))");
    string order;
    for (set **son = nullptr; (son = set_index_next(&tree, son));)
        order += string((*son)->value) + " ";
    EXPECT_EQ(order, "x 1 4 9 ");
    EXPECT_EQ(set_index_next(&tree, tree.at("x")), tree.at("1")) << "the first of two";
    EXPECT_EQ(set_index_next(nullptr, nullptr), nullptr);
}

// --- Sorting and searching.

string sorted(set **h, set ***sons)
{
    string text;
    for (int i = 0; sons && i < set_get_nsons(h); i++)
        text += string((*sons[i])->value) + " ";
    free(sons);
    return sons ? text : "(null)";
}

int by_last_digit(set **a, set **b, const char *field)
{
    const auto digit = [](set **son) { return (*son)->value[strlen((*son)->value) - 1]; };
    return *field == 'd' ? digit(b) - digit(a) : digit(a) - digit(b);
}

TEST(SetSort, ArraysAreSortedAndStable)
{
    const char *text = "r:3(k1(n(b) i(10)) k2(n(A) i(9)) h:2 k3(n(B) i(-1)) k4(i(x)) k5(n(a) i(9)))";
    Tree tree(text);
    EXPECT_EQ(sorted(&tree, set_sort(&tree, "n")), "k4 k2 k5 k1 k3 ");
    EXPECT_EQ(sorted(&tree, set_sort_num(&tree, "i")), "k3 k4 k2 k5 k1 ");
    EXPECT_EQ(sorted(&tree, set_sort(&tree, nullptr)), "k1 k2 k3 k4 k5 ");
    EXPECT_EQ(sorted(&tree, set_sort_by_field(&tree, "d", by_last_digit)), "k5 k4 k3 k2 k1 ");
    EXPECT_EQ(sorted(&tree, set_sort_by_field(&tree, "d", nullptr)), "k1 k2 k3 k4 k5 ");
    EXPECT_EQ(tree.marks(), text) << "the tree stays";
    for (const char *none : {"r", "r:2(a)", "r(a:2)", ""}) {
        Tree other(none);
        EXPECT_EQ(set_sort(&other, "n"), nullptr) << none;
    }
    EXPECT_EQ(set_sort_num(nullptr, "n"), nullptr);
    // Every length, against a sort that is known to be stable.
    for (unsigned count = 1; count < 70; count++) {
        Tree list("r");
        std::vector<string> names;
        for (unsigned i = 0; i < count; i++) {
            names.push_back(std::to_string(i * 7919U % 1000U * 10 + i * 31U % 4U));
            kutil::find_or_add_son(list.root, names.back().c_str(), 1);
        }
        std::stable_sort(names.begin(), names.end(),
                         [](const string &a, const string &b) { return a.back() < b.back(); });
        string expected;
        for (const string &name : names)
            expected += name + " ";
        EXPECT_EQ(sorted(&list, set_sort_by_field(&list, "", by_last_digit)), expected);
    }
}

TEST(SetSortSons, TheTreeItselfIsSortedByByteOrder)
{
    static const Row rows[] = {
        {"r(c(3) a(1) b(z y x(q p)))", [](Tree &t) { return set_sort_sons_by_value(&t), 0; },
         "r*(a*(1*) b*(x*(p* q*) y* z*) c*(3*))"},
        {"r(a B b 10 9)", [](Tree &t) { return set_sort_sons_by_value(&t), 0; }, "r*(10* 9* B* a* b*)"},
        {"r(a(1) b(2))", [](Tree &t) { return set_sort_sons_by_value(&t), 0; }, "r(a(1) b(2))"},
        {"r:3(c x:2 b a:2)", [](Tree &t) { return set_sort_sons_by_value(&t), 0; }, "r:3*(b* x:2 c* a:2)"},
        // Odd and wanted: values are paths, so these do not move.
        {"r(b/ a/x)", [](Tree &t) { return set_sort_sons_by_value(&t), 0; }, "r(b/ a/x)"},
        {"r(b\\ a)", [](Tree &t) { return set_sort_sons_by_value(&t), 0; }, "r(b\\ a)"},
        {"r:2(b a)", [](Tree &t) { return set_sort_sons_by_value(&t), 0; }, "r:2(b a)"},
    };
    check(rows);
    set_sort_sons_by_value(nullptr);
}

TEST(SetSearch, GreatestNumberAndFirstValue)
{
    Tree tree("r:3(a(n(4) v(x)) b(n(12)) c:2(n:2(99:2)) d(v(x)) e(x))");
    EXPECT_EQ(set_get_max_int(&tree, "n"), 12);
    EXPECT_EQ(set_get_max_int(tree.at("e"), "n"), 0);
    EXPECT_EQ(set_get_max_int(tree.at("e/x"), "n"), -1);
    EXPECT_EQ(set_get_max_int(nullptr, "n"), -1);
    const struct {
        const char *field;
        const char *value;
        set **skip;
        set **found;
    } rows[] = {
        {"v", "x", nullptr, tree.at("a")},     {"v", "x", tree.at("a"), tree.at("d")},
        {"v", "X", nullptr, nullptr},          {"v", "", nullptr, tree.at("b")},
        {nullptr, "x", nullptr, tree.at("e")}, {nullptr, "n", nullptr, tree.at("a")},
        {"v", nullptr, nullptr, nullptr},      {"n", "99", nullptr, nullptr},
    };
    for (const auto &row : rows)
        EXPECT_EQ(set_lookfor_value(&tree, row.field, row.value, row.skip), row.found) << row.value;
    EXPECT_EQ(set_lookfor_value(nullptr, "v", "x", nullptr), nullptr);
}

TEST(SetValidate, RootsOtherThanRamAndConfAreReported)
{
    Tree ram("ram(a)"), top("zel_conf(conf(b))"), other("odd%s(c)");
    ReportLog log;
    EXPECT_EQ(set_validate_zel_set_root(ram.at("a"), top.at("conf"), &ram, "f.c", 3), 1);
    EXPECT_EQ(set_validate_zel_set_root(top.at("conf/b"), top.at("conf"), &ram, "f.c", 3), 1);
    EXPECT_EQ(set_validate_zel_set_root(nullptr, nullptr, nullptr, nullptr, 0), 1);
    EXPECT_EQ(log.take(), "");
    EXPECT_EQ(set_validate_zel_set_root(other.at("c"), top.at("conf"), &ram, "f.c", 3), 1);
    EXPECT_EQ(set_validate_zel_set_root(&top, nullptr, nullptr, nullptr, 4), 1);
    EXPECT_EQ(log.take(), "4: f.c:3 set ancestor is not zel_conf/ram, value=\"odd%s\"\n"
                          "4: :4 set ancestor is not zel_conf/ram, value=\"zel_conf\"\n");
}

// --- Depth.

TEST(SetStructure, DepthIsNoProblem)
{
    Tree deep("r"), copy("r");
    set *bottom = deep.root;
    for (int i = 0; i < 30000; i++)
        bottom = *kutil::find_or_add_son(bottom, "n", 1);
    EXPECT_EQ(set_merge(&copy, &deep), 0);
    EXPECT_EQ(set_compare(&copy, &deep), 0);
    EXPECT_EQ(set_replace(&copy, &deep), &copy);
    set_merge_mask(&copy, 2, 1);
    EXPECT_EQ(set_compare_mask(&copy, 1, 2), 0);
    set_sort_sons_by_value(&copy);
    set_set(&deep, "m/x");
    set_swap(&deep, "n", "m");
    EXPECT_EQ(set_compare_path(&copy, &deep, "n"), 0);
    EXPECT_EQ(set_switch_sets(&copy, &deep), copy.root);
    set **joined = set_join(&copy, &deep);
    EXPECT_EQ(joined, copy.at("r"));
    EXPECT_EQ(std::exchange(deep.root, nullptr), *joined);
}

} // namespace
