#ifndef KUTIL_TESTS_ESTREAM_FIXTURE_H
#define KUTIL_TESTS_ESTREAM_FIXTURE_H

#include "support.h"
#include "util/estream.h"
#include "util/internal/estream.h"
#include "util/sock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/times.h>

// For test programs of one source each. Streams over socket pairs, on a clock of the test's own: waiting for
// a time-out moves it and takes no time. Reads and writes fail and fall short on demand.

namespace estream_fixture
{

inline uint32_t ticks = 1000;

// The next results of read and send: an errno, or how many bytes at most when negative; 0 is a real call.
inline std::vector<int> read_script;
inline std::vector<int> send_script;

// The length to ask for, or -1 with errno.
inline ssize_t next_of(std::vector<int> *script, size_t length)
{
    if (script->empty())
        return static_cast<ssize_t>(length);
    const int entry = script->front();
    script->erase(script->begin());
    if (entry > 0) {
        errno = entry;
        return -1;
    }
    return entry < 0 ? std::min<ssize_t>(-entry, static_cast<ssize_t>(length)) : static_cast<ssize_t>(length);
}

} // namespace estream_fixture

extern "C" clock_t times(struct tms *) { return static_cast<clock_t>(estream_fixture::ticks); }

extern "C" ssize_t read(int fd, void *buffer, size_t length)
{
    const ssize_t allowed = estream_fixture::next_of(&estream_fixture::read_script, length);
    return allowed < 0 ? -1 : syscall(SYS_read, fd, buffer, static_cast<size_t>(allowed));
}

extern "C" ssize_t send(int fd, const void *buffer, size_t length, int flags)
{
    const ssize_t allowed = estream_fixture::next_of(&estream_fixture::send_script, length);
    if (allowed < 0)
        return -1;
    return syscall(SYS_sendto, fd, buffer, static_cast<size_t>(allowed), flags, nullptr, 0);
}

namespace estream_fixture
{

inline int waits;        // since the last run began
inline int settle_ms;    // what the system may take to deliver; 0 for socket pairs
inline std::string seen; // what callbacks saw since the last run

inline int test_wait(int count, int has_timeout, double ms)
{
    waits++;
    const int ready =
        kutil::kPollBackEnd.wait(count, 1, has_timeout ? std::min<double>(ms, settle_ms) : 3000);
    if (ready == 0 && !has_timeout) {
        ADD_FAILURE() << "the loop waits for nothing";
        event_loop_quit = 1;
    }
    if (ready == 0)
        ticks += static_cast<uint32_t>(std::ceil(std::min(ms, 1e9) / 10));
    return ready;
}

inline bool *current_run; // set when it has had its time

inline void quit(void *done)
{
    *static_cast<bool *>(done) = true;
    event_loop_quit = 1;
}

// Runs the loop for `ms` of its time and returns what callbacks saw. The loop works when something happens
// and not otherwise: `most_waits` is how often it may wake.
inline std::string run(double ms = 0, int most_waits = 40)
{
    waits = 0;
    ticks++;
    bool done = false;
    bool *const outer = std::exchange(current_run, &done);
    event_timer_set(ms + 5, quit, &done);
    while (!done && kutil::event_loop_is_up()) {
        event_loop();
        event_loop_quit = 0;
    }
    current_run = outer;
    event_loop_quit = outer && *outer;
    EXPECT_LE(waits, most_waits) << "the loop spins";
    return std::exchange(seen, "");
}

using Action = std::function<int(estream *, char *, int)>;
inline Action on_data;   // called for data after it was noted
inline Action on_notice; // called when all is written

inline int stream_cb(estream *es, char *bytes, int length)
{
    if (!bytes) {
        seen += ".";
        return on_notice ? Action(on_notice)(es, bytes, length) : 0;
    }
    seen += "[" + std::string(bytes, static_cast<size_t>(length)) + "]";
    return on_data ? Action(on_data)(es, bytes, length) : 0;
}

inline void note_release(void *old_data, void *new_data, event_any_cb)
{
    seen += std::string("~") + static_cast<char *>(old_data) + (new_data ? ">" : "");
}

inline void note_hook_release(void *old_data, event_any_cb func, event_any_cb, void *new_data)
{
    seen += std::string("~") + static_cast<char *>(old_data) + (func ? "f" : "") + (new_data ? ">" : "");
}

// Requests of a size, as functions of a stream.
using Request = int (*)(estream *);
template <int (*ask)(estream *, int), int n>
int sized(estream *es)
{
    return ask(es, n);
}

inline int keep_all(void *, char *, int length) { return length; }

inline int close_in_hook(void *es, char *, int length)
{
    seen += "!";
    estream_close(static_cast<estream *>(es));
    return length;
}

inline char *name(const char *text) { return const_cast<char *>(text); }

// A stream and the raw other end of its descriptor. `es` may close: its data's release function tells.
struct Line {
    estream *es;
    int peer;
    int fd;
    bool open;

    explicit Line(uint32_t flags = 0) : es(nullptr), peer(-1), fd(-1), open(true)
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        es = estream_connect_fd(ends[0], ESTREAM_OWN_FD | ESTREAM_CONNECTED | flags, nullptr);
        peer = ends[1];
        fd = ends[0];
        fcntl(peer, F_SETFL, O_NONBLOCK);
        estream_set_func(es, stream_cb);
        estream_set_data(es, this, [](void *data, void *, event_any_cb) {
            static_cast<Line *>(data)->open = false;
            seen += "closed";
        });
    }
    ~Line()
    {
        if (open)
            estream_close(es);
        close(peer);
        seen.clear();
    }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void put(const std::string &bytes) const
    {
        ASSERT_EQ(::write(peer, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Puts and runs.
    std::string give(const std::string &bytes) const
    {
        put(bytes);
        return run();
    }
    // What the stream has sent.
    std::string take() const
    {
        std::string all;
        char buffer[65536];
        for (ssize_t n; (n = syscall(SYS_read, peer, buffer, sizeof(buffer))) > 0;)
            all.append(buffer, static_cast<size_t>(n));
        return all;
    }
};

inline estream *accepted; // note_connect marks it

class Estream : public testing::Test
{
public:
    void SetUp() override
    {
        static const event_be kBackEnd = [] {
            event_be table = kutil::kPollBackEnd;
            table.wait = test_wait;
            return table;
        }();
        event_be_set(&kBackEnd);
        event_loop_init();
        settle_ms = 0;
        accepted = nullptr;
        seen.clear();
        log.take();
    }
    void TearDown() override
    {
        on_data = on_notice = nullptr;
        event_loop_uninit();
        event_be_set(nullptr);
        EXPECT_TRUE(read_script.empty() && send_script.empty()) << "not every fault happened";
        EXPECT_EQ(reports(), "");
    }
    // The reports since the last call but those of debug.
    std::string reports()
    {
        std::erase_if(log.entries, [](const auto &entry) { return (entry.flags & 15) == 8; });
        return log.take();
    }
    ReportLog log;
};

} // namespace estream_fixture

using namespace estream_fixture;

#endif
