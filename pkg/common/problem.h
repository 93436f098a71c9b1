#ifndef KUTIL_COMMON_PROBLEM_H
#define KUTIL_COMMON_PROBLEM_H

#include "util/api.h"
#include "util/internal/heap.h"

namespace kutil::common
{

// What went wrong, as one line without a line end. Functions that can fail take one and say there, with the
// name of the file, what their result only says happened; on success they leave it alone.
class Problem
{
public:
    // Replaces the text and returns false, so that a failing path can return the call. Keeps errno.
    bool set(const char *format, ...) KUTIL_PRINTF(2, 3);
    // set("FILE: WHAT: " and the text of errno).
    bool set_errno(const char *file, const char *what);

    const char *text() const { return text_ ? text_.get() : ""; }

private:
    HeapText text_;
};

} // namespace kutil::common

#endif
