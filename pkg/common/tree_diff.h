#ifndef KUTIL_COMMON_TREE_DIFF_H
#define KUTIL_COMMON_TREE_DIFF_H

// What changed between two configuration trees, as the lines of tree_list.h behind a mark:
//
//   + PATH=VALUE   the key is only in the second tree
//   - PATH=VALUE   the key is only in the first
//   ~ PATH=VALUE   both have the key; this is the second tree's value
//
// A key that holds nothing stands as PATH/. The order of brothers alone is no difference. Among brothers of
// one name those that are equal, whatever the order inside them, belong together first; the others are paired
// in their order, and what is left over was added or removed.
//
// Only what the get mask on top of the mask stack shows takes part. Running out of memory ends the process.

#include "tree_list.h"

namespace kutil::common
{

enum class Marks {
    ignored,
    trusted // the second tree began as a copy of the first with its marks cleared, or of one equal to it: the
            // walk goes down only where it is marked changed
};

// Compares what stands under the nodes at `from` and `to`: their own names do not count, paths start below
// them, and a leaf right below them is PATH/. Taking the removed keys away, with parents that are then empty,
// and setting the others turns the first tree into the second. Lines come in the order of the first tree,
// additions behind the keys of the same parent. Returns how many there were, 0 when the trees are the same. A
// NULL, empty or hidden node counts as one without sons.
size_t tree_diff(set **from, set **to, LineSink sink, void *context, Marks marks = Marks::ignored);

} // namespace kutil::common

#endif
