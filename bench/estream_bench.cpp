// Streams over socket pairs: line echo, a line that arrives byte by byte, and bulk transfer.

#include "util/estream.h"
#include "util/event.h"
#include "util/zel_error.h"

#include <benchmark/benchmark.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

int64_t wanted; // what a callback still waits for

void start_loop()
{
    static const bool once = [] {
        zel_error_init_default(6);
        zel_error_set_mt_id();
        return true;
    }();
    (void)once;
    event_loop_init();
}

void count_down(int64_t n)
{
    wanted -= n;
    if (wanted <= 0)
        event_loop_quit = 1;
}

void run_until(int64_t count)
{
    wanted = count;
    event_loop_quit = 0;
    event_loop();
}

estream *stream_of(int fd, estream_cb callback)
{
    estream *es = estream_connect_fd(fd, ESTREAM_OWN_FD | ESTREAM_CONNECTED, nullptr);
    estream_set_func(es, callback);
    return es;
}

int echo(estream *es, char *line, int length)
{
    if (line) {
        line[length] = '\n';
        estream_write(es, line, length + 1);
    }
    return 0;
}

int count_line(estream *, char *line, int)
{
    if (line)
        count_down(1);
    return 0;
}

int count_bytes(estream *es, char *bytes, int length)
{
    if (bytes) {
        estream_read_ack(es, length);
        count_down(length);
    }
    return 0;
}

// A batch of lines goes to a stream that answers each and comes back.
void LineEcho(benchmark::State &state)
{
    start_loop();
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    estream *server = stream_of(ends[0], echo);
    estream *client = stream_of(ends[1], count_line);
    estream_read_line(server);
    estream_read_line(client);
    std::string batch;
    for (int64_t i = 0; i < state.range(0); i++)
        batch += "GET interface.lan.address of line " + std::to_string(1000 + i) + " in the batch, please\n";
    for (auto _ : state) {
        estream_write(client, batch.data(), static_cast<int>(batch.size()));
        run_until(state.range(0));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    estream_close(client);
    estream_close(server);
    event_loop_uninit();
}
BENCHMARK(LineEcho)->Arg(1)->Arg(10)->Arg(100)->Arg(200)->Arg(400);

int64_t bytes_to_feed;

void feed(int fd, void *)
{
    bytes_to_feed--;
    if (write(fd, bytes_to_feed ? "x" : "\n", 1) != 1 || bytes_to_feed == 0)
        event_fd_clr(fd, EVENT_WRITE, feed, nullptr);
}

void ByteByByte(benchmark::State &state)
{
    start_loop();
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    estream *server = stream_of(ends[0], count_line);
    estream_read_line(server);
    for (auto _ : state) {
        bytes_to_feed = state.range(0);
        event_fd_set(ends[1], EVENT_WRITE, feed, nullptr);
        run_until(1);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    estream_close(server);
    close(ends[1]);
    event_loop_uninit();
}
BENCHMARK(ByteByByte)->Arg(2048)->Arg(4096)->Arg(8192);

void Bulk(benchmark::State &state)
{
    start_loop();
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    estream *server = stream_of(ends[0], count_bytes);
    estream *client = stream_of(ends[1], count_line);
    estream_read_forever(server, 0);
    const std::string chunk(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        estream_write(client, chunk.data(), static_cast<int>(chunk.size()));
        run_until(state.range(0));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    estream_close(client);
    estream_close(server);
    event_loop_uninit();
}
BENCHMARK(Bulk)->Arg(1 << 16)->Arg(1 << 20)->Arg(1 << 21);

} // namespace
