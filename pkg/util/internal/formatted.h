#ifndef KUTIL_INTERNAL_FORMATTED_H
#define KUTIL_INTERNAL_FORMATTED_H

#include "heap.h"

#include <cstdarg>
#include <cstdio>

namespace kutil
{

// The text that printf makes of a format and its values, made aside from every object: so the values may
// point into the text that it is going to replace or extend. A NULL format counts as "". Short texts take no
// memory.
class Formatted
{
public:
    Formatted(const char *format, va_list values)
    {
        va_list again;
        va_copy(again, values);
        length_ = vsnprintf(inline_, sizeof(inline_), text_or_empty(format), values);
        if (length_ >= static_cast<int>(sizeof(inline_)))
            format_on_heap(format, again);
        va_end(again);
    }
    Formatted(const Formatted &) = delete;
    Formatted &operator=(const Formatted &) = delete;

    // The C library refused the format or one of its values.
    bool failed() const { return length_ < 0; }
    // The text was measured well and failed when it was written.
    bool failed_late() const { return failed() && heap_; }
    View text() const { return failed() ? View("", 0) : View(heap_ ? heap_.get() : inline_, size()); }
    // The text in a block of exactly its size, for the caller to free.
    char *release() { return heap_ ? heap_.release() : copy_text(text()); }

private:
    size_t size() const { return static_cast<size_t>(length_); }
    void format_on_heap(const char *format, va_list values)
    {
        heap_.reset(new_text(size()));
        const int measured = length_;
        length_ = vsnprintf(heap_.get(), size() + 1, format, values);
        length_ = length_ > measured ? measured : length_;
    }

    char inline_[256];
    HeapText heap_;
    int length_ = 0;
};

} // namespace kutil

#endif
