#include "internal/errno_scope.h"
#include "internal/estream.h"
#include "internal/report.h"
#include "sock.h"

#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

// How a stream begins: over a descriptor, by connecting, by accepting.

using namespace kutil;

namespace
{

constexpr int kDefaultTimeoutMs = 3000;
constexpr uint16_t kPlainPort = 65535;

struct {
    estream_ssl_open_cb open;
} constinit tls_layer = {};

// connect_cb is told once; the stream is closed on return.
void fail_connect(estream *es)
{
    const Nesting nesting(es);
    es->awaiting_connect = false;
    if (std::exchange(es->connecting, false))
        es->connect_cb(es, 0);
    estream_close(es);
}

// Whether TLS was started where it is wanted. The stream is closed otherwise.
bool open_tls(estream *es, const char *function, int fd)
{
    if (!(es->flags & ESTREAM_SSL))
        return true;
    if (!tls_layer.open) {
        zel_error_full(kEntity, kFatal, "%s(%d): called with ESTREAM_SSL before estream_ssl_open_func init",
                       function, fd);
    }
    const Nesting nesting(es);
    if (tls_layer.open && tls_layer.open(es, nullptr) == 0 && !es->closing)
        return true;
    estream_close(es);
    return false;
}

// Unix-domain sockets have no address that an iaddr holds.
void store_address(const sockaddr_storage &name, iaddr *addr, uint16_t *port)
{
    *addr = {};
    *port = 0;
    sockaddr2iaddr(addr, port, reinterpret_cast<const sockaddr *>(&name));
}

bool find_addresses(estream *es)
{
    if (es->flags & ESTREAM_PLAIN) {
        es->peer_addr = es->local_addr = {};
        es->peer_port = es->local_port = kPlainPort;
        return true;
    }
    sockaddr_storage name = {};
    socklen_t length = sizeof(name);
    if (getpeername(es->fd, reinterpret_cast<sockaddr *>(&name), &length) < 0) {
        zel_error_full(kEntity, kInfo, "estream_connect_done %d: connection failed", es->fd);
        return false;
    }
    store_address(name, &es->peer_addr, &es->peer_port);
    length = sizeof(name);
    if (getsockname(es->fd, reinterpret_cast<sockaddr *>(&name), &length) < 0) {
        zel_error_full(kEntity, kErr, "estream_connect_done %d: failed getsockname, %s", es->fd,
                       strerror(errno));
        return false;
    }
    store_address(name, &es->local_addr, &es->local_port);
    return true;
}

void complete(estream *es)
{
    stream_unwatch(es, kEventTypes);
    es->awaiting_connect = false;
    if (!find_addresses(es))
        fail_connect(es);
    else if (es->tls)
        es->tls->connect(es);
    else
        stream_connected(es);
}

// Closes what a stream would have owned.
estream *give_up(int fd, bool owned)
{
    const ErrnoScope keep_errno;
    if (owned)
        socket_close(fd);
    return nullptr;
}

} // namespace

namespace kutil
{

void stream_set_tls(estream *es, const StreamTls *operations) { es->tls = operations; }

void stream_connected(estream *es)
{
    if (es->closing)
        return;
    const Nesting nesting(es); // leaving re-registers
    es->connected = true;
    zel_error_full(kEntity, kDebug, "estream_connect_done_efd %d: connected", es->fd);
    const int result = es->connect_cb(es, 1);
    if (es->closing || result == 0)
        return;
    zel_error_full(kEntity, kInfo, "estream_connect_done %d: failed connect handler %s (rc=%d)", es->fd,
                   how_refused(result), result);
    estream_close(es);
}

void stream_abort_connect(estream *es)
{
    if (es->connecting && !es->connected)
        fail_connect(es);
    else
        estream_close(es);
}

void stream_on_connected(int, void *data)
{
    auto *es = static_cast<estream *>(data);
    if (es->closing)
        return;
    if (es->depth > 0)
        stream_unwatch(es, kEventTypes);
    else
        complete(es);
}

void stream_on_connect_failed(int, void *data)
{
    auto *es = static_cast<estream *>(data);
    if (es->closing)
        return;
    if (es->depth > 0) {
        stream_unwatch(es, kEventTypes);
        return;
    }
    zel_error_full(kEntity, kInfo, "estream: socket %d failed connect", es->fd);
    fail_connect(es);
}

void stream_on_completion_timer(void *data)
{
    auto *es = static_cast<estream *>(data);
    if (es->closing)
        return;
    if (es->depth > 0)
        es->completion_due = true;
    else
        complete(es);
}

} // namespace kutil

estream_ssl_open_cb estream_ssl_open_func_set(estream_ssl_open_cb func)
{
    return std::exchange(tls_layer.open, func);
}

