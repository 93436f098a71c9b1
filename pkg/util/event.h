#ifndef KUTIL_UTIL_EVENT_H
#define KUTIL_UTIL_EVENT_H

/* event.h: the event loop of a process: descriptors, timers, signals, children, exit handlers.
 *
 * There is one loop per process, used from one thread. event_loop_init sets it up, event_loop runs it,
 * event_loop_uninit takes it down. Registrations are made before or from inside callbacks, never from a
 * signal handler. Registering without a loop is an err report and nothing else; removing without a loop does
 * nothing. Running out of memory ends the process.
 *
 * Callbacks run one after the other, inside event_loop. A callback may register and remove anything, its own
 * registration and the loop included: what was removed is not called again. The loop owns its records and
 * frees them when a registration ends; `data` is the caller's and is only handed back.
 *
 * Register through the forms without the leading underscore. They are macros that pass the address of a
 * constant record of the call site (a lambda that holds a comma needs parentheses around it). The loop keeps
 * that address, so a record passed by hand must live as long as the registration; NULL is allowed.
 *
 * Times are milliseconds in a double, on a clock that advances in ticks of 10 ms. docs/event-loop.md tells
 * how the parts meet: clock, order of callbacks, fork, nested loops, lifetimes. */

#include "api.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

/* Event types, a bit mask. */
#define EVENT_READ 1U   /* readable, or hung up */
#define EVENT_WRITE 2U  /* writable, or in error */
#define EVENT_EXCEPT 4U /* urgent data, error, no descriptor */

/* How a signal callback is called: event_signal_cb or event_sigaction_cb. */
#define EVENT_SIG_PLAIN 1
#define EVENT_SIG_INFO 2

/* Where a registration was made. */
typedef struct event_debug_info {
    const char *cb_name;
    const char *func_name;
    const char *file;
    int32_t line;
} event_debug_info;

/* One watched child; opaque. */
typedef struct event_child event_child;

/* Callbacks; event_any_cb stands for any of them, to be cast. */
typedef void (*event_fd_cb)(int, void *);                /* fd, data */
typedef void (*event_timer_cb)(void *);                  /* data */
typedef void (*event_exit_cb)(void *);                   /* data */
typedef void (*event_signal_cb)(int, void *);            /* signal, data */
typedef void (*event_sigaction_cb)(int, void *, void *); /* signal, siginfo_t, data */
typedef void (*event_child_cb)(int, void *, int);        /* pid, data, status word of waitpid */
typedef void (*event_any_cb)(void);
/* A profiling hook: the callback and where it was registered. */
typedef void (*event_prof_hook)(event_any_cb, const event_debug_info *);

/* A back-end: how the loop waits. Every field of its table is set. */
typedef int (*event_be_wait)(int, int, double);           /* descriptor table size, has time-out, ms */
typedef void (*event_be_update)(int, uint32_t, uint32_t); /* fd, old types, new types */
typedef int (*event_be_init)(void);
typedef int (*event_be_uninit)(void);
typedef void (*event_be_closing)(int);    /* fd */
typedef int (*event_be_needs_split)(int); /* fd */
typedef struct event_be {
    event_be_wait wait;     /* waits, calls event_feed for what happened, returns -1 with errno on failure */
    event_be_update update; /* changes what is waited for; types of 0 begin and end it */
    event_be_init init;     /* 0, or the process ends */
    event_be_uninit uninit;
    event_be_closing closing;         /* the descriptor is about to be closed; may come after uninit */
    event_be_needs_split needs_split; /* not 0: a change comes as update(fd, old, 0) and update(fd, 0, new) */
} event_be;

/* Not 0 makes event_loop return. The application sets it; the library clears it, in event_loop_init only.
 * While it stays set event_loop returns at once. */
KUTIL_API extern int event_loop_quit;

/* event_loop_init sets up the loop: nothing is registered, the quit flag is cleared, SIGCHLD is handled,
 * SIGPIPE ignored. A loop that is still up, inherited through fork or not, is taken down first without
 * touching the other process; child records are dropped too. Failing system calls end the process with a
 * report; a clock of fewer than 100 ticks per second is a warn report. */
KUTIL_API void event_loop_init(void);

/* event_loop waits and calls callbacks until it ends: 0 when the quit flag is found set or a callback took
 * the loop down, 1 when nothing but the library's own registrations is left to wait for (or there is no
 * loop), -1 when waiting fails other than by a signal, after the err report "event_loop_single:
 * be->select()". May be called from a callback; the inner loop leaves events that were queued before it to
 * the outer one. */
KUTIL_API int event_loop(void);

/* event_loop_uninit takes the loop down: all descriptor, timer and signal registrations end, their signals
 * get the default action. Child watches and exit handlers stay. A second call does nothing. */
KUTIL_API void event_loop_uninit(void);

/* event_be_set chooses the back-end of the next event_loop_init, NULL for poll, and returns the previous
 * choice. The table is kept by address. A table with an empty field is refused with an err report. */
