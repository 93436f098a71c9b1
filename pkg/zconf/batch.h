#ifndef ZCONF_BATCH_H
#define ZCONF_BATCH_H

#include "util/internal/text.h"

namespace zconf
{

// A script's line is skipped when it has nothing but blanks in front of a # or of its end, a command when its
// first word is the name of one, and otherwise a line as list prints it. Blanks in front of a line do not
// count.
//
// Whether the line, just as it stands, is read as a listed one.
bool is_listed_line(kutil::View line);

} // namespace zconf

#endif
