// Where reports leave the process: the system log and the console.

#include "zel_error.h"

#include "internal/errno_scope.h"
#include "internal/error_state.h"
#include "internal/fd.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <syslog.h>

using namespace kutil;

int zel_openlog_initialized;

namespace kutil
{
const char *console_path = "/dev/console";
bool opening_log;
} // namespace kutil

// syslog keeps the pointer, so the text lives as long as the log is open. It is plain memory: a failure to
// report while the log is being opened has nowhere to go.
static char *ident;

void zel_openlog_full(int entity, const char *name, int option, int facility)
{
    constexpr size_t kNumber = 16; // a 32-bit number, the point and the NUL
    if (!name)
        name = "unknown";
    const size_t size = __builtin_strlen(name) + kNumber;
    char *text = static_cast<char *>(malloc(size));
    if (!text)
        return;
    snprintf(text, size, "%d.%s", entity, name);
    opening_log = true;
    openlog(text, option, facility);
    opening_log = false;
    free(ident);
    ident = text;
    zel_openlog_initialized = 1;
}

void zel_closelog(void)
{
    closelog();
    free(ident);
    ident = nullptr;
    zel_openlog_initialized = 0;
}

int zel_vsyslog(int entity, uint32_t flags, zel_error_hook exit_cb, const char *format, va_list ap)
{
    const ErrnoScope keep_errno;
    const uint32_t level = flags & ERR_LEVEL_MASK;
    bool opened_here = false;
    if (level >= 1 && level <= 8 && format) {
        if (!zel_openlog_initialized) {
            zel_openlog_full(entity, nullptr, LOG_PID | LOG_CONS | LOG_NDELAY, LOG_USER);
            opened_here = true;
        }
        errno = keep_errno.saved(); // for "%m"
        vsyslog(static_cast<int>(level - 1) | LOG_DAEMON, format, ap);
    }
    if ((flags & ERR_F_EXIT) && exit_cb)
        exit_cb();
    if (opened_here)
        zel_closelog();
    return -1;
}

int zel_error_syslog(int entity, uint32_t flags, zel_error_hook exit_cb, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    zel_vsyslog(entity, flags, exit_cb, format, ap);
    va_end(ap);
    return -1;
}

int console_printf(const char *format, ...)
{
    const Fd console(open(console_path, O_WRONLY | O_NOCTTY | O_CLOEXEC));
    if (!console.valid())
        return -1;
    va_list ap;
    va_start(ap, format);
    const int written = format ? vdprintf(console.get(), format, ap) : 0;
    va_end(ap);
    return written;
}
