#ifndef KUTIL_UTIL_ZEL_ERROR_H
#define KUTIL_UTIL_ZEL_ERROR_H

/* zel_error.h: one call for every error, warning and debug text of a process.
 *
 * A report carries the number of the entity that speaks and a flag word: its low four bits are the level, the
 * others say what else happens. The message is formatted into a fixed buffer of 1,024 bytes and goes to the
 * registered callbacks when the calling process is the one that called zel_error_set_mt_id, and to syslog
 * otherwise: in a process that never called it, and in a child after fork, until it calls it again.
 *
 * What ends the process: a report with ERR_F_EXIT or ERR_F_CRASH does, after it was delivered. Inside this
 * library that is 0x303 (crit, always shown, fatal).
 *
 * State is process-wide. All signals are blocked during a report, and callbacks run with them blocked;
 * callbacks may report, register and unregister. A report never changes errno. A message is valid only during
 * the callback. Level 0 is for texts that are no messages of a level: it reaches catch-all callbacks and
 * callbacks whose selector bits match, and never syslog.
 *
 * A report inside a report (from a callback) has its own buffers up to a depth of 8; a deeper one, and one
 * that arises while the log is being opened, is written to standard error as it stands and not delivered.
 * When such a report is fatal, or arises while the process is ending in an earlier fatal report, the process
 * ends at once by _exit(1). */

#include "api.h"

#include <stdarg.h>
#include <stdint.h>

KUTIL_BEGIN_DECLS

/* The flag word of a report. The low four bits are the level: 0 none, 1 emerg, 2 alert, 3 crit, 4 err, 5
 * warn, 6 notice, 7 info, 8 debug; a lower number is more severe. 9 to 15 have no name, are treated like 0 by
 * the default callback and are never sent to syslog. */
#define ERR_LEVEL_MASK 0x000FU
#define ERR_F_ALWAYS 0x0100U  /* shown on the console whatever the level; selects callbacks that carry it */
#define ERR_F_EXIT 0x0200U    /* the process ends after delivery; selects callbacks that carry it */
#define ERR_F_CRASH 0x0400U   /* stack dump, then the process ends; selects callbacks that carry it */
#define ERR_F_SELECT 0x0800U  /* only selects callbacks that carry it */
#define ERR_F_CONSOLE 0x1000U /* copied to the console; selects nothing */
#define ERR_F_RAW 0x2000U     /* default_error_cb writes the text as it is, without level and line end */

/* A catch-all callback: (data, message, entity, flags). The result is ignored. */
typedef int (*zel_error_cb)(void *, const char *, int, uint32_t);
/* A level callback: (data, message, flags). The result is ignored. */
typedef int (*zel_error_level_cb)(void *, const char *, uint32_t);
/* The exit and reboot hooks, and the exit callback of the syslog calls. */
typedef void (*zel_error_hook)(void);

/* One row of a format-code table, which its caller owns and ends with a row of code -1. */
typedef struct zel_error_itofmt {
    int code;
    int enabled;        /* 0 silences the row */
    const char *format; /* printf format of this code's reports */
    uint32_t flags;     /* level and flags of this code's reports */
} zel_error_itofmt;

/* The names of levels 0 to 8 ("none" to "debug") and NULL behind them. Static. */
KUTIL_API extern const char *const zel_error_level_str[10];
/* The process id whose reports go to the callbacks; 0 until zel_error_set_mt_id is called. */
KUTIL_API extern int mt_task_id;
/* Not 0 while the log is open through zel_openlog_full. */
KUTIL_API extern int zel_openlog_initialized;
/* Called once when a fatal report ends the process by exit, or NULL. A hook that is entered again is skipped.
 */
KUTIL_API extern zel_error_hook zel_error_exit_func;
/* Called once before the forced fault of zel_error_reboot, or NULL. */
KUTIL_API extern zel_error_hook zel_error_reboot_func;

