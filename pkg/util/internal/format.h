#ifndef KUTIL_INTERNAL_FORMAT_H
#define KUTIL_INTERNAL_FORMAT_H

#include "../api.h"
#include "heap.h"

#include <cstdarg>
#include <cstdio>

namespace kutil
{

// The text that printf makes, in a malloc buffer of its size; null for a NULL format and for values that
// cannot be formatted. Running out of memory ends the process.
KUTIL_PRINTF(1, 0) inline char *format_text(const char *format, va_list ap)
{
    if (!format)
        return nullptr;
    char buffer[256];
    va_list again;
    va_copy(again, ap);
    const int length = vsnprintf(buffer, sizeof(buffer), format, ap);
    char *text = nullptr;
    if (length >= 0) {
        const size_t size = static_cast<size_t>(length) + 1;
        text = new_text(size - 1);
        if (size <= sizeof(buffer))
            memcpy(text, buffer, size);
        else
            vsnprintf(text, size, format, again);
    }
    va_end(again);
    return text;
}

} // namespace kutil

#endif
