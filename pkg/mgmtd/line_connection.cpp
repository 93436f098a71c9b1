#include "line_connection.h"

#include "daemon.h"
#include "line_proto.h"

#include <memory>
#include <sys/socket.h>

namespace mgmtd
{

namespace
{

constexpr double kLoginMs = 60 * 1000;     // to log in
constexpr double kIdleMs = 15 * 60 * 1000; // between two commands
constexpr double kEndMs = 2 * 1000;
// How often a silent connection is looked at: a line that does not fit is never delivered.
constexpr double kLookMs = 5 * 1000;
constexpr int kMaxLine = 8192; // what a request for lines buffers

class LineConnection : public Connection
{
public:
    LineConnection(Daemon *daemon, estream *stream) : Connection(daemon, stream)
    {
        session_.address.reset(kutil::copy_text(peer_text_.get()));
    }
    ~LineConnection()
    {
        if (waiting_)
            daemon_->throttle()->leave();
    }

    void begin()
    {
        wait_for_line(kLoginMs);
        estream_read_line(stream_);
    }

    void input(const char *bytes, int length)
    {
        if (ending_) {
            estream_read_ack(stream_, length);
            return;
        }
        if (daemon_->stopping())
            return;
        daemon_->stats()->line_commands++;
        const bool slow = !session_.logged_in && daemon_->throttle()->is_slow(peer_, monotonic_ms());
        if (slow && daemon_->throttle()->is_full()) {
            write("error 429 too many failed logins\n");
            return end();
        }
        const int failures = session_.failures;
        const LineAnswer answer =
            run_line(daemon_->context(), &session_, View(bytes, static_cast<size_t>(length)), &out_);
        if (session_.failures > failures) {
            daemon_->stats()->logins_failed++;
            daemon_->throttle()->failed(peer_, monotonic_ms());
        }
        end_due_ = answer == LineAnswer::close;
        if (session_.failures > failures && slow && daemon_->throttle()->enter()) {
            waiting_ = true;
            estream_read_abort(stream_);
            return arm(Throttle::kWaitMs);
        }
        answer_now();
    }

    void drained()
    {
        if (ending_)
            return drop();
        if (paused_) {
            paused_ = false;
            estream_read_line(stream_);
        } else if (ended_ && estream_pending_read(stream_) == 0) {
            close();
        }
    }

    void input_ended()
    {
        ended_ = true;
        if (estream_pending_write(stream_) == 0 && !waiting_ && !paused_)
            close();
    }

    void deadline()
    {
        if (!waiting_)
            return look();
        waiting_ = false;
        daemon_->throttle()->leave();
        answer_now();
        if (!closed() && !ending_)
            estream_read_line(stream_);
    }

    bool is_idle() const { return estream_pending_write(stream_) == 0; }

private:
    void write(View text) { estream_write(stream_, text.data(), static_cast<int>(text.size())); }

    void wait_for_line(double ms)
    {
        left_ms_ = ms;
        arm(kLookMs);
    }

    void look()
    {
        left_ms_ -= kLookMs;
        if (ending_ || ended_ || left_ms_ <= 0)
            return close();
        arm(kLookMs);
        if (paused_ || estream_pending_read(stream_) < kMaxLine)
            return;
        write("error 413 the line is longer than 8 kB\n");
        end();
    }

    // The last answer is out. Closing with unread input would reset the connection, and could take it along.
    void drop()
    {
        if (ended_)
            return close();
        shutdown(estream_fd_get(stream_), SHUT_WR);
        estream_read_forever(stream_, kMaxLine);
    }

    void end()
    {
        if (closed()) // writing may have found the peer gone
            return;
        ending_ = true;
        estream_read_abort(stream_);
        arm(kEndMs);
    }

    void answer_now()
    {
        write(out_.text());
        std::destroy_at(&out_);
        std::construct_at(&out_);
        if (closed())
            return;
        if (end_due_)
            return end();
        if (ended_)
            arm(kEndMs);
        else
            wait_for_line(session_.logged_in ? kIdleMs : kLoginMs);
        if (estream_pending_write(stream_) > kMaxPending) {
            paused_ = true;
            estream_read_abort(stream_);
        }
    }

    LineSession session_;
    TextBuilder out_;
    double left_ms_ = 0; // until the next line must be there
    bool end_due_ = false;
    bool ending_ = false; // what is written is the last
    bool ended_ = false;  // the peer sends no more
    bool waiting_ = false;
    bool paused_ = false;
};

LineConnection *self(Connection *connection) { return static_cast<LineConnection *>(connection); }

constexpr Connection::Kind kLine = {
    [](Connection *c, char *bytes, int length) { self(c)->input(bytes, length); },
    [](Connection *c) { self(c)->drained(); },
    [](Connection *c) { self(c)->input_ended(); },
    [](Connection *c) { self(c)->deadline(); },
    [](const Connection *c) { return static_cast<const LineConnection *>(c)->is_idle(); },
    [](Connection *c) {
        std::destroy_at(self(c));
        free(c);
    },
};

} // namespace

int accept_line(estream *stream, int ok)
{
    Daemon *daemon =
        static_cast<Daemon *>(eserver_get_data(static_cast<eserver *>(estream_get_data(stream))));
    if (!ok || daemon->stopping())
        return -1;
    auto *connection = static_cast<LineConnection *>(malloc_e(sizeof(LineConnection)));
    std::construct_at(connection, daemon, stream);
    if (!connection->start(&kLine)) {
        estream_close(stream);
        return 0;
    }
    connection->begin();
    return 0;
}

} // namespace mgmtd
