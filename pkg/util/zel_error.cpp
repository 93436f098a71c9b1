#include "zel_error.h"

#include "internal/chars.h"
#include "internal/errno_scope.h"
#include "internal/error_state.h"
#include "internal/fd.h"
#include "internal/report.h"
#include "internal/signal_block.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <utility>

using namespace kutil;

const char *const zel_error_level_str[10] = {"none", "emerg",  "alert", "crit",  "err",
                                             "warn", "notice", "info",  "debug", nullptr};
int mt_task_id;
zel_error_hook zel_error_exit_func;
zel_error_hook zel_error_reboot_func;

namespace kutil
{
TraceInfo trace_info;
}

namespace
{

constexpr uint32_t kSelectorMask = 0xF00;
constexpr uint32_t kLevelCount = 9; // "none" and the eight levels
constexpr uint32_t kFatalFlags = ERR_F_EXIT | ERR_F_CRASH;
constexpr int kMaxDepth = 8;

// One registration. Exactly one of the two callbacks is set.
struct Callback {
    Callback *next;
    zel_error_cb all_cb;
    zel_error_level_cb level_cb;
    void *data;
    uint32_t level_mask; // least severe level accepted, and flag selectors
    int order;
    uint32_t serial; // number of this registration, so that a delivery knows what came after its start
    bool removed;    // unregistered while a delivery was under way
};

struct Buffers {
    char format[kMessageSize];
    char message[kMessageSize];
};

struct Reporter {
    bool initialized;
    bool console_on;
    bool reboot_on_exit;
    bool reboot_on_crash;
    bool in_exit_hook;
    bool ending; // exit handlers are running
    int depth;   // reports under way, one inside the other
    int deliveries;
    uint32_t registrations;
    Callback *callbacks;
    char name[16];
};
constinit Reporter reporter = {.name = "unknown"};
// A pair for each depth. Apart from the record and all zero, so that no file carries 16 kB of them.
constinit Buffers depth_buffers[kMaxDepth] = {};

// Appends to a fixed buffer whose last byte stays NUL; what does not fit is left out.
class Cut
{
public:
    Cut(char *buffer, size_t size) : to_(buffer), left_(size - 1) { *to_ = '\0'; }
    bool append(const char *text, size_t length)
    {
        const bool whole = length <= left_;
        if (!whole)
            length = left_;
        memcpy(to_, text, length);
        to_ += length;
        left_ -= length;
        *to_ = '\0';
        return whole;
    }
    // A unit that is worth nothing in part: all of it, or nothing more at all.
    bool append_whole(const char *text, size_t length)
    {
        if (length > left_)
            left_ = 0;
        return append(text, length <= left_ ? length : 0) && left_ > 0;
    }
    // A text as part of a format: every "%" is doubled.
    bool append_escaped(const char *text)
    {
        for (; *text && left_ > 0; text++) {
            if (*text == '%')
                append_whole("%%", 2);
            else
                append(text, 1);
        }
        return left_ > 0;
    }

private:
    char *to_;
    size_t left_;
};

// The characters of the conversion that starts at the "%" of `format`, or 0 when the format ends inside it.
size_t conversion_length(const char *format)
{
    const char *end = format + 1;
    while (*end && strchr("-+ #0'I*123456789.$hlLqjzt", *end))
        end++;
    return *end ? static_cast<size_t>(end + 1 - format) : 0;
}

// Whether the text of errno stands behind the message, as in the perror forms.
enum class Ending { kNone, kErrnoText };

// The format with "%m" replaced by the text of errno, and that text behind it where it is wanted. "%%" is a
// unit, and a conversion that does not fit whole is dropped with all behind it.
void expand_format(char *buffer, const char *format, const char *errno_text, Ending ending)
{
    Cut out(buffer, kMessageSize);
    bool room = true;
    while (*format && room) {
        size_t length = strcspn(format, "%");
        if (length > 0) {
            room = out.append(format, length);
        } else if (format[1] == 'm') {
            length = 2;
            room = out.append_escaped(errno_text);
        } else {
            length = conversion_length(format);
            if (length == 0)
                break;
            room = out.append_whole(format, length);
        }
        format += length;
    }
    if (ending == Ending::kErrnoText && out.append(": ", 2))
        out.append_escaped(errno_text);
}

// The finished message as a format that prints it once more: "%%" and "%m" keep their meaning there, which is
// wanted; every other "%" is doubled, so that a foreign text is never a format.
void escape_for_log(char *buffer, size_t size, const char *message)
{
    Cut out(buffer, size);
    while (*message) {
        size_t length = strcspn(message, "%");
        if (length > 0) {
            out.append(message, length);
        } else if (message[1] == '%' || message[1] == 'm') {
            length = 2;
            out.append_whole(message, length);
        } else {
            length = 1;
            out.append_whole("%%", 2);
        }
        message += length;
    }
}

void make_message(Buffers *buffers, const char *format, Ending ending, va_list ap, int saved_errno)
{
    if (!format) {
        strcpy(buffers->message, "error in `zel_error': no message specified");
        return;
    }
    expand_format(buffers->format, format, strerror(saved_errno), ending);
    buffers->message[0] = '\0';
    errno = saved_errno;
    vsnprintf(buffers->message, sizeof(buffers->message), buffers->format, ap);
}

// A report that the machinery cannot take: too deep, or from inside the opening of the log.
int report_to_stderr(uint32_t flags, const char *format, Ending ending, va_list ap, int saved_errno)
{
    Buffers buffers;
    make_message(&buffers, format, ending, ap, saved_errno);
    fprintf(stderr, "%s\n", buffers.message);
    if (flags & kFatalFlags)
        _exit(1);
    return -1;
}

void end_process(uint32_t flags)
{
    const bool exits = flags & ERR_F_EXIT;
    if (reporter.ending)
        _exit(1);
    if (!exits || reporter.reboot_on_exit)
        strace_write();
    if (exits ? reporter.reboot_on_exit : reporter.reboot_on_crash)
        zel_error_reboot();
    zel_error_exit();
}

int report(int entity, uint32_t flags, Ending ending, const char *format, va_list ap)
{
    const ErrnoScope keep_errno;
    if (!reporter.initialized)
        zel_error_init_default(6);
    const SignalBlock block;
    if (reporter.depth >= kMaxDepth || opening_log)
        return report_to_stderr(flags, format, ending, ap, keep_errno.saved());

    Buffers *buffers = &depth_buffers[reporter.depth++];
    make_message(buffers, format, ending, ap, keep_errno.saved());
    if (mt_task_id != 0 && mt_task_id == getpid()) {
        log_msg_deliver(entity, flags, buffers->message);
    } else {
        char log_format[2 * kMessageSize];
        escape_for_log(log_format, sizeof(log_format), buffers->message);
        errno = keep_errno.saved();
        // Deliberate: the message is a format here, in which "%%" and "%m" are read a second time. No other
        // conversion is left in it, so the values that were used up are not touched.
        zel_vsyslog(entity, flags, nullptr, log_format, ap);
    }
    if (flags & kFatalFlags)
        end_process(flags);
    reporter.depth--;
    return -1;
}

bool accepts(const Callback *callback, uint32_t flags)
{
    const uint32_t level = flags & ERR_LEVEL_MASK;
    return (level != 0 && level <= (callback->level_mask & ERR_LEVEL_MASK)) ||
           (callback->level_mask & kSelectorMask & flags) != 0;
}

// Frees what was unregistered, once no delivery can stand on it.
void sweep_removed()
{
    Callback **slot = &reporter.callbacks;
    while (*slot) {
        Callback *callback = *slot;
        if (!callback->removed) {
            slot = &callback->next;
            continue;
        }
        *slot = callback->next;
        free(callback);
    }
}

void call_all(int entity, uint32_t flags, const char *message)
{
    const uint32_t last = reporter.registrations;
    reporter.deliveries++;
    for (Callback *callback = reporter.callbacks; callback; callback = callback->next) {
        const bool came_later = static_cast<int32_t>(callback->serial - last) > 0;
        if (callback->removed || came_later)
            continue;
        if (callback->all_cb)
            callback->all_cb(callback->data, message, entity, flags);
        else if (accepts(callback, flags))
            callback->level_cb(callback->data, message, flags);
    }
    if (--reporter.deliveries == 0)
        sweep_removed();
}

bool has_callback()
{
    for (const Callback *callback = reporter.callbacks; callback; callback = callback->next) {
        if (!callback->removed)
            return true;
    }
    return false;
}

void register_callback(const Callback &wanted)
{
    if (!wanted.all_cb && !wanted.level_cb)
        return;
    auto *callback = static_cast<Callback *>(malloc(sizeof(Callback)));
    if (!callback) {
        zel_error_full(kEntity, kFatal, "%s:%d: failed malloc", "_zel_error_register", __LINE__);
        return;
    }
    const SignalBlock block;
    *callback = wanted;
    callback->serial = ++reporter.registrations;
    Callback **slot = &reporter.callbacks;
    while (*slot && (*slot)->order <= wanted.order)
        slot = &(*slot)->next;
    callback->next = *slot;
    *slot = callback;
}

void unregister_callback(const Callback &wanted)
{
    const SignalBlock block;
    for (Callback *callback = reporter.callbacks; callback; callback = callback->next) {
        if (callback->all_cb == wanted.all_cb && callback->level_cb == wanted.level_cb &&
            callback->data == wanted.data)
            callback->removed = true;
    }
    if (reporter.deliveries == 0)
        sweep_removed();
}

void at_exit()
{
    reporter.ending = true;
    zel_error_unregister_level(default_error_cb, nullptr);
}

// The kernel's line is "Name:" and a tab before the name.
void read_process_name(char *name, size_t size)
{
    constexpr size_t kPrefix = 6;
    const Fd file(open("/proc/self/status", O_RDONLY | O_CLOEXEC));
    char line[32];
    const ssize_t length = file.valid() ? read(file.get(), line, kPrefix + size - 1) : -1;
    if (length <= static_cast<ssize_t>(kPrefix))
        return;
    Cut(name, size).append(line + kPrefix, static_cast<size_t>(length) - kPrefix);
    name[strcspn(name, "\n")] = '\0';
}

template <class Row>
Row *find_code(Row *table, int code)
{
    for (; table && table->code != -1; table++) {
        if (table->code == code)
            return table;
    }
    return nullptr;
}

} // namespace

