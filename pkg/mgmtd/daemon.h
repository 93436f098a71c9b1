#ifndef MGMTD_DAEMON_H
#define MGMTD_DAEMON_H

// The process: its configuration, its listeners, its connections, and what its signals do.

#include "common/endpoint.h"
#include "common/file_lock.h"
#include "connection.h"
#include "routes.h"
#include "throttle.h"
#include "util/eserver.h"

namespace mgmtd
{

// An address to listen on.
struct Endpoint : kutil::common::Endpoint {
    bool optional;      // a machine without this address goes without
    const char *option; // that named it
};

inline constexpr size_t kMaxEndpoints = 8;

struct Endpoints {
    Endpoint items[kMaxEndpoints];
    size_t count = 0;
};

struct Options {
    const char *file = nullptr;
    const char *pid_file = nullptr;
    const char *password_user = nullptr;
    bool read_only = false;
    bool foreground = true;
    bool http_given = false;
    bool line_given = false;
    Endpoints http;
    Endpoints line;
};

class Daemon
{
public:
    explicit Daemon(const Options &options) : options_(options), staged_(save, this) {}
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Takes the lock and loads the configuration. False with a problem.
    bool open(kutil::common::Problem *problem);
    // Stores a new password for the user. False with a problem.
    bool set_password(const char *user, const char *password, kutil::common::Problem *problem);
    // Listens; the loop is up. False with a problem.
    bool listen(kutil::common::Problem *problem);
    // Where it can be reached, one URL or address a line.
    void write_addresses(TextBuilder *out) const;
    void reload();
    // Ends the loop once the connections are done, at the latest after five seconds.
    void stop();
    // Closes what is left.
    void close();

    bool stopping() const { return stopping_; }
    Staged *staged() { return &staged_; }
    Throttle *throttle() { return &throttle_; }
    Stats *stats() { return &stats_; }
    LogRing *log() { return &log_; }
    Context context() { return {&staged_, &log_, &stats_}; }

    // Connections tell when they come and go. Returns false when there are too many.
    bool add(Connection *connection);
    void remove(Connection *connection);

private:
    static bool save(void *context, View text, kutil::common::Problem *problem);
    bool load(kutil::common::Problem *problem);
    bool open_server(const Endpoint &endpoint, estream_connect_cb accept, eserver **server,
                     kutil::common::Problem *problem);
    void append_addresses(TextBuilder *out, View scheme, eserver *const *servers, const Endpoints &on) const;

    Options options_;
    Staged staged_;
    LogRing log_;
    Stats stats_;
    Throttle throttle_;
    HeapText resolved_;
    kutil::common::FileLock lock_;
    eserver *http_[kMaxEndpoints] = {};
    eserver *line_[kMaxEndpoints] = {};
    Connection *first_ = nullptr;
    bool stopping_ = false;
    unsigned warned_full_ = 0;
};

} // namespace mgmtd

#endif
