#include "array.h"

#include "alloc.h"
#include "internal/report.h"
#include "internal/size.h"

#include <climits>
#include <cstring>

using namespace kutil;

namespace
{

// The caller's variable has a pointer type that is not known here, so it is copied and not accessed in place.
void *block_of(const array_desc *desc)
{
    void *block = nullptr;
    memcpy(&block, desc->array_var, sizeof(block));
    return block;
}

void set_block(const array_desc *desc, void *block) { memcpy(desc->array_var, &block, sizeof(block)); }

int new_capacity(const array_desc *desc, int n)
{
    if (!(desc->flags & ARRAY_F_DOUBLE))
        return n;
    int capacity = desc->allocated > 0 ? desc->allocated : 1;
    while (capacity < n)
        capacity = capacity > INT_MAX / 2 ? n : capacity * 2;
    return capacity;
}

} // namespace

void _array_init(array_desc *desc, uint32_t elem_size, void *array_var, uint32_t flags)
{
    if (desc)
        *desc = {array_var, elem_size, 0, 0, flags};
}

int array_grow(array_desc *desc, int n)
{
    if (!desc || !desc->array_var)
        return 0;
    const int previous = desc->used;
    if (n >= desc->allocated) {
        const int capacity = new_capacity(desc, n);
        const size_t size = mul_sizes(static_cast<size_t>(capacity), desc->elem_size);
        if (size > 0) {
            auto *block = static_cast<char *>(realloc_e(block_of(desc), size));
            set_block(desc, block);
            const size_t old_size = static_cast<size_t>(desc->allocated) * desc->elem_size;
            if (size > old_size)
                memset(block + old_size, 0, size - old_size);
        }
        desc->allocated = capacity;
    }
    if (previous < n)
        desc->used = n;
    return previous;
}

int array_idx_legal(const array_desc *desc, int i) { return desc && i >= 0 && i < desc->allocated; }

void array_free(array_desc *desc)
{
    if (desc && desc->array_var)
        _zfree(desc->array_var);
}
