#include "internal/estream.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

#ifndef SIOCATMARK
#include <linux/sockios.h>
#endif

// Read requests, and the engine that fills and empties the input buffer.

using namespace kutil;

namespace
{

constexpr int kLineRequest = 1024;
constexpr int kLineLimit = 8192;
constexpr int kTextRequest = 1460;
constexpr int kTextLimit = 102400;
constexpr int kForeverRequest = 102400;

bool ends_at_terminator(const estream *es)
{
    return es->type == ReadType::Line || es->type == ReadType::Text;
}

bool keeps_what_is_shown(const estream *es)
{
    return es->type == ReadType::Partial || es->type == ReadType::Forever;
}

// A forever request is never complete.
bool is_complete(const estream *es) { return es->type != ReadType::Forever && es->in.count() >= es->request; }

// The position of the terminator among the bytes not yet searched, or -1. The next search begins where this
// one ended.
int find_terminator(estream *es)
{
    const char *bytes = es->in.first();
    const int count = es->in.count();
    const bool at_line_end = es->type == ReadType::Line;
    int i = es->scanned;
    while (i < count && bytes[i] != '\0' && !(at_line_end && bytes[i] == '\n'))
        i++;
    es->scanned = i;
    return i < count ? i : -1;
}

bool has_record(estream *es)
{
    if (es->in.count() == 0)
        return false;
    if (ends_at_terminator(es))
        return find_terminator(es) >= 0;
    return is_complete(es) || (keeps_what_is_shown(es) && es->in.count() > es->shown);
}

void remove_input(estream *es, int n)
{
    if (n <= 0)
        return;
    es->in.start += std::min(n, es->in.count());
    if (es->in.count() == 0)
        es->in.start = es->in.end = 0;
    es->scanned = 0;
    es->shown = std::min(es->shown, es->in.count());
}

int begin_request(estream *es, ReadType type, int size)
{
    const Nesting nesting(es); // leaving re-registers
    es->changed = true;
    es->type = type;
    es->scanned = 0;
    es->shown = 0;
    es->request = 0;
    if (es->in.capacity() < size) {
        const int capacity = std::max(size, kLeastCapacity);
        if (!stream_replace_block(es, &es->in, capacity)) {
            zel_error_full(kEntity, kErr, "estream: socket %d: failed allocating %d bytes", es->fd, capacity);
            estream_close(es);
            return -1;
        }
    }
    es->request = size;
    return 0;
}

int request_or_abort(estream *es, ReadType type, int n)
{
    if (!is_open(es))
        return -1;
    if (n > 0)
        return begin_request(es, type, n);
    estream_read_abort(es);
    return 0;
}

int request_up_to(estream *es, ReadType type, int size, int limit)
{
    if (!is_open(es))
        return -1;
    es->limit = limit;
    return begin_request(es, type, size);
}

// Callbacks and the hook may close the stream; the caller looks.
int deliver(estream *es, bool urgent, char *bytes, int length)
{
    int passed = length;
    if (es->read_hook.func) {
        passed = std::clamp(es->read_hook.func(es->read_hook.data, bytes, length), 0, length);
        if (es->closing || (length > 0 && passed == 0))
            return 0;
    }
    const bool to_urgent = urgent && es->urgent;
    const estream_cb callback = to_urgent ? es->urgent : es->owner.callback;
    if (!callback)
        return 0;
    const ProfiledCall profiled(callback, to_urgent ? es->urgent_site : es->owner.site);
    return callback(es, bytes, passed);
}

void close_refused(estream *es, int result)
{
    zel_error_full(kEntity, kInfo, "estream: socket %d read_func %s (rc=%d)", es->fd, how_refused(result),
                   result);
    estream_close(es);
}

void deliver_texts(estream *es, bool urgent)
{
    es->changed = false;
    es->in_dispatch = true;
    while (es->in.count() > 0) {
        const int end = find_terminator(es);
        if (end < 0)
            return;
        char *text = es->in.first();
        int length = end;
        if (text[end] == '\n') {
            length -= end > 0 && text[end - 1] == '\r';
            text[length] = '\0';
        }
        es->in_dispatch = false;
        es->scanned = 0;
        const int result = deliver(es, urgent, text, length);
        if (es->closing)
            return;
        remove_input(es, end + 1);
        if (result != 0) {
            close_refused(es, result);
            return;
        }
        if (es->changed)
            return;
    }
}

void deliver_bytes(estream *es, bool urgent)
{
    const bool complete = is_complete(es);
    const int length = complete ? es->request : es->in.count();
    es->shown = length;
    if (complete) {
        es->type = ReadType::None;
        es->request = 0;
        es->changed = true;
    }
    const int result = deliver(es, urgent, es->in.first(), length);
    if (es->closing)
        return;
    if (complete) {
        remove_input(es, length);
        es->shrink_due = (es->flags & ESTREAM_SHRINK) != 0;
    }
    if (result != 0)
        close_refused(es, result);
}

void end_of_input(estream *es)
{
    if (!(es->flags & ESTREAM_HALF_CLOSE)) {
        zel_error_full(kEntity, kDebug, "estream: socket %d: connection closed", es->fd);
        estream_close(es);
        return;
    }
    zel_error_full(kEntity, kDebug, "estream: socket %d: connection half closed", es->fd);
    estream_read_abort(es);
    if (!es->half_close || es->half_closed)
        return;
    es->half_closed = true;
    const int result = es->half_close(es);
    if (result != 0 && !es->closing)
        close_refused(es, result);
}

// Doubles a full buffer up to the request's limit. Returns false when the stream was closed for want of
// memory.
bool make_room(estream *es)
{
    stream_compact(&es->in);
    if (!ends_at_terminator(es) || es->in.room() > 0 || es->in.count() >= es->limit)
        return true;
    const int capacity = es->in.capacity() > es->limit / 2 ? es->limit : es->in.capacity() * 2;
    if (!stream_replace_block(es, &es->in, capacity)) {
        zel_error_full(kEntity, kErr, "estream: out of memory");
        estream_close(es);
        return false;
    }
    es->request = capacity;
    return true;
}

// Reads once. Returns false when nothing came: the stream may be closed then.
bool receive(estream *es)
{
    if (!make_room(es))
        return false;
    const int room = (ends_at_terminator(es) ? es->in.capacity() : es->request) - es->in.count();
    if (room <= 0)
        return false;
    errno = 0;
    char *to = es->in.behind();
    const int count =
        es->tls ? es->tls->read(es, to, room) : static_cast<int>(read(es->fd, to, static_cast<size_t>(room)));
    es->error = count < 1 ? errno : 0;
    if (count > 0) {
        es->in.end += count;
        return true;
    }
    if (count == 0) {
        end_of_input(es);
    } else if (es->error != EAGAIN && es->error != EINTR) {
        zel_error_full(kEntity, kWarn, "estream: Cannot read from fd %d %s(%d)", es->fd, strerror(es->error),
                       es->error);
        estream_close(es);
    }
    return false;
}

// Whether the descriptor still knows of urgent marks; what it answers does not matter.
bool can_be_urgent(estream *es)
{
    int at_mark = 0;
    if ((es->flags & ESTREAM_PLAIN) || ioctl(es->fd, SIOCATMARK, &at_mark) == 0)
        return true;
    zel_error_full(kEntity, kErr, "estream: socket %d: failed ioctl(SIOCATMARK) - %s", es->fd,
                   strerror(errno));
    estream_close(es);
    return false;
}

void run(estream *es, bool urgent)
{
    if (es->closing)
        return;
    if (es->depth > 0) {
        stream_unwatch(es, kEventTypes);
        return;
    }
    const Nesting nesting(es); // leaving re-registers
    if (es->request == 0 || (urgent && !can_be_urgent(es)))
        return;
    if (!has_record(es) && !receive(es))
        return;
    if (!stream_is_ready(es))
        return;
    if (ends_at_terminator(es))
        deliver_texts(es, urgent);
    else
        deliver_bytes(es, urgent);
}

} // namespace

