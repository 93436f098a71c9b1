#ifndef KUTIL_INTERNAL_SIZE_H
#define KUTIL_INTERNAL_SIZE_H

// Sizes are added and multiplied here and nowhere by hand. An impossible size becomes SIZE_MAX, which no
// allocator grants, so that the one place that reports a failed allocation also reports it.

#include <cstddef>
#include <cstdint>

namespace kutil
{

constexpr size_t add_sizes(size_t a, size_t b)
{
    size_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? SIZE_MAX : sum;
}

template <class... Rest>
constexpr size_t add_sizes(size_t a, size_t b, Rest... rest)
{
    return add_sizes(add_sizes(a, b), rest...);
}

constexpr size_t mul_sizes(size_t a, size_t b)
{
    size_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? SIZE_MAX : product;
}

} // namespace kutil

#endif
