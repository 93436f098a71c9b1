#include "event.h"

#include "internal/errno_scope.h"
#include "internal/event.h"
#include "internal/fd.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "internal/signal_block.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

// A handler counts a delivery in the signal's record and writes a byte into a pipe that the loop watches; the
// loop calls the registered callback later. The handler walks the list of records, so it changes only while
// all signals are blocked.

using namespace kutil;

namespace
{

constexpr int kMostWakeups = 2; // bytes in the pipe: a handler never finds it full
constexpr size_t kInfoBytes = std::min(kSignalInfoSize, sizeof(siginfo_t));

// The record of `signo`, or the first of a higher number, or the end.
SignalRecord **link_of(int signo)
{
    SignalRecord **link = &loop.signals;
    while (*link && (*link)->signo < signo)
        link = &(*link)->next;
    return link;
}

void on_signal(int signo, siginfo_t *info, void *) { event_sig_handle(signo, info); }

int set_action(int signo, int flags, void (*handler)(int, siginfo_t *, void *))
{
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = flags;
    if (handler)
        action.sa_sigaction = handler;
    else
        action.sa_handler = SIG_DFL;
    return sigaction(signo, &action, nullptr);
}

void remove_record(SignalRecord **link)
{
    const SignalBlock block;
    const Heap<SignalRecord> record(*link);
    *link = record->next;
    loop.registrations--;
}

void insert_record(int signo, event_any_cb callback, void *data, const event_debug_info *site, int kind)
{
    auto *record = std::construct_at(new_record<SignalRecord>());
    record->signo = signo;
    record->kind = kind;
    record->site = site;
    record->callback = callback;
    record->data = data;
    const SignalBlock block;
    SignalRecord **link = link_of(signo);
    record->next = *link;
    *link = record;
    loop.registrations++;
}

void call(const SignalRecord *record)
{
    const event_any_cb callback = record->callback;
    if (!callback)
        return;
    if (record->kind == EVENT_SIG_PLAIN) {
        reinterpret_cast<event_signal_cb>(callback)(record->signo, record->data);
        return;
    }
    // A copy, since the next delivery overwrites the record and the callback may free it.
    alignas(8) unsigned char info[kSignalInfoSize];
    {
        const SignalBlock block;
        memcpy(info, record->info, sizeof(info));
    }
    reinterpret_cast<event_sigaction_cb>(callback)(record->signo, info, record->data);
}

void on_wakeup(int fd, void *)
{
    char byte = 0;
    ssize_t count = 0;
    do
        count = read(fd, &byte, 1);
    while (count < 0 && errno == EINTR);
    if (count == 1) {
        // A child that has not set up its own loop yet may have written a byte that is not counted here.
        if (--loop_signals.wakeups < 0)
            loop_signals.wakeups = 0;
        return;
    }
    // Or it may have taken one.
    if (count < 0 && errno == EAGAIN) {
        loop_signals.wakeups = 0;
        return;
    }
    zel_error_full(kEntity, kFatalEmerg, "cant read for socket properly");
}

} // namespace

namespace kutil
{

constinit LoopSignals loop_signals = {};

void wakeup_init()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
        zel_error_full(kEntity, kFatalEmerg, "cant create pipe");
        return;
    }
    loop_signals.wake_read = ends[0];
    loop_signals.wake_write = ends[1];
    loop_signals.wakeups = 0;
    loop_signals.arrived = 0;
    loop_signals.up = 1;
    loop.own_active = 1;
    event_fd_set_library(ends[0], EVENT_READ, on_wakeup, nullptr, nullptr);
}

void wakeup_stop() { event_fd_clr(loop_signals.wake_read, EVENT_READ, on_wakeup, nullptr); }

void wakeup_close()
{
    event_fd_close(&loop_signals.wake_read);
    event_fd_close(&loop_signals.wake_write);
    // Deliberate: 0 and not -1. Nothing uses them while there is no loop.
    loop_signals.wake_read = loop_signals.wake_write = 0;
}

void signals_free()
{
    while (loop.signals)
        event_signal_del(loop.signals->signo);
}

void run_arrived_signals(uint32_t generation)
{
    if (!loop_signals.arrived.exchange(0))
        return;
    for (SignalRecord *record = loop.signals; record;) {
        if (record->deliveries == 0) {
            record = record->next;
            continue;
        }
        record->deliveries--;
        call(record);
        if (!same_loop(generation))
            return;
        // The callback may have changed the list.
        record = loop.signals;
    }
}

} // namespace kutil

int _event_sig_set_flags(int signo, event_any_cb callback, void *data, int sa_flags,
                         const event_debug_info *site, int kind)
{
    if (signo < 1 || signo >= NSIG || !loop_is_up_for("event_signal_set"))
        return -1;
    event_signal_del(signo);
    insert_record(signo, callback, data, site, kind);
    const int result = set_action(signo, sa_flags | SA_SIGINFO, on_signal);
    if (result < 0)
        remove_record(link_of(signo));
    return result;
}

int _event_signal_set_flags(int signo, event_signal_cb callback, void *data, int sa_flags,
                            const event_debug_info *site)
{
    return _event_sig_set_flags(signo, reinterpret_cast<event_any_cb>(callback), data, sa_flags, site,
                                EVENT_SIG_PLAIN);
}

int _event_sigaction_set_flags(int signo, event_sigaction_cb callback, void *data, int sa_flags,
                               const event_debug_info *site)
{
    return _event_sig_set_flags(signo, reinterpret_cast<event_any_cb>(callback), data, sa_flags, site,
                                EVENT_SIG_INFO);
}

int _event_signal_set(int signo, event_signal_cb callback, void *data, const event_debug_info *site)
{
    return _event_signal_set_flags(signo, callback, data, 0, site);
}

int _event_sigaction_set(int signo, event_sigaction_cb callback, void *data, const event_debug_info *site)
{
    return _event_sigaction_set_flags(signo, callback, data, 0, site);
}

void event_signal_del(int signo)
{
    if (!event_loop_is_up())
        return;
    SignalRecord **link = link_of(signo);
    if (!*link || (*link)->signo != signo)
        return;
    set_action(signo, 0, nullptr);
    remove_record(link);
}

void event_sig_handle(int signo, void *info)
{
    loop_signals.arrived = 1;
    for (SignalRecord *record = loop.signals; record; record = record->next) {
        if (record->signo != signo)
            continue;
        record->deliveries++;
        if (info && record->kind != EVENT_SIG_PLAIN)
            memcpy(record->info, info, kInfoBytes);
    }
    event_wakeup_mainloop();
}

void event_wakeup_mainloop(void)
{
    if (!event_loop_is_up() || loop_signals.wakeups >= kMostWakeups)
        return;
    const ErrnoScope keep_errno;
    ssize_t count = 0;
    do
        count = write(loop_signals.wake_write, "", 1);
    while (count < 0 && errno == EINTR);
    if (count == 1)
        loop_signals.wakeups++;
}
