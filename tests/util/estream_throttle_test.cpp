#include "util/estream.h"

#include "support.h"
#include "support/loop.h"

#include <random>

namespace
{

// Two streams, a and b, with a plain descriptor as the peer of each.
const std::string kLarge(300000, 'x'); // more than the sockets hold

class Relay : public testing::Test
{
public:
    struct End {
        estream *es = nullptr;
        int peer = -1;
        std::string got;         // by the peer
        bool ended = false;      // the peer read the end
        int released = 0;        // the owner's data
        std::string owners_data; // what the owner's callback got
    };

    void SetUp() override
    {
        before = open_fds();
        event_loop_init();
    }
    void TearDown() override
    {
        for (End *end : {&a, &b}) {
            if (!end->released && end->es)
                estream_close(end->es);
            hang_up(*end);
        }
        event_loop_uninit();
        EXPECT_EQ(open_fds(), before);
    }

    static void on_owner_release(void *data, void *, event_any_cb) { static_cast<End *>(data)->released++; }
    static int on_owner(estream *es, char *buffer, int length)
    {
        if (buffer)
            static_cast<End *>(estream_get_data(es))->owners_data.append(buffer, static_cast<size_t>(length));
        return 0;
    }

    void make(End &end, uint32_t flags)
    {
        int fds[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        const int size = 4096;
        setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
        end = {};
        end.peer = fds[1];
        end.es =
            estream_connect_fd(fds[0], flags | ESTREAM_OWN_FD | ESTREAM_PLAIN | ESTREAM_CONNECTED, nullptr);
        ASSERT_NE(end.es, nullptr);
        estream_set_data(end.es, &end, on_owner_release);
        estream_set_func(end.es, on_owner);
    }
    void start(estream_throttle_opt a_options = {}, estream_throttle_opt b_options = {}, uint32_t flags = 0)
    {
        make(a, flags);
        make(b, flags);
        log.take();
        const std::string report = "8: estream_throttle " + std::to_string(estream_fd_get(a.es)) + "<->" +
                                   std::to_string(estream_fd_get(b.es)) + "\n";
        EXPECT_EQ(estream_throttle(a.es, &a_options, b.es, &b_options), -1);
        EXPECT_EQ(log.take(), report);
    }
    static void send(const End &end, const std::string &text)
    {
        EXPECT_EQ(::send(end.peer, text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    // All of it is on its way to b, which does not take it.
    void send_large_from_a() const
    {
        size_t sent = 0;
        run_until([&] {
            const ssize_t n = ::send(a.peer, kLarge.data(), kLarge.size() - sent, MSG_DONTWAIT);
            sent += n > 0 ? static_cast<size_t>(n) : 0;
            return sent == kLarge.size();
        });
        run_for(20);
    }
    static void hang_up(End &end)
    {
        if (end.peer >= 0)
            close(std::exchange(end.peer, -1));
    }
    static void take(End &end, size_t most = SIZE_MAX)
    {
        char buffer[8192];
        ssize_t length = 1;
        while (end.peer >= 0 && most > 0 && length > 0) {
            length = recv(end.peer, buffer, std::min(most, sizeof(buffer)), MSG_DONTWAIT);
            if (length > 0) {
                end.got.append(buffer, static_cast<size_t>(length));
                most -= static_cast<size_t>(length);
            }
            end.ended = end.ended || length == 0;
        }
    }
    bool until(std::function<bool()> done)
    {
        return run_until([&] {
            take(a);
            take(b);
            return done();
        });
    }
    bool gets(End &end, const std::string &text)
    {
        return until([&] { return end.got.size() >= text.size(); }) && end.got == text;
    }
    bool both_closed()
    {
        return until([&] { return a.released && b.released; }) && a.released == 1 && b.released == 1;
    }

    ReportLog log;
    End a, b;
    std::set<int> before;
};

TEST_F(Relay, PassesBothWaysUnchanged)
{
    start();
    std::string large;
    for (int i = 0; large.size() < kLarge.size(); i++)
        large += std::to_string(i) + std::string(1, '\0');
    size_t sent = 0;
    send(b, "back");
    EXPECT_TRUE(until([&] {
        const ssize_t n =
            ::send(a.peer, large.data() + sent, large.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        sent += n > 0 ? static_cast<size_t>(n) : 0;
        return b.got.size() == large.size();
    }));
    EXPECT_TRUE(b.got == large);
    EXPECT_EQ(a.got, "back");
    EXPECT_TRUE(a.owners_data.empty() && b.owners_data.empty());
}

// The request that the owner left is replaced, and what it has buffered goes first.
TEST_F(Relay, BeginsInTheOwnersCallback)
{
    make(a, 0);
    make(b, 0);
    static Relay *test;
    test = this;
    estream_set_func(a.es, [](estream *, char *line, int) {
        EXPECT_STREQ(line, "CONNECT");
        estream_throttle(test->a.es, nullptr, test->b.es, nullptr);
        return 0;
    });
    estream_read_line(a.es);
    estream_read(b.es, 100);
    send(a, "CONNECT\r\nline\npiece");
    send(b, "short");
    EXPECT_TRUE(gets(b, "line\npiece"));
    EXPECT_TRUE(gets(a, "short"));
    EXPECT_EQ(estream_get_read_req(a.es), 102400);
}

// When one side is to end and then goes at once, the other is not read any more.
TEST_F(Relay, ASideGoesWhileItEnds)
{
    start({}, {.high_water = 1 << 20});
    send_large_from_a();
    estream_throttle_finish(a.es);
    ASSERT_EQ(b.released, 0);
    estream_close(a.es);
    EXPECT_EQ(estream_get_read_req(b.es), 0);
    EXPECT_TRUE(both_closed());
    EXPECT_TRUE(until([&] { return b.ended; }));
    EXPECT_EQ(b.got.size(), kLarge.size());
}

// A null stream collects what arrives, and does not keep the relay from ending.
TEST_F(Relay, IntoANullStream)
{
    make(a, 0);
    b.es = estream_null();
    estream_set_data(b.es, &b, on_owner_release);
    const estream_throttle_opt given_back = {.flags = ESTREAM_THROTTLE_POP};
    estream_throttle(a.es, nullptr, b.es, &given_back);
    send(a, "one");
    EXPECT_TRUE(until([&] { return estream_null_output_len_get(b.es) == 3; }));
    send(a, "two");
    EXPECT_TRUE(until([&] { return estream_null_output_len_get(b.es) == 6; }));
    hang_up(a);
    EXPECT_TRUE(until([&] { return a.released && estream_get_data(b.es) == &b; }));
    EXPECT_EQ(std::string(estream_null_output_get(b.es), 6), "onetwo");
}

// Reading pauses above the other side's mark, exactly, and goes on by itself.
TEST_F(Relay, FlowControl)
{
    for (const int high_water : {-5, 0, 1000, 50000}) {
        SCOPED_TRACE(high_water);
        start({.read_size = 1000}, {.high_water = high_water});
        size_t sent = 0;
        int most = 0;
        // The peer of b reads nothing.
        run_until([&] {
            const ssize_t n =
                ::send(a.peer, kLarge.data(), kLarge.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
            sent += n > 0 ? static_cast<size_t>(n) : 0;
            most = std::max(most, estream_pending_write(b.es));
            return estream_get_read_req(a.es) == 0;
        });
        most = std::max(most, estream_pending_write(b.es));
        EXPECT_GT(most, std::max(high_water, 0));
        EXPECT_LE(most, std::max(high_water, 0) + 1000);
        EXPECT_NE(estream_get_read_req(b.es), 0); // the other way still flows
        EXPECT_TRUE(until([&] {
            const ssize_t n =
                ::send(a.peer, kLarge.data(), kLarge.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
            sent += n > 0 ? static_cast<size_t>(n) : 0;
            return b.got.size() == kLarge.size();
        }));
        EXPECT_NE(estream_get_read_req(a.es), 0);
        estream_throttle_finish_now(a.es);
        EXPECT_TRUE(both_closed());
        hang_up(a);
        hang_up(b);
    }
}

// A filter of each kind, and what becomes of "ab" "cd".
TEST_F(Relay, Filters)
{
    struct Row {
        const char *name;
        estream_filter filter;
        estream_full_filter full;
        const char *passed;
        bool closes;
    };
    static estream *es;
    static std::string seen;
    const Row rows[] = {
        {"as it is", [](void *, char **, int *) { return 0; }, nullptr, "abcd", false},
        {"any other answer", [](void *, char **, int *) { return -7; }, nullptr, "abcd", false},
        {"drop", [](void *, char **, int *) { return ESTREAM_FILTER_DROP; }, nullptr, "", false},
        {"fail", [](void *, char **, int *) { return ESTREAM_FILTER_FAIL; }, nullptr, "", true},
        {"shorter", [](void *, char **, int *n) { return *n = 1, 0; }, nullptr, "ac", false},
        {"replaced",
         [](void *data, char **buffer, int *length) {
             *buffer = static_cast<char *>(data);
             return *length = -1, 0;
         },
         nullptr, "datadata", false},
        {"no buffer", [](void *, char **buffer, int *) { return *buffer = nullptr, 0; }, nullptr, "", false},
        {"full, takes all", nullptr, [](void *, char **, int *n, estream_ack ack) { return ack(es, *n), 0; },
         "abcd", false},
        {"full, keeps all till the end", nullptr,
         [](void *, char **buffer, int *n, estream_ack ack) {
             seen.assign(*buffer, static_cast<size_t>(*n));
             if (*n < 4)
                 return ESTREAM_FILTER_DROP;
             return ack(es, *n), 0;
         },
         "abcd", false},
        {"full, before the simple one", [](void *, char **, int *) { return ESTREAM_FILTER_FAIL; },
         [](void *, char **, int *n, estream_ack ack) { return ack(es, *n), 0; }, "abcd", false},
    };
    static char data[] = "data";
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        seen.clear();
        start({.filter = row.filter, .full_filter = row.full, .filter_data = data}, {.high_water = 100000});
        es = a.es;
        send(a, "ab");
        run_for(20);
        if (!row.closes)
            send(a, "cd");
        if (!row.closes)
            run_for(20);
        take(b);
        EXPECT_EQ(b.got, row.passed);
        EXPECT_EQ(a.released, row.closes);
        EXPECT_EQ(b.released, row.closes);
        if (!row.closes)
            estream_throttle_finish_now(b.es);
        EXPECT_TRUE(both_closed());
        hang_up(a);
        hang_up(b);
    }
}

// How a relay ends, while b has much to send and a's peer goes on sending.
TEST_F(Relay, Ends)
{
    const struct {
        const char *name;
        std::function<void()> act;
        bool b_is_sent; // what b had to send
    } rows[] = {
        {"finish", [&] { estream_throttle_finish(a.es); }, true},
        {"finish twice", [&] { estream_throttle_finish(a.es), estream_throttle_finish(a.es); }, true},
        {"finish of the one that sends", [&] { estream_throttle_finish(b.es); }, false},
        {"finish of both", [&] { estream_throttle_finish(a.es), estream_throttle_finish(b.es); }, false},
        {"finish now", [&] { estream_throttle_finish_now(a.es); }, false},
        {"finish now, the other", [&] { estream_throttle_finish_now(b.es); }, false},
        {"a closed", [&] { estream_close(a.es); }, true},
        {"b closed", [&] { estream_close(b.es); }, false},
        {"a's peer gone", [&] { hang_up(a); }, true},
        {"b's peer gone", [&] { hang_up(b); }, false},
        {"a's data replaced", [&] { estream_set_data(a.es, nullptr, nullptr), estream_close(a.es); }, true},
    };
    for (const auto &row : rows) {
        for (const uint32_t flags : {0U, ESTREAM_THROTTLE_POP}) {
            SCOPED_TRACE(std::string(row.name) + (flags ? ", given back" : ", closed"));
            start({.high_water = 1 << 20, .flags = flags}, {.high_water = 1 << 20, .flags = flags});
            send_large_from_a();
            ASSERT_GT(estream_pending_write(b.es), 0);
            row.act();
            if (row.b_is_sent) {
                EXPECT_EQ(b.released, 0);
                if (!a.released && a.peer >= 0)
                    send(a, "late");
            }
            // Given back, a stream has its owner's state, data and callback again, and stays.
            EXPECT_TRUE(until([&] {
                const auto over = [](const End &end) {
                    return end.released ||
                           (estream_get_data(end.es) == &end && estream_get_read_req(end.es) == 0);
                };
                return over(a) && over(b) && (!row.b_is_sent || b.got.size() >= kLarge.size());
            }));
            EXPECT_EQ(b.got.size() >= kLarge.size(), row.b_is_sent);
            for (End *end : {&a, &b}) {
                if (flags && !end->released && end->peer >= 0) {
                    estream_read_forever(end->es, 0);
                    send(*end, "owner");
                    until([&] { return end->owners_data.find("owner") != std::string::npos; });
                }
                if (!end->released)
                    estream_close(end->es);
                EXPECT_EQ(end->released, 1);
                hang_up(*end);
            }
        }
    }
}

TEST_F(Relay, HalfClosePassesThrough)
{
    start({}, {}, ESTREAM_HALF_CLOSE);
    send(a, "request");
    shutdown(a.peer, SHUT_WR);
    EXPECT_TRUE(until([&] { return b.ended; }));
    EXPECT_EQ(b.got, "request");
    EXPECT_FALSE(a.released || b.released);
    const double start_ms = cpu_ms();
    run_for(100);
    EXPECT_LT(cpu_ms() - start_ms, 10); // the end that was read is not read again
    send(b, "answer");
    EXPECT_TRUE(gets(a, "answer"));
    shutdown(b.peer, SHUT_WR);
    EXPECT_TRUE(both_closed());
    take(a);
    EXPECT_TRUE(a.ended);
}

TEST_F(Relay, HalfCloseAfterAllOutput)
{
    start({.high_water = 1 << 20}, {.high_water = 1 << 20}, ESTREAM_HALF_CLOSE);
    size_t sent = 0;
    run_until([&] {
        const ssize_t n = ::send(a.peer, kLarge.data(), kLarge.size() - sent, MSG_DONTWAIT);
        sent += n > 0 ? static_cast<size_t>(n) : 0;
        return sent == kLarge.size();
    });
    shutdown(a.peer, SHUT_WR);
    run_for(20);
    ASSERT_GT(estream_pending_write(b.es), 0);
    EXPECT_TRUE(until([&] { return b.ended; }));
    EXPECT_TRUE(b.got == kLarge);
    send(b, "answer");
    EXPECT_TRUE(gets(a, "answer"));
}

// Where it cannot pass through it is like a close.
TEST_F(Relay, HalfCloseOfOneStream)
{
    make(a, ESTREAM_HALF_CLOSE);
    make(b, 0);
    estream_throttle(a.es, nullptr, b.es, nullptr);
    send(a, "last");
    shutdown(a.peer, SHUT_WR);
    EXPECT_TRUE(both_closed());
    take(b);
    EXPECT_EQ(b.got, "last");
}

// A stream whose owner reads by himself.
TEST_F(Relay, ManualReading)
{
    start({.flags = ESTREAM_THROTTLE_MANUAL}, {});
    send(a, "0123456789");
    send(b, "to a");
    EXPECT_TRUE(gets(a, "to a"));
    EXPECT_EQ(estream_get_read_req(a.es), 0);
    EXPECT_EQ(b.got, "");
    estream_read(a.es, 4);
    EXPECT_TRUE(gets(b, "0123"));
    EXPECT_EQ(estream_get_read_req(a.es), 0);
}

TEST_F(Relay, StrangersAndStreamsThatAreClosing)
{
    make(a, 0);
    make(b, 0);
    EXPECT_EQ(estream_throttle_finish(nullptr), 0);
    EXPECT_EQ(estream_throttle_finish(a.es), 0);
    EXPECT_EQ(estream_throttle_finish_now(a.es), 0);
    EXPECT_EQ(estream_throttle(a.es, nullptr, a.es, nullptr), -1);
    EXPECT_FALSE(estream_is_closing(a.es));
    estream_throttle(nullptr, nullptr, nullptr, nullptr);
    estream_throttle(a.es, nullptr, nullptr, nullptr);
    EXPECT_EQ(a.released, 1);
    // b has something to send, and is closed once it is sent.
    const std::string text(100000, 'y');
    estream_write(b.es, text.data(), static_cast<int>(text.size()));
    estream_throttle(a.es, nullptr, b.es, nullptr);
    EXPECT_EQ(b.released, 0);
    EXPECT_TRUE(gets(b, text));
    EXPECT_TRUE(both_closed());
}

// What a filter may do to the relay that it is in.
TEST_F(Relay, FiltersMayDoAnything)
{
    static std::function<void()> act;
    static int answer;
    const estream_filter simple = [](void *, char **, int *) { return act(), answer; };
    const estream_full_filter full = [](void *, char **, int *, estream_ack) { return act(), answer; };
    const std::function<void()> acts[] = {
        [&] { estream_close(a.es); },
        [&] { estream_close(b.es); },
        [&] { estream_close(b.es), estream_close(a.es); },
        [&] { estream_throttle_finish(a.es); },
        [&] { estream_throttle_finish(b.es); },
        [&] { estream_throttle_finish_now(a.es); },
        [&] { estream_pop(a.es); },
        [&] { estream_pop(b.es); },
        [&] { estream_set_data(a.es, nullptr, nullptr); },
    };
    for (const auto &one : acts) {
        for (const uint32_t flags : {0U, ESTREAM_THROTTLE_POP}) {
            for (int row = 0; row <= 4; row++) {
                act = one;
                answer = row % 4;
                start({.flags = flags, .filter = simple, .full_filter = row > 2 ? full : nullptr},
                      {.flags = flags});
                send(b, "other way");
                send(a, "x");
                run_for(10);
                for (End *end : {&a, &b}) {
                    if (!end->released)
                        estream_close(end->es);
                    EXPECT_EQ(end->released, 1);
                    hang_up(*end);
                }
            }
        }
    }
}

// Peers that send and read pieces of any size: every byte comes once and in order.
TEST_F(Relay, AnyPiecesArriveInOrder)
{
    std::mt19937 random(5);
    for (int round = 0; round < 3; round++) {
        start({.read_size = 1 + static_cast<int>(random() % 5000),
               .high_water = static_cast<int>(random() % 3000)},
              {.read_size = 1 + static_cast<int>(random() % 300), .high_water = 0}, ESTREAM_HALF_CLOSE);
        std::string sent[2];
        End *ends[] = {&a, &b};
        for (int step = 0; step < 300; step++) {
            const size_t i = random() % 2;
            std::string piece(random() % 3000, '\0');
            for (char &c : piece)
                c = static_cast<char>(random());
            const ssize_t n = ::send(ends[i]->peer, piece.data(), piece.size(), MSG_DONTWAIT);
            sent[i].append(piece, 0, n > 0 ? static_cast<size_t>(n) : 0);
            take(*ends[random() % 2], random() % 4000);
            int turns = 3;
            run_until([&] { return --turns < 0; });
        }
        shutdown(a.peer, SHUT_WR);
        shutdown(b.peer, SHUT_WR);
        EXPECT_TRUE(both_closed());
        until([&] { return a.ended && b.ended; });
        EXPECT_TRUE(b.got == sent[0]) << b.got.size() << " of " << sent[0].size();
        EXPECT_TRUE(a.got == sent[1]) << a.got.size() << " of " << sent[1].size();
        hang_up(a);
        hang_up(b);
    }
}

} // namespace
