#include "sock.h"

#include "event.h"
#include "internal/errno_scope.h"
#include "internal/fd.h"
#include "internal/report.h"
#include "internal/text.h"
#include "sys.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

using namespace kutil;

namespace
{

constexpr size_t kNameRoom = 32;
constexpr size_t kMostNameBytes = IFNAMSIZ;
static_assert(kMostNameBytes <= kNameRoom);

int set_int(int fd, int level, int name, int value)
{
    return setsockopt(fd, level, name, &value, sizeof(value));
}

int bind_to_interface(int fd, const char *ifname)
{
    char name[kNameRoom] = {};
    memcpy(name, ifname, std::min(strlen(ifname), kMostNameBytes));
    return setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name, kMostNameBytes);
}

int failed(int line, const char *what)
{
    return zel_error_full(kEntity, kErr, "%s:%d: %s", "sock_socket_full", line, what);
}

} // namespace

int sock_socket_full(int type, iaddr address, uint16_t port, const char *ifname, uint32_t mark, uint32_t tos,
                     uint32_t flags)
{
    Fd fd(socket(address.family, type, 0));
    if (!fd.valid())
        return failed(__LINE__, "failed socket()");
    sockaddr_storage name = {};
    socklen_t name_length = 0;
    if (iaddr2sockaddr(reinterpret_cast<sockaddr *>(&name), &address, port, &name_length) < 0)
        return failed(__LINE__, "failed iaddr2sockaddr()");
    // Deliberate: a port that the system chooses is this process's alone.
    if (port != 0 && set_int(fd.get(), SOL_SOCKET, SO_REUSEADDR, 1) < 0)
        return failed(__LINE__, "failed setsockopt(SO_REUSEADDR)");
    if (address.family == AF_INET6 &&
        set_int(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, (flags & SOCK_F_V6ONLY) != 0) < 0)
        return failed(__LINE__, "failed setsockopt(IPV6_V6ONLY)");
    if (ifname && bind_to_interface(fd.get(), ifname) < 0)
        return failed(__LINE__, "setsockopt: SO_BINDTODEVICE");
    if (mark != 0)
        setsockopt(fd.get(), SOL_SOCKET, SO_MARK, &mark, sizeof(mark));
    if (tos != 0)
        set_int(fd.get(), IPPROTO_IP, IP_TOS, static_cast<int>(tos));
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&name), name_length) < 0) {
        return zel_error_full(kEntity, kErr, "%s:%d: failed bind() for ip %s port %d: %s", __func__, __LINE__,
                              iaddr2str(&address), port, strerror(errno));
    }
    zel_error_full(kEntity, kDebug, "%s:%d: created fd %d for ip %s port %d", __func__, __LINE__, fd.get(),
                   iaddr2str(&address), port);
    return fd.release();
}

int sock_socket(int type, uint32_t address, uint16_t port)
{
    iaddr any = {};
    return sock_socket_full(type, *ip2iaddr(&any, address), port, nullptr, 0, 0, 0);
}

int sock_set_sockopt(int fd, uint32_t flags)
{
    const int result = sys_sock_set_nonblocking(fd);
    if (result != 0 || (flags & SOCK_F_PLAIN))
        return result;
    if (set_int(fd, SOL_SOCKET, SO_OOBINLINE, 1) < 0)
        return zel_error_full(kEntity, kErr, "sock_set_sockopt %d: failed ioctl", fd);
    // Stream sockets that are not TCP refuse, and do without.
    const ErrnoScope keep_errno;
    set_int(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    return 0;
}

int sock_valid(int fd)
{
    sockaddr_storage name;
    socklen_t length = sizeof(name);
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&name), &length) == 0)
        return 0;
    return zel_error_full(kEntity, kErr, "socket: %d failed getsockname() - %s", fd, strerror(errno));
}

int sock_accept(int fd)
{
    if (sock_valid(fd) != 0)
        return -1;
    int accepted = -1;
    do
        accepted = accept(fd, nullptr, nullptr);
    while (accepted < 0 && errno == EINTR);
    if (accepted < 0)
        return zel_error_full(kEntity, kErr, "socket: %d failed accept() - %s", fd, strerror(errno));
    if (sock_set_sockopt(accepted, 0) == 0)
        return accepted;
    const ErrnoScope keep_errno;
    socket_close(accepted);
    return -1;
}

void socket_close(int fd) { event_fd_close(&fd); }
