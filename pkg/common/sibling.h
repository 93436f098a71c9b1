#ifndef KUTIL_COMMON_SIBLING_H
#define KUTIL_COMMON_SIBLING_H

#include "util/internal/heap.h"

namespace kutil::common
{

// The length of the folder part of `path`, its "/" included; 0 when it has none.
inline size_t folder_length(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? static_cast<size_t>(slash + 1 - path) : 0;
}

// The path of .NAME and `suffix` in the folder of the file NAME at `path`.
inline HeapText sibling(const char *path, View suffix)
{
    const View whole(path);
    const size_t folder = folder_length(path);
    HeapText other(new_text(add_sizes(whole.size(), suffix.size(), 1)));
    char *end = put(other.get(), sub(whole, 0, folder));
    *end++ = '.';
    *put(put(end, sub(whole, folder)), suffix) = '\0';
    return other;
}

} // namespace kutil::common

#endif
