#ifndef KUTIL_INTERNAL_SPARE_H
#define KUTIL_INTERNAL_SPARE_H

// Blocks that grow at their end without a capacity stored anywhere: the allocator knows the capacity. Growing
// in steps of a half makes repeated appends linear over all.

#include "heap.h"

#ifdef __linux__
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
#ifdef __linux__
    return malloc_usable_size(block);
#else
    return 0;
#endif
}

// Makes the malloc block `block` (NULL: a new one) hold at least `needed` bytes, with spare room where it
// must move. Running out of memory ends the process.
inline void *grow_with_spare(void *block, size_t needed)
{
    const size_t usable = block ? usable_size(block) : 0;
    // A block of its usable size is granted where it stands; asking makes the spare bytes ours to write.
    // Under the address sanitizer a block is no larger than what was asked for, and asking again would copy
    // it.
    if (needed <= usable)
        return kSanitized ? block : realloc_e(block, usable);
    const size_t stepped = block ? add_sizes(usable, usable / 2) : needed;
    return realloc_e(block, stepped > needed && stepped != SIZE_MAX ? stepped : needed);
}

} // namespace kutil

#endif
