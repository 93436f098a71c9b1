#ifndef KUTIL_INTERNAL_WALK_STACK_H
#define KUTIL_INTERNAL_WALK_STACK_H

#include "heap.h"

#include <type_traits>

namespace kutil
{

// The explicit stack of a walk over a tree: trees come from outside, so their depth must not become the depth
// of our own calls. The first levels need no allocation; running out of memory ends the process. A reference
// to an item is valid until the next push.
template <class Item>
class WalkStack
{
    static_assert(std::is_trivially_copyable_v<Item> && std::is_trivially_default_constructible_v<Item>);

public:
    WalkStack() = default;
    WalkStack(const WalkStack &) = delete;
    WalkStack &operator=(const WalkStack &) = delete;
    ~WalkStack()
    {
        if (items_ != first_)
            free(items_);
    }

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }
    Item &top() { return items_[size_ - 1]; }
    Item &operator[](size_t level) { return items_[level]; } // 0: the outermost
    void push(const Item &item)
    {
        const Item copy = item; // it may be one of ours
        if (size_ == capacity_)
            grow();
        items_[size_++] = copy;
    }
    Item pop() { return items_[--size_]; }

private:
    void grow()
    {
        const size_t capacity = mul_sizes(capacity_, 2);
        Item *old = items_;
        items_ = grow_array<Item>(old == first_ ? nullptr : old, capacity);
        if (old == first_)
            memcpy(items_, first_, sizeof(first_));
        capacity_ = capacity;
    }

    static constexpr size_t kFirst = 24;
    Item first_[kFirst];
    Item *items_ = first_;
    size_t size_ = 0;
    size_t capacity_ = kFirst;
};

} // namespace kutil

#endif
