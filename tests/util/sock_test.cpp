#include "util/sock.h"

#include "support.h"
#include "util/event.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/syscall.h>

// The next calls of accept fail like this; then they are real.
static std::vector<int> accept_errors;

extern "C" int accept(int fd, struct sockaddr *addr, socklen_t *length)
{
    if (accept_errors.empty())
        return static_cast<int>(syscall(SYS_accept4, fd, addr, length, 0));
    errno = accept_errors.front();
    accept_errors.erase(accept_errors.begin());
    return -1;
}

namespace
{

iaddr address(const char *text)
{
    iaddr addr = {};
    EXPECT_EQ(str2iaddr(&addr, text), 0);
    return addr;
}

int option(int fd, int level, int name)
{
    int value = -1;
    socklen_t length = sizeof(value);
    return getsockopt(fd, level, name, &value, &length) < 0 ? -1 : value;
}

uint16_t port_of(int fd)
{
    sockaddr_storage name = {};
    socklen_t length = sizeof(name);
    uint16_t port = 0;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&name), &length), 0);
    EXPECT_EQ(sockaddr_get_port(reinterpret_cast<sockaddr *>(&name), &port), 0);
    return port;
}

} // namespace

TEST(Sock, BindsWithTheOptionsThatItsArgumentsSay)
{
    ReportLog log;
    const int first = sock_socket(SOCK_STREAM, 0x7f000001, 0);
    ASSERT_GE(first, 0);
    EXPECT_EQ(option(first, SOL_SOCKET, SO_REUSEADDR), 0) << "a port of the system's choice is not shared";
    const uint16_t port = port_of(first);
    EXPECT_EQ(listen(first, 1), 0);
    log.take();
    EXPECT_EQ(sock_socket(SOCK_STREAM, 0x7f000001, port), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    const std::string report = log.take();
    EXPECT_EQ(report.find("4: sock_socket_full:"), 0U) << report;
    EXPECT_NE(report.find(": failed bind() for ip 127.0.0.1 port " + std::to_string(port) + ": " +
                          strerror(EADDRINUSE)),
              std::string::npos)
        << report;
    socket_close(first);
    const int again = sock_socket(SOCK_STREAM, 0x7f000001, port);
    EXPECT_EQ(option(again, SOL_SOCKET, SO_REUSEADDR), 1);
    socket_close(again);

    for (const uint32_t v6only : {0U, 1U}) {
        const int fd = sock_socket_full(SOCK_DGRAM, address("::"), 0, nullptr, 0, 0x10, v6only | 0x8000);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(option(fd, IPPROTO_IPV6, IPV6_V6ONLY), static_cast<int>(v6only));
        socket_close(fd);
    }
    const int tos = sock_socket_full(SOCK_DGRAM, address("127.0.0.1"), 0, nullptr, 0, 0x10, 0);
    EXPECT_EQ(option(tos, IPPROTO_IP, IP_TOS), 0x10);
    socket_close(tos);
}

TEST(Sock, EveryFailureClosesAndReports)
{
    ReportLog log;
    const int probe = dup(0);
    close(probe);
    EXPECT_EQ(sock_socket_full(SOCK_STREAM, iaddr{}, 0, nullptr, 0, 0, 0), -1);
    EXPECT_EQ(sock_socket_full(SOCK_STREAM, address("127.0.0.1"), 0, "no-such-interface-here", 0, 0, 0), -1);
    EXPECT_EQ(sock_socket_full(SOCK_STREAM, address("192.0.2.77"), 1, nullptr, 0, 0, 0), -1);
    EXPECT_EQ(sock_valid(-1), -1);
    EXPECT_EQ(sock_accept(-1), -1);
    EXPECT_EQ(sock_set_sockopt(-1, 0), -1);
    socket_close(-1);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(ends[0], probe) << "a descriptor was left open";
    EXPECT_EQ(log.entries.size(), 6U) << log.take();
    log.take();
    EXPECT_EQ(sock_set_sockopt(ends[0], 0), -1);
    EXPECT_EQ(log.take(), "4: sock_set_sockopt " + std::to_string(ends[0]) + ": failed ioctl\n");
    EXPECT_EQ(sock_set_sockopt(ends[0], SOCK_F_PLAIN), 0);
    EXPECT_EQ(fcntl(ends[0], F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(sock_valid(ends[0]), -1);
    EXPECT_EQ(log.take(), "4: socket: " + std::to_string(ends[0]) + " failed getsockname() - " +
                              strerror(ENOTSOCK) + "\n");
    socket_close(ends[0]), socket_close(ends[1]);
}

TEST(Sock, AcceptsOverInterruptionsAndKeepsErrno)
{
    ReportLog log;
    const int fd = sock_socket(SOCK_STREAM, 0x7f000001, 0);
    ASSERT_EQ(listen(fd, 5), 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(0x7f000001);
    to.sin_port = htons(port_of(fd));
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr *>(&to), sizeof(to)), 0);
    log.take();
    accept_errors = {EMFILE, EINTR, EINTR};
    EXPECT_EQ(sock_accept(fd), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(log.take(),
              "4: socket: " + std::to_string(fd) + " failed accept() - " + strerror(EMFILE) + "\n");
    const int accepted = sock_accept(fd);
    ASSERT_GE(accepted, 0);
    EXPECT_TRUE(accept_errors.empty());
    EXPECT_EQ(option(accepted, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option(accepted, SOL_SOCKET, SO_OOBINLINE), 1);
    EXPECT_EQ(fcntl(accepted, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    for (const int end : {accepted, client, fd})
        socket_close(end);
}
