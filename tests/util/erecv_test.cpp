#include "util/erecv.h"

#include "support.h"
#include "support/loop.h"
#include "util/sock.h"

#include <cstring>
#include <sys/un.h>

namespace
{

iaddr address(const char *text)
{
    iaddr a;
    EXPECT_EQ(str2iaddr(&a, text), 0);
    return a;
}

constexpr uint32_t kLoopback = 0x7f000001;

class Receiver : public testing::Test
{
public:
    void SetUp() override
    {
        before = open_fds();
        event_loop_init();
    }
    void TearDown() override
    {
        erecv_close(receiver);
        event_loop_uninit();
        EXPECT_EQ(open_fds(), before);
    }

    static void receive(void *data, uint8_t *buffer, int length)
    {
        auto *self = static_cast<Receiver *>(data);
        EXPECT_EQ(buffer, erecv_get_buf(self->receiver));
        EXPECT_EQ(buffer[length], '\0');
        self->got.emplace_back(reinterpret_cast<char *>(buffer), static_cast<size_t>(length));
        if (self->on_receive)
            self->on_receive();
    }
    void open(const char *at, int size = 0)
    {
        receiver = erecv_open_ip_port_full(address(at), 0, nullptr, 0, 0, 0, size, receive, this);
        ASSERT_NE(receiver, nullptr);
    }
    // Sends from a socket of `family`, and waits until `count` datagrams came in all.
    uint16_t send(const std::string &text, const char *to, size_t count)
    {
        const iaddr peer = address(to);
        const int fd = sock_socket_full(SOCK_DGRAM, peer, 0, nullptr, 0, 0, 0);
        sockaddr_storage name;
        socklen_t length;
        iaddr2sockaddr(reinterpret_cast<sockaddr *>(&name), &peer, port_of(erecv_get_fd(receiver)), &length);
        EXPECT_EQ(esendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr *>(&name), length),
                  static_cast<ssize_t>(text.size()));
        const uint16_t port = port_of(fd);
        close(fd);
        run_until([&] { return got.size() >= count; });
        return port;
    }

    ReportLog log;
    erecv *receiver = nullptr;
    std::vector<std::string> got;
    std::function<void()> on_receive;
    std::set<int> before;
};

TEST_F(Receiver, TellsEachDatagramAndWhereItCameFrom)
{
    receiver = erecv_open_ip_port(kLoopback, 0, 8, receive, this);
    ASSERT_NE(receiver, nullptr);
    sockaddr_storage source;
    socklen_t length = 77;
    erecv_get_addr(receiver, &source, &length);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(erecv_get_ip(receiver), 0u);
    EXPECT_EQ(erecv_get_family(receiver), 0);
    EXPECT_EQ(erecv_get_port(receiver), 0);

    const uint16_t port = send("hello", "127.0.0.1", 1);
    send("", "127.0.0.1", 2);
    send("more than eight", "127.0.0.1", 3);
    EXPECT_EQ(got, (std::vector<std::string>{"hello", "", "more tha"}));
    EXPECT_EQ(erecv_get_ip(receiver), kLoopback);
    EXPECT_EQ(erecv_get_family(receiver), AF_INET);
    EXPECT_NE(erecv_get_port(receiver), 0);
    erecv_get_addr(receiver, &source, &length);
    EXPECT_EQ(length, sizeof(sockaddr_in));
    EXPECT_NE(port, 0);

    // The first sender's port, asked while its datagram is the last one.
    on_receive = [&] { length = erecv_get_port(receiver); };
    EXPECT_EQ(send("x", "127.0.0.1", 4), length);
}

