#include "internal/estream.h"
#include "internal/report.h"

#include <algorithm>
#include <utility>

using namespace kutil;

namespace
{

bool collects(const estream *es) { return is_open(es) && is_null_stream(es); }

} // namespace

namespace kutil
{

void stream_on_null_notice(void *data)
{
    auto *es = static_cast<estream *>(data);
    // While a callback runs the notice stays due, and leaving sets the timer again.
    if (es->closing || es->depth > 0)
        return;
    const Nesting nesting(es);
    if (!std::exchange(es->notice_due, false) || es->out.count() == 0)
        return;
    const int result = stream_notify_written(es);
    if (es->closing || result == 0)
        return;
    zel_error_full(kEntity, kDebug, "estream: socket %d: write_func %s (rc=%d)", es->fd, how_refused(result),
                   result);
    estream_close(es);
}

} // namespace kutil

estream *estream_null(void) { return stream_new(-1, ESTREAM_NULL_STREAM); }

char *estream_null_output_get(const estream *es) { return collects(es) ? es->out.first() : nullptr; }

int estream_null_output_len_get(const estream *es) { return collects(es) ? es->out.count() : 0; }

int estream_null_output_ack(estream *es, int n)
{
    if (!collects(es))
        return 0;
    if (n > es->out.count())
        zel_error_full(kEntity, kWarn, "estream null len was acked more then its len");
    es->out.start += std::clamp(n, 0, es->out.count());
    // While a write hook runs, the bytes that it was given lie behind the end.
    if (es->out.count() == 0 && !es->in_write_hook)
        es->out.start = es->out.end = 0;
    return es->out.count();
}