/* zel_error_full reports the text that printf makes of `format` and what follows, in which "%m" stands for
 * the text of errno. A NULL format reports "error in `zel_error': no message specified". A working format or
 * a message longer than 1,023 characters is cut there. Returns -1 always, so that a failing path can return
 * the report; does not return when the flags say that the process ends. */
KUTIL_API int zel_error_full(int entity, uint32_t flags, const char *format, ...) KUTIL_PRINTF(3, 4);

/* zel_verror_full is zel_error_full with its values in a va_list, which is used up. */
KUTIL_API int zel_verror_full(int entity, uint32_t flags, const char *format, va_list ap) KUTIL_PRINTF(3, 0);

/* zel_perror_full is zel_error_full with ": " and the text of errno behind the message. */
KUTIL_API int zel_perror_full(int entity, uint32_t flags, const char *format, ...) KUTIL_PRINTF(3, 4);

/* zel_vperror_full is zel_perror_full with its values in a va_list, which is used up. */
KUTIL_API int zel_vperror_full(int entity, uint32_t flags, const char *format, va_list ap) KUTIL_PRINTF(3, 0);

/* zel_error_long_full reports `text` as it is, in pieces of 1,024 characters, of which each shows 1,023: the
 * last character of every full piece is lost. NULL or "" reports nothing. Returns -1. */
KUTIL_API int zel_error_long_full(int entity, uint32_t flags, const char *text);

/* zel_error_itofmt_full reports with the format and flags of the first row of `table` that has `code`; what
 * follows are the format's values. Returns -1 without a report when no row has it or the table is NULL, 0
 * when the row is disabled, else the report's -1. */
KUTIL_API int zel_error_itofmt_full(int entity, const zel_error_itofmt *table, int code, ...);

/* zel_error_itofmt_set_enabled sets the enabled field of the first row of `table` that has `code`. Returns 0,
 * or -1 when no row has it or the table is NULL. */
KUTIL_API int zel_error_itofmt_set_enabled(zel_error_itofmt *table, int code, int enabled);

/* zel_error_init initialises reporting without registering a callback. With `reboot_on_exit` a fatal report
 * prints a stack dump and faults instead of exiting, with `reboot_on_crash` a crash report does; with
 * `stack_trace` the stack top is recorded for dumps. `process_name` (copied, at most 15 characters) NULL
 * means the kernel's name of the process, "unknown" when that cannot be read. `trace_func_addr` and
 * `trace_func_name` (kept, not copied; NULL allowed) head the stack dump. A second call is the fatal report
 * "zel_error_init: already initialized". */
KUTIL_API void zel_error_init(int reboot_on_exit, int reboot_on_crash, int stack_trace,
                              const char *process_name, const void *trace_func_addr,
                              const char *trace_func_name);

/* zel_error_init_nodefault is zel_error_init with 0 and NULL everywhere. */
KUTIL_API void zel_error_init_nodefault(void);

/* zel_error_init_default initialises reporting and registers default_error_cb for the levels 1 to `level` and
 * for reports that carry ERR_F_ALWAYS, until the process exits. The first report does this with level 6 in a
 * process that initialised nothing. A second initialisation ends the process. */
KUTIL_API void zel_error_init_default(uint32_t level);

/* zel_error_uninit does nothing. Deliberate: reporting stays usable until the process is gone. */
KUTIL_API void zel_error_uninit(void);

/* zel_error_set_mt_id makes the calling process the one whose reports go to the callbacks, and returns its
 * id. A child whose reports shall reach them calls it after fork. */
KUTIL_API int zel_error_set_mt_id(void);

/* zel_error_set_console sets whether reports of level 1 to 4 go to the console also when callbacks are
 * registered. Returns the previous setting. */
KUTIL_API int zel_error_set_console(int on);

/* zel_error_exit_func_set sets the hook that runs before a fatal report ends the process (NULL: none) and
 * returns the previous one. Replacing a hook is reported at level 7. */
KUTIL_API zel_error_hook zel_error_exit_func_set(zel_error_hook func);

