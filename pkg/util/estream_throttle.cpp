#include "internal/estream.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <algorithm>
#include <sys/socket.h>
#include <utility>

// The relay: two streams, each written with what the other reads.

using namespace kutil;

namespace
{

struct Side {
    estream *stream; // valid until the side is released
    bool finished;   // waits only for the other's output
    bool released;   // the stream is no more the relay's
    bool input_ended;
    bool output_ended; // the peer was told that the other side's input ended
    estream_half_close_cb owners_half_close;
    estream_throttle_opt options;

    bool is(uint32_t flag) const { return (options.flags & flag) != 0; }
};

// The owner data of both streams. A side that is released is finished too.
struct Relay {
    Side sides[2];
    int users; // functions that are inside
    bool over;
};

// Keeps a relay that may end while its streams are called.
class Use
{
public:
    explicit Use(Relay *relay) : relay_(relay) { relay_->users++; }
    ~Use()
    {
        if (--relay_->users == 0 && relay_->over)
            free(relay_);
    }
    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;

private:
    Relay *relay_;
};

// The state of a stream that ends when its output is sent.
constexpr int kFinishing = 1;

template <int I>
void on_release(void *data, void *, event_any_cb);

// The relay that a stream is in, and on which side. NULL for strangers.
Relay *relay_of(const estream *es, int *side)
{
    if (!is_open(es))
        return nullptr;
    if (es->owner.release != on_release<0> && es->owner.release != on_release<1>)
        return nullptr;
    *side = es->owner.release == on_release<1>;
    return static_cast<Relay *>(es->owner.data);
}

void release(Side &side)
{
    if (std::exchange(side.released, true))
        return;
    if (!side.is(ESTREAM_THROTTLE_POP)) {
        estream_close(side.stream);
        return;
    }
    if (!side.is(ESTREAM_THROTTLE_MANUAL))
        estream_read_abort(side.stream);
    estream_set_half_close(side.stream, side.owners_half_close);
    estream_pop(side.stream);
}

// Ends the relay from one side; the other is waited for while it has output.
void finish(Relay *relay, Side &self, Side &other)
{
    self.finished = true;
    if (!other.finished) {
        estream_set_state(other.stream, kFinishing);
        // The notice that it is sent comes back here. What a null stream collects goes nowhere.
        if (estream_pending_write(other.stream) > 0 && !is_null_stream(other.stream))
            return;
        other.finished = true;
    }
    release(self);
    release(other);
    relay->over = true;
}

template <int I>
void on_release(void *data, void *, event_any_cb)
{
    Relay *relay = static_cast<Relay *>(data);
    Side &self = relay->sides[I];
    Side &other = relay->sides[1 - I];
    self.released = true;
    if (!other.finished)
        estream_read_abort(other.stream);
    if (self.finished)
        return;
    const Use use(relay);
    finish(relay, self, other);
}

// Tells the peer of `to` that nothing more comes, once all was sent.
void end_output(Relay *relay, Side &from, Side &to)
{
    if (estream_pending_write(to.stream) > 0 || std::exchange(to.output_ended, true))
        return;
    if (shutdown(estream_fd_get(to.stream), SHUT_WR) < 0 || from.output_ended)
        finish(relay, from, to);
}

bool passes_half_close(const Side &side)
{
    return (side.stream->flags & ESTREAM_HALF_CLOSE) && side.stream->connected && !side.stream->tls &&
           !side.is(ESTREAM_THROTTLE_POP);
}

int on_half_close(estream *es)
{
    int i;
    Relay *relay = relay_of(es, &i);
    if (!relay)
        return 0;
    const Use use(relay);
    Side &self = relay->sides[i];
    Side &other = relay->sides[1 - i];
    self.input_ended = true;
    if (self.finished || other.finished)
        return 0;
    if (passes_half_close(self) && passes_half_close(other))
        end_output(relay, self, other);
    else
        finish(relay, self, other);
    return 0;
}

// A request of the stream's owner is replaced.
void read(const Side &side)
{
    if (!side.input_ended && !side.is(ESTREAM_THROTTLE_MANUAL))
        estream_read_forever(side.stream, side.options.read_size);
}

void read_on(const Side &side)
{
    // A new request shows a full filter again what it left. The others leave nothing.
    if (side.options.full_filter || side.stream->type != ReadType::Forever)
        read(side);
}

int on_written(Relay *relay, Side &self, Side &other)
{
    if (estream_get_state(self.stream) == kFinishing)
        finish(relay, self, other);
    else if (other.finished)
        return 0;
    else if (other.input_ended)
        end_output(relay, other, self);
    else
        read_on(other);
    return 0;
}

int on_input(Side &self, Side &other, char *buffer, int length)
{
    if (other.released) {
        estream_read_ack(self.stream, length);
        return 0;
    }
    const estream_throttle_opt &options = self.options;
    int action = 0;
    if (options.full_filter) {
        action = options.full_filter(options.filter_data, &buffer, &length, estream_read_ack);
    } else {
        estream_read_ack(self.stream, length);
        if (options.filter)
            action = options.filter(options.filter_data, &buffer, &length);
    }
    if (self.released)
        return 0;
    if (action == ESTREAM_FILTER_FAIL)
        return -1;
    if (action == ESTREAM_FILTER_DROP || other.released)
        return 0;
    if (length != 0 && buffer && estream_write(other.stream, buffer, length) < 0)
        return self.released ? 0 : -1;
    if (!self.released && !other.released &&
        estream_pending_write(other.stream) > std::max(other.options.high_water, 0))
        estream_read_abort(self.stream);
    return 0;
}

int on_stream(estream *es, char *buffer, int length)
{
    int i;
    Relay *relay = relay_of(es, &i);
    if (!relay)
        return 0;
    const Use use(relay);
    Side &self = relay->sides[i];
    Side &other = relay->sides[1 - i];
    return buffer ? on_input(self, other, buffer, length) : on_written(relay, self, other);
}

// Borrows a stream. One that cannot be borrowed is a side that has ended.
void attach(Relay *relay, Side &side, estream_release_cb release_cb)
{
    if (estream_push(side.stream) != 0) {
        side.finished = side.released = true;
        estream_close(side.stream);
        return;
    }
    side.owners_half_close = side.stream->half_close;
    estream_set_data(side.stream, relay, release_cb);
    estream_set_state(side.stream, 0);
    estream_set_func(side.stream, on_stream);
    estream_set_half_close(side.stream, on_half_close);
}

void begin(const Side &self, const Side &other)
{
    if (self.finished || other.finished)
        return;
    read(self);
    // Its end of input is told once only, and that was before.
    if (!self.released && self.stream->half_closed)
        on_half_close(self.stream);
}

} // namespace

