#ifndef KUTIL_INTERNAL_VALUE_LIKE_H
#define KUTIL_INTERNAL_VALUE_LIKE_H

#include "set_node.h"

namespace kutil
{

// Whether the sons of the node are leaves of which no two share a layer: it holds a value per layer, or
// nothing. Any other node is a structure.
inline bool is_value_like(const set *node)
{
    uint32_t taken = 0;
    for (const set *son = node->sons; son; son = son->next) {
        if (son->sons || (son->layers & taken))
            return false;
        taken |= son->layers;
    }
    return true;
}

} // namespace kutil

#endif