namespace kutil
{

bool stream_is_ready(const estream *es)
{
    if (es->request == 0 || es->in.count() == 0)
        return false;
    if (ends_at_terminator(es))
        return es->scanned != es->in.count();
    return is_complete(es) || (keeps_what_is_shown(es) && es->in.count() > es->shown);
}

bool stream_is_stalled(const estream *es)
{
    if (stream_is_ready(es))
        return false;
    if (ends_at_terminator(es))
        return es->in.count() == es->in.capacity() && es->in.count() >= es->limit;
    return es->type == ReadType::Forever && es->in.count() >= es->request;
}

void stream_on_readable(int, void *data) { run(static_cast<estream *>(data), false); }

void stream_on_urgent(int, void *data) { run(static_cast<estream *>(data), true); }

void stream_on_immediate_read(void *data)
{
    auto *es = static_cast<estream *>(data);
    es->immediate_read = false;
    run(es, false);
}

} // namespace kutil

int estream_read(estream *es, int n) { return request_or_abort(es, ReadType::Bytes, n); }

int estream_read_partial(estream *es, int n) { return request_or_abort(es, ReadType::Partial, n); }

int estream_read_line(estream *es) { return request_up_to(es, ReadType::Line, kLineRequest, kLineLimit); }

int estream_read_null_terminated(estream *es)
{
    return request_up_to(es, ReadType::Text, kTextRequest, kTextLimit);
}

int estream_read_forever(estream *es, int n)
{
    const int size = n > 0 ? n : kForeverRequest;
    return request_up_to(es, ReadType::Forever, size, size);
}

void estream_read_abort(estream *es)
{
    if (!is_open(es))
        return;
    es->changed = true;
    es->type = ReadType::None;
    es->request = 0;
    es->scanned = 0;
    stream_reregister(es);
}

int estream_read_ack(estream *es, int n)
{
    if (!is_open(es) || es->type != ReadType::Forever)
        return -1;
    if (n < 1)
        return 0;
    remove_input(es, n);
    es->shown = 0;
    stream_reregister(es);
    return 0;
}

void estream_clear_input(estream *es)
{
    if (!is_open(es))
        return;
    remove_input(es, es->in.count());
    stream_reregister(es);
}

int estream_pending_read(estream *es)
{
    if (!is_open(es))
        return 0;
    if (es->in.count() > 0)
        return es->in.count();
    int waiting = 0;
    return es->fd >= 0 && ioctl(es->fd, FIONREAD, &waiting) == 0 ? waiting : 0;
}

int estream_get_read_req(const estream *es) { return es ? es->request : 0; }
