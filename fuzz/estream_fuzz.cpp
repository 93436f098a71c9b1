// A script of operations on a stream over a socket pair, also from inside its callbacks. What must hold: no
// crash, what arrives at the peer is what was written, lines hold no line ends, and the loop rests.

#include "util/estream.h"
#include "util/event.h"
#include "util/internal/event.h"
#include "util/zel_error.h"

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

struct Script {
    const uint8_t *at;
    const uint8_t *end;
    int next() { return at < end ? *at++ : 0; }
};

Script script;
estream *es; // NULL once it is released
int peer;
int depth;
int waits;
bool asks_lines;
std::string written;

int bounded_wait(int count, int has_timeout, double)
{
    require(++waits < 2000);
    if (!has_timeout)
        event_loop_quit = 1;
    return kutil::kPollBackEnd.wait(count, 1, 0);
}

void quit(void *) { event_loop_quit = 1; }

void run()
{
    waits = 0;
    for (int i = 0; i < 4; i++) {
        event_timer_set(0, quit, nullptr);
        event_loop();
        event_loop_quit = 0;
    }
}

void act();

int on_data(estream *stream, char *bytes, int length)
{
    require(stream == es && (bytes != nullptr || length == 0));
    for (int i = 0; asks_lines && i < length; i++)
        require(bytes[i] != '\n' && bytes[i] != '\0');
    if (++depth < 3)
        act();
    // Whatever happened, the bytes are still there.
    for (volatile int i = 0, sum = 0; i < length; i = i + 1)
        sum = sum + bytes[i];
    depth--;
    return script.next() == 255 ? 1 : 0;
}

void put_input(int n)
{
    std::string bytes;
    for (int i = 0; i < n; i++)
        bytes += "ab\r\n\0x\nyzwv"[(i * 7 + n) % 11];
    if (write(peer, bytes.data(), bytes.size()) < 0)
        return;
}

void put_output(int n)
{
    std::string bytes(static_cast<size_t>(n) * 5, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(written.size() + static_cast<size_t>(&byte - bytes.data()));
    if (estream_write(es, bytes.data(), static_cast<int>(bytes.size())) == 0)
        written += bytes;
}

void act()
{
    if (!es)
        return;
    const int what = script.next() % 20;
    const int n = script.next();
    const bool lines = what == 0;
    if (what <= 4)
        asks_lines = lines;
    switch (what) {
    case 0:
        estream_read_line(es);
        break;
    case 1:
        estream_read(es, n * 40);
        break;
    case 2:
        estream_read_partial(es, n * 9);
        break;
    case 3:
        estream_read_forever(es, n * 30);
        break;
    case 4:
        estream_read_null_terminated(es);
        break;
    case 5:
        estream_read_abort(es);
        break;
    case 6:
        estream_read_ack(es, n);
        break;
    case 7:
        estream_clear_input(es);
        break;
    case 8:
        put_input(n);
        break;
    case 9:
        put_input(n * 40);
        break;
    case 10:
        put_output(n);
        break;
    case 11:
        put_output(n * 20);
        break;
    case 12:
        estream_push(es);
        break;
    case 13:
        estream_pop(es);
        break;
    case 14:
        run();
        break;
    case 15:
        estream_set_timeout(es, n * 100, on_data);
        break;
    case 16:
        estream_close(es);
        break;
    case 17:
        shutdown(peer, SHUT_WR);
        break;
    default:
        break;
    }
}

void take_output()
{
    char buffer[4096];
    for (ssize_t n; (n = read(peer, buffer, sizeof(buffer))) > 0;) {
        require(written.compare(0, static_cast<size_t>(n), buffer, static_cast<size_t>(n)) == 0);
        written.erase(0, static_cast<size_t>(n));
    }
}

void start(int flags)
{
    static const event_be back_end = [] {
        event_be table = kutil::kPollBackEnd;
        table.wait = bounded_wait;
        return table;
    }();
    static const bool once = [] {
        zel_error_init_nodefault();
        zel_error_set_mt_id();
        zel_error_register(
            0, [](void *, const char *, int, uint32_t) { return 0; }, nullptr);
        event_be_set(&back_end);
        return true;
    }();
    (void)once;
    event_loop_init();
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    peer = ends[1];
    fcntl(peer, F_SETFL, O_NONBLOCK);
    es = estream_connect_fd(ends[0],
                            ESTREAM_OWN_FD | ESTREAM_CONNECTED | (flags & 1 ? ESTREAM_HALF_CLOSE : 0) |
                                (flags & 2 ? ESTREAM_SHRINK : 0),
                            nullptr);
    estream_set_func(es, on_data);
    estream_set_data(es, &es, [](void *, void *, event_any_cb) { es = nullptr; });
    written.clear();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    script = {data, data + size};
    start(script.next());
    while (script.at < script.end && es) {
        act();
        run();
        take_output();
    }
    if (es)
        estream_close(es);
    event_loop_uninit();
    close(peer);
    return 0;
}
