#ifndef KUTIL_UTIL_SET_VALUE_H
#define KUTIL_UTIL_SET_VALUE_H

/* set_value.h: values of the configuration tree, reached by path.
 *
 * Every value is kept as text. A getter looks the path up with the get mask (set_get) and converts the text
 * that the key holds; a setter converts to text and stores it with set_set_path_str. A key that is absent, or
 * holds nothing, gives the stated absent result. */

#include "set_node.h"

KUTIL_BEGIN_DECLS

/* set_get_path_str returns the text that the key at `path` holds, or NULL. It belongs to the tree and is
 * valid until the key changes. */
KUTIL_API char *set_get_path_str(set **handle, const char *path);

/* set_get_path_strz is set_get_path_str with "" for NULL; do not write to it. */
KUTIL_API char *set_get_path_strz(set **handle, const char *path);

/* set_get_path_int returns the text as atoi reads it, saturated to 32 bits; 0 when absent. */
KUTIL_API int set_get_path_int(set **handle, const char *path);

KUTIL_END_DECLS

#endif
