#ifndef KUTIL_INTERNAL_SPARE_H
#define KUTIL_INTERNAL_SPARE_H

// Blocks that grow at their end without a capacity stored anywhere: where the allocator knows the capacity,
// repeated appends copy little.

#include "heap.h"

#ifdef KUTIL_HAVE_MALLOC_USABLE_SIZE
#include <malloc.h>
#endif

namespace kutil
{

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
inline constexpr bool kSanitized = false;
#endif

inline size_t usable_size([[maybe_unused]] void *block)
{
#ifdef KUTIL_HAVE_MALLOC_USABLE_SIZE
    return malloc_usable_size(block);
#else
    return 0;
#endif
}

// The next of 16, 24, 32, 48, 64, 96 ...: growing to these sizes copies less than three times the final
// content.
constexpr size_t growth_size(size_t needed)
{
    size_t size = 16;
    while (size < needed) {
        if (size > SIZE_MAX / 4)
            return needed;
        if (size + size / 2 >= needed)
            return size + size / 2;
        size *= 2;
    }
    return size;
}

// Makes the malloc block `block` (NULL: a new one) hold at least `needed` bytes, with spare room where it
// must grow. Running out of memory ends the process.
inline void *grow_with_spare(void *block, size_t needed)
{
    const size_t usable = block ? usable_size(block) : 0;
    if (needed > usable)
        return realloc_e(block, growth_size(needed));
    // Asking for what the block is known to hold moves nothing, and makes the spare bytes ours to write.
    // Under the address sanitizer a block is no larger than what was asked for, and asking again would copy
    // it.
    return kSanitized ? block : realloc_e(block, usable);
}

} // namespace kutil

#endif
