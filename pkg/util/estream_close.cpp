#include "internal/estream.h"
#include "internal/report.h"
#include "sock.h"

using namespace kutil;

int estream_close(estream *es)
{
    if (!is_open(es))
        return es ? 1 : 0;
    es->closing = true;
    zel_error_full(kEntity, kDebug, "estream: closing socket %d", es->fd);
    if (es->fd >= 0) {
        stream_unwatch(es, kEventTypes);
        if (es->flags & ESTREAM_OWN_FD)
            socket_close(es->fd);
    }
    stream_delete_timers(es);
    stream_release_owner(es);
    stream_release_hooks(es);
    if (es->tls)
        es->tls->close(es);
    // A callback that is running still has its buffer; leaving it frees the record.
    if (es->depth > 0)
        return 0;
    stream_free_buffers(es);
    event_free_later(stream_free_record, es);
    return 0;
}
