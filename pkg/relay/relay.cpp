#include "relay.h"

#include "util/internal/report.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/resource.h>
#include <sys/socket.h>
#include <utility>

namespace relay
{

namespace
{

constexpr int kEntity = 31;
using kutil::kErr;
using kutil::kNotice;
using kutil::kWarn;

constexpr int kConnectMs = 10000;
constexpr int kReadSize = 16384;
// A peer that lost its power or its line is found out in about five minutes.
constexpr int kKeepIdleS = 120;
constexpr int kKeepIntervalS = 30;
constexpr int kKeepCount = 6;
// Descriptors of the process itself, and of the loop.
constexpr int kOwnDescriptors = 16;
constexpr rlim_t kMostDescriptors = 1048576; // that the loop takes

Session *session_of(const estream *es) { return static_cast<Session *>(estream_get_data(es)); }

// The owner's data of the two streams: told when a stream is closed, whatever closed it.
void on_client_gone(void *data, void *, event_any_cb)
{
    Session *session = static_cast<Session *>(data);
    session->pair->relay->forget(session, &session->client);
}

void on_server_gone(void *data, void *, event_any_cb)
{
    Session *session = static_cast<Session *>(data);
    session->pair->relay->forget(session, &session->server);
}

int on_client(estream *client, int)
{
    const eserver *server = static_cast<eserver *>(estream_get_data(client));
    Pair *pair = static_cast<Pair *>(eserver_get_data(server));
    return pair->relay->take(pair, client);
}

int on_server(estream *server, int ok)
{
    Session *session = session_of(server);
    if (ok)
        return session->pair->relay->join(session);
    int error = 0;
    socklen_t length = sizeof(error);
    getsockopt(estream_fd_get(server), SOL_SOCKET, SO_ERROR, &error, &length);
    Relay::fail(session, error != 0 ? error : ETIMEDOUT);
    return 0;
}

int count_bytes(void *counter, char **, int *length)
{
    *static_cast<uint64_t *>(counter) += static_cast<uint64_t>(*length);
    return 0;
}

void on_drained(void *data) { static_cast<Relay *>(data)->end_now(); }

// Where a server really listens: the system may have chosen the port.
Endpoint real_endpoint(const Pair &pair)
{
    Endpoint real = pair.listen;
    sockaddr_storage name = {};
    socklen_t length = sizeof(name);
    auto *at = reinterpret_cast<sockaddr *>(&name);
    if (getsockname(eserver_fd_get(pair.server, 0), at, &length) == 0)
        sockaddr_get_port(at, &real.port);
    return real;
}

} // namespace

Relay::~Relay()
{
    event_timer_del(on_drained, this);
    end_now();
}

// As many descriptors as the process may have; two for each connection.
bool Relay::raise_limit()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    const rlim_t wanted = std::min(limit.rlim_max, kMostDescriptors);
    if (limit.rlim_cur < wanted) {
        limit.rlim_cur = wanted;
        setrlimit(RLIMIT_NOFILE, &limit);
        getrlimit(RLIMIT_NOFILE, &limit);
    }
    const int usable = static_cast<int>(std::min(limit.rlim_cur, kMostDescriptors));
    const int room = std::max((usable - kOwnDescriptors - pair_count_) / 2, 1);
    max_ = options_.max > 0 ? options_.max : room;
    if (max_ > room)
        zel_error_full(kEntity, kWarn, "relay: --max %d: there are descriptors for %d", max_, room);
    return true;
}

bool Relay::listen()
{
    pair_count_ = options_.word_count / 2;
    pairs_.reset(
        static_cast<Pair *>(zalloc_e(kutil::mul_sizes(static_cast<size_t>(pair_count_), sizeof(Pair)))));
    if (!raise_limit())
        max_ = options_.max > 0 ? options_.max : INT_MAX;
    for (int i = 0; i < pair_count_; i++) {
        Pair &pair = pairs_.get()[i];
        pair.relay = this;
        kutil::common::read_endpoint(options_.words[2 * i], &pair.listen);
        kutil::common::read_endpoint(options_.words[2 * i + 1], &pair.connect);
        pair.server = eserver_open_addr(pair.listen.address, pair.listen.port,
                                        ESTREAM_HALF_CLOSE | ESTREAM_V6ONLY, on_client, &pair);
        if (!pair.server) {
            zel_error_full(kEntity, kErr, "relay: cannot listen on %s", options_.words[2 * i]);
            return false;
        }
        // Clients that come all at once shall not have to knock twice.
        ::listen(eserver_fd_get(pair.server, 0), SOMAXCONN);
        zel_error_full(kEntity, kNotice, "relay: listening on %s", EndpointText(real_endpoint(pair)).text());
    }
    return true;
}

