#ifndef KUTIL_INTERNAL_LIST_BUILDER_H
#define KUTIL_INTERNAL_LIST_BUILDER_H

#include "heap.h"

#include <utility>

namespace kutil
{

// A list that grows at its end; the array doubles, so adding is linear over all. Running out of memory ends
// the process.
class ListBuilder
{
public:
    ListBuilder() = default;
    ListBuilder(const ListBuilder &) = delete;
    ListBuilder &operator=(const ListBuilder &) = delete;
    ~ListBuilder()
    {
        for (size_t i = 0; i < count_; i++)
            free(slots_[i]);
        free(slots_);
    }

    void add(View text) { take(copy_text(text)); }
    // Takes over a malloc text.
    void take(char *text)
    {
        if (count_ == capacity_)
            grow();
        slots_[count_++] = text;
    }
    size_t count() const { return count_; }
    // The list, an array of exactly its elements and the NULL, for the caller to free.
    char **release()
    {
        char **list = grow_array(std::exchange(slots_, nullptr), add_sizes(count_, 1));
        list[count_] = nullptr;
        count_ = capacity_ = 0;
        return list;
    }

private:
    void grow()
    {
        capacity_ = capacity_ ? mul_sizes(capacity_, 2) : 8;
        slots_ = grow_array(slots_, capacity_);
    }

    char **slots_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

} // namespace kutil

#endif
