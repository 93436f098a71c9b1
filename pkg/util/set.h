#ifndef KUTIL_UTIL_SET_H
#define KUTIL_UTIL_SET_H

/* set.h: the whole configuration tree: nodes and paths, masks and layers, the text form, typed values. */

#include "set_mask.h"
#include "set_node.h"
#include "set_text.h"
#include "set_value.h"

#endif
