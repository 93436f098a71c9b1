#ifndef MGMTD_OUTCOME_H
#define MGMTD_OUTCOME_H

#include "base.h"
#include "util/api.h"

namespace mgmtd
{

// What came of a request: a status in HTTP's numbers and a text.
struct Outcome {
    int status = 200;
    TextBuilder text;

    // Replaces both and returns false, so that a failing path can return the call. The text gets a line end.
    bool fail(int new_status, const char *format, ...) KUTIL_PRINTF(3, 4);
    // Appends to the text.
    void print(const char *format, ...) KUTIL_PRINTF(2, 3);
};

} // namespace mgmtd

#endif