KUTIL_API const event_be *event_be_set(const event_be *back_end);

/* event_prof_set sets hooks that are called before and after each timer, child and stream callback; NULL for
 * none. */
KUTIL_API void event_prof_set(event_prof_hook pre, event_prof_hook post);

/* event_get_loop_now returns the loop's time in ms: the clock as it was read last at the top of an iteration
 * or before a wait. */
KUTIL_API double event_get_loop_now(void);

/* get_time_from_boot returns the clock now in ms: ticks since the process first asked, or the wall clock in
 * exact mode. A tick counter that wrapped is reported at info and counted on. */
KUTIL_API double get_time_from_boot(void);

/* _event_fd_set watches `fd` for each of `types`: callback(fd, data) is called as long as the descriptor is
 * in that state. One watcher per descriptor and type: another callback or data silently replaces the one that
 * is there; exactly the same registration again is the err report "event already exist: ...". A descriptor
 * below 0 or from 1,048,576 up is the err report "event_fd_set with bad fd ...". */
KUTIL_API void _event_fd_set(int fd, uint32_t types, event_fd_cb callback, void *data,
                             const event_debug_info *site);

/* __event_fd_set is _event_fd_set for one type; anything but one of the three bits is the err report of a bad
 * fd. */
KUTIL_API void __event_fd_set(int fd, uint32_t type, event_fd_cb callback, void *data,
                              const event_debug_info *site);

/* event_fd_clr removes, for each of `types`, the watcher with exactly this callback and data, and cancels the
 * queued event of that type of the descriptor. None: nothing happens. A negative descriptor is the err report
 * "event_fd_clr with bad fd ...". */
KUTIL_API void event_fd_clr(int fd, uint32_t types, event_fd_cb callback, void *data);

/* event_fd_close closes *fd and makes it -1; queued events of that number are cancelled. Its watchers stay:
 * remove them first. NULL or a negative descriptor: nothing happens. */
KUTIL_API void event_fd_close(int *fd);

/* event_feed queues an event of `type` for `fd`, to be dispatched after the next wait (event_wakeup_mainloop
 * ends that at once). Back-ends call it. A type without any of the three bits ends the process with a report.
 */
KUTIL_API void event_feed(uint32_t type, int fd);

/* event_call dispatches the queued event at `index`. The loop calls it. Deliberate: when a callback sets the
 * quit flag the event stays queued and is dispatched again until the callback's watcher is removed. An index
 * outside the queue: nothing happens. */
KUTIL_API void event_call(int index);

/* _event_timer_set calls callback(data) once, `ms` milliseconds after the clock as it reads now. A timer is
 * known by its callback and data: a pending one of the same pair is replaced. A negative time ends the
 * process with a report, NaN counts as 0. Up to one tick (10 ms) early, since the clock's tick is partly over
 * when it is read. */
KUTIL_API void _event_timer_set(double ms, event_timer_cb callback, void *data, const event_debug_info *site);

/* _event_timer_set_period is _event_timer_set repeated every `ms`, counted from the loop's time at each call,
 * so that delays add up and missed calls are not made up for. A period of 0 is a one-shot timer. */
KUTIL_API void _event_timer_set_period(double ms, event_timer_cb callback, void *data,
                                       const event_debug_info *site);

/* _event_timer_set_now is _event_timer_set with 0 ms: soon, but not from inside this call. */
KUTIL_API void _event_timer_set_now(event_timer_cb callback, void *data, const event_debug_info *site);

/* event_timer_del removes the timer of callback and data. Returns 0, or -1 when there is none. */
KUTIL_API int event_timer_del(event_timer_cb callback, void *data);

/* event_timer_exist returns 1 when a timer of callback and data is pending, else 0. */
KUTIL_API int event_timer_exist(event_timer_cb callback, void *data);

/* event_timer_left returns the ms from the loop's time to the expiry, negative when that is past, and -1.0
 * when there is no such timer. Deliberate: -1.0 is also a timer 1 ms overdue; ask event_timer_exist. */
KUTIL_API double event_timer_left(event_timer_cb callback, void *data);

/* event_timer_set_exact chooses the clock: not 0 the wall clock, 0 the ticks since boot (the start). Only
 * before timers are set: pending ones keep their expiry on the other clock. In exact mode the loop does not
 * sleep while a timer is pending, and steps of the date move the timers. */
KUTIL_API void event_timer_set_exact(int exact);

/* _event_signal_set calls callback(signo, data) from the loop, once for each delivery; lower signal numbers
 * first. An earlier registration of the signal is replaced. Returns what sigaction returned; -1 for a number
 * that is no signal; after -1 nothing is registered. */
KUTIL_API int _event_signal_set(int signo, event_signal_cb callback, void *data,
                                const event_debug_info *site);

/* _event_sigaction_set is _event_signal_set whose callback also gets the siginfo_t of the latest delivery,
 * valid during the call. */
