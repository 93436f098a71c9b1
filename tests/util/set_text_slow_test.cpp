// Trees and texts of a size that a hostile sender chooses, within a stack of 256 kB.
#include "util/set.h"

#include "support.h"
#include "support/trees.h"

#include <algorithm>
#include <climits>
#include <pthread.h>

using std::string;

namespace
{

#if defined(__SANITIZE_ADDRESS__)
#define SKIP_UNDER_SANITIZER() GTEST_SKIP() << "the sanitizer's own frames need more stack"
#else
#define SKIP_UNDER_SANITIZER() (void)0
#endif

// Runs the body in a thread of this process whose stack is 256 kB.
template <class Body>
void on_small_stack(Body body)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::max<size_t>(256 * 1024, PTHREAD_STACK_MIN)), 0);
    pthread_t thread;
    const auto run = [](void *argument) -> void * {
        (*static_cast<Body *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

string repeated(const char *text, size_t count)
{
    string result;
    while (count-- > 0)
        result += text;
    return result;
}

constexpr size_t kLevels = 100000;

size_t depth(const set *node)
{
    size_t levels = 0;
    for (; node; node = node->sons)
        levels++;
    return levels;
}

TEST(SetSize, AHundredThousandLevelsAreReadWalkedAndFreed)
{
    SKIP_UNDER_SANITIZER();
    const string text = repeated("(a", kLevels) + repeated(")", kLevels);
    const string path = repeated("/a", kLevels - 1);
    on_small_stack([&] {
        set *tree = set_read(text.c_str());
        EXPECT_EQ(depth(tree), kLevels);
        // Two blanks a level, twice: about 20 GB.
        EXPECT_EQ(set_write_alloc(&tree), nullptr);
        set_clear_changed(tree);
        set *copy = set_dup(&tree);
        EXPECT_EQ(depth(copy), kLevels);
        EXPECT_EQ(set_merge_sets_mask(&copy, 2, &tree, 1), 0);
        set **last = set_get(&tree, path.c_str());
        EXPECT_EQ(taken(set_get_path(last)), path.substr(1));
        EXPECT_NE(set_set_path_str(&tree, path.c_str(), "1"), nullptr);
        EXPECT_EQ(tree->changed, 1U);
        EXPECT_NE(set_set_str(&tree->sons, "b"), nullptr);
        EXPECT_EQ(depth(tree), kLevels + 1);
        EXPECT_EQ(set_free(&copy), 0) << "the joined layer is left";
        const Masks masks(3, 3);
        EXPECT_EQ(set_free(&copy), 1);
        set_free_sons(&tree);
        EXPECT_NE(set_set(&tree, path.c_str()), nullptr);
        EXPECT_EQ(depth(tree), kLevels);
        EXPECT_EQ(set_free(&tree), 1);
    });
    const ChildResult drawn = run_in_child([&] {
        on_small_stack([&] {
            set *tree = set_read(text.c_str());
            set_print_tree(&tree);
        });
    });
    EXPECT_EQ(drawn.output, "[ a <0x1> ]" + repeated("--[ a <0x1> ]", kLevels - 1) + "\n");
}

TEST(SetSize, AHundredMegabytesInOneValue)
{
    SKIP_UNDER_SANITIZER();
    string text = "(a(" + string(100U << 20, 'v') + "))\n";
    on_small_stack([&] {
        EXPECT_EQ(set_read_check(text.data(), text.size(), nullptr), 0);
        set *tree = set_read(text.c_str());
        text.clear();
        text.shrink_to_fit();
        ASSERT_NE(tree, nullptr);
        EXPECT_EQ(strlen(set_get_value(&tree->sons)), size_t{100} << 20);
        char *again = set_write_alloc(&tree);
        EXPECT_EQ(strlen(again), (size_t{100} << 20) + 6);
        free(again);
        EXPECT_EQ(set_free(&tree), 1);
    });
}

TEST(SetSize, EightMegabytesOfOneLetterNodes)
{
    SKIP_UNDER_SANITIZER();
    constexpr size_t kNodes = (size_t{8} << 20) / 3;
    const string brothers = "(r" + repeated("(a)", kNodes) + ")";
    const string open = repeated("(a", kNodes);
    on_small_stack([&] {
        set *tree = set_read(brothers.c_str());
        ASSERT_NE(tree, nullptr);
        EXPECT_EQ(set_get_nsons(&tree), static_cast<int>(kNodes));
        char *text = set_write_alloc(&tree);
        EXPECT_EQ(strlen(text), kNodes * 6 + 5);
        free(text);
        EXPECT_EQ(set_free(&tree), 1);
        tree = set_read((open + string(kNodes, ')')).c_str());
        EXPECT_EQ(depth(tree), kNodes);
        EXPECT_EQ(set_free(&tree), 1);
        // One bad escape behind all of it: everything that was made is freed again.
        EXPECT_EQ(set_read((open + "&" + string(kNodes, ')')).c_str()), nullptr);
        EXPECT_EQ(set_read(open.c_str()), nullptr);
    });
}

} // namespace
