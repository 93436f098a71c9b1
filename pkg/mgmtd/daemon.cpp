#include "daemon.h"

#include "common/durable_save.h"
#include "common/strict_load.h"
#include "http_connection.h"
#include "line_connection.h"
#include "util/conf_key.h"
#include "util/event.h"
#include "util/set_value.h"

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

namespace mgmtd
{

using kutil::common::Load;
using kutil::common::Problem;

namespace
{

constexpr double kStopMs = 5 * 1000;

void end_loop(void *) { event_loop_quit = 1; }

uint16_t bound_port(int fd, uint16_t asked)
{
    struct sockaddr_storage address = {};
    socklen_t length = sizeof(address);
    if (asked != 0 || getsockname(fd, reinterpret_cast<struct sockaddr *>(&address), &length) != 0)
        return asked;
    if (address.ss_family == AF_INET6) {
        struct sockaddr_in6 in6;
        memcpy(&in6, &address, sizeof(in6));
        return ntohs(in6.sin6_port);
    }
    struct sockaddr_in in;
    memcpy(&in, &address, sizeof(in));
    return ntohs(in.sin_port);
}

bool is_loopback(const iaddr &address)
{
    return iaddr_is_loopback(&address) || kutil::starts_with(iaddr2str(&address), "127.");
}

} // namespace

// --- The configuration.

bool Daemon::load(Problem *problem)
{
    set *tree = nullptr;
    kutil::common::FileText text;
    if (kutil::common::strict_load(resolved_.get(), &tree, &text, problem) != Load::done)
        return false;
    staged_.load(tree, kutil::common::has_dos_line_ends(text.view()));
    return true;
}

bool Daemon::open(Problem *problem)
{
    resolved_.reset(kutil::common::resolve_file(options_.file, problem));
    staged_.set_read_only(options_.read_only);
    stats_.started_ms = monotonic_ms();
    return resolved_ && lock_.take(resolved_.get(), problem) && load(problem);
}

bool Daemon::save(void *context, View text, Problem *problem)
{
    const Daemon *self = static_cast<Daemon *>(context);
    return kutil::common::durable_save(self->resolved_.get(), text, kutil::common::Owner::must_keep, problem);
}

bool Daemon::set_password(const char *user, const char *password, Problem *problem)
{
    set **entry = find_user(staged_.running(), user);
    if (!entry)
        return problem->set("%s: there is no enabled user %s", options_.file, shown(user));
    if (!*password)
        return problem->set("an empty password is none");
    if (set_set_path_obscured(entry, "password", password) != 0)
        return problem->set("%s: there is no key to obscure the password with", options_.file);
    return staged_.save(staged_.running(), problem);
}

// --- Listening.

bool Daemon::open_server(const Endpoint &endpoint, estream_connect_cb accept, eserver **server,
                         Problem *problem)
{
    // Accepted streams tell when the peer has sent everything: it may still wait for its answer.
    const uint32_t flags = ESTREAM_HALF_CLOSE | ESTREAM_V6ONLY;
    *server = eserver_open_addr(endpoint.address, endpoint.port, flags, accept, this);
    if (*server && !is_loopback(endpoint.address))
        zel_error_full(
            kEntity, kWarn,
            "listening on %s port %d: passwords and what is read cross the network as they are; put "
            "TLS or ssh in front",
            iaddr2str(&endpoint.address), endpoint.port);
    if (*server)
        return true;
    const int error = errno;
    if (endpoint.optional && (error == EADDRNOTAVAIL || error == EAFNOSUPPORT)) {
        zel_error_full(kEntity, kInfo, "not listening on %s port %d: the machine has no such address",
                       iaddr2str(&endpoint.address), endpoint.port);
        return true;
    }
    return problem->set("cannot listen on %s port %d (option %s): %s", iaddr2str(&endpoint.address),
                        endpoint.port, endpoint.option, strerror(error));
}

bool Daemon::listen(Problem *problem)
{
    for (size_t i = 0; i < options_.http.count; i++) {
        if (!open_server(options_.http.items[i], accept_http, &http_[i], problem))
            return false;
    }
    for (size_t i = 0; i < options_.line.count; i++) {
        if (!open_server(options_.line.items[i], accept_line, &line_[i], problem))
            return false;
    }
    return true;
}

void Daemon::append_addresses(TextBuilder *out, View scheme, eserver *const *servers,
                              const Endpoints &on) const
{
    for (size_t i = 0; i < on.count; i++) {
        if (!servers[i])
            continue;
        out->append(scheme);
        kutil::common::Endpoint bound = on.items[i];
        bound.port = bound_port(eserver_fd_get(servers[i], 0), bound.port);
        out->append(kutil::common::EndpointText(bound).text());
        out->append(scheme == "http://" ? View("/\n") : View("\n"));
    }
}

void Daemon::write_addresses(TextBuilder *out) const
{
    append_addresses(out, "http://", http_, options_.http);
    append_addresses(out, "line protocol ", line_, options_.line);
}

void Daemon::reload()
{
    Problem problem;
    if (load(&problem))
        zel_error_full(kEntity, kNotice, "configuration reloaded from %s", resolved_.get());
    else
        zel_error_full(kEntity, kErr, "not reloaded, the running configuration stays: %s", problem.text());
    const auto bind = [&](const Endpoints &on, eserver **servers, estream_connect_cb accept) {
        for (size_t i = 0; i < on.count; i++) {
            const Endpoint &endpoint = on.items[i];
            if (!servers[i]) {
                if (!open_server(endpoint, accept, &servers[i], &problem))
                    zel_error_full(kEntity, kErr, "%s", problem.text());
                continue;
            }
            const eserver_req requests[] = {
                {endpoint.address, endpoint.port, ESTREAM_HALF_CLOSE | ESTREAM_V6ONLY, nullptr}, {}};
            if (eserver_bind(servers[i], requests) != 0)
                zel_error_full(kEntity, kErr, "not listening on %s port %d any more",
                               iaddr2str(&endpoint.address), endpoint.port);
        }
    };
    bind(options_.http, http_, accept_http);
    bind(options_.line, line_, accept_line);
}

// --- Connections, and the end.

bool Daemon::add(Connection *connection)
{
    if (stats_.open >= kMaxConnections) {
        stats_.refused_connections++;
        if (warned_full_++ % 100 == 0)
            zel_error_full(kEntity, kWarn, "%u connections are open: another one is refused", stats_.open);
        return false;
    }
    stats_.connections++;
    stats_.open++;
    connection->next = first_;
    if (first_)
        first_->previous = connection;
    first_ = connection;
    return true;
}

void Daemon::remove(Connection *connection)
{
    if (connection->previous)
        connection->previous->next = connection->next;
    else
        first_ = connection->next;
    if (connection->next)
        connection->next->previous = connection->previous;
    stats_.open--;
    if (stopping_ && stats_.open == 0)
        end_loop(nullptr);
}

void Daemon::stop()
{
    if (stopping_)
        return end_loop(nullptr); // asked twice
    stopping_ = true;
    zel_error_full(kEntity, kNotice, "ending");
    for (Connection *connection = first_; connection;) {
        Connection *const next = connection->next; // closing one changes the list at its place alone
        connection->close_if_idle();
        connection = next;
    }
    if (stats_.open == 0)
        return end_loop(nullptr);
    event_timer_set(kStopMs, end_loop, nullptr);
}

void Daemon::close()
{
    stopping_ = true;
    for (eserver *&server : http_) {
        eserver_close(server);
        server = nullptr;
    }
    for (eserver *&server : line_) {
        eserver_close(server);
        server = nullptr;
    }
}

} // namespace mgmtd
