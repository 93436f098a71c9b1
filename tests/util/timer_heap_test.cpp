#include "util/timer_heap.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

struct Record {
    double expiry;
    char name;
};

class Heap
{
public:
    Heap() { timer_heap_init(&heap); }
    ~Heap() { timer_heap_free(&heap); }
    Heap(const Heap &) = delete;
    Heap &operator=(const Heap &) = delete;

    // The names in slot order.
    std::string layout() const
    {
        std::string text;
        for (int slot = TIMER_HEAP_ROOT; slot < heap.desc.used; slot++)
            text += static_cast<Record *>(heap.elems[slot])->name;
        return text;
    }
    std::string drain()
    {
        std::string text;
        while (void *record = timer_heap_remove_at(&heap, TIMER_HEAP_ROOT))
            text += static_cast<Record *>(record)->name;
        return text;
    }
    timer_heap heap;
};

std::vector<Record> records(std::initializer_list<double> expiries)
{
    std::vector<Record> result;
    for (const double expiry : expiries)
        result.push_back({expiry, static_cast<char>('A' + result.size())});
    return result;
}

int has_name(void *record, void *name)
{
    return static_cast<Record *>(record)->name == *static_cast<char *>(name);
}

} // namespace

TEST(TimerHeap, LeavesByExpiryWithTiesAsTheSlotsFall)
{
    const struct {
        std::initializer_list<double> expiries;
        const char *layout;
        const char *order;
    } rows[] = {
        {{}, "", ""},
        {{1}, "A", "A"},
        {{7, 7, 7, 7}, "ABCD", "ADCB"}, // equal ones never pass on their way up, but the last fills the gap
        {{5, 4, 3, 2, 1}, "EABCD", "EDCBA"},
        {{1, 2, 2, 2, 2, 2}, "ABCDEF", "AFEDCB"},
        {{9, 8, 7, 6, 5, 4, 3, 2, 1, 0}, "JHICDAEFGB", "JIHGFEDCBA"},
    };
    for (const auto &row : rows) {
        std::vector<Record> all = records(row.expiries);
        Heap heap;
        for (Record &record : all)
            timer_heap_add(&heap.heap, &record);
        const std::string layout = heap.layout();
        const std::string order = heap.drain();
        EXPECT_EQ(order, row.order);
        EXPECT_EQ(layout, row.layout);
        EXPECT_EQ(heap.heap.desc.used, TIMER_HEAP_ROOT);
    }
}

TEST(TimerHeap, AdjustAndRemoveFollowTheSlots)
{
    std::vector<Record> all = records({1, 5, 5, 3, 4, 9, 9, 9, 9});
    Heap heap;
    for (Record &record : all)
        timer_heap_add(&heap.heap, &record);
    ASSERT_EQ(heap.layout(), "ABCDEFGHI");
    all[0].expiry = 6; // sinks below the smallest child, the leftmost of equal ones
    timer_heap_adjust(&heap.heap, 3);
    EXPECT_EQ(heap.layout(), "DBCAEFGHI");
    all[8].expiry = 5; // rises past B? No: equal
    timer_heap_adjust(&heap.heap, 11);
    EXPECT_EQ(heap.layout(), "DBCAEFGHI");
    all[7].expiry = 2;
    timer_heap_adjust(&heap.heap, 10);
    EXPECT_EQ(heap.layout(), "HDCAEFGBI");
    EXPECT_EQ(timer_heap_remove_at(&heap.heap, 11), &all[8]); // the last slot: nothing else moves
    EXPECT_EQ(heap.layout(), "HDCAEFGB");
    EXPECT_EQ(timer_heap_remove_at(&heap.heap, 4), &all[3]);
    EXPECT_EQ(heap.layout(), "HBCAEFG");
    for (const int slot : {-1, 0, 2, 10, 1 << 30}) {
        EXPECT_EQ(timer_heap_remove_at(&heap.heap, slot), nullptr) << slot;
        timer_heap_adjust(&heap.heap, slot);
    }
    EXPECT_EQ(heap.layout(), "HBCAEFG");
}

TEST(TimerHeap, TheLeftmostOfEqualChildrenRises)
{
    std::vector<Record> all = records({1, 6, 5, 5, 5});
    Heap heap;
    for (Record &record : all)
        timer_heap_add(&heap.heap, &record);
    all[0].expiry = 9;
    timer_heap_adjust(&heap.heap, TIMER_HEAP_ROOT);
    EXPECT_EQ(heap.layout(), "CBADE");
}

TEST(TimerHeap, FindGoesBySlots)
{
    std::vector<Record> all = records({3, 2, 1});
    Heap heap;
    void *found = &all;
    char name = 'B';
    EXPECT_EQ(timer_heap_find(&heap.heap, has_name, &name, &found), -1);
    EXPECT_EQ(found, nullptr);
    for (Record &record : all)
        timer_heap_add(&heap.heap, &record);
    EXPECT_EQ(timer_heap_find(&heap.heap, has_name, &name, &found), 5);
    EXPECT_EQ(found, &all[1]);
    EXPECT_EQ(timer_heap_find(
                  &heap.heap, [](void *, void *) { return 7; }, nullptr, nullptr),
              3);
    EXPECT_EQ(timer_heap_find(&heap.heap, nullptr, nullptr, &found), -1);
    EXPECT_EQ(found, nullptr);
}

TEST(TimerHeap, EmptyFreedAndMissingHeapsTakeEverything)
{
    Record record{1, 'A'};
    Heap heap;
    timer_heap_add(&heap.heap, &record);
    timer_heap_free(&heap.heap);
    EXPECT_EQ(timer_heap_get_head(&heap.heap), nullptr);
    EXPECT_EQ(timer_heap_remove_at(&heap.heap, 3), nullptr);
    timer_heap_add(&heap.heap, nullptr);
    timer_heap_add(&heap.heap, &record);
    EXPECT_EQ(timer_heap_get_head(&heap.heap), &record);
    EXPECT_EQ(heap.heap.desc.used, 4);

    timer_heap_init(nullptr);
    timer_heap_free(nullptr);
    timer_heap_add(nullptr, &record);
    timer_heap_adjust(nullptr, 3);
    EXPECT_EQ(timer_heap_get_head(nullptr), nullptr);
    EXPECT_EQ(timer_heap_remove_at(nullptr, 3), nullptr);
    EXPECT_EQ(timer_heap_find(nullptr, has_name, nullptr, nullptr), -1);
}
