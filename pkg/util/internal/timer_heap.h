#ifndef KUTIL_INTERNAL_TIMER_HEAP_H
#define KUTIL_INTERNAL_TIMER_HEAP_H

#include "../timer_heap.h"

namespace kutil
{

// Told of every slot into which a record is put, so that its owner can keep an index. nullptr: nobody is
// told.
using TimerMoved = void (*)(void *record, int slot);

void heap_add(timer_heap *heap, void *record, TimerMoved moved);
void *heap_remove_at(timer_heap *heap, int slot, TimerMoved moved);
void heap_adjust(timer_heap *heap, int slot, TimerMoved moved);

} // namespace kutil

#endif
