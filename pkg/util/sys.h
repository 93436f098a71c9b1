#ifndef KUTIL_UTIL_SYS_H
#define KUTIL_UTIL_SYS_H

/* sys.h: what the library asks of the system: its clocks, a sleep, a switch for descriptors.
 *
 * Two clocks. The tick clock counts the kernel's clock ticks (100 a second) and never follows a change of the
 * date; the event loop lives on it. It starts at 0 with the first reading in a process and wraps after 497
 * days. The wall clock is the date in seconds and microseconds, and steps when somebody sets it. */

#include "api.h"

#include <stdint.h>
#include <sys/time.h>

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

KUTIL_END_DECLS

#endif
