#include "internal/big_endian.h"
#include "internal/estream.h"
#include "internal/formatted.h"
#include "internal/report.h"
#include "internal/text_builder.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

// Output: the buffer, what fills it, and the engine that sends it.

using namespace kutil;

namespace
{

// A write hook does not write to its own stream: its bytes lie where that would put others.
bool takes_output(const estream *es) { return is_open(es) && !es->in_write_hook; }

int send_some(estream *es, const char *bytes, int count)
{
    if (es->tls)
        return es->tls->write(es, bytes, count);
    const auto size = static_cast<size_t>(count);
    if (!es->plain_write) {
        const auto sent = static_cast<int>(send(es->fd, bytes, size, MSG_NOSIGNAL));
        if (sent >= 0 || errno != ENOTSOCK)
            return sent;
        es->plain_write = true;
    }
    return static_cast<int>(write(es->fd, bytes, size));
}

// Returns false when the stream is to be left alone: more to send later, or closed.
bool send_output(estream *es)
{
    errno = 0;
    const int sent = send_some(es, es->out.first(), es->out.count());
    es->error = sent < 1 ? errno : 0;
    if (sent > 0) {
        es->out.start += sent;
        return es->out.count() == 0;
    }
    if (sent == 0)
        zel_error_full(kEntity, kErr, "estream: socket %d: connection closed", es->fd);
    else if (es->error == EAGAIN || es->error == EINTR)
        return false;
    else
        zel_error_full(kEntity, kErr, "estream: socket %d: failed write() %s", es->fd, strerror(es->error));
    estream_close(es);
    return false;
}

bool holds(const StreamBuffer &buffer, const void *address)
{
    const auto first = reinterpret_cast<uintptr_t>(buffer.bytes());
    const auto at = reinterpret_cast<uintptr_t>(address);
    return buffer.block && at >= first && at - first < static_cast<uintptr_t>(buffer.capacity());
}

int write_view(estream *es, View text)
{
    if (text.size() > INT_MAX)
        return zel_error_full(kEntity, kErr, "estream: socket %d: output of %zu bytes", estream_fd_get(es),
                              text.size());
    return estream_write(es, text.data(), static_cast<int>(text.size()));
}

int filtered_length(estream *es, int n)
{
    n = std::clamp(n, 0, es->out.room());
    if (!es->write_hook.func)
        return n;
    es->in_write_hook = true;
    const int passed = es->write_hook.func(es->write_hook.data, es->out.behind(), n);
    es->in_write_hook = false;
    return es->closing ? 0 : std::clamp(passed, 0, es->out.room());
}

} // namespace

namespace kutil
{

int stream_notify_written(estream *es)
{
    const estream_cb callback = es->owner.callback;
    // One that itself writes nothing would be told for ever.
    if (!callback || es->in_notice)
        return 0;
    es->in_notice = true;
    const ProfiledCall profiled(callback, es->owner.site);
    const int result = callback(es, nullptr, 0);
    es->in_notice = false;
    return result;
}

void stream_on_writable(int, void *data)
{
    auto *es = static_cast<estream *>(data);
    if (es->closing)
        return;
    if (es->depth > 0) {
        stream_unwatch(es, kEventTypes);
        return;
    }
    const Nesting nesting(es); // leaving re-registers
    if (es->out.count() == 0 || !send_output(es))
        return;
    es->out.start = es->out.end = 0;
    const int result = stream_notify_written(es);
    if (es->closing || result == 0)
        return;
    zel_error_full(kEntity, kDebug, "estream_write_efd %d: write_func %s (rc=%d)", es->fd,
                   how_refused(result), result);
    estream_close(es);
}

} // namespace kutil