TEST_F(Receiver, ControlDataOfIpv6)
{
    const int probe = sock_socket_full(SOCK_DGRAM, address("::1"), 0, nullptr, 0, 0, 0);
    if (probe < 0)
        GTEST_SKIP() << "no IPv6 here";
    close(probe);
    open("::");
    const int on = 1;
    setsockopt(erecv_get_fd(receiver), IPPROTO_IPV6, IPV6_RECVHOPLIMIT, &on, sizeof(on));
    setsockopt(erecv_get_fd(receiver), SOL_SOCKET, SO_TIMESTAMP, &on, sizeof(on));
    send("x", "::1", 1);
    uint32_t ifindex = 77;
    erecv_pktinfo destination;
    EXPECT_EQ(erecv_parse_control(erecv_get_control(receiver), &ifindex, &destination), 0);
    EXPECT_EQ(ifindex, 0u);
    EXPECT_TRUE(IN6_IS_ADDR_LOOPBACK(&destination.addr));
    EXPECT_NE(destination.ifindex, 0u);
    EXPECT_GT(erecv_ipv6_get_hop_limit(erecv_get_control(receiver)), 0);
    timeval stamp;
    const void *at = erecv_get_timestamp(erecv_get_control(receiver));
    ASSERT_NE(at, nullptr);
    memcpy(&stamp, at, sizeof(stamp));
    EXPECT_LT(std::abs(static_cast<long long>(time(nullptr)) - static_cast<long long>(stamp.tv_sec)), 10);
    EXPECT_EQ(erecv_get_family(receiver), AF_INET6);
    EXPECT_EQ(erecv_get_ip(receiver), 0u);
    // An IPv4 sender is told by its IPv4 address.
    send("y", "127.0.0.1", 2);
    EXPECT_EQ(erecv_get_ip(receiver), kLoopback);

    // Sending from a chosen address; it comes from there.
    const int fd = sock_socket_full(SOCK_DGRAM, address("::"), 0, nullptr, 0, 0, 0);
    sockaddr_storage name;
    socklen_t length;
    const iaddr loopback = address("::1");
    iaddr2sockaddr(reinterpret_cast<sockaddr *>(&name), &loopback, port_of(erecv_get_fd(receiver)), &length);
    EXPECT_EQ(erecv_ipv6_send(fd, "from", 4, reinterpret_cast<sockaddr *>(&name), length, &destination), 0);
    EXPECT_EQ(erecv_ipv6_send(fd, "any", 3, reinterpret_cast<sockaddr *>(&name), length, nullptr), 0);
    EXPECT_TRUE(run_until([&] { return got.size() == 4; }));
    EXPECT_EQ(got[2] + got[3], "fromany");
    log.take();
    destination.addr = in6_addr{{{0x20, 0x01, 0x0d, 0xb8}}}; // nobody's
    EXPECT_EQ(erecv_ipv6_send(fd, "x", 1, reinterpret_cast<sockaddr *>(&name), length, &destination), -1);
    EXPECT_EQ(erecv_ipv6_send(fd, "x", -1, reinterpret_cast<sockaddr *>(&name), length, nullptr), -1);
    EXPECT_EQ(log.take(), "4: Failed to send message\n4: Failed to send message\n");
    run_for(20);
    EXPECT_EQ(got.size(), 4u);
    close(fd);
}

// Control messages made by hand.
struct Control {
    alignas(cmsghdr) unsigned char bytes[ERECV_CONTROL_SIZE] = {};
    size_t used = 0;

    Control &add(int level, int type, const std::string &body, long length = -1)
    {
        cmsghdr header = {};
        header.cmsg_level = level;
        header.cmsg_type = type;
        header.cmsg_len =
            length >= 0 ? static_cast<decltype(header.cmsg_len)>(length) : CMSG_LEN(body.size());
        memcpy(bytes + used, &header, sizeof(header));
        memcpy(bytes + used + CMSG_LEN(0), body.data(), body.size());
        used += CMSG_SPACE(body.size());
        return *this;
    }
};

template <class T>
std::string raw(T value)
{
    return std::string(reinterpret_cast<char *>(&value), sizeof(value));
}

