#ifndef RELAY_RELAY_H
#define RELAY_RELAY_H

#include "options.h"
#include "util/eserver.h"
#include "util/internal/heap.h"

namespace relay
{

// One LISTEN and its CONNECT.
struct Pair {
    Endpoint listen;
    Endpoint connect;
    eserver *server;
    class Relay *relay;

    uint64_t accepted;
    uint64_t refused; // more than there may be
    uint64_t failed;  // CONNECT did not answer
    uint64_t open;
    uint64_t bytes_to_server;
    uint64_t bytes_to_client;
};

// One client and the connection made for it. Each stream owns one half; the second one that goes ends it.
struct Session {
    Session *next;
    Session **place; // what points here
    Pair *pair;
    estream *client;
    estream *server;
    bool joined;
};

// All that the process does. Lives as long as its loop.
class Relay
{
public:
    explicit Relay(const Options &options) : options_(options) {}
    ~Relay();
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;

    // False, after a report, when one LISTEN cannot be had.
    bool listen();
    // Takes no more connections; the loop ends with the last one, or when the drain time is over. Called
    // again: ends at once.
    void stop();
    void end_now();
    void report_counters() const;
    bool cut_off() const { return cut_ > 0; }

    // For the callbacks of streams.
    int take(Pair *pair, estream *client);
    int join(Session *session);
    static void fail(Session *session, int error);
    void forget(Session *session, estream **end);

private:
    bool raise_limit();
    void close_servers();

    const Options options_;
    kutil::Heap<Pair> pairs_;
    int pair_count_ = 0;
    Session *sessions_ = nullptr;
    int open_ = 0;
    int max_ = 0;
    int cut_ = 0;
    bool stopping_ = false;
};

} // namespace relay

#endif