int estream_write_alloc(estream *es, int n)
{
    if (!takes_output(es))
        return -1;
    if (n <= es->out.room())
        return 0;
    int capacity = 0;
    if (es->out.count() <= es->out.capacity() - n) {
        if (!es->out_pinned) {
            stream_compact(&es->out);
            return 0;
        }
        capacity = es->out.capacity();
    } else {
        const int64_t needed = std::max<int64_t>(int64_t{n} + es->out.end, kLeastCapacity);
        const int64_t raised = needed > kLeastCapacity ? needed + needed / 2 : needed;
        capacity = static_cast<int>(std::min<int64_t>(raised, INT_MAX));
        if (needed > INT_MAX)
            return zel_error_full(kEntity, kErr, "%s:%d: failed allocating buffer %d", __func__, __LINE__, n);
    }
    if (stream_replace_block(es, &es->out, capacity))
        return 0;
    return zel_error_full(kEntity, kErr, "%s:%d: failed allocating buffer %d", __func__, __LINE__, capacity);
}

char *estream_get_write_buf(estream *es) { return is_open(es) ? es->out.behind() : nullptr; }

int estream_get_write_buf_len(const estream *es) { return is_open(es) ? es->out.room() : 0; }

int estream_write0(estream *es, int n)
{
    if (!takes_output(es))
        return -1;
    const Nesting nesting(es); // leaving re-registers
    es->changed = true;
    const int length = filtered_length(es, n);
    if (es->closing)
        return 0;
    es->out.end += length;
    if (es->out.count() == 0)
        es->out.start = es->out.end = 0;
    es->notice_due = es->notice_due || length > 0;
    if (es->out.end != 0)
        return 0;
    const int result = stream_notify_written(es);
    if (es->closing || result == 0)
        return 0;
    zel_error_full(kEntity, kDebug, "estream: socket %d: write_func %s (rc=%d)", es->fd, how_refused(result),
                   result);
    estream_close(es);
    return 0;
}

int estream_write(estream *es, const void *buffer, int len)
{
    if (!takes_output(es))
        return -1;
    if (len == -1)
        return write_view(es, view(static_cast<const char *>(buffer)));
    if (len < 0 || (len > 0 && !buffer))
        return -1;
    const Nesting nesting(es); // a replaced block that holds `buffer` stays until then
    if (len > 0) {
        const bool was_pinned = std::exchange(es->out_pinned, holds(es->out, buffer));
        const int failed = estream_write_alloc(es, len);
        es->out_pinned = was_pinned;
        if (failed) {
            estream_close(es);
            return -1;
        }
        memmove(es->out.behind(), buffer, static_cast<size_t>(len));
    }
    estream_write0(es, len);
    return 0;
}

int estream_printf(estream *es, const char *format, ...)
{
    if (!takes_output(es))
        return -1;
    va_list values;
    va_start(values, format);
    const Formatted formatted(format, values);
    va_end(values);
    return formatted.failed() ? -1 : write_view(es, formatted.text());
}

int estream_write_str(estream *es, const char *text) { return write_view(es, view(text)); }

int estream_write_strn(estream *es, const char *text, int n)
{
    const size_t most = n > 0 ? static_cast<size_t>(n) : 0;
    return write_view(es, View(text_or_empty(text), text ? strnlen(text, most) : 0));
}

int estream_write_str_replace(estream *es, const char *text, const char *from, const char *to)
{
    if (!takes_output(es))
        return -1;
    const View wanted = view(from);
    View rest = view(text);
    if (wanted.empty())
        return write_view(es, rest);
    TextBuilder built;
    while (const char *at = find(rest, wanted)) {
        built.append(sub(rest, 0, static_cast<size_t>(at - rest.data())));
        built.append(view(to));
        rest = sub(rest, static_cast<size_t>(at - rest.data()) + wanted.size());
    }
    built.append(rest);
    return write_view(es, built.text());
}

int estream_write_u8(estream *es, uint8_t value) { return estream_write(es, &value, 1); }

int estream_write_u16(estream *es, uint16_t value)
{
    const uint8_t bytes[] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    return estream_write(es, bytes, sizeof(bytes));
}

int estream_write_u32(estream *es, uint32_t value)
{
    uint8_t bytes[4];
    store_be32(bytes, value);
    return estream_write(es, bytes, sizeof(bytes));
}

int estream_pending_write(const estream *es) { return is_open(es) ? es->out.count() : 0; }