TEST_F(Receiver, ControlDataByHand)
{
    const std::string here(16, '\x20');
    const std::string good = here + raw<uint32_t>(7);
    const std::string wrong = "4: Wrong IPV6_PKTINFO from the kernel\n";
    const auto control = [] { return Control(); };
    const struct {
        const char *name;
        Control control;
        uint32_t ifindex;
        uint32_t destination;
        int hop_limit;
        bool stamped;
        std::string reports; // of one reading
    } rows[] = {
        {"nothing", control(), 0, 0, 0, false, ""},
        {"all",
         control()
             .add(263, 19, raw<uint32_t>(5))
             .add(IPPROTO_IPV6, IPV6_PKTINFO, good)
             .add(IPPROTO_IPV6, IPV6_HOPLIMIT, raw(64))
             .add(SOL_SOCKET, SO_TIMESTAMP, raw(timeval{1, 2})),
         5, 7, 64, true, ""},
        {"no interface", control().add(IPPROTO_IPV6, IPV6_PKTINFO, here + raw<uint32_t>(0)), 0, 0, 0, false,
         wrong},
        {"short", control().add(IPPROTO_IPV6, IPV6_PKTINFO, here), 0, 0, 0, false, wrong},
        {"long, then good",
         control().add(IPPROTO_IPV6, IPV6_PKTINFO, good + "1234").add(IPPROTO_IPV6, IPV6_PKTINFO, good), 0, 7,
         0, false, wrong},
        {"short values",
         control()
             .add(263, 19, "12")
             .add(IPPROTO_IPV6, IPV6_HOPLIMIT, "1")
             .add(SOL_SOCKET, SO_TIMESTAMP, "123"),
         0, 0, 0, false, ""},
        {"types of other levels", control().add(SOL_SOCKET, IPV6_HOPLIMIT, raw(64)), 0, 0, 0, false, ""},
        {"a length below a header", control().add(IPPROTO_IPV6, IPV6_HOPLIMIT, raw(64), 3), 0, 0, 0, false,
         ""},
        {"a length past the end", control().add(IPPROTO_IPV6, IPV6_HOPLIMIT, raw(64), 600), 0, 0, 0, false,
         ""},
        {"the largest length", control().add(IPPROTO_IPV6, IPV6_HOPLIMIT, raw(64), LONG_MAX), 0, 0, 0, false,
         ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Control copy = row.control;
        log.take();
        uint32_t ifindex = 99;
        erecv_pktinfo destination;
        memset(&destination, 99, sizeof(destination));
        EXPECT_EQ(erecv_parse_control(copy.bytes, &ifindex, &destination), 0);
        EXPECT_EQ(log.take(), row.reports);
        EXPECT_EQ(ifindex, row.ifindex);
        EXPECT_EQ(destination.ifindex, row.destination);
        EXPECT_EQ(destination.addr.s6_addr[15], row.destination ? 0x20 : 0);
        EXPECT_EQ(erecv_ipv6_get_hop_limit(copy.bytes), row.hop_limit);
        EXPECT_EQ(erecv_get_timestamp(copy.bytes) != nullptr, row.stamped);
    }
    // The last message that has room; the walk stops at the end of the buffer.
    constexpr size_t kLast = (ERECV_CONTROL_SIZE - CMSG_LEN(sizeof(int))) / CMSG_SPACE(0) * CMSG_SPACE(0);
    Control filler;
    filler.add(SOL_SOCKET, 1, std::string(kLast - CMSG_LEN(0), 'x'));
    filler.used = kLast;
    filler.add(IPPROTO_IPV6, IPV6_HOPLIMIT, raw(9));
    EXPECT_EQ(erecv_ipv6_get_hop_limit(filler.bytes), 9);
}

// A peer that refuses is reported at debug with the receiver's name, and does not keep the loop busy.
TEST_F(Receiver, ARefusingPeer)
{
    open("127.0.0.1");
    const int gone = sock_socket(SOCK_DGRAM, kLoopback, 0);
    sockaddr_in name = {};
    socklen_t length = sizeof(name);
    getsockname(gone, reinterpret_cast<sockaddr *>(&name), &length);
    close(gone);
    ASSERT_EQ(connect(erecv_get_fd(receiver), reinterpret_cast<sockaddr *>(&name), length), 0);
    const std::string fd = std::to_string(erecv_get_fd(receiver));
    for (const char *called : {"", "syslog"}) {
        if (*called)
            erecv_set_name(receiver, called);
        log.take();
        EXPECT_EQ(esend(erecv_get_fd(receiver), "x", 1, 0), 1);
        const double start = cpu_ms();
        run_for(200);
        EXPECT_LT(cpu_ms() - start, 20);
        const std::string reports = log.take();
        EXPECT_EQ(reports.find("8: read_ready:"), 0u) << reports;
        EXPECT_NE(reports.find(std::string(": erecv_read_et(") + called + " " + fd +
                               "): " + strerror(ECONNREFUSED)),
                  std::string::npos)
            << reports;
    }
    EXPECT_TRUE(got.empty());
}

TEST_F(Receiver, MayBeClosedInItsCallback)
{
    open("127.0.0.1");
    on_receive = [&] { erecv_close(std::exchange(receiver, nullptr)); };
    send("x", "127.0.0.1", 1);
    run_for(20);
}

TEST_F(Receiver, OnASocketOfTheCallers)
{
    const int fd = sock_socket(SOCK_DGRAM, kLoopback, 0);
    receiver = erecv_open_fd(fd, -1, receive, this);
    ASSERT_NE(receiver, nullptr);
    EXPECT_EQ(erecv_get_fd(receiver), fd);
    send(std::string(2049, 'x'), "127.0.0.1", 1);
    EXPECT_EQ(got, std::vector<std::string>{std::string(2048, 'x')});
    erecv_close(std::exchange(receiver, nullptr));
    EXPECT_EQ(sock_valid(fd), 0);
    EXPECT_EQ(close(fd), 0);
}

// The source is that of the last datagram, also when that one tells none.
TEST_F(Receiver, ASenderWithoutAName)
{
    const sockaddr_un any = {.sun_family = AF_UNIX, .sun_path = {}};
    sockaddr_un name = any;
    socklen_t length = sizeof(name);
    int fds[3];
    for (int &fd : fds)
        fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    for (const int fd : {fds[0], fds[1]}) // the system chooses a name
        bind(fd, reinterpret_cast<const sockaddr *>(&any), sizeof(sa_family_t));
    getsockname(fds[0], reinterpret_cast<sockaddr *>(&name), &length);
    receiver = erecv_open_fd(fds[0], 0, receive, this);
    for (const int from : {fds[1], fds[2]}) {
        const size_t count = got.size() + 1;
        EXPECT_EQ(esendto(from, "x", 1, 0, reinterpret_cast<sockaddr *>(&name), length), 1);
        EXPECT_TRUE(run_until([&] { return got.size() == count; }));
        EXPECT_EQ(erecv_get_family(receiver), from == fds[1] ? AF_UNIX : 0);
    }
    erecv_close(std::exchange(receiver, nullptr));
    for (const int fd : fds)
        close(fd);
}

TEST_F(Receiver, BadInput)
{
    EXPECT_EQ(erecv_open_fd(-1, 0, receive, this), nullptr);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(erecv_open_fd(ends[0], 0, receive, this), nullptr); // a read from it could only fail for ever
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(erecv_open_ip_port(0xc0000201, 1, 0, receive, this), nullptr); // no address of this host
    erecv_close(nullptr);
    erecv_set_name(nullptr, "x");
    EXPECT_EQ(erecv_get_fd(nullptr), -1);
    EXPECT_EQ(erecv_get_ip(nullptr) + erecv_get_family(nullptr) + erecv_get_port(nullptr), 0u);
    EXPECT_EQ(erecv_get_buf(nullptr), nullptr);
    EXPECT_EQ(erecv_get_control(nullptr), nullptr);
    sockaddr_storage source;
    erecv_get_addr(nullptr, &source, nullptr);
    EXPECT_EQ(source.ss_family, 0);
    uint32_t ifindex = 99;
    EXPECT_EQ(erecv_parse_control(nullptr, &ifindex, nullptr), -1);
    EXPECT_EQ(ifindex, 0u);
    EXPECT_EQ(erecv_ipv6_get_hop_limit(nullptr), -1);
    EXPECT_EQ(erecv_get_timestamp(nullptr), nullptr);
    // Without a callback datagrams are dropped.
    receiver = erecv_open_ip_port(kLoopback, 0, 0, nullptr, nullptr);
    send("x", "127.0.0.1", 0);
    EXPECT_TRUE(run_until([&] { return erecv_get_port(receiver) != 0; }));
}

} // namespace