const char *kutil::process_name() { return reporter.name; }

void kutil::end_fatal_reports_at_once() { reporter.ending = true; }

int zel_verror_full(int entity, uint32_t flags, const char *format, va_list ap)
{
    return report(entity, flags, Ending::kNone, format, ap);
}

int zel_error_full(int entity, uint32_t flags, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    report(entity, flags, Ending::kNone, format, ap);
    va_end(ap);
    return -1;
}

int zel_vperror_full(int entity, uint32_t flags, const char *format, va_list ap)
{
    return report(entity, flags, Ending::kErrnoText, format, ap);
}

int zel_perror_full(int entity, uint32_t flags, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    zel_vperror_full(entity, flags, format, ap);
    va_end(ap);
    return -1;
}

int zel_error_long_full(int entity, uint32_t flags, const char *text)
{
    // Deliberate: a piece is one character longer than a message can show, and that character is lost.
    constexpr size_t kPiece = kMessageSize;
    size_t remaining = text ? strlen(text) : 0;
    while (remaining > 0) {
        // The precision keeps the C library from measuring all of the rest for each piece.
        zel_error_full(entity, flags, "%.*s", kMessageSize - 1, text);
        const size_t step = remaining < kPiece ? remaining : kPiece;
        text += step;
        remaining -= step;
    }
    return -1;
}