int estream_throttle(estream *a, const estream_throttle_opt *a_options, estream *b,
                     const estream_throttle_opt *b_options)
{
    if (a && a == b)
        return zel_error_full(kEntity, kErr, "estream_throttle: a stream cannot be joined with itself");
    const int a_fd = estream_fd_get(a);
    const int b_fd = estream_fd_get(b);
    Relay *relay = new_record<Relay>();
    const Use use(relay);
    Side &first = relay->sides[0];
    Side &second = relay->sides[1];
    first.stream = a;
    second.stream = b;
    first.options = a_options ? *a_options : estream_throttle_opt{};
    second.options = b_options ? *b_options : estream_throttle_opt{};
    attach(relay, first, on_release<0>);
    attach(relay, second, on_release<1>);
    if (first.released)
        finish(relay, first, second);
    else if (second.released)
        finish(relay, second, first);
    begin(first, second);
    begin(second, first);
    return zel_error_full(kEntity, kDebug, "estream_throttle %d<->%d", a_fd, b_fd);
}

int estream_throttle_finish(estream *es)
{
    int i;
    if (Relay *relay = relay_of(es, &i)) {
        const Use use(relay);
        finish(relay, relay->sides[i], relay->sides[1 - i]);
    }
    return 0;
}

int estream_throttle_finish_now(estream *es)
{
    int i;
    if (Relay *relay = relay_of(es, &i)) {
        const Use use(relay);
        relay->sides[1].finished = true;
        finish(relay, relay->sides[0], relay->sides[1]);
    }
    return 0;
}
