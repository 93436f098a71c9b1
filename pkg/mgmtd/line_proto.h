#ifndef MGMTD_LINE_PROTO_H
#define MGMTD_LINE_PROTO_H

// The line protocol: one command a line, answers that begin with a status word. "ok TEXT" or "error NUMBER
// TEXT" is one line; "data", lines each behind one blank, and "." are one answer, too.

#include "routes.h"

namespace mgmtd
{

// What a connection of the protocol knows.
struct LineSession {
    bool logged_in = false;
    int failures = 0;
    HeapText user;
    HeapText address;
    Rights rights;
};

enum class LineAnswer {
    done,
    failed_login, // the answer may have to wait
    close         // behind the answer
};

// Runs one line (without its end), and appends the answer to *out.
LineAnswer run_line(const Context &context, LineSession *session, View line, TextBuilder *out);

} // namespace mgmtd

#endif