KUTIL_API int _event_sigaction_set(int signo, event_sigaction_cb callback, void *data,
                                   const event_debug_info *site);

/* _event_signal_set_flags and _event_sigaction_set_flags also take the flags of sigaction (SA_RESTART ...).
 */
KUTIL_API int _event_signal_set_flags(int signo, event_signal_cb callback, void *data, int sa_flags,
                                      const event_debug_info *site);
KUTIL_API int _event_sigaction_set_flags(int signo, event_sigaction_cb callback, void *data, int sa_flags,
                                         const event_debug_info *site);

/* _event_sig_set_flags is both: `kind` is EVENT_SIG_PLAIN or EVENT_SIG_INFO and says what `callback` is cast
 * from. */
KUTIL_API int _event_sig_set_flags(int signo, event_any_cb callback, void *data, int sa_flags,
                                   const event_debug_info *site, int kind);

/* event_signal_del removes the registration of `signo`, with the deliveries that wait, and restores the
 * default action. None: nothing happens. */
KUTIL_API void event_signal_del(int signo);

/* event_sig_handle notes one delivery of `signo` and wakes the loop. The installed handler calls it; safe in
 * one. `info` is a siginfo_t or NULL. errno stays. */
KUTIL_API void event_sig_handle(int signo, void *info);

/* event_wakeup_mainloop ends the wait of the loop, or the next one. Safe in a signal handler; errno stays.
 * Without a loop: nothing happens. */
KUTIL_API void event_wakeup_mainloop(void);

/* _event_sigchild_set calls callback(pid, data, status) from the loop once the child `pid` ended; the watch
 * then ends. Watch a child before the loop runs again, or its end is only reported. Returns the watch, valid
 * until the callback returned or it was removed; NULL without a loop. */
KUTIL_API event_child *_event_sigchild_set(int pid, event_child_cb callback, void *data,
                                           const event_debug_info *site);

/* event_sigchild_del removes every watch of `pid`. With `kill_it` it also sends SIGKILL to `pid` and waits
 * until it is gone, unless pid is 0 or less. */
KUTIL_API void event_sigchild_del(int pid, int kill_it);

/* event_sigchild_enable and event_sigchild_disable unblock and block SIGCHLD. A failure ends the process. */
KUTIL_API void event_sigchild_enable(void);
KUTIL_API void event_sigchild_disable(void);

/* event_wait_for_child waits, blocking, for the child `pid` and writes its status word to *status unless that
 * is NULL. A watch of the child is called later all the same. Returns 0, or -1 when pid is 0 or less or no
 * child. */
KUTIL_API int event_wait_for_child(int pid, int *status);

/* event_atexit pushes a handler for event_exit and returns how many were ever pushed in this process. The
 * first one ever registers SIGHUP to call event_exit, as soon as there is a loop. After event_exit it ends
 * the process with a report. */
KUTIL_API int event_atexit(event_exit_cb callback, void *data);

/* event_exit removes the registration of SIGHUP, then calls the exit handlers, newest first, each once. It
 * does not end the process. */
KUTIL_API void event_exit(void);

/* The call-site forms. */
#define KUTIL_EVENT_SITE(cb_name)                                                                            \
    __extension__({                                                                                          \
        static const event_debug_info kutil_event_site = {cb_name, __func__, __FILE__, __LINE__};            \
        &kutil_event_site;                                                                                   \
    })
#define event_fd_set(fd, types, callback, data)                                                              \
    _event_fd_set(fd, types, callback, data, KUTIL_EVENT_SITE(#callback))
#define event_timer_set(ms, callback, data) _event_timer_set(ms, callback, data, KUTIL_EVENT_SITE(#callback))
#define event_timer_set_period(ms, callback, data)                                                           \
    _event_timer_set_period(ms, callback, data, KUTIL_EVENT_SITE(#callback))
#define event_timer_set_now(callback, data) _event_timer_set_now(callback, data, KUTIL_EVENT_SITE(#callback))
#define event_signal_set(signo, callback, data)                                                              \
    _event_signal_set(signo, callback, data, KUTIL_EVENT_SITE(#callback))
#define event_sigaction_set(signo, callback, data)                                                           \
    _event_sigaction_set(signo, callback, data, KUTIL_EVENT_SITE(#callback))
#define event_signal_set_flags(signo, callback, data, sa_flags)                                              \
    _event_signal_set_flags(signo, callback, data, sa_flags, KUTIL_EVENT_SITE(#callback))
#define event_sigaction_set_flags(signo, callback, data, sa_flags)                                           \
    _event_sigaction_set_flags(signo, callback, data, sa_flags, KUTIL_EVENT_SITE(#callback))
#define event_sigchild_set(pid, callback, data)                                                              \
    _event_sigchild_set(pid, callback, data, KUTIL_EVENT_SITE(#callback))

KUTIL_END_DECLS

#endif
