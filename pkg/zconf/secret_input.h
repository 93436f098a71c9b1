#ifndef ZCONF_SECRET_INPUT_H
#define ZCONF_SECRET_INPUT_H

#include "session.h"

namespace zconf
{

// Reads a secret: all of standard input, less one line end; from a terminal one line, after a prompt that
// names `what` and without showing what is typed. Returns a new text, to be cleared and freed; NULL after a
// complaint.
char *read_secret_input(Session &session, const char *what);

} // namespace zconf

#endif
