#ifndef KUTIL_INTERNAL_HEAP_H
#define KUTIL_INTERNAL_HEAP_H

// Owning handles of malloc memory, and the two doors to it: the fatal one (alloc.h's *_e, and typed forms of
// it here) and the plain one (try_*), which reports nothing and leaves the caller's object as it was.

#include "../alloc.h"
#include "size.h"
#include "text.h"

#include <cstdlib>
#include <memory>

namespace kutil
{

struct Free {
    void operator()(void *block) const noexcept { free(block); }
};
template <class T>
using Heap = std::unique_ptr<T, Free>;
using HeapText = Heap<char>;

struct FreeLines {
    void operator()(char **lines) const noexcept
    {
        for (char **slot = lines; *slot; slot++)
            free(*slot);
        free(lines);
    }
};
// A NULL-ended array of heap strings.
using HeapLines = std::unique_ptr<char *, FreeLines>;

// The plain door.
inline void *try_malloc(size_t size) { return malloc(size); }
inline void *try_zalloc(size_t size) { return calloc(1, size); }
inline void *try_realloc(void *block, size_t size) { return realloc(block, size); }

inline char *try_copy(View text)
{
    char *copy = static_cast<char *>(try_malloc(add_sizes(text.size(), 1)));
    if (copy)
        *put(copy, text) = '\0';
    return copy;
}

// The fatal door. One zeroed record, an array of `count`, a text.
template <class T>
T *new_record()
{
    return static_cast<T *>(zalloc_e(sizeof(T)));
}

template <class T>
T *new_array(size_t count)
{
    return static_cast<T *>(malloc_e(mul_sizes(count, sizeof(T))));
}

template <class T>
T *grow_array(T *block, size_t count)
{
    return static_cast<T *>(realloc_e(block, mul_sizes(count, sizeof(T))));
}

inline char *new_text(size_t length) { return static_cast<char *>(malloc_e(add_sizes(length, 1))); }

inline char *copy_text(View text)
{
    char *copy = new_text(text.size());
    *put(copy, text) = '\0';
    return copy;
}

// Makes `value` the content of *slot and frees what was there. Last, since arguments may point into the old
// content.
inline void replace_text(char **slot, char *value)
{
    char *old = *slot;
    *slot = value;
    free(old);
}

} // namespace kutil

#endif
