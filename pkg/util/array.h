#ifndef KUTIL_UTIL_ARRAY_H
#define KUTIL_UTIL_ARRAY_H

/* array.h: an array that grows behind the caller's own pointer variable.
 *
 * A descriptor in the caller's storage is tied to one pointer variable by _array_init. array_grow reallocates
 * the block through that variable, so the caller indexes its variable directly, and pointers into the old
 * block end with each growth. Elements that were never written are zero. The block is malloc memory and
 * belongs to the caller, who frees it with array_free. Running out of memory, and a size that no memory can
 * hold, end the process.
 *
 * Deliberate: array_free leaves `used` and `allocated` as they were, since callers read their counts after
 * it. Set the descriptor up again before the next array_grow, which would take the freed elements for zeroed.
 */

#include "api.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

#define ARRAY_F_DOUBLE 1U /* grow by doubling, not exactly to the request */

typedef struct array_desc {
    void *array_var;    /* address of the caller's pointer variable */
    uint32_t elem_size; /* bytes of one element */
    int used;           /* highest size requested so far; callers read and lower it */
    int allocated;      /* elements of the block */
    uint32_t flags;     /* ARRAY_F_DOUBLE or 0 */
} array_desc;

/* _array_init sets up `desc` for the pointer variable at `array_var` (of whatever pointer type, normally
 * holding NULL) and elements of `elem_size` bytes. A NULL desc: nothing happens. */
KUTIL_API void _array_init(array_desc *desc, uint32_t elem_size, void *array_var, uint32_t flags);

/* array_grow makes the block hold at least `n` elements, zeroes what is new, and returns what `used` was
 * before, so that callers initialise the slots from there on. `n` up to `used` changes nothing but may
 * reallocate to the same size. A growth that fails is the fatal report "realloc_e(%zd): failed", made before
 * anything is changed. A NULL desc gives 0. */
KUTIL_API int array_grow(array_desc *desc, int n);

/* array_idx_legal returns 1 when 0 <= i < allocated, else 0; 0 for a NULL desc. */
KUTIL_API int array_idx_legal(const array_desc *desc, int i);

/* array_free frees the block and sets the caller's variable to NULL; `used` and `allocated` stay. A NULL
 * desc: nothing happens. */
KUTIL_API void array_free(array_desc *desc);

KUTIL_END_DECLS

#endif
