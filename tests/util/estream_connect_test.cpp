// Streams that connect, are accepted, close; null streams; a TLS layer.

#include "estream_fixture.h"

namespace
{

iaddr ipv4(uint32_t ip)
{
    iaddr addr = {};
    return *ip2iaddr(&addr, ip);
}

constexpr uint32_t kHere = 0x7f000001;

struct Listener {
    int fd;
    uint16_t port;
    explicit Listener(const iaddr &addr = ipv4(kHere))
        : fd(sock_socket_full(SOCK_STREAM, addr, 0, nullptr, 0, 0, 0)), port(0)
    {
        settle_ms = 20;
        sockaddr_storage bound = {};
        socklen_t length = sizeof(bound);
        EXPECT_EQ(listen(fd, 5), 0);
        EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &length), 0);
        sockaddr_get_port(reinterpret_cast<sockaddr *>(&bound), &port);
    }
    ~Listener() { socket_close(fd); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
};

int note_connect(estream *es, int ok)
{
    seen += ok ? "up" : "down";
    if (es == accepted)
        seen += "*";
    return 0;
}

} // namespace

TEST_F(Estream, ConnectsAcceptsAndKnowsBothEnds)
{
    const Listener listener;
    estream *es = estream_connect_tcp(0, note_connect, kHere, listener.port);
    ASSERT_NE(es, nullptr);
    EXPECT_EQ(estream_is_connected(es), 0);
    estream_write(es, "early", 5);
    accepted = estream_accept(listener.fd, 0, note_connect);
    ASSERT_NE(accepted, nullptr);
    EXPECT_EQ(seen, "") << "callbacks come from the loop";
    estream_set_func(accepted, stream_cb);
    estream_read(accepted, 5);
    const std::string order = run(100);
    EXPECT_EQ(order.size(), strlen("upup*[early]")) << order;
    EXPECT_EQ(estream_is_connected(es) + estream_is_connected(accepted), 2);
    EXPECT_EQ(estream_peer_port_get(es), listener.port);
    EXPECT_EQ(estream_local_port_get(accepted), listener.port);
    EXPECT_EQ(estream_local_port_get(es), estream_peer_port_get(accepted));
    EXPECT_EQ(estream_peer_ip_get(es), kHere);
    EXPECT_EQ(estream_local_ip_get(accepted), kHere);
    EXPECT_EQ(estream_is_local(accepted), 1);
    EXPECT_EQ(estream_set_tcp_keepalive(es, 60, 0, 3), 0);
    const int on = 1;
    EXPECT_EQ(estream_set_sockopt(es, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on)), 0);
    estream *copy = estream_null();
    EXPECT_EQ(estream_peer_ip_get(copy), 0U);
    EXPECT_NE(reports().find(": Wrong address family is used"), std::string::npos);
    estream_copy_peer_local_addr_port(copy, es);
    EXPECT_EQ(estream_peer_ip_get(copy), kHere);
    EXPECT_EQ(estream_peer_port_get(copy), listener.port);
    estream_close(copy);

    // Urgent data: the stream callback, or one of its own.
    estream_read_forever(accepted, 10);
    on_data = [](estream *stream, char *, int length) { return estream_read_ack(stream, length); };
    send(estream_fd_get(es), "u", 1, MSG_OOB);
    EXPECT_EQ(run(100), "[u]");
    _estream_set_urgent_func(
        accepted,
        [](estream *stream, char *bytes, int length) {
            return seen += std::string("!") + bytes[length - 1], estream_read_ack(stream, length);
        },
        nullptr);
    send(estream_fd_get(es), "v", 1, MSG_OOB);
    EXPECT_EQ(run(100), "!v");
    // A reset.
    const struct linger hard = {1, 0};
    estream_set_sockopt(es, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
    estream_set_data(accepted, name("data"), note_release);
    estream_close(es);
    EXPECT_EQ(run(100), "~data");
    EXPECT_NE(reports().find(strerror(ECONNRESET)), std::string::npos);
}