int Relay::take(Pair *pair, estream *client)
{
    pair->accepted++;
    if (open_ >= max_) {
        pair->refused++;
        return 1;
    }
    // The server's hold on the stream goes, so that closing the server leaves it open.
    estream_pop(client);
    Session *session = kutil::new_record<Session>();
    *session = {sessions_, &sessions_, pair, client, nullptr, false};
    if (session->next)
        session->next->place = &session->next;
    sessions_ = session;
    open_++;
    pair->open++;
    estream_set_data(client, session, on_client_gone);

    estream *server =
        estream_connect_tcp_ex(ESTREAM_HALF_CLOSE, on_server, pair->connect.address, pair->connect.port);
    if (!server) {
        fail(session, errno);
        return 0;
    }
    session->server = server;
    estream_set_data(server, session, on_server_gone);
    estream_set_timeout(server, kConnectMs, nullptr);
    return 0;
}

int Relay::join(Session *session)
{
    session->joined = true;
    for (estream *es : {session->client, session->server}) {
        estream_set_timeout(es, options_.idle_s * 1000, nullptr);
        estream_set_tcp_keepalive(es, kKeepIdleS, kKeepIntervalS, kKeepCount);
    }
    estream_throttle_opt from_client = {
        kReadSize, options_.high_water, 0, count_bytes, nullptr, &session->pair->bytes_to_server};
    estream_throttle_opt from_server = from_client;
    from_server.filter_data = &session->pair->bytes_to_client;
    estream_throttle(session->client, &from_client, session->server, &from_server);
    return 0;
}

void Relay::fail(Session *session, int error)
{
    session->pair->failed++;
    zel_error_full(kEntity, kWarn, "relay: cannot connect to %s: %s",
                   EndpointText(session->pair->connect).text(), strerror(error));
    estream_close(session->client);
}

// One half of a session is gone. Before the two are joined the other goes too.
void Relay::forget(Session *session, estream **end)
{
    *end = nullptr;
    estream *other = session->client ? session->client : session->server;
    if (other) {
        if (!session->joined)
            estream_close(other); // comes back here
        return;
    }
    *session->place = session->next;
    if (session->next)
        session->next->place = session->place;
    open_--;
    session->pair->open--;
    free(session);
    if (stopping_ && open_ == 0)
        event_loop_quit = 1;
}

void Relay::close_servers()
{
    for (int i = 0; i < pair_count_; i++)
        eserver_close(std::exchange(pairs_.get()[i].server, nullptr));
}

void Relay::stop()
{
    if (stopping_) {
        end_now();
        return;
    }
    stopping_ = true;
    close_servers();
    if (open_ == 0)
        event_loop_quit = 1;
    else
        event_timer_set(options_.drain_s * 1000.0, on_drained, this);
}

void Relay::end_now()
{
    stopping_ = true;
    close_servers();
    cut_ += open_;
    while (Session *session = sessions_) {
        estream *es = session->client ? session->client : session->server;
        if (session->joined)
            estream_throttle_finish_now(es);
        else
            estream_close(es);
    }
    event_loop_quit = 1;
}

void Relay::report_counters() const
{
    for (int i = 0; i < pair_count_; i++) {
        const Pair &pair = pairs_.get()[i];
        const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
        zel_error_full(
            kEntity, kNotice,
            "relay: %s %s: accepted %llu, open %llu, refused %llu, failed %llu, bytes to the server "
            "%llu, to clients %llu",
            EndpointText(pair.listen).text(), EndpointText(pair.connect).text(), number(pair.accepted),
            number(pair.open), number(pair.refused), number(pair.failed), number(pair.bytes_to_server),
            number(pair.bytes_to_client));
    }
}

} // namespace relay
