#include "timer_heap.h"

#include "internal/timer_heap.h"

#include <algorithm>

using namespace kutil;

namespace
{

constexpr int kRoot = TIMER_HEAP_ROOT;

constexpr int parent_of(int slot) { return (slot - 4) / 4 + 3; }
constexpr int first_child_of(int slot) { return 4 * slot - 8; }
static_assert(first_child_of(kRoot) == kRoot + 1 && parent_of(4) == kRoot && parent_of(7) == kRoot &&
              parent_of(8) == 4);

double expiry_of(const void *record) { return *static_cast<const double *>(record); }

bool holds(const timer_heap *heap, int slot) { return heap && slot >= kRoot && slot < heap->desc.used; }

void place(timer_heap *heap, int slot, void *record, TimerMoved moved)
{
    heap->elems[slot] = record;
    if (moved)
        moved(record, slot);
}

// Moves `record` from `slot` towards the root, past strictly greater expiries only.
void sift_up(timer_heap *heap, int slot, void *record, TimerMoved moved)
{
    const double expiry = expiry_of(record);
    while (slot > kRoot) {
        const int parent = parent_of(slot);
        if (expiry_of(heap->elems[parent]) <= expiry)
            break;
        place(heap, slot, heap->elems[parent], moved);
        slot = parent;
    }
    place(heap, slot, record, moved);
}

// The child of the smallest expiry, the leftmost of equal ones; 0 when there is no child.
int smallest_child(const timer_heap *heap, int slot)
{
    // The question whether 4*slot-8 is below the slot count, asked so that it cannot overflow.
    if (slot > (heap->desc.used + 7) / 4)
        return 0;
    const int first = first_child_of(slot);
    const int end = std::min(first + 4, heap->desc.used);
    int best = first;
    for (int child = first + 1; child < end; child++) {
        if (expiry_of(heap->elems[child]) < expiry_of(heap->elems[best]))
            best = child;
    }
    return best;
}

void sift_down(timer_heap *heap, int slot, void *record, TimerMoved moved)
{
    const double expiry = expiry_of(record);
    for (int child; (child = smallest_child(heap, slot)) != 0; slot = child) {
        if (expiry <= expiry_of(heap->elems[child]))
            break;
        place(heap, slot, heap->elems[child], moved);
    }
    place(heap, slot, record, moved);
}

} // namespace

namespace kutil
{

void heap_adjust(timer_heap *heap, int slot, TimerMoved moved)
{
    if (!holds(heap, slot))
        return;
    void *record = heap->elems[slot];
    if (slot > kRoot && expiry_of(heap->elems[parent_of(slot)]) >= expiry_of(record))
        sift_up(heap, slot, record, moved);
    else
        sift_down(heap, slot, record, moved);
}

void heap_add(timer_heap *heap, void *record, TimerMoved moved)
{
    if (!heap || !record)
        return;
    // A freed heap has no slot at all, not even the three reserved ones.
    const int slot = std::max(heap->desc.used, kRoot);
    array_grow(&heap->desc, slot + 1);
    sift_up(heap, slot, record, moved);
}

void *heap_remove_at(timer_heap *heap, int slot, TimerMoved moved)
{
    if (!holds(heap, slot))
        return nullptr;
    void *removed = heap->elems[slot];
    const int last = heap->desc.used - 1;
    heap->desc.used = last;
    if (slot < last) {
        place(heap, slot, heap->elems[last], moved);
        heap_adjust(heap, slot, moved);
    }
    return removed;
}

} // namespace kutil

void timer_heap_init(timer_heap *heap)
{
    if (!heap)
        return;
    heap->elems = nullptr;
    _array_init(&heap->desc, sizeof(void *), &heap->elems, ARRAY_F_DOUBLE);
    array_grow(&heap->desc, kRoot);
}

void timer_heap_free(timer_heap *heap)
{
    if (!heap)
        return;
    array_free(&heap->desc);
    _array_init(&heap->desc, sizeof(void *), &heap->elems, ARRAY_F_DOUBLE);
}

void timer_heap_add(timer_heap *heap, void *record) { heap_add(heap, record, nullptr); }

void *timer_heap_get_head(const timer_heap *heap)
{
    return holds(heap, kRoot) ? heap->elems[kRoot] : nullptr;
}

void *timer_heap_remove_at(timer_heap *heap, int slot) { return heap_remove_at(heap, slot, nullptr); }

void timer_heap_adjust(timer_heap *heap, int slot) { heap_adjust(heap, slot, nullptr); }

int timer_heap_find(const timer_heap *heap, timer_heap_match match, void *arg, void **record)
{
    if (record)
        *record = nullptr;
    for (int slot = kRoot; match && holds(heap, slot); slot++) {
        if (!match(heap->elems[slot], arg))
            continue;
        if (record)
            *record = heap->elems[slot];
        return slot;
    }
    return -1;
}
