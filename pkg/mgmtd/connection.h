#ifndef MGMTD_CONNECTION_H
#define MGMTD_CONNECTION_H

// What connections of both protocols have in common: a stream, one deadline, a place in the daemon's list,
// and a life that ends with the stream, but never while one of its own functions runs.

#include "base.h"
#include "util/estream.h"
#include "util/event.h"

namespace mgmtd
{

class Daemon;

inline constexpr unsigned kMaxConnections = 400;
inline constexpr int kMaxPending = 64 * 1024; // bytes of output, before more requests are looked at

class Connection
{
public:
    Connection(Daemon *daemon, estream *stream);
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // The kind of connection, as functions.
    struct Kind {
        void (*input)(Connection *, char *, int);
        void (*drained)(Connection *);
        void (*input_ended)(Connection *);
        void (*deadline)(Connection *);
        bool (*is_idle)(const Connection *);
        void (*destroy)(Connection *);
    };
    // Begins to serve: the stream calls the connection from now on. False when it was closed at once.
    bool start(const Kind *kind);

    // Closes the stream; the object lives until no function of it runs.
    void close();
    void close_if_idle();
    bool closed() const { return closed_; }

    Connection *next = nullptr; // of the daemon's list
    Connection *previous = nullptr;

protected:
    // One timer; each call sets it anew.
    void arm(double ms) { event_timer_set(ms, deadline_passed, this); }
    void disarm() { event_timer_del(deadline_passed, this); }

    Daemon *daemon_;
    estream *stream_;
    iaddr peer_;
    HeapText peer_text_;

private:
    struct Busy;
    static int stream_called(estream *stream, char *bytes, int length);
    static int input_ended(estream *stream);
    static void released(void *data, void *, event_any_cb);
    static void deadline_passed(void *data);

    const Kind *kind_ = nullptr;
    int busy_ = 0;
    bool closed_ = false;
};

} // namespace mgmtd

#endif
