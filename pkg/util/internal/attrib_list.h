#ifndef KUTIL_INTERNAL_ATTRIB_LIST_H
#define KUTIL_INTERNAL_ATTRIB_LIST_H

#include "../attrib.h"
#include "heap.h"

#include <memory>
#include <utility>

namespace kutil
{

// A new entry with copies of the name and of the value; NULL and negative lengths as attrib.h says.
attrib *new_attrib(View name, const char *value, int32_t len);

void free_attribs(attrib *first);

// A list that grows at its end in constant time and is freed unless it is released.
class AttribBuilder
{
public:
    AttribBuilder() = default;
    AttribBuilder(const AttribBuilder &) = delete;
    AttribBuilder &operator=(const AttribBuilder &) = delete;
    ~AttribBuilder() { free_attribs(first_); }

    attrib *take(attrib *entry)
    {
        last_ = last_ ? last_->next = entry : first_ = entry;
        return entry;
    }
    attrib *add(View name, const char *value, int32_t len = -1) { return take(new_attrib(name, value, len)); }
    attrib *first() const { return first_; }
    attrib *last() const { return last_; }
    attrib *release()
    {
        last_ = nullptr;
        return std::exchange(first_, nullptr);
    }

private:
    attrib *first_ = nullptr;
    attrib *last_ = nullptr;
};

} // namespace kutil

#endif
