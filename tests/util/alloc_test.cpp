#include "util/alloc.h"
#include "util/array.h"

#include "support.h"

#include <climits>
#include <cstring>

namespace
{
constexpr size_t kImpossible = SIZE_MAX - 65536; // more than any allocator grants, whatever the address space
}

TEST(Alloc, FailuresAreReportedWithTheCallersFlags)
{
    ReportLog log;
    volatile size_t size = kImpossible;
    const std::string number = std::to_string(static_cast<ssize_t>(kImpossible));
    EXPECT_EQ(malloc_log(4, size), nullptr);
    EXPECT_EQ(zalloc_log(5, size), nullptr);
    char *block = static_cast<char *>(malloc_e(4));
    memcpy(block, "abc", 4);
    EXPECT_EQ(realloc_log(6, block, size), nullptr);
    EXPECT_STREQ(block, "abc") << "a block that could not grow stays";
    EXPECT_EQ(memdup_l(nullptr, 3), nullptr);
    EXPECT_EQ(log.take().find("4: malloc_e(" + number + "): failed\n5: zalloc_e(" + number +
                              "): failed\n6: realloc_e(" + number + "): failed\n4: memdup(buf "),
              0U);
    free(block);
    expect_fatal("malloc_e(" + number + "): failed", [&] { malloc_e(size); });
    expect_fatal("zalloc_e(" + number + "): failed", [&] { zalloc_e(size); });
    expect_fatal("realloc_e(" + number + "): failed", [&] { realloc_e(nullptr, size); });
    expect_fatal("memdup(buf ", [&] { memdup_e(nullptr, 1); });
}

TEST(Alloc, CopiesAndNull)
{
    char *empty = strdup_null(nullptr), *logged = strdup_log(4, nullptr), *fatal = strdup_null_e(nullptr);
    EXPECT_STREQ(empty, "");
    EXPECT_STREQ(logged, "");
    EXPECT_STREQ(fatal, "");
    EXPECT_EQ(strdup_n(nullptr), nullptr);
    EXPECT_EQ(memdup(nullptr, 1), nullptr);
    char *copy = static_cast<char *>(memdup("ab\0cd", 6));
    EXPECT_EQ(memcmp(copy, "ab\0cd", 6), 0);
    for (char **variable : {&empty, &logged, &fatal, &copy}) {
        _zfree(variable);
        EXPECT_EQ(*variable, nullptr);
        _zfree(variable);
    }
    _zfree(nullptr);
}

TEST(Array, Growth)
{
    struct Row {
        uint32_t flags;
        int n;
        int previous, used, allocated;
    };
    // One array per flag, grown step by step.
    const Row rows[] = {
        {ARRAY_F_DOUBLE, 5, 0, 5, 8},
        {ARRAY_F_DOUBLE, 3, 5, 5, 8},
        {ARRAY_F_DOUBLE, 8, 5, 8, 8},
        {ARRAY_F_DOUBLE, 9, 8, 9, 16},
        {ARRAY_F_DOUBLE, -1, 9, 9, 16},
        {0, 0, 0, 0, 0},
        {0, 5, 0, 5, 5},
        {0, 5, 5, 5, 5},
        {0, 7, 5, 7, 7},
    };
    int *numbers[2] = {};
    array_desc desc[2];
    _array_init(&desc[0], sizeof(int), &numbers[0], 0);
    _array_init(&desc[1], sizeof(int), &numbers[1], ARRAY_F_DOUBLE);
    for (const Row &row : rows) {
        array_desc &d = desc[row.flags];
        const int old_allocated = d.allocated;
        EXPECT_EQ(array_grow(&d, row.n), row.previous);
        EXPECT_EQ(d.used, row.used);
        EXPECT_EQ(d.allocated, row.allocated) << row.flags << " " << row.n;
        for (int i = 0; i < d.allocated; i++) {
            EXPECT_EQ(numbers[row.flags][i], i < old_allocated ? 7 : 0);
            numbers[row.flags][i] = 7;
        }
    }
    EXPECT_TRUE(array_idx_legal(&desc[1], 15));
    EXPECT_FALSE(array_idx_legal(&desc[1], 16));
    EXPECT_FALSE(array_idx_legal(&desc[1], -1));
    array_free(&desc[0]);
    array_free(&desc[1]);
    EXPECT_EQ(numbers[1], nullptr);
    EXPECT_EQ(desc[1].allocated, 16) << "a freed descriptor keeps its counts";
    EXPECT_EQ(array_grow(nullptr, 3), 0);
}

TEST(Array, ImpossibleGrowthIsFatal)
{
    expect_fatal("realloc_e(", [] {
        char *block = nullptr;
        array_desc desc;
        _array_init(&desc, UINT32_MAX, &block, ARRAY_F_DOUBLE);
        array_grow(&desc, INT_MAX);
    });
}
