#ifndef KUTIL_INTERNAL_SPARE_H
#define KUTIL_INTERNAL_SPARE_H

// Blocks that grow at their end without a capacity stored anywhere: where the allocator knows the capacity,
// repeated appends copy little.

#include "heap.h"

#include <algorithm>
#include <bit>

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

// Blocks that grow have sizes of 16, 24, 32, 48, 64, 96 ... bytes: appending copies less than three times the
// final content. These are the next of them from `n` up and from `n` down.
constexpr size_t step_above(size_t n)
{
    const size_t power = std::bit_floor(std::max<size_t>(n, 16));
    if (n <= power || n > SIZE_MAX / 2)
        return std::max(n, power);
    return n <= power + power / 2 ? power + power / 2 : power * 2;
}

constexpr size_t step_below(size_t n)
{
    const size_t power = std::bit_floor(n);
    return n >= power + power / 2 ? power + power / 2 : power;
}

// Makes the malloc block `block` (NULL: a new one) hold at least `needed` bytes, with spare room where it
// must grow. Running out of memory ends the process.
inline void *grow_with_spare(void *block, size_t needed)
{
    const size_t usable = block ? usable_size(block) : 0;
    // Under the address sanitizer a block is no larger than what was asked for, and asking again would copy
    // it.
    if (kSanitized && needed <= usable)
        return block;
    // Asking again for what the block holds moves nothing, and makes its spare bytes ours to write. It is a
    // step that is asked for, never all that is usable: glibc would grow a large block by a page then, at
    // every call.
    return realloc_e(block, std::max(step_above(needed), step_below(usable)));
}

} // namespace kutil

#endif
