#include "util/eserver.h"

#include "support.h"
#include "support/loop.h"
#include "util/sock.h"

#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>

// accept fails when the test says so.
namespace
{
int accept_error;
int accept_failures; // still to come
int accept_calls;
} // namespace

extern "C" int accept(int fd, struct sockaddr *name, socklen_t *length)
{
    accept_calls++;
    if (accept_failures > 0) {
        accept_failures--;
        errno = accept_error;
        return -1;
    }
    return accept4(fd, name, length, 0);
}

namespace
{

iaddr address(const char *text)
{
    iaddr a;
    EXPECT_EQ(str2iaddr(&a, text), 0);
    return a;
}

eserver_req request(const char *addr, uint16_t port, uint32_t flags = 0)
{
    return {address(addr), port, flags, nullptr};
}

class Server : public testing::Test
{
public:
    void SetUp() override
    {
        accept_failures = 0;
        accepted.clear();
        on_accept = nullptr;
        on_release = nullptr;
        before = open_fds();
        event_loop_init();
    }
    void TearDown() override
    {
        if (server)
            eserver_close(server);
        event_loop_uninit();
        EXPECT_EQ(open_fds(), before);
    }

    // An accepted stream greets, echoes lines, and tells when it is released.
    static int accept_cb(estream *es, int ok)
    {
        EXPECT_EQ(ok, 1);
        accepted.push_back(es);
        if (on_accept)
            return on_accept(es);
        EXPECT_NE(estream_get_data(es), nullptr);
        estream_set_data(es, es, released_cb);
        estream_set_func(es, [](estream *stream, char *line, int) {
            return line ? estream_printf(stream, "%s\n", line) : 0;
        });
        return estream_read_line(es);
    }
    static void released_cb(void *data, void *, event_any_cb)
    {
        std::erase(accepted, static_cast<estream *>(data));
        if (on_release)
            on_release();
    }

    void open(std::vector<eserver_req> requests)
    {
        requests.push_back({});
        server = eserver_open_addrs_ports(requests.data(), 0, 0, accept_cb, this);
        ASSERT_NE(server, nullptr);
    }
    int bind(std::vector<eserver_req> requests)
    {
        requests.push_back({});
        return eserver_bind(server, requests.data());
    }
    uint16_t port(int index = 0) const { return port_of(eserver_fd_get(server, index)); }
    std::unique_ptr<Client> connect(int index = 0)
    {
        const size_t count = accepted.size();
        auto client = std::make_unique<Client>(port(index));
        EXPECT_TRUE(run_until([=] { return accepted.size() == count + 1; }));
        return client;
    }
    static bool echoes(const Client &client)
    {
        client.send("ping\r\n");
        std::string text;
        return run_until([&] { return client.ended(&text) || text == "ping\n"; }) && text == "ping\n";
    }
    static bool ends(const Client &client)
    {
        return run_until([&] { return client.ended(); });
    }

