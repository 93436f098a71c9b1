#ifndef KUTIL_INTERNAL_ERROR_STATE_H
#define KUTIL_INTERNAL_ERROR_STATE_H

// What the sources of the reporter share with one another and with their tests.

namespace kutil
{

inline constexpr int kMessageSize = 1024; // bytes of a message with its NUL

// The device that console_printf opens; a test puts a file of its own here.
extern const char *console_path;

// What heads the stack dump; set by zel_error_init.
struct TraceInfo {
    const void *func_addr;
    const char *func_name;
};
extern TraceInfo trace_info;

// The name given to zel_error_init, or the kernel's name of the process.
const char *process_name();

// True while zel_openlog_full is at work: a report that arises there cannot go to the log.
extern bool opening_log;

// From here on a fatal report of this process ends it by _exit(1), without hooks and exit handlers. For
// children that share both with their parent.
void end_fatal_reports_at_once();

} // namespace kutil

#endif
