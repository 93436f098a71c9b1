#ifndef KUTIL_UTIL_TIMER_HEAP_H
#define KUTIL_UTIL_TIMER_HEAP_H

/* timer_heap.h: a priority queue of pointers to records whose first field is their expiry, a double.
 *
 * A 4-ary heap in an array whose slots 0, 1 and 2 stay unused: the root is slot 3, the children of slot i are
 * 4i-8 to 4i-5, the parent of slot i is (i-4)/4 + 3. The smallest expiry is read in constant time; adding,
 * removing and adjusting move one pointer per level. The caller owns the records: the heap never allocates or
 * frees one, and reads nothing of it but the expiry, which the caller may change as long as timer_heap_adjust
 * follows at once.
 *
 * Deliberate: records of equal expiry do not leave in the order in which they came. A record never passes one
 * of equal expiry on its way up, but the last one takes the place of one that leaves: A, B, C and D, equal,
 * leave as A, D, C, B.
 *
 * Slot indexes are valid until the next change of the heap. A NULL heap is an empty one. Running out of
 * memory ends the process. */

#include "api.h"
#include "array.h"

KUTIL_BEGIN_DECLS

#define TIMER_HEAP_ROOT 3 /* the slot of the earliest record, and the slot count of an empty heap */

typedef struct timer_heap {
    void **elems;    /* the records, from slot 3 on */
    array_desc desc; /* of elems; desc.used is the slot count: the number of records plus 3 */
} timer_heap;

/* A match function: (record, argument); not 0 is a match. */
typedef int (*timer_heap_match)(void *, void *);

/* timer_heap_init makes `heap` an empty heap. What it held is not freed. */
KUTIL_API void timer_heap_init(timer_heap *heap);

/* timer_heap_free frees the array and leaves an empty heap, which may be used again. The records are not
 * touched. */
KUTIL_API void timer_heap_free(timer_heap *heap);

/* timer_heap_add adds `record`, which the heap keeps by address; NULL is not added. */
KUTIL_API void timer_heap_add(timer_heap *heap, void *record);

/* timer_heap_get_head returns the record of the smallest expiry without removing it; NULL when there is none.
 */
KUTIL_API void *timer_heap_get_head(const timer_heap *heap);

/* timer_heap_remove_at removes the record in `slot` and returns it. The last record takes its place and is
 * put in order. NULL, and no change, for a slot that holds no record. */
KUTIL_API void *timer_heap_remove_at(timer_heap *heap, int slot);

/* timer_heap_adjust restores the order after the expiry of the record in `slot` changed, either way. A slot
 * that holds no record: nothing happens. */
KUTIL_API void timer_heap_adjust(timer_heap *heap, int slot);

/* timer_heap_find returns the first slot, in the order of slots and not of time, whose record `match`
 * accepts, or -1, also for a NULL match. The record, or NULL, is written to *record unless that is NULL.
 * `match` must not change the heap. Linear. */
KUTIL_API int timer_heap_find(const timer_heap *heap, timer_heap_match match, void *arg, void **record);

KUTIL_END_DECLS

#endif
