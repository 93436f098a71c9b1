#ifndef KUTIL_TESTS_EVENT_FIXTURE_H
#define KUTIL_TESTS_EVENT_FIXTURE_H

#include "support.h"
#include "util/event.h"
#include "util/internal/event.h"
#include "util/internal/fd.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/times.h>

// For test programs of one source each. The loop lives on a clock of the test's own: waiting for a time-out
// only moves it, to the next tick of 10 ms that is late enough. So the rules about time are exact, and a row
// of timers takes no time.

namespace event_fixture
{

inline constexpr double kTickMs = 10;
inline constexpr uint32_t kFirstTicks = 1000;
inline uint32_t ticks = kFirstTicks;
inline double wall_ms = 1e12;

} // namespace event_fixture

extern "C" clock_t times(struct tms *) { return static_cast<clock_t>(event_fixture::ticks); }

extern "C" int gettimeofday(struct timeval *tv, void *)
{
    const double ms = event_fixture::wall_ms;
    tv->tv_sec = static_cast<time_t>(ms / 1000);
    tv->tv_usec = static_cast<suseconds_t>(std::fmod(ms, 1000) * 1000);
    return 0;
}

namespace event_fixture
{

// A back-end of the table, and whether it asks for split updates.
struct BackEnd {
    const char *name;
    const event_be *table;
    bool split;
};
inline const BackEnd kBackEnds[] = {{"poll", &kutil::kPollBackEnd, false},
                                    {"poll_split", &kutil::kPollBackEnd, true}};

// Between the loop and the back-end under test: moves the clock, records, fails on demand.
struct Middle {
    BackEnd under;
    std::string trace; // of waits and updates
    bool traced;
    int fail_errno;
    bool real_time;
    uint32_t busy_ticks; // that pass in a wait in which something happened
};
inline Middle middle;

inline std::string trace; // of callbacks

inline int middle_wait(int count, int has_timeout, double ms)
{
    if (middle.traced)
        middle.trace += has_timeout ? "w" + std::to_string(std::lround(ms)) + " " : "w- ";
    if (const int error = std::exchange(middle.fail_errno, 0)) {
        errno = error;
        return -1;
    }
    if (middle.real_time)
        return middle.under.table->wait(count, has_timeout, ms);
    // Without a time-out only what is there already can end the wait; 3 s keep a fault from hanging the
    // suite.
    const int ready = middle.under.table->wait(count, 1, has_timeout ? 0 : 3000);
    if (ready == 0 && !has_timeout) {
        ADD_FAILURE() << "the loop waits for nothing";
        event_loop_quit = 1;
    }
    if (ready > 0)
        ticks += middle.busy_ticks;
    if (ready == 0)
        ticks += static_cast<uint32_t>(std::ceil(std::min(ms, 1e9) / kTickMs));
    return ready;
}

inline void middle_update(int fd, uint32_t old_types, uint32_t types)
{
    if (middle.traced)
        middle.trace += std::to_string(old_types) + ">" + std::to_string(types) + " ";
    middle.under.table->update(fd, old_types, types);
}

inline int middle_init() { return middle.under.table->init(); }
inline int middle_uninit() { return middle.under.table->uninit(); }
inline void middle_closing(int fd) { middle.under.table->closing(fd); }
inline int middle_needs_split(int) { return middle.under.split; }

inline const event_be kMiddle = {middle_wait,   middle_update,  middle_init,
                                 middle_uninit, middle_closing, middle_needs_split};

// An action by name, run inside the callback of that name.
inline std::map<std::string, std::function<void()>> actions;

class EventLoop : public testing::TestWithParam<BackEnd>
{
public:
    void SetUp() override
    {
        middle = {GetParam(), "", false, 0, false, 0};
        event_be_set(&kMiddle);
        event_loop_init();
        trace.clear();
    }
    void TearDown() override
    {
        event_timer_set_exact(0);
        event_loop_uninit();
        event_be_set(nullptr);
        actions.clear();
        EXPECT_EQ(log.take(), "");
    }
    ReportLog log;
};
INSTANTIATE_TEST_SUITE_P(BackEnds, EventLoop, testing::ValuesIn(kBackEnds),
                         [](const auto &row) { return std::string(row.param.name); });

inline void quit(void *) { event_loop_quit = 1; }

// A callback leaves its name in the trace.
inline void note(const char *name)
{
    trace += name;
    if (const auto action = actions.find(name); action != actions.end())
        std::function(action->second)();
}
inline char *name(const char *text) { return const_cast<char *>(text); }
inline void on_timer(void *data) { note(static_cast<char *>(data)); }
inline void on_fd(int, void *data) { note(static_cast<char *>(data)); }
inline void on_signal(int, void *data) { note(static_cast<char *>(data)); }
inline void on_child(int, void *data, int status)
{
    trace += static_cast<char *>(data) + std::to_string(WEXITSTATUS(status));
    note("child");
}

inline void on(const char *name, std::function<void()> action) { actions[name] = std::move(action); }
inline void set_quit() { event_loop_quit = 1; }

// Runs the loop until nothing is left, at most for `ms` of its time.
inline std::string run(double ms = 100000)
{
    trace.clear();
    event_timer_set(ms, quit, nullptr);
    event_loop();
    event_timer_del(quit, nullptr);
    event_loop_quit = 0;
    return std::exchange(trace, "");
}

struct Pipe {
    int ends[2];
    Pipe() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0); }
    ~Pipe()
    {
        event_fd_close(&ends[0]);
        event_fd_close(&ends[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    int fd() const { return ends[0]; }
    void fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void empty() const
    {
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
};

inline pid_t child_that_exits(int code)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(code);
    return pid;
}

} // namespace event_fixture

using namespace event_fixture;

#endif
