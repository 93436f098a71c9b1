#include "util/eserver.h"
#include "util/zel_error.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace
{

void init_reports()
{
    static const bool done = (zel_error_init_default(4), zel_error_set_mt_id(), true);
    (void)done;
}

bool keep_open;

constexpr int64_t kBatch = 1 << 20;
std::vector<char> piece(65536, 'x');
int64_t moved;

// A connection is made, accepted into a stream, told to its owner and closed again, beside `others` that are
// open.
void BM_Accept(benchmark::State &state)
{
    init_reports();
    event_loop_init();
    const estream_connect_cb count = [](estream *, int) {
        event_loop_quit = 1;
        return keep_open ? 0 : 1;
    };
    eserver *server = eserver_open_port(0, 0, count, nullptr);
    sockaddr_in name = {};
    socklen_t length = sizeof(name);
    getsockname(eserver_fd_get(server, 0), reinterpret_cast<sockaddr *>(&name), &length);
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto connect_one = [&] {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        if (connect(fd, reinterpret_cast<sockaddr *>(&name), length) != 0)
            state.SkipWithError("connect");
        event_loop_quit = 0;
        event_loop();
        return fd;
    };
    std::vector<int> others;
    keep_open = true;
    for (int64_t i = 0; i < state.range(0); i++)
        others.push_back(connect_one());
    keep_open = false;
    for (auto _ : state)
        close(connect_one());
    state.SetItemsProcessed(state.iterations());
    for (const int fd : others)
        close(fd);
    eserver_close(server);
    event_loop_uninit();
}
BENCHMARK(BM_Accept)->Arg(0)->Arg(100)->Iterations(2000);

// Bytes through a relay of two streams, from one socket pair to another.
void BM_Relay(benchmark::State &state)
{
    init_reports();
    event_loop_init();
    int from[2], to[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, from) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, to) != 0) {
        state.SkipWithError("socketpair");
        return;
    }
    constexpr uint32_t kFlags = ESTREAM_OWN_FD | ESTREAM_PLAIN | ESTREAM_CONNECTED;
    estream *a = estream_connect_fd(from[0], kFlags, nullptr);
    estream *b = estream_connect_fd(to[0], kFlags, nullptr);
    estream_throttle_opt options = {
        static_cast<int32_t>(state.range(0)), 65536, 0, nullptr, nullptr, nullptr};
    estream_throttle(a, &options, b, &options);
    const event_fd_cb feed = [](int fd, void *) { (void)!write(fd, piece.data(), piece.size()); };
    struct Sink {
        static void drain(int fd, void *)
        {
            const ssize_t length = read(fd, piece.data(), piece.size());
            moved += length > 0 ? length : 0;
            if (moved < kBatch)
                return;
            event_loop_quit = 1;
            event_fd_clr(fd, EVENT_READ, drain, nullptr);
        }
    };
    event_fd_set(from[1], EVENT_WRITE, feed, nullptr);
    for (auto _ : state) {
        moved = 0;
        event_loop_quit = 0;
        event_fd_set(to[1], EVENT_READ, Sink::drain, nullptr);
        event_loop();
    }
    state.SetBytesProcessed(state.iterations() * kBatch);
    event_fd_clr(from[1], EVENT_WRITE, feed, nullptr);
    estream_throttle_finish_now(a);
    close(from[1]);
    close(to[1]);
    event_loop_uninit();
}
BENCHMARK(BM_Relay)->Arg(1460)->Arg(16384)->Arg(102400);

} // namespace
