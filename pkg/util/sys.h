#ifndef KUTIL_UTIL_SYS_H
#define KUTIL_UTIL_SYS_H

/* sys.h: what the library asks of the system: its clocks, a sleep, descriptors, and commands.
 *
 * Two clocks. The tick clock counts the kernel's clock ticks (100 a second) and never follows a change of the
 * date; the event loop lives on it. It starts at 0 with the first reading in a process and wraps after 497
 * days. The wall clock is the date in seconds and microseconds, and steps when somebody sets it.
 *
 * Commands. sys_exec, the sys_get and sys_term_get families block the process, and with it the event loop,
 * until the command has ended; sys_exec_bg and spawn_child_process do not wait, and their children are the
 * caller's to wait for. Every command line is reported at the verbose level before it runs, so secrets on it
 * reach the log at that level. sys_exec uses bash, the sys_get family /bin/sh (popen); what argv_to_shell
 * writes needs bash. Calls do not nest.
 *
 * sys_exec takes SIGALRM over while it waits and calls alarm(timeout), also alarm(0). Deliberate: the alarm
 * is not cancelled after the command, while the previous action of SIGALRM comes back; so after
 * sys_set_timeout a process whose action is the default one is ended by the alarm of a command that was
 * quick. Handle or ignore SIGALRM there.
 *
 * What ends the process: a command that cannot be forked, and an unexpected result when an expectation is
 * set, whose level is fatal unless sys_set_expect_level changed it. A shell that cannot be started is a fatal
 * report in the child, which ends with status 1. */

#include "api.h"

#include <stdint.h>
#include <sys/time.h>

KUTIL_64_BIT_TIME;

KUTIL_BEGIN_DECLS

/* sys_get_ticks_from_boot returns the clock ticks since the first call in this process, so 0 at that call;
 * the count is unsigned, wraps, and goes on across fork. Whoever keeps a reading notices a wrap as a later
 * reading that is smaller. A reading that times refuses is its negated error number. errno stays as it was.
 * Source: times of POSIX. */
KUTIL_API uint32_t sys_get_ticks_from_boot(void);

/* sys_get_clock_rate returns the clock ticks per second, -1 when the system does not know. Source: sysconf of
 * POSIX. */
KUTIL_API int sys_get_clock_rate(void);

/* sys_get_time writes the wall-clock time to *tv and returns tv. NULL: nothing happens. */
KUTIL_API struct timeval *sys_get_time(struct timeval *tv);

/* utc_time_get is sys_get_time. */
KUTIL_API struct timeval *utc_time_get(struct timeval *tv);

/* utc_time returns the seconds since the epoch and writes them to *seconds too, unless that is NULL.
 * Deliberate: signed 32 bits, which turn negative in 2038; differences stay right when they are computed
 * unsigned. */
KUTIL_API int32_t utc_time(int32_t *seconds);

/* sleep_ms blocks the process for `ms` milliseconds. Returns 0, or -1 with errno EINTR when a signal handler
 * ran; the rest of the sleep is then lost. Nothing of the event loop runs meanwhile. */
KUTIL_API int sleep_ms(uint32_t ms);

/* sys_sock_set_nonblocking makes `fd` non-blocking and this process the receiver of its signals (F_SETOWN).
 * Deliberate: the status flags become O_NONBLOCK alone, so O_APPEND and the like are cleared. Returns 0; a
 * failure is reported at err as "sock_set_sockopt FD: failed setting non-blocking" or "... setting owner" and
 * gives -1. */
KUTIL_API int sys_sock_set_nonblocking(int fd);

/* --- Settings of commands; each setter returns the previous value. --- */

/* Not 0 when the last sys_exec was ended by its time-out. The only way to tell that from a command that ended
 * with status 129: both give -1. */
KUTIL_API extern int ended_on_timeout;

/* sys_set_timeout sets after how many seconds sys_exec kills its command; 0, the default, and less: never. */
KUTIL_API int sys_set_timeout(int seconds);

/* sys_setpgid sets whether commands of sys_exec run in a process group of their own, which is killed when the
 * command has ended, with all helpers it left. Off by default. */
KUTIL_API int sys_setpgid(int on);

/* sys_set_shell sets which shell sys_exec and sys_exec_bg use: "/bin/bash" when `bash_always` is not 0, the
 * default; else the one that the environment variable SHELL names, and "/bin/bash" without it. The result
 * means nothing. */
KUTIL_API int sys_set_shell(int bash_always);

/* sys_set_verbose sets the level and flags of the report of a command line before it runs; 8 (debug) by
 * default. */
KUTIL_API uint32_t sys_set_verbose(uint32_t flags);

/* sys_set_expect sets which results are acceptable, of the three bits; 0, the default: all, without a check.
 */
#define SYS_EXPECT_ZERO 1
#define SYS_EXPECT_NEGATIVE 2
#define SYS_EXPECT_POSITIVE 4
KUTIL_API int sys_set_expect(int mask);

/* sys_set_expect_level sets level and flags of the report "sys_expect failed: exec(COMMAND) returned RESULT";
 * 0x303 by default, which ends the process. */
KUTIL_API uint32_t sys_set_expect_level(uint32_t flags);

/* --- Running commands --- */