TEST_F(Estream, FailedConnectsAreToldOnce)
{
    uint16_t dead_port;
    {
        const Listener listener;
        dead_port = listener.port;
    }
    estream *es = estream_connect_tcp(0, note_connect, kHere, dead_port);
    if (es) {
        estream_set_data(es, name("data"), note_release);
        EXPECT_EQ(run(1000), "down~data");
        EXPECT_NE(reports(), "");
    } else {
        EXPECT_NE(reports().find("failed connect()"), std::string::npos);
    }
    // The caller's descriptor stays the caller's.
    for (const uint32_t flags : {0U, ESTREAM_OWN_FD}) {
        const int fd = sock_socket(SOCK_STREAM, 0, 0);
        iaddr none = {};
        EXPECT_EQ(estream_connect_tcp_full(fd, flags, nullptr, none, 1, none, 0, nullptr, 0, 0), nullptr);
        EXPECT_EQ(errno, EAFNOSUPPORT);
        EXPECT_EQ(fcntl(fd, F_GETFD), flags ? -1 : 0);
        socket_close(fd);
    }
    EXPECT_EQ(estream_connect_tcp_full(-1, 0, nullptr, iaddr{}, 1, iaddr{}, 0, nullptr, 0, 0), nullptr);
    const Listener listener;
    const int fd = sock_socket(SOCK_DGRAM, kHere, 0);
    EXPECT_EQ(estream_accept(fd, 0, nullptr), nullptr);
    EXPECT_NE(errno, 0);
    reports();
    socket_close(fd);
    // A callback may refuse a connection that is up.
    es = estream_connect_tcp(
        0, [](estream *, int ok) { return seen += "c", ok * 2; }, kHere, listener.port);
    EXPECT_EQ(run(100), "c");
    EXPECT_NE(reports().find("failed connect handler closed connection (rc=2)"), std::string::npos);
}

TEST_F(Estream, TheSourceAddressIsAskedForAnIpv4Destination)
{
    static int asked;
    asked = 0;
    set_matching_src_ip_cb([](uint32_t dst, const char *, uint32_t mark) {
        asked += dst == kHere && mark == 0;
        return 0x7f000002U;
    });
    const Listener listener;
    estream *es = estream_connect_tcp(0, note_connect, kHere, listener.port);
    EXPECT_EQ(run(100), "up");
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(estream_local_ip_get(es), 0x7f000002U);
    estream_close(es);
    set_matching_src_ip_cb(nullptr);
    // An IPv4 peer of an IPv6 socket is shown as IPv4.
    const int probe = socket(AF_INET6, SOCK_STREAM, 0);
    close(probe);
    if (probe < 0)
        GTEST_SKIP() << "no IPv6 here";
    const Listener both(*iaddr_any(AF_INET6));
    es = estream_connect_tcp(0, note_connect, kHere, both.port);
    estream *peer = estream_accept(both.fd, 0, nullptr);
    run(100);
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(estream_peer_addr_get(peer).family, AF_INET);
    EXPECT_EQ(estream_peer_ip_get(peer), kHere);
    estream_close(es), estream_close(peer);
}

TEST_F(Estream, AStreamOverAConnectedDescriptor)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    estream *es = estream_connect_fd(ends[0], ESTREAM_CONNECTED, note_connect);
    EXPECT_EQ(seen, "") << "the caller has the stream first";
    estream_set_func(es, stream_cb);
    estream_read_line(es);
    ASSERT_EQ(::write(ends[1], "x\n", 2), 2);
    EXPECT_EQ(run(), "up[x]");
    EXPECT_EQ(estream_peer_addr_get(es).family, 0) << "no address";
    EXPECT_EQ(estream_is_local(es), 0);
    EXPECT_EQ(estream_close(es), 0);
    EXPECT_EQ(fcntl(ends[0], F_GETFD), 0);
    // Closed before its callback came.
    es = estream_connect_fd(ends[0], ESTREAM_CONNECTED, note_connect);
    estream_close(es);
    EXPECT_EQ(run(), "");
    close(ends[0]), close(ends[1]);
}

// --- Closing ---