int zel_error_itofmt_full(int entity, const zel_error_itofmt *table, int code, ...)
{
    const zel_error_itofmt *row = find_code(table, code);
    if (!row)
        return -1;
    if (!row->enabled)
        return 0;
    va_list ap;
    va_start(ap, code);
    report(entity, row->flags, Ending::kNone, row->format, ap);
    va_end(ap);
    return -1;
}

int zel_error_itofmt_set_enabled(zel_error_itofmt *table, int code, int enabled)
{
    zel_error_itofmt *row = find_code(table, code);
    if (!row)
        return -1;
    row->enabled = enabled;
    return 0;
}

void zel_error_init(int reboot_on_exit, int reboot_on_crash, int stack_trace, const char *process_name,
                    const void *trace_func_addr, const char *trace_func_name)
{
    if (reporter.initialized) {
        zel_error_full(kEntity, kFatal, "zel_error_init: already initialized");
        return;
    }
    const ErrnoScope keep_errno;
    reporter.initialized = true;
    reporter.reboot_on_exit = reboot_on_exit != 0;
    reporter.reboot_on_crash = reboot_on_crash != 0;
    if (stack_trace)
        strace_init();
    if (process_name)
        Cut(reporter.name, sizeof(reporter.name)).append(process_name, strlen(process_name));
    else
        read_process_name(reporter.name, sizeof(reporter.name));
    trace_info = {trace_func_addr, trace_func_name};
}