estream *estream_connect_fd(int fd, uint32_t flags, estream_connect_cb connect_cb)
{
    estream *es = stream_new(fd, flags & ~ESTREAM_NULL_STREAM);
    if (connect_cb)
        es->connect_cb = connect_cb;
    if (flags & ESTREAM_TIMEOUT)
        es->timeout_ms = kDefaultTimeoutMs;
    if (!(flags & ESTREAM_SOCKOPT_DONE) && sock_set_sockopt(fd, flags) != 0) {
        zel_error_full(kEntity, kErr, "%s:%d: sock_set_sockopt failed (%s)", __func__, __LINE__,
                       strerror(errno));
        estream_close(es);
        return nullptr;
    }
    if (!open_tls(es, "estream_connect", fd))
        return nullptr;
    es->connecting = true;
    es->connected = (flags & ESTREAM_CONNECTED) != 0;
    if (!es->connected) {
        es->awaiting_connect = true;
        stream_reregister(es);
        return es;
    }
    if (connect_cb) {
        event_timer_set_now(stream_on_completion_timer, es);
    } else {
        const Nesting nesting(es);
        complete(es);
        if (es->closing)
            return nullptr;
    }
    zel_error_full(kEntity, kDebug, "estream_connect_full %d: connected", fd);
    return es;
}

estream *estream_connect_tcp_full(int fd, uint32_t flags, estream_connect_cb connect_cb, iaddr dst,
                                  uint16_t dst_port, iaddr src, uint16_t src_port, const char *ifname,
                                  uint32_t mark, uint32_t tos)
{
    uint32_t dst_ip = 0;
    if (src.family == AF_INET && iaddr_is_any(&src) && iaddr2in_addr(&dst, &dst_ip) == 0)
        ip2iaddr(&src, get_matching_src_ip(dst_ip, ifname, mark));
    if (fd < 0) {
        fd = sock_socket_full(SOCK_STREAM, src, src_port, ifname, mark, tos,
                              flags & ESTREAM_V6ONLY ? SOCK_F_V6ONLY : 0);
        if (fd < 0)
            return nullptr;
        flags |= ESTREAM_OWN_FD;
    }
    const bool owned = (flags & ESTREAM_OWN_FD) != 0;
    if (sock_set_sockopt(fd, flags) != 0)
        return give_up(fd, owned);
    zel_error_full(kEntity, kDebug, "estream_connect_full %d: connecting to %s port %d", fd, iaddr2str(&dst),
                   dst_port);
    sockaddr_storage name = {};
    socklen_t length = 0;
    int result = -1;
    errno = EAFNOSUPPORT;
    if (iaddr2sockaddr(reinterpret_cast<sockaddr *>(&name), &dst, dst_port, &length) == 0)
        result = connect(fd, reinterpret_cast<sockaddr *>(&name), length);
    if (result == 0)
        return estream_connect_fd(fd, flags | ESTREAM_SOCKOPT_DONE | ESTREAM_CONNECTED, connect_cb);
    // An interrupted connect goes on by itself.
    if (errno == EAGAIN || errno == EINPROGRESS || errno == EINTR)
        return estream_connect_fd(fd, flags | ESTREAM_SOCKOPT_DONE, connect_cb);
    zel_error_full(kEntity, kErr, "estream_connect_src %d: failed connect()", fd);
    return give_up(fd, owned);
}

estream *estream_connect_tcp_ex(uint32_t flags, estream_connect_cb connect_cb, iaddr dst, uint16_t dst_port)
{
    return estream_connect_tcp_full(-1, flags, connect_cb, dst, dst_port, *iaddr_any(dst.family), 0, nullptr,
                                    0, 0);
}

estream *estream_connect_tcp(uint32_t flags, estream_connect_cb connect_cb, uint32_t dst, uint16_t dst_port)
{
    iaddr addr = {};
    return estream_connect_tcp_ex(flags, connect_cb, *ip2iaddr(&addr, dst), dst_port);
}

estream *estream_accept(int listen_fd, uint32_t flags, estream_connect_cb connect_cb)
{
    estream *es = stream_new(-1, (flags & ~ESTREAM_NULL_STREAM) | ESTREAM_OWN_FD);
    es->fd = sock_accept(listen_fd);
    if (es->fd < 0) {
        const ErrnoScope keep_errno;
        es->error = errno;
        estream_close(es);
        return nullptr;
    }
    // An IPv4 peer of an IPv6 socket becomes one of IPv4; others refuse.
    int family = 0;
    socklen_t length = sizeof(family);
    if (getsockopt(es->fd, IPPROTO_IPV6, IPV6_ADDRFORM, &family, &length) == 0 && family == AF_INET6) {
        family = AF_INET;
        setsockopt(es->fd, IPPROTO_IPV6, IPV6_ADDRFORM, &family, sizeof(family));
    }
    if (!open_tls(es, "estream_accept", listen_fd))
        return nullptr;
    if (connect_cb)
        es->connect_cb = connect_cb;
    event_timer_set_now(stream_on_completion_timer, es);
    return es;
}