    static inline std::vector<estream *> accepted;
    static inline std::function<int(estream *)> on_accept;
    static inline std::function<void()> on_release;
    ReportLog log;
    eserver *server = nullptr;
    std::set<int> before;
};

TEST_F(Server, OpensWhereItIsTold)
{
    const int probe = sock_socket_full(SOCK_STREAM, address("::1"), 0, nullptr, 0, 0, 0);
    const bool ipv6 = probe >= 0;
    // Two ports that are free now.
    const int a = sock_socket(SOCK_STREAM, 0x7f000001, 0), b = sock_socket(SOCK_STREAM, 0x7f000001, 0);
    const uint16_t ports[] = {port_of(a), port_of(b), 0};
    for (const int fd : {probe, a, b})
        close(fd);
    const struct {
        const char *name;
        std::function<eserver *()> open;
        const char *client;
        int sockets;
    } rows[] = {
        {"addr", [&] { return eserver_open_addr(address("127.0.0.1"), 0, 0, accept_cb, this); }, "127.0.0.1",
         1},
        {"port", [&] { return eserver_open_port(0, 0, accept_cb, this); }, "127.0.0.2", 1},
        {"ports", [&] { return eserver_open_ports(ports, 0, accept_cb, this); }, "127.0.0.2", 2},
        {"ports_ex",
         [&] { return eserver_open_ports_ex(address("127.0.0.1"), ports, 0, nullptr, accept_cb, this); },
         "127.0.0.1", 2},
        {"IPv6", [&] { return eserver_open_addr(address("::1"), 0, ESTREAM_V6ONLY, accept_cb, this); }, "::1",
         1},
        {"mapped", [&] { return eserver_open_addr(address("::"), 0, 0, accept_cb, this); }, "127.0.0.1", 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        if (!ipv6 && (strchr(row.client, ':') || !strcmp(row.name, "mapped")))
            continue;
        server = row.open();
        ASSERT_NE(server, nullptr) << log.take();
        EXPECT_EQ(eserver_get_data(server), this);
        EXPECT_EQ(eserver_fd_get(server, -1), -1);
        EXPECT_EQ(eserver_fd_get(server, row.sockets), -1);
        for (int i = 0; i < row.sockets; i++) {
            Client client(port(i), row.client);
            EXPECT_TRUE(echoes(client));
            const iaddr called = estream_local_addr_get(accepted.back());
            EXPECT_STREQ(iaddr2str(&called), row.client);
        }
        eserver_close(server);
        eserver_close(server); // twice is once
        server = nullptr;
        EXPECT_TRUE(accepted.empty());
        run_for(10);
    }
}

TEST_F(Server, WhatItHandsToTheAcceptCallback)
{
    on_accept = [&](estream *es) {
        EXPECT_EQ(estream_get_data(es), server);
        EXPECT_TRUE(estream_is_connected(es));
        return 1; // refused
    };
    open({request("127.0.0.1", 0)});
    const std::string entry =
        "socket: " + std::to_string(eserver_fd_get(server, 0)) + " addr: 127.0.0.1 port: 0 flags: 1";
    EXPECT_NE(log.take().find("8: eserver: socket opened: " + entry), std::string::npos);
    const Client client(port());
    EXPECT_TRUE(ends(client));
    const std::string reports = log.take();
    EXPECT_NE(reports.find("8: eserver: " + entry + ": new connection (estream with socket "),
              std::string::npos)
        << reports;
    EXPECT_EQ(accepted.size(), 1u);
}

TEST_F(Server, BindKeepsWhatStaysAndClosesWhatGoes)
{
    open({request("127.0.0.1", 0), request("127.0.0.2", 0)});
    const int first = eserver_fd_get(server, 0), second = eserver_fd_get(server, 1);
    Client to_first(port(0)), to_second(port(1), "127.0.0.2");
    EXPECT_TRUE(echoes(to_first) && echoes(to_second));

    EXPECT_EQ(bind({request("127.0.0.3", 0), request("127.0.0.2", 0, 0x4000), request("127.0.0.1", 0)}), 0);
    EXPECT_EQ(eserver_fd_get(server, 1), second);
    EXPECT_EQ(eserver_fd_get(server, 2), first);
    EXPECT_TRUE(echoes(to_first) && echoes(to_second));

    // Two requests for the same place: each keeps a socket of its own, or gets one.
    EXPECT_EQ(bind({request("127.0.0.2", 0), request("127.0.0.2", 0)}), 0);
    EXPECT_EQ(eserver_fd_get(server, 0), second);
    EXPECT_NE(eserver_fd_get(server, 1), -1);
    EXPECT_TRUE(ends(to_first));
    EXPECT_TRUE(echoes(to_second));
    EXPECT_EQ(bind({request("127.0.0.2", 0), request("127.0.0.2", 0)}), 0);
    EXPECT_EQ(eserver_fd_get(server, 0), second);
    EXPECT_TRUE(echoes(to_second));

    EXPECT_EQ(eserver_bind(server, nullptr), 0);
    EXPECT_EQ(eserver_fd_get(server, 0), -1);
    EXPECT_TRUE(ends(to_second));
}

TEST_F(Server, AFailedBindClosesWhatStandsInFront)
{
    open({request("127.0.0.2", 0), request("127.0.0.3", 0)});
    const int last = eserver_fd_get(server, 1);
    Client kept(port(1), "127.0.0.3");
    EXPECT_TRUE(echoes(kept));
    const Client lost(port(0), "127.0.0.2");
    // An address that is not this host's.
    EXPECT_NE(bind({request("127.0.0.2", 0), request("127.0.0.1", 0), request("192.0.2.1", 1),
                    request("127.0.0.3", 0)}),
              0);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(eserver_fd_get(server, i), -1) << i;
    EXPECT_EQ(eserver_fd_get(server, 3), last);
    EXPECT_TRUE(echoes(kept));
    // Closing finds the kept one behind the failed one.
    eserver_close(std::exchange(server, nullptr));
    EXPECT_TRUE(ends(kept));

    log.take();
    EXPECT_EQ(eserver_open_addr(address("192.0.2.1"), 1, 0, accept_cb, nullptr), nullptr);
    EXPECT_NE(log.take().find("4: eserver: failed eserver_bind()"), std::string::npos);
    EXPECT_EQ(eserver_open_addrs_ports(nullptr, 0, 0, accept_cb, nullptr), nullptr);
    EXPECT_EQ(eserver_open_ports(nullptr, 0, accept_cb, nullptr), nullptr);
}

TEST_F(Server, EstreamsCloseAsksEachStreamOnce)
{
    open({request("127.0.0.1", 0), request("127.0.0.1", 0)});
    std::vector<std::unique_ptr<Client>> clients;
    for (const int entry : {0, 1, 0, 1, 0})
        clients.push_back(connect(entry));
    const std::vector<estream *> streams = accepted;
    static std::vector<estream *> asked;
    asked.clear();
    const auto ask = [](estream *es, void *also, int zero) {
        EXPECT_EQ(zero, 0);
        asked.push_back(es);
        if (const auto *victims = static_cast<std::vector<estream *> *>(also)) {
            for (estream *victim : *victims)
                estream_close(victim);
        }
        return 1;
    };
    // The newest of the first entry closes itself, one behind it and one of the other entry.
    std::vector<estream *> victims = {streams[4], streams[2], streams[1]};
    EXPECT_EQ(eserver_estreams_close(server, ask, &victims), -1);
    EXPECT_EQ(asked, (std::vector<estream *>{streams[4], streams[0], streams[3]}));
    EXPECT_TRUE(accepted.empty());
    EXPECT_EQ(eserver_estreams_close(server, nullptr, nullptr), -1);

    clients.push_back(connect());
    eserver *self = std::exchange(server, nullptr);
    const auto close_server = [](estream *, void *data, int) {
        eserver_close(static_cast<eserver *>(data));
        return 1;
    };
    eserver_estreams_close(self, close_server, self);
    EXPECT_TRUE(ends(*clients.back()));
}

// What the owner of a stream may do while the server is closing streams.
TEST_F(Server, ReleaseFunctionsMayDoAnything)
{
    const eserver_req other[] = {request("127.0.0.4", 0), {}};
    const struct {
        const char *name;
        std::function<void()> act;
    } acts[] = {
        {"close the server", [&] { eserver_close(server); }},
        {"bind anew", [&] { eserver_bind(server, other); }},
        {"close all streams",
         [&] {
             eserver_estreams_close(
                 server, [](estream *, void *, int) { return 1; }, nullptr);
         }},
        {"close the others",
         [&] {
             while (!accepted.empty())
                 estream_close(accepted.back());
         }},
    };
    const struct {
        const char *name;
        std::function<void()> start;
    } starts[] = {
        {"eserver_close", [&] { eserver_close(server); }},
        {"eserver_bind", [&] { bind({request("127.0.0.5", 0)}); }},
        {"failing eserver_bind",
         [&] {
             bind({request("127.0.0.1", 0), request("192.0.2.1", 1)});
         }},
        {"eserver_estreams_close",
         [&] {
             eserver_estreams_close(
                 server, [](estream *, void *, int) { return 1; }, nullptr);
         }},
    };
    for (const auto &start : starts) {
        for (const auto &act : acts) {
            SCOPED_TRACE(std::string(act.name) + " in " + start.name);
            open({request("127.0.0.1", 0), request("127.0.0.1", 0)});
            const auto a = connect(0), b = connect(1), c = connect(0);
            on_release = act.act;
            start.start();
            EXPECT_TRUE(accepted.empty());
            on_release = nullptr;
            eserver_close(std::exchange(server, nullptr));
            run_for(10);
        }
    }
}

TEST_F(Server, MayBeClosedInItsAcceptCallback)
{
    on_accept = [&](estream *es) {
        eserver *self = static_cast<eserver *>(estream_get_data(es));
        eserver_close(self);
        EXPECT_EQ(eserver_get_data(self), this); // still there
        EXPECT_TRUE(estream_is_closing(es));
        EXPECT_EQ(eserver_bind(self, nullptr), -1);
        server = nullptr;
        return 0;
    };
    open({request("127.0.0.1", 0)});
    Client client(port());
    EXPECT_TRUE(ends(client));
}

TEST_F(Server, AStreamThatIsTakenOverOutlivesIt)
{
    open({request("127.0.0.1", 0)});
    const auto client = connect();
    estream *es = accepted.front();
    EXPECT_EQ(estream_pop(es), 0);
    estream_set_data(es, es, released_cb);
    estream_set_func(
        es, [](estream *stream, char *line, int) { return line ? estream_printf(stream, "%s\n", line) : 0; });
    eserver_close(std::exchange(server, nullptr));
    EXPECT_TRUE(echoes(*client));
    estream_close(es);
}

TEST_F(Server, FailedAccepts)
{
    open({request("127.0.0.1", 0)});
    const struct {
        int error;
        int failures;
        bool served; // the connection, in the end
        bool rests;
        bool reported;
    } rows[] = {
        {EINTR, 3, true, false, false}, // tried again at once
        {ECONNABORTED, 1, true, false, true}, {EAGAIN, 1, true, false, true},
        {EMFILE, 1, false, false, true}, // closed by means of the reserve
        {ENFILE, 1, false, false, true},      {ENOBUFS, 2, true, true, true}, // the reserve does not help
        {ENOMEM, 2, true, true, true},        {EINVAL, 1, true, true, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(strerror(row.error));
        log.take();
        accept_error = row.error;
        accept_failures = row.failures;
        const double start = get_time_from_boot();
        const Client client(port());
        std::string text;
        client.send("ping\n");
        run_until([&] { return client.ended(&text) || text == "ping\n"; });
        EXPECT_EQ(text, row.served ? "ping\n" : "");
        const double taken = get_time_from_boot() - start;
        EXPECT_EQ(taken >= 230, row.rests) << taken;
        EXPECT_EQ(log.take().find("failed estream_accept()") != std::string::npos, row.reported);
    }
    // Resting when it is closed or bound anew.
    for (const bool close : {false, true}) {
        accept_error = EINVAL;
        accept_failures = accept_calls = 1;
        const Client client(port());
        EXPECT_TRUE(run_until([] { return accept_failures == 0; }));
        if (close)
            eserver_close(std::exchange(server, nullptr));
        else
            EXPECT_EQ(bind({request("127.0.0.1", 0)}), 0);
        run_for(300);
    }
}

// With no descriptor left nothing spins, whether or not somebody knocks.
TEST_F(Server, NoDescriptorLeft)
{
    const ChildResult result = run_in_child([&] {
        const rlimit limit = {64, 64};
        setrlimit(RLIMIT_NOFILE, &limit);
        event_loop_init();
        open({request("127.0.0.1", 0)});
        Client refused(port());
        // A client that knocks later, from a process of its own.
        const uint16_t its_port = port();
        std::vector<int> hoard;
        for (int fd; (fd = dup(0)) >= 0;)
            hoard.push_back(fd);
        const double start = cpu_ms();
        run_for(500);
        printf("refused %d, cpu %s; ", refused.ended(), cpu_ms() - start < 100 ? "low" : "high");
        for (const int fd : hoard)
            close(fd);
        Client served(its_port);
        printf("echo %d", echoes(served));
    });
    EXPECT_EQ(result.output, "refused 1, cpu low; echo 1");
}

TEST_F(Server, BadInput)
{
    eserver_close(nullptr);
    EXPECT_EQ(eserver_bind(nullptr, nullptr), -1);
    EXPECT_EQ(eserver_get_data(nullptr), nullptr);
    EXPECT_EQ(eserver_fd_get(nullptr, 0), -1);
    EXPECT_EQ(eserver_estreams_close(nullptr, nullptr, nullptr), -1);
    server = eserver_open(nullptr, nullptr);
    EXPECT_EQ(eserver_fd_get(server, 0), -1);
    EXPECT_EQ(eserver_estreams_close(
                  server, [](estream *, void *, int) { return 1; }, nullptr),
              -1);
    // No accept callback: the connection stays open and is the server's.
    EXPECT_EQ(bind({request("127.0.0.1", 0)}), 0);
    const Client client(port());
    run_for(30);
    EXPECT_FALSE(client.ended());
    eserver_req named[] = {request("127.0.0.1", 0), {}};
    named[0].ifname = "no-such-interface-of-this-host";
    EXPECT_NE(eserver_bind(server, named), 0);
    EXPECT_TRUE(ends(client));
}

// Elsewhere the limit has no effect.
#if SIZE_MAX > UINT32_MAX && !defined(__SANITIZE_ADDRESS__)
TEST(ServerWithoutMemory, IsNone)
{
    ReportLog().take(); // a log that is alive in the child would want memory
    const ChildResult result = run_in_child([] {
        zel_error_set_mt_id();
        zel_error_register_level(0, 0x108, default_error_cb, nullptr);
        const eserver_req none = {};
        const rlimit limit = {0, 0};
        setrlimit(RLIMIT_AS, &limit);
        for (size_t size = 1 << 20; size >= 16; size -= size > 4096 ? size / 2 : 16) {
            while (void *volatile taken = malloc(size))
                static_cast<void>(taken);
        }
        if (eserver_open_addrs_ports(&none, 0, 0, nullptr, nullptr))
            _exit(1);
    });
    EXPECT_TRUE(result.exited_with(77)) << result.status << result.output;
    EXPECT_NE(result.output.find("failed\nerr: eserver: failed eserver_open()"), std::string::npos)
        << result.output;
}
#endif

} // namespace
