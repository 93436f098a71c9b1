#ifndef MGMTD_REPLY_H
#define MGMTD_REPLY_H

#include "outcome.h"

namespace mgmtd
{

// The answer to one request.
struct Reply {
    Outcome outcome; // status and body
    const char *type = "text/plain; charset=utf-8";
    HeapText location;           // of a redirection or of what was made; NULL: none
    const char *allow = nullptr; // the methods, with 405
    bool challenge = false;      // ask for a login
    bool stale = false;          // the login was right but for its nonce
    bool close = false;          // the connection ends behind it
};

// The reason phrase of a status.
const char *status_text(int status);

// Appends the head but for its challenge lines and the empty line at the end.
void append_head(TextBuilder *out, const Reply &reply, bool close);

} // namespace mgmtd

#endif
