#include "connection.h"

#include "daemon.h"

namespace mgmtd
{

// Keeps the object while one of its functions runs.
struct Connection::Busy {
    explicit Busy(Connection *c) : connection(c) { connection->busy_++; }
    Busy(const Busy &) = delete;
    Busy &operator=(const Busy &) = delete;
    ~Busy()
    {
        if (--connection->busy_ == 0 && connection->closed_)
            connection->kind_->destroy(connection);
    }
    Connection *connection;
};

Connection::Connection(Daemon *daemon, estream *stream)
    : daemon_(daemon), stream_(stream), peer_(estream_peer_addr_get(stream)),
      peer_text_(kutil::copy_text(kutil::view(iaddr2str(&peer_))))
{
}

bool Connection::start(const Kind *kind)
{
    kind_ = kind;
    if (!daemon_->add(this)) {
        kind_->destroy(this);
        return false;
    }
    estream_set_func(stream_, stream_called);
    estream_set_half_close(stream_, input_ended);
    estream_set_data(stream_, this, released);
    return true;
}

void Connection::close()
{
    if (!closed_)
        estream_close(stream_);
}

void Connection::close_if_idle()
{
    const Busy busy(this);
    if (!closed_ && kind_->is_idle(this))
        close();
}

int Connection::stream_called(estream *stream, char *bytes, int length)
{
    Connection *self = static_cast<Connection *>(estream_get_data(stream));
    const Busy busy(self);
    if (bytes)
        self->kind_->input(self, bytes, length);
    else
        self->kind_->drained(self);
    return 0;
}

int Connection::input_ended(estream *stream)
{
    Connection *self = static_cast<Connection *>(estream_get_data(stream));
    const Busy busy(self);
    self->kind_->input_ended(self);
    return 0;
}

void Connection::deadline_passed(void *data)
{
    Connection *self = static_cast<Connection *>(data);
    const Busy busy(self);
    self->kind_->deadline(self);
}

void Connection::released(void *data, void *, event_any_cb)
{
    Connection *self = static_cast<Connection *>(data);
    const Busy busy(self);
    self->closed_ = true;
    self->disarm();
    self->daemon_->remove(self);
}

} // namespace mgmtd
