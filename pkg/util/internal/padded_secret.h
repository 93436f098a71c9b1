#ifndef KUTIL_INTERNAL_PADDED_SECRET_H
#define KUTIL_INTERNAL_PADDED_SECRET_H

#include "../set_node.h"

namespace kutil
{

// The secret text at `path` under the current configuration key, as a new text to be cleared and freed. NULL
// when nothing is stored, or something else than a text with its NUL and zero padding obscured under that
// key: under another key it almost never is.
char *read_padded_secret(set **conf, const char *path);

} // namespace kutil

#endif
