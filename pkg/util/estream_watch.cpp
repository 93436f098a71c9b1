#include "internal/estream.h"
#include "internal/report.h"

#include <cmath>
#include <utility>

// What a stream has registered with the loop, kept in line with its state.

using namespace kutil;

namespace
{

constexpr uint32_t kTypes[] = {EVENT_READ, EVENT_WRITE, EVENT_EXCEPT};
// Long time-outs are not set again for every transfer.
constexpr int kLongTimeoutMs = 5000;
constexpr double kTimeoutSlackMs = 1000;

void on_timeout(void *data)
{
    auto *es = static_cast<estream *>(data);
    if (es->closing)
        return;
    zel_error_full(kEntity, kDebug, "estream: socket %d: timed out %d ms on %s", es->fd, es->timeout_ms,
                   es->connected ? "data" : "connect");
    es->deadline = 0;
    if (es->timeout_cb) {
        const Nesting nesting(es); // leaving starts the time-out again
        es->timeout_cb(es, nullptr, 0);
        return;
    }
    stream_abort_connect(es);
}

void delete_timeout(estream *es)
{
    event_timer_del(on_timeout, es);
    es->deadline = 0;
}

// Without the loop that they were in, registrations are gone.
void notice_new_loop(estream *es)
{
    if (std::exchange(es->loop_generation, loop.generation) == loop.generation)
        return;
    for (event_fd_cb &watch : es->watches)
        watch = nullptr;
    es->immediate_read = false;
    es->deadline = 0;
}

void register_connecting(estream *es)
{
    if (es->awaiting_connect && !es->watches[1]) {
        stream_watch(es, EVENT_WRITE, stream_on_connected);
        stream_watch(es, EVENT_EXCEPT, stream_on_connect_failed);
    }
    if (es->timeout_ms == 0) {
        delete_timeout(es);
        return;
    }
    event_timer_set(es->timeout_ms, on_timeout, es);
    es->deadline = kConnectDeadline;
}

void register_reading(estream *es)
{
    const bool wanted = es->request > 0 && !stream_is_stalled(es);
    const bool watched = es->watches[0] != nullptr;
    if (wanted && !watched) {
        stream_watch(es, EVENT_READ, stream_on_readable);
        stream_watch(es, EVENT_EXCEPT, stream_on_urgent);
    } else if (!wanted && watched) {
        stream_unwatch(es, kReadEvents);
    }
    const bool more = stream_is_ready(es) || (wanted && es->tls && es->tls->pending(es) > 0);
    if (!more || es->immediate_read)
        return;
    es->immediate_read = true;
    event_timer_set_now(stream_on_immediate_read, es);
}

void register_writing(estream *es)
{
    const bool wanted = es->out.count() > 0;
    const bool watched = es->watches[1] != nullptr;
    if (wanted && !watched)
        stream_watch(es, EVENT_WRITE, stream_on_writable);
    else if (!wanted && watched)
        stream_unwatch(es, EVENT_WRITE);
}

void register_timeout(estream *es)
{
    if (es->timeout_ms == 0 || (es->request == 0 && es->out.count() == 0)) {
        if (es->deadline != 0)
            delete_timeout(es);
        return;
    }
    const double deadline = event_get_loop_now() + es->timeout_ms;
    const bool long_and_close =
        es->timeout_ms >= kLongTimeoutMs && std::fabs(deadline - es->deadline) <= kTimeoutSlackMs;
    if (es->deadline != 0 && (es->in_dispatch || long_and_close))
        return;
    es->deadline = deadline;
    event_timer_set(es->timeout_ms, on_timeout, es);
}

} // namespace

namespace kutil
{

void stream_watch(estream *es, uint32_t types, event_fd_cb callback)
{
    stream_unwatch(es, types);
    for (int i = 0; i < 3; i++) {
        if (types & kTypes[i])
            es->watches[i] = callback;
    }
    event_fd_set_library(es->fd, types, callback, es, nullptr);
}

void stream_unwatch(estream *es, uint32_t types)
{
    for (int i = 0; i < 3; i++) {
        if ((types & kTypes[i]) && es->watches[i])
            event_fd_clr(es->fd, kTypes[i], std::exchange(es->watches[i], nullptr), es);
    }
}

void stream_reregister(estream *es)
{
    if (es->closing || es->depth > 0 || !event_loop_is_up())
        return;
    notice_new_loop(es);
    if (is_null_stream(es)) {
        if (es->notice_due && es->out.count() > 0)
            event_timer_set_now(stream_on_null_notice, es);
        return;
    }
    if (std::exchange(es->completion_due, false))
        event_timer_set_now(stream_on_completion_timer, es);
    if (!es->connected) {
        register_connecting(es);
        return;
    }
    if (es->changed)
        es->in_dispatch = false;
    register_reading(es);
    register_writing(es);
    register_timeout(es);
}

void stream_delete_timers(estream *es)
{
    event_timer_del(stream_on_completion_timer, es);
    event_timer_del(stream_on_immediate_read, es);
    event_timer_del(stream_on_null_notice, es);
    delete_timeout(es);
}

} // namespace kutil

void estream_set_timeout(estream *es, int ms, estream_cb callback)
{
    if (!is_open(es))
        return;
    es->timeout_cb = callback;
    es->timeout_ms = ms > 0 ? ms : 0;
    es->changed = true;
    stream_reregister(es);
}