void zel_error_init_nodefault(void) { zel_error_init(0, 0, 0, nullptr, nullptr, nullptr); }

void zel_error_init_default(uint32_t level)
{
    zel_error_init_nodefault();
    zel_error_register_level(0, level | ERR_F_ALWAYS, default_error_cb, nullptr);
    atexit(at_exit);
}

void zel_error_uninit(void) {}

int zel_error_set_mt_id(void)
{
    mt_task_id = getpid();
    return mt_task_id;
}

int zel_error_set_console(int on) { return std::exchange(reporter.console_on, on != 0); }

zel_error_hook zel_error_exit_func_set(zel_error_hook func)
{
    const zel_error_hook previous = zel_error_exit_func;
    if (previous)
        zel_error_full(kEntity, kInfo, "Changing zel_error_exit_func from %p to %p",
                       reinterpret_cast<void *>(previous), reinterpret_cast<void *>(func));
    zel_error_exit_func = func;
    return previous;
}

void zel_error_register(int order, zel_error_cb callback, void *data)
{
    register_callback({.all_cb = callback, .data = data, .order = order});
}

void zel_error_register_level(int order, uint32_t level_mask, zel_error_level_cb callback, void *data)
{
    register_callback({.level_cb = callback, .data = data, .level_mask = level_mask, .order = order});
}

void zel_error_unregister(zel_error_cb callback, void *data)
{
    unregister_callback({.all_cb = callback, .data = data});
}

void zel_error_unregister_level(zel_error_level_cb callback, void *data)
{
    unregister_callback({.level_cb = callback, .data = data});
}

int default_error_cb(void *, const char *message, uint32_t flags)
{
    const uint32_t level = flags & ERR_LEVEL_MASK;
    if (!message)
        message = "";
    if (flags & ERR_F_RAW)
        fputs(message, stderr);
    else if (level > 0 && level < kLevelCount)
        fprintf(stderr, "%s: %s\n", zel_error_level_str[level], message);
    else
        fprintf(stderr, "%s\n", message);
    return 0;
}

int log_msg_deliver(int entity, uint32_t flags, const char *message)
{
    const uint32_t level = flags & ERR_LEVEL_MASK;
    if (!message)
        message = "";
    const SignalBlock block; // also for a message that does not come from a report
    call_all(entity, flags, message);
    bool to_console = flags & (ERR_F_ALWAYS | ERR_F_CONSOLE);
    if (!to_console && (reporter.console_on || !has_callback()))
        to_console = level >= 1 && level <= 4;
    if (to_console)
        console_printf("%s\n", message);
    return -1;
}

void zel_error_exit(void)
{
    if (zel_error_exit_func && !std::exchange(reporter.in_exit_hook, true))
        zel_error_exit_func();
    if (std::exchange(reporter.ending, true))
        _exit(1);
    exit(1);
}
