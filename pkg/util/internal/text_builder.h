#ifndef KUTIL_INTERNAL_TEXT_BUILDER_H
#define KUTIL_INTERNAL_TEXT_BUILDER_H

#include "heap.h"

#include <utility>

namespace kutil
{

// A text that grows at its end; the buffer doubles, so appending is linear over all. Running out of memory
// ends the process.
class TextBuilder
{
public:
    TextBuilder() = default;
    explicit TextBuilder(size_t expected) { reserve(expected); }
    TextBuilder(const TextBuilder &) = delete;
    TextBuilder &operator=(const TextBuilder &) = delete;
    ~TextBuilder() { free(data_); }

    void append(View text) { size_ = static_cast<size_t>(put(room(text.size()), text) - data_); }
    void append(char c)
    {
        *room(1) = c;
        size_++;
    }
    void append(char c, size_t count)
    {
        memset(room(count), c, count);
        size_ += count;
    }
    void clear() { size_ = 0; }
    void truncate(size_t size) { size_ = size < size_ ? size : size_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    View text() const { return View(data_ ? data_ : "", size_); }
    // The text so far with its NUL, until the next change.
    char *c_str()
    {
        *room(0) = '\0';
        return data_;
    }
    // The text, exact, for the caller to free.
    char *release()
    {
        c_str();
        if (capacity_ > size_ + 1)
            data_ = static_cast<char *>(realloc_e(data_, size_ + 1));
        size_ = capacity_ = 0;
        return std::exchange(data_, nullptr);
    }
    // Room for `count` more characters and a NUL, not yet counted; commit() counts what was written there.
    void commit(size_t count) { size_ += count; }
    char *room(size_t count)
    {
        const size_t needed = add_sizes(size_, count, 1);
        if (needed > capacity_)
            grow(needed);
        return data_ + size_;
    }

private:
    void reserve(size_t size) { room(size); }
    void grow(size_t needed)
    {
        const size_t doubled = mul_sizes(capacity_, 2);
        capacity_ = needed > doubled || doubled == SIZE_MAX ? needed : doubled;
        data_ = static_cast<char *>(realloc_e(data_, capacity_));
    }

    char *data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

} // namespace kutil

#endif