/* sys_exec runs the formatted command line through the shell and waits for it. Returns the exit status; from
 * 129 up it is 128 minus it, so that a shell's word for signal n is -n; -n also when signal n ended the shell
 * itself; -1 after a time-out, reported at info, and when the child cannot be waited for. */
KUTIL_API int sys_exec(const char *format, ...) KUTIL_PRINTF(1, 2);

/* sys_exec_e is sys_exec for commands that must give 0: any other result ends the process with the command
 * line for a report. */
KUTIL_API int sys_exec_e(const char *format, ...) KUTIL_PRINTF(1, 2);

/* sys_exec_bg starts the formatted command line through the shell and returns the child's pid. There is no
 * time-out, no process group and no expectation. */
KUTIL_API int sys_exec_bg(const char *format, ...) KUTIL_PRINTF(1, 2);

/* _sys_get_cmd runs `command` by popen with `mode` and returns what it writes to standard output as a new
 * text, with the number of bytes in *len. *status is the status as waitpid gives it, -1 when nothing ran; the
 * expectation check sees that raw status. `status` and `len` may be NULL. A failing popen is reported at err
 * and gives NULL. NULL also for a NULL command or mode, and for more than INT32_MAX bytes. */
KUTIL_API char *_sys_get_cmd(int *status, const char *command, int *len, const char *mode);

/* sys_get_cmd and sys_get_cmd_bin are _sys_get_cmd with the mode "r", the first without a length. sys_get and
 * sys_get_bin are the same for a formatted command. */
KUTIL_API char *sys_get_cmd(int *status, const char *command);
KUTIL_API char *sys_get_cmd_bin(int *status, const char *command, int *len);
KUTIL_API char *sys_get(int *status, const char *format, ...) KUTIL_PRINTF(2, 3);
KUTIL_API char *sys_get_bin(int *status, int *len, const char *format, ...) KUTIL_PRINTF(3, 4);

/* sys_get_lines is sys_get split at line feeds: a new array (lines.h), empty when nothing was written. */
KUTIL_API char **sys_get_lines(int *status, const char *format, ...) KUTIL_PRINTF(2, 3);

/* sys_term_get_cmd runs `command` on a terminal of its own under the tool `expect` and returns what it showed
 * there as a new text, NULL when no temporary file could be made. The first line is the tool's own "spawn
 * COMMAND"; line ends are CR LF. The tool reads the command as Tcl: no shell sees it, and dollar signs,
 * brackets and braces are Tcl's. *status (NULL: not stored) is the tool's status as system gives it, not the
 * command's. When descriptor 0 is no terminal, the command's input is one that never says anything. */
KUTIL_API char *sys_term_get_cmd(int *status, const char *command);

/* sys_term_get_lines is sys_term_get_cmd of a formatted command, split at CR LF into a new array. */
KUTIL_API char **sys_term_get_lines(int *status, const char *format, ...) KUTIL_PRINTF(2, 3);

/* argv_to_shell returns the arguments up to NULL as a new command line, each quoted where it needs it
 * (str_escape_shell) and joined with blanks. NULL and none: "". */
KUTIL_API char *argv_to_shell(char *const *argv);

/* --- Children and descriptors --- */

/* Entries of a descriptor map, besides the numbers of the caller's descriptors, and its end. */
#define SPAWN_FD_END (-1)
#define SPAWN_FD_NULL (-2)
#define SPAWN_FD_CLOSED (-3)

/* Flags of spawn_child_process. With SPAWN_F_NICE the nice value plus 20 stands in bits 25 to 30. */
#define SPAWN_F_SESSION 2U
#define SPAWN_F_NICE 0x1000000U
#define SPAWN_NICE(value) (SPAWN_F_NICE | (((uint32_t)((value) + 20) & 0x3fU) << 25))

/* spawn_child_process starts argv[0], found along PATH, with `argv`; with `envp` not NULL, argv[0] is a path
 * and `envp` the environment. Returns the child's pid, or -1 when it cannot be made (reported at err) or argv
 * is NULL or empty. A child whose set-up or start fails ends silently with status 255. With SPAWN_F_SESSION
 * it runs in a session of its own. `fd_map` tells for each descriptor of the child, from 0 up to
 * SPAWN_FD_END, which of the caller's it is, SPAWN_FD_NULL for /dev/null or SPAWN_FD_CLOSED; the numbers are
 * the caller's whatever stands before them in the map. Descriptors behind the map are closed. A NULL map with
 * SPAWN_F_SESSION is the three standard ones on /dev/null, and without it leaves all descriptors as they are.
 * SIGPIPE, SIGCHLD and every caught signal have their default actions, and the caller's signal mask is kept.
 * The child shares the caller's memory until it starts, so a large caller starts it as fast as a small one.
 * Source: vfork, execvp and execve. */
KUTIL_API int spawn_child_process(uint32_t flags, char *const *argv, char *const *envp, const int *fd_map);

/* close_fds_from closes every descriptor from `n` (below 0 counts as 0) upward. errno stays as it was. */
KUTIL_API void close_fds_from(int n);

/* clear_fd_buffer drops what waits on a terminal: it switches line mode and echo of `fd` off, reads standard
 * input until nothing is left, and restores the settings. Deliberate: reading and restoring are done on
 * descriptor 0 whatever `fd` is. A failure is reported at info as "Warning: error cleaning input buffer". */
KUTIL_API void clear_fd_buffer(int fd);

KUTIL_END_DECLS

#endif
