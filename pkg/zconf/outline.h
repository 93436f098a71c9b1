#ifndef ZCONF_OUTLINE_H
#define ZCONF_OUTLINE_H

#include "util/set_node.h"

#include <cstdio>

namespace zconf
{

// Draws the node and what is below it, a line for each key, two blanks further in for each level:
//
//   wan
//     mtu = 1500
//     ppp (14 keys)
//
// Nodes at depth `depth` (0: the node itself; below 0: no limit) that hold keys only say how many lines list
// would print for them.
void print_outline(FILE *out, set **node, long depth);

} // namespace zconf

#endif