TEST_F(Estream, AClosedStreamAnswersUntilTheNextTimers)
{
    Line line;
    estream *es = line.es;
    estream_read_line(es), estream_write(es, "unsent", 6);
    line.put("in\n");
    const int fd = es->fd;
    EXPECT_EQ(estream_close(es), 0);
    EXPECT_EQ(std::exchange(seen, ""), "closed");
    for (estream *gone : {es, static_cast<estream *>(nullptr)}) {
        EXPECT_EQ(estream_close(gone), gone ? 1 : 0);
        EXPECT_EQ(estream_is_closing(gone), 1);
        EXPECT_EQ(estream_fd_get(gone), -1);
        for (const int result :
             {estream_read(gone, 1), estream_read_line(gone), estream_read_forever(gone, 1),
              estream_read_null_terminated(gone), estream_read_partial(gone, 0), estream_read_ack(gone, 1),
              estream_write(gone, "x", 1), estream_write_alloc(gone, 1), estream_write0(gone, 0),
              estream_printf(gone, "x"), estream_write_str_replace(gone, "x", "x", "y"), estream_push(gone),
              estream_pop(gone), estream_set_sockopt(gone, 0, 0, nullptr, 0)})
            EXPECT_EQ(result, -1);
        estream_set_data(gone, name("x"), note_release), estream_set_func(gone, stream_cb);
        estream_set_read_notify(gone, nullptr, nullptr, nullptr), estream_set_timeout(gone, 1, nullptr);
        estream_read_abort(gone), estream_clear_input(gone), estream_set_state(gone, 1);
        EXPECT_EQ(estream_pending_write(gone) + estream_pending_read(gone) + estream_get_state(gone), 0);
        EXPECT_EQ(estream_get_write_buf(gone), nullptr);
        EXPECT_EQ(estream_null_output_ack(gone, 1), 0);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(run(), "");
    EXPECT_EQ(reports(), "");
}

TEST_F(Estream, EveryCallbackMayCloseItsStream)
{
    const auto closing = [](estream *es, char *, int) { return seen += "!", estream_close(es), 7; };
    const std::pair<const char *, std::function<void(Line &)>> rows[] = {
        {"notice", [&](Line &line) { on_notice = closing, estream_write(line.es, "x", 1); }},
        {"notice at once", [&](Line &line) { on_notice = closing, estream_write(line.es, nullptr, 0); }},
        {"data", [&](Line &) { on_data = closing; }},
        {"bytes", [&](Line &line) { on_data = closing, estream_read(line.es, 1); }},
        {"time-out", [&](Line &line) { estream_set_timeout(line.es, 20, closing); }},
        {"read hook", [](Line &line) { estream_set_read_notify(line.es, close_in_hook, nullptr, line.es); }},
        {"write hook",
         [](Line &line) {
             estream_set_write_notify(line.es, close_in_hook, nullptr, line.es);
             estream_write(line.es, "x", 1);
         }},
        {"half close",
         [&](Line &line) {
             estream_set_half_close(line.es, [](estream *es) { return seen += "!", estream_close(es), 7; });
             shutdown(line.peer, SHUT_WR);
         }},
    };
    for (const auto &[what, set_up] : rows) {
        Line line(ESTREAM_HALF_CLOSE);
        on_data = on_notice = nullptr;
        estream_read_line(line.es);
        if (strcmp(what, "half close") != 0)
            line.put("a\nb\n");
        set_up(line);
        const std::string got = run(50);
        EXPECT_EQ(std::count(got.begin(), got.end(), '!'), 1) << what << got;
        EXPECT_FALSE(line.open) << what << got;
    }
    // Without a loop the record is freed when the callback has returned.
    const Line line;
    on_notice = closing;
    event_loop_uninit();
    EXPECT_EQ(estream_write(line.es, nullptr, 0), 0);
    EXPECT_EQ(seen, ".!closed");
}

// --- Null streams ---

TEST_F(Estream, ANullStreamCollects)
{
    for (const bool with_loop : {true, false}) {
        if (!with_loop)
            event_loop_uninit();
        on_notice = nullptr;
        estream *es = estream_null();
        estream_set_func(es, stream_cb);
        estream_set_data(es, name("data"), note_release);
        EXPECT_EQ(estream_null_output_len_get(es), 0);
        estream_printf(es, "%05000d", 1), estream_write_str(es, "end");
        EXPECT_EQ(estream_null_output_len_get(es), 5003);
        EXPECT_EQ(with_loop ? run(1000, 4) : ".", ".") << "told once for what was committed";
        EXPECT_EQ(estream_null_output_ack(es, 5000), 3);
        EXPECT_EQ(std::string(estream_null_output_get(es), 3), "end");
        EXPECT_EQ(estream_null_output_ack(es, -1), 3);
        EXPECT_EQ(reports(), "");
        EXPECT_EQ(estream_null_output_ack(es, 4), 0);
        EXPECT_EQ(reports(), "5: estream null len was acked more then its len\n");
        EXPECT_EQ(seen, "");
        estream_write(es, nullptr, 0);
        EXPECT_EQ(std::exchange(seen, ""), ".");
        estream_write_str(es, "old");
        const auto take_old = [](void *null, char *, int length) {
            return estream_null_output_ack(static_cast<estream *>(null), 3), length;
        };
        estream_set_write_notify(es, take_old, nullptr, es);
        estream_write_str(es, "new");
        estream_set_write_notify(es, nullptr, nullptr, nullptr);
        EXPECT_EQ(std::string(estream_null_output_get(es), 3), "new");
        if (with_loop) {
            on_notice = [](estream *, char *, int) { return 1; };
            estream_write_str(es, "x");
            EXPECT_EQ(run(), ".~data");
        } else {
            estream_close(es);
            EXPECT_EQ(std::exchange(seen, ""), "~data");
        }
    }
    event_loop_init();
    const Line line;
    estream_write(line.es, "abc", 3);
    EXPECT_EQ(estream_null_output_ack(line.es, 3), 0);
    EXPECT_EQ(estream_pending_write(line.es), 3) << "a descriptor's output is not acknowledged away";
}

// --- TLS ---

namespace
{

std::string tls_input; // decrypted, unknown to the descriptor

const kutil::StreamTls kTls = {
    [](estream *, char *to, int length) {
        const size_t n = std::min(tls_input.size(), static_cast<size_t>(std::min(length, 3)));
        memcpy(to, tls_input.data(), n);
        tls_input.erase(0, n);
        errno = EAGAIN;
        return n ? static_cast<int>(n) : -1;
    },
    [](estream *, const char *bytes, int length) {
        seen += "{" + std::string(bytes, static_cast<size_t>(length)) + "}";
        return length;
    },
    [](estream *) { return static_cast<int>(tls_input.size()); },
    [](estream *es) {
        seen += "shake";
        if (tls_input != "wait")
            tls_input == "bad" ? kutil::stream_abort_connect(es) : kutil::stream_connected(es);
    },
    [](estream *) { seen += "bye"; }};

} // namespace

TEST_F(Estream, ATlsLayerCarriesTheStream)
{
    expect_fatal("estream_connect(0): called with ESTREAM_SSL before estream_ssl_open_func init",
                 [] { estream_connect_fd(0, ESTREAM_SSL | ESTREAM_SOCKOPT_DONE, nullptr); });
    const auto open = [](estream *es, void *) { return kutil::stream_set_tls(es, &kTls), 0; };
    EXPECT_EQ(estream_ssl_open_func_set(open), nullptr);
    for (const char *how : {"", "bad", "wait"}) {
        const bool good = !*how;
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        tls_input = how;
        estream *es = estream_connect_fd(ends[0], ESTREAM_OWN_FD | ESTREAM_SSL, note_connect);
        estream_set_timeout(es, 500, nullptr);
        EXPECT_EQ(run(), good ? "shakeup" : tls_input == "bad" ? "shakedownbye" : "shake");
        if (tls_input == "wait") {
            estream_set_timeout(es, 500, nullptr);
            EXPECT_EQ(run(600), "downbye") << "the layer alone waits for the descriptor";
        }
        if (good) {
            estream_set_timeout(es, 0, nullptr);
            estream_set_func(es, stream_cb);
            tls_input = "hello\nworld\nrest";
            estream_read_line(es);
            EXPECT_EQ(run(), "[hello][world]") << "what is pending is read without the descriptor's help";
            estream_write(es, "out", 3);
            EXPECT_EQ(run(), "{out}.");
            estream_read_forever(es, 4);
            EXPECT_EQ((tls_input = "more", run(1000, 10)), "[rest]") << "pending, with no room: no spinning";
            estream_close(es);
            EXPECT_EQ(std::exchange(seen, ""), "bye");
        }
        close(ends[1]);
    }
    tls_input.clear();
    estream_ssl_open_func_set([](estream *, void *) { return 1; });
    EXPECT_EQ(estream_connect_fd(0, ESTREAM_SSL | ESTREAM_SOCKOPT_DONE, note_connect), nullptr);
    EXPECT_EQ(seen, "");
    estream_ssl_open_func_set(nullptr);
}
