#include "problem.h"

#include "util/internal/errno_scope.h"

#include <cstdarg>
#include <cstdio>

namespace kutil::common
{

bool Problem::set(const char *format, ...)
{
    const ErrnoScope keep_errno;
    va_list ap;
    va_start(ap, format);
    va_list again;
    va_copy(again, ap);
    const int length = vsnprintf(nullptr, 0, format, ap);
    va_end(ap);
    const size_t room = length < 0 ? 0 : static_cast<size_t>(length);
    HeapText text(new_text(room));
    if (room == 0 || vsnprintf(text.get(), room + 1, format, again) < 0)
        *text = '\0';
    va_end(again);
    text_.swap(text); // the old text may have been among the values
    return false;
}

bool Problem::set_errno(const char *file, const char *what)
{
    const ErrnoScope keep_errno;
    return set("%s: %s: %s", file, what, strerror(keep_errno.saved()));
}

} // namespace kutil::common