/* zel_error_register adds a catch-all callback: it is called for every delivered report. Callbacks are called
 * in ascending `order`, those of equal order in the sequence of their registration; one registered during a
 * delivery joins with the next report. `data` is only handed back; it must live until the callback is
 * removed. A NULL callback is not registered. Running out of memory ends the process. */
KUTIL_API void zel_error_register(int order, zel_error_cb callback, void *data);

/* zel_error_register_level adds a level callback: it is called for the levels from 1 to the low four bits of
 * `level_mask`, and for reports of any level that share a bit with `level_mask` and 0xF00. Otherwise as
 * zel_error_register. */
KUTIL_API void zel_error_register_level(int order, uint32_t level_mask, zel_error_level_cb callback,
                                        void *data);

/* zel_error_unregister and zel_error_unregister_level remove every registration of that kind whose callback
 * and data are these. None: nothing happens. A callback that is removed during a delivery is not called any
 * more. */
KUTIL_API void zel_error_unregister(zel_error_cb callback, void *data);
KUTIL_API void zel_error_unregister_level(zel_error_level_cb callback, void *data);

/* default_error_cb is the level callback of zel_error_init_default: it writes "LEVEL: MESSAGE" and a line end
 * to standard error, without "LEVEL: " for levels that have no name and 0; with ERR_F_RAW the message alone.
 * Returns 0. */
KUTIL_API int default_error_cb(void *data, const char *message, uint32_t flags);

/* log_msg_deliver hands a finished message to the callbacks and, where flags or settings say so, to the
 * console, and does nothing of the flags' ends. It is for code that has a finished message. NULL counts as
 * "". Returns -1. */
KUTIL_API int log_msg_deliver(int entity, uint32_t flags, const char *message);

/* zel_error_exit calls zel_error_exit_func and ends the process with status 1 through exit. */
KUTIL_API void zel_error_exit(void) __attribute__((noreturn));

/* zel_error_reboot calls zel_error_reboot_func and ends the process by a memory fault, for the platform's
 * crash handling to take over. */
KUTIL_API void zel_error_reboot(void) __attribute__((noreturn));

/* zel_openlog_full opens the system log with "ENTITY.NAME" in front of every entry; `option` and `facility`
 * are those of openlog of POSIX. The text is copied; a NULL name is "unknown". When memory runs out nothing
 * changes. */
KUTIL_API void zel_openlog_full(int entity, const char *name, int option, int facility);

/* zel_closelog closes the log that zel_openlog_full opened and frees its text. */
KUTIL_API void zel_closelog(void);

/* zel_vsyslog sends the text that `format` and `ap` make to the system log, as printf with "%m". A level of 1
 * to 8 is sent as priority level-1 of the daemon facility, opening the log for this entry when it is not
 * open; level 0 and 9 to 15 send nothing. With ERR_F_EXIT in the flags `exit_cb` is called then, unless it is
 * NULL. Returns -1. */
KUTIL_API int zel_vsyslog(int entity, uint32_t flags, zel_error_hook exit_cb, const char *format, va_list ap)
    KUTIL_PRINTF(4, 0);

/* zel_error_syslog is zel_vsyslog with its values as arguments. */
KUTIL_API int zel_error_syslog(int entity, uint32_t flags, zel_error_hook exit_cb, const char *format, ...)
    KUTIL_PRINTF(4, 5);

/* strace_init records its own frame as the top of the stack for later dumps. */
KUTIL_API void strace_init(void);

/* strace_write prints the stack, from where it is called to the recorded top, to standard output; nothing
 * when no top was recorded. The format is for the platform's crash tools: addresses show their low 16 bits,
 * eight words a line. */
KUTIL_API void strace_write(void);

/* console_printf writes the formatted text to "/dev/console". Returns the number of bytes written, or -1 when
 * the device cannot be opened. */
KUTIL_API int console_printf(const char *format, ...) KUTIL_PRINTF(1, 2);

KUTIL_END_DECLS

#endif
