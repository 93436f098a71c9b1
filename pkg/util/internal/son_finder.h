#ifndef KUTIL_INTERNAL_SON_FINDER_H
#define KUTIL_INTERNAL_SON_FINDER_H

#include "set_node.h"

namespace kutil
{

// Finds sons of one node by name, many times: through a table of the names where the lists are long, by a
// scan where they are short. Meanwhile only add() may change the list. It can lie in a WalkStack; who opens
// it closes it.
class SonFinder
{
public:
    // Looks at the sons in `mask`, 0 for those of any layer. There will be up to `searches` calls of find,
    // each followed by at most one add.
    void open(set *parent, uint32_t mask, size_t searches);
    void close() { free(slots_); }

    // The first son of that name, or NULL.
    set *find(const char *name) const { return slots_ ? *slot_of(name) : scan(name); }
    // Appends a son in no layer yet, whose name is not there.
    set *add(const char *name);

private:
    set *scan(const char *name) const;
    // The slot of the name's first son, or the empty one where it belongs.
    set **slot_of(const char *name) const;

    set *parent_;
    uint32_t mask_;
    set **slots_; // NULL: short lists
    size_t last_slot_;
    set **end_; // of the sons; with a table only
};

inline size_t count_brothers(const set *node)
{
    size_t count = 0;
    for (; node; node = node->next)
        count++;
    return count;
}

} // namespace kutil

#endif
