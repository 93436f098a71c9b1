#include "son_finder.h"

#include <bit>

namespace kutil
{

namespace
{

// Below these a scan is as fast as a table.
constexpr size_t kFewSearches = 4;
constexpr size_t kFewNames = 24;

uint32_t hash_of(const char *name)
{
    uint32_t hash = 2166136261U;
    for (; *name; name++)
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619U;
    return hash ^ (hash >> 15);
}

} // namespace

void SonFinder::open(set *parent, uint32_t mask, size_t searches)
{
    parent_ = parent;
    mask_ = mask;
    slots_ = nullptr;
    if (searches < kFewSearches)
        return;
    const size_t most_names = add_sizes(count_brothers(parent->sons), searches);
    if (most_names < kFewNames)
        return;
    const size_t slots = std::bit_ceil(mul_sizes(most_names, 2));
    slots_ = static_cast<set **>(zalloc_e(mul_sizes(slots, sizeof(set *))));
    last_slot_ = slots - 1;
    end_ = &parent->sons;
    for (; *end_; end_ = &(*end_)->next) {
        set **slot = !mask || in_mask(*end_, mask) ? slot_of((*end_)->value) : nullptr;
        if (slot && !*slot)
            *slot = *end_;
    }
}

set *SonFinder::scan(const char *name) const
{
    set *son = parent_->sons;
    while (son && !((!mask_ || in_mask(son, mask_)) && same_text(son->value, name)))
        son = son->next;
    return son;
}

set **SonFinder::slot_of(const char *name) const
{
    size_t i = hash_of(name) & last_slot_;
    while (slots_[i] && !same_text(slots_[i]->value, name))
        i = (i + 1) & last_slot_;
    return &slots_[i];
}

set *SonFinder::add(const char *name)
{
    set *son = new_node(name, 0, parent_);
    set **end = slots_ ? end_ : &parent_->sons;
    while (*end)
        end = &(*end)->next;
    *end = son;
    end_ = &son->next;
    if (slots_)
        *slot_of(son->value) = son;
    return son;
}

} // namespace kutil
