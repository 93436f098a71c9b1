#include "util/event.h"

#include "support.h"
#include "util/internal/event.h"
#include "util/internal/fd.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/times.h>

// The loop lives on a clock of the test's own: waiting for a time-out only moves it, to the next tick of 10
// ms that is late enough. So the rules about time are exact, and a row of timers takes no time.

namespace
{

constexpr double kTickMs = 10;
constexpr uint32_t kFirstTicks = 1000;
uint32_t ticks = kFirstTicks;
double wall_ms = 1e12;

} // namespace

extern "C" clock_t times(struct tms *) { return static_cast<clock_t>(ticks); }

extern "C" int gettimeofday(struct timeval *tv, void *)
{
    tv->tv_sec = static_cast<time_t>(wall_ms / 1000);
    tv->tv_usec = static_cast<suseconds_t>(std::fmod(wall_ms, 1000) * 1000);
    return 0;
}

namespace
{

// A back-end of the table, and whether it asks for split updates.
struct BackEnd {
    const char *name;
    const event_be *table;
    bool split;
};
const BackEnd kBackEnds[] = {{"poll", &kutil::kPollBackEnd, false},
                             {"poll_split", &kutil::kPollBackEnd, true}};

// Between the loop and the back-end under test: moves the clock, records, fails on demand.
struct Middle {
    BackEnd under;
    std::string trace; // of waits and updates
    bool traced;
    int fail_errno;
    bool real_time;
    uint32_t busy_ticks; // that pass in a wait in which something happened
} middle;

std::string trace; // of callbacks

int middle_wait(int count, int has_timeout, double ms)
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

void middle_update(int fd, uint32_t old_types, uint32_t types)
{
    if (middle.traced)
        middle.trace += std::to_string(old_types) + ">" + std::to_string(types) + " ";
    middle.under.table->update(fd, old_types, types);
}

int middle_init() { return middle.under.table->init(); }
int middle_uninit() { return middle.under.table->uninit(); }
void middle_closing(int fd) { middle.under.table->closing(fd); }
int middle_needs_split(int) { return middle.under.split; }

const event_be kMiddle = {middle_wait,   middle_update,  middle_init,
                          middle_uninit, middle_closing, middle_needs_split};

// An action by name, run inside the callback of that name.
std::map<std::string, std::function<void()>> actions;

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

void quit(void *) { event_loop_quit = 1; }

// A callback leaves its name in the trace.
void note(const char *name)
{
    trace += name;
    if (const auto action = actions.find(name); action != actions.end())
        std::function(action->second)();
}
char *name(const char *text) { return const_cast<char *>(text); }
void on_timer(void *data) { note(static_cast<char *>(data)); }
void on_fd(int, void *data) { note(static_cast<char *>(data)); }
void on_signal(int, void *data) { note(static_cast<char *>(data)); }
void on_child(int, void *data, int status)
{
    trace += static_cast<char *>(data) + std::to_string(WEXITSTATUS(status));
    note("child");
}

void on(const char *name, std::function<void()> action) { actions[name] = std::move(action); }
void set_quit() { event_loop_quit = 1; }

// Runs the loop until nothing is left, at most for `ms` of its time.
std::string run(double ms = 100000)
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

pid_t child_that_exits(int code)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(code);
    return pid;
}

} // namespace

// --- How a loop ends ---

TEST_P(EventLoop, EndsByTheQuitFlagOrForWantOfWork)
{
    EXPECT_EQ(event_loop(), 1);
    event_loop_quit = 1;
    EXPECT_EQ(event_loop(), 0);
    EXPECT_EQ(event_loop(), 0) << "the flag stays set";
    event_loop_init();
    EXPECT_EQ(event_loop_quit, 0);

    // The flag is looked at before the first timer and after each, and after the signals.
    event_timer_set(0, on_timer, name("a"));
    event_timer_set(10, on_timer, name("b"));
    event_signal_set(SIGUSR1, on_signal, name("s"));
    on("s", set_quit);
    on("a", set_quit);
    ticks += 5;
    raise(SIGUSR1);
    for (const char *so_far : {"s", "sa"}) {
        EXPECT_EQ(event_loop(), 0);
        EXPECT_EQ(trace, so_far);
        event_loop_quit = 0;
    }
    event_signal_del(SIGUSR1);
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "sab");
}

TEST_P(EventLoop, AFailedWaitEndsItUnlessItWasASignal)
{
    event_timer_set(10, on_timer, name("a"));
    middle.fail_errno = EINTR;
    EXPECT_EQ(event_loop(), 1);
    event_timer_set(50, on_timer, name("b"));
    middle.fail_errno = EFAULT;
    EXPECT_EQ(event_loop(), -1);
    EXPECT_EQ(log.take(), "4: event_loop_single: be->select(): " + std::string(strerror(EFAULT)) + "\n");
    EXPECT_EQ(event_loop(), 1) << "the loop goes on where it was";
    EXPECT_EQ(trace, "ab");
}

TEST_P(EventLoop, WithoutALoopNothingHappens)
{
    int fd = -1;
    event_loop_uninit(), event_loop_uninit();
    event_fd_close(&fd), event_fd_close(nullptr), event_fd_clr(-1, 7, on_fd, nullptr);
    event_signal_del(SIGTERM), event_sigchild_del(1, 0);
    event_feed(1, 0), event_call(0), event_wakeup_mainloop();
    EXPECT_EQ(event_timer_del(on_timer, nullptr), -1);
    EXPECT_EQ(event_timer_exist(on_timer, nullptr), 0);
    EXPECT_EQ(event_timer_left(on_timer, nullptr), -1.0);
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(log.take(), "");
    event_fd_set(0, EVENT_READ, on_fd, nullptr);
    event_timer_set(0, on_timer, nullptr);
    EXPECT_EQ(event_signal_set(SIGTERM, on_signal, nullptr), -1);
    EXPECT_EQ(event_sigchild_set(1, on_child, nullptr), nullptr);
    for (const char *what : {"fd_set", "timer_set", "signal_set", "sigchild_set"}) {
        EXPECT_EQ(log.entries.at(0).message, std::string("event_") + what + ": there is no event loop");
        log.entries.erase(log.entries.begin());
    }
}

// A callback of any kind may take the loop down, and set up another one.
TEST_P(EventLoop, TakenDownInsideACallback)
{
    const char *const kinds[] = {"timer", "fd", "signal", "child"};
    for (const bool again : {false, true}) {
        for (const char *kind : kinds) {
            event_loop_init();
            const Pipe pipe;
            on(kind, [again] {
                event_loop_uninit();
                if (again)
                    event_loop_init(), event_timer_set(0, on_timer, name("next"));
            });
            if (kind == kinds[0])
                event_timer_set_period(0.5, on_timer, name(kind));
            if (kind == kinds[1])
                pipe.fill(), event_fd_set(pipe.fd(), EVENT_READ | EVENT_WRITE, on_fd, name(kind));
            if (kind == kinds[2])
                event_signal_set(SIGUSR1, on_signal, name(kind)), raise(SIGUSR1), raise(SIGUSR1);
            if (kind == kinds[3])
                event_sigchild_set(child_that_exits(0), on_child, name(""));
            trace.clear();
            EXPECT_EQ(event_loop(), 0) << kind;
            EXPECT_EQ(trace, kind == kinds[3] ? "0child" : kind);
            EXPECT_EQ(event_loop(), 1) << kind;
            EXPECT_EQ(trace.find("next") != std::string::npos, again) << kind;
        }
    }
}

TEST_P(EventLoop, ANestedLoopLeavesWhatWasQueuedBefore)
{
    const Pipe first;
    const Pipe second;
    event_fd_set(first.fd(), EVENT_READ, on_fd, name("first "));
    event_fd_set(second.fd(), EVENT_READ, on_fd, name("second "));
    on("feed ", [&] {
        event_feed(EVENT_READ, first.fd());
        event_feed(EVENT_READ, second.fd());
        event_wakeup_mainloop();
    });
    on("second ", [&] {
        const Pipe inner;
        inner.fill();
        on("inner ", [&] { event_fd_clr(inner.fd(), 7, on_fd, name("inner ")); });
        event_fd_set(inner.fd(), EVENT_READ, on_fd, name("inner "));
        event_timer_set(30, on_timer, name("timer "));
        EXPECT_EQ(event_loop(), 0);
        event_loop_quit = 0;
        trace += "back ";
    });
    on("timer ", set_quit);
    event_timer_set(0, on_timer, name("feed "));
    EXPECT_EQ(run(), "feed second inner timer back first ");
}

TEST_P(EventLoop, ABackEndIsWholeOrRefused)
{
    event_be broken = kMiddle;
    broken.closing = nullptr;
    EXPECT_EQ(event_be_set(&broken), &kMiddle);
    EXPECT_EQ(log.take().find("4: event_be_set: back-end "), 0U);
    EXPECT_EQ(event_be_set(nullptr), &kMiddle);
    EXPECT_EQ(event_be_set(&kMiddle), nullptr);
}

// --- Timers ---

TEST_P(EventLoop, TimersFireByTimeAndTiesByTheHeap)
{
    const struct {
        std::initializer_list<double> ms;
        const char *order;
    } rows[] = {
        {{30, 10, 20}, "BCA"},
        {{7, 7, 7, 7}, "ADCB"},
        {{1, NAN, 10, 5}, "BADC"},
        {{5e9, 20, 3e9, 0.25}, "DBCA"}, // longer than one wait can be
    };
    char names[][2] = {"A", "B", "C", "D"};
    for (const auto &row : rows) {
        size_t i = 0;
        for (const double ms : row.ms)
            event_timer_set(ms, on_timer, names[i++]);
        trace.clear();
        EXPECT_EQ(event_loop(), 1);
        EXPECT_EQ(trace, row.order);
    }
    expect_fatal("Negative timeout value: -1.0", [] { event_timer_set(-1, on_timer, nullptr); });
}

TEST_P(EventLoop, ATimerIsItsCallbackAndData)
{
    char a[] = "a";
    event_timer_set(50, on_timer, a);
    event_timer_set(20, on_timer, a);
    EXPECT_EQ(event_timer_exist(on_timer, a), 1);
    EXPECT_EQ(event_timer_exist(quit, a), 0);
    EXPECT_EQ(event_timer_left(on_timer, a), 20.0);
    ticks += 1; // the loop's time is the cached one
    EXPECT_EQ(event_timer_left(on_timer, a), 20.0);
    EXPECT_EQ(run(), "a");
    EXPECT_EQ(event_timer_del(on_timer, a), -1);
    EXPECT_EQ(event_timer_left(on_timer, a), -1.0);

    event_timer_set_now(on_timer, a);
    EXPECT_EQ(event_timer_del(on_timer, a), 0);
    EXPECT_EQ(run(), "");

    // Overdue by a tick, seen from a timer that is served before it.
    double left = 0;
    char b[] = "b";
    on("a", [&] { left = event_timer_left(on_timer, b); });
    event_timer_set(10, on_timer, a);
    event_timer_set(19, on_timer, b);
    ticks += 2;
    EXPECT_EQ(run(), "ab");
    EXPECT_EQ(left, -1.0) << "overdue by 1 ms reads like no timer at all";
}

TEST_P(EventLoop, PeriodicTimersCountFromTheLoopsTime)
{
    std::vector<double> calls;
    const double start = get_time_from_boot();
    char p[] = "p";
    on("p", [&] {
        calls.push_back(event_get_loop_now() - start);
        ticks += calls.size() == 2 ? 12 : 1; // a slow callback is not caught up with
        if (calls.size() == 5)
            event_timer_del(on_timer, p);
    });
    event_timer_set_period(30, on_timer, p);
    EXPECT_EQ(run(), "ppppp");
    EXPECT_EQ(calls, (std::vector<double>{30, 60, 180, 210, 240}));

    event_timer_set_period(0, on_timer, p);
    calls.clear();
    EXPECT_EQ(run(), "p") << "a period of 0 is a one-shot timer";

    // A period that the clock's number cannot show: the loop goes on all the same.
    char q[] = "q";
    event_timer_set_period(1e-300, on_timer, q);
    EXPECT_EQ(run(45).substr(0, 4), "qqqq");
    EXPECT_EQ(event_timer_del(on_timer, q), 0);
}

TEST_P(EventLoop, ZeroFiresInTheSameRoundWhileTheClockStands)
{
    middle.traced = true;
    on("a", [] { event_timer_set(0, on_timer, name("b")); });
    on("b", [] { ticks++, middle.trace += "later ", event_timer_set_now(on_timer, name("c")); });
    event_timer_set(0, on_timer, name("a"));
    middle.trace.clear();
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "abc");
    EXPECT_EQ(middle.trace.substr(0, 6), "later ");
    EXPECT_NE(middle.trace.find("w0 "), std::string::npos);
}

TEST_P(EventLoop, WaitsAreAsLongAsTheNextTimer)
{
    const Pipe pipe;
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, name("x"));
    event_timer_set(25, on_timer, name("a"));
    event_timer_set(1e300, on_timer, name("far"));
    event_loop_quit = 0;
    middle.traced = true;
    on("a", [&] { event_timer_del(on_timer, name("far")), pipe.fill(); });
    on("x", [&] { event_fd_clr(pipe.fd(), EVENT_READ, on_fd, name("x")); });
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "ax");
    EXPECT_NE(middle.trace.find("w25 w- "), std::string::npos) << middle.trace;

    // In exact mode a pending timer is polled for; wall-clock time may step back.
    event_timer_set_exact(1);
    wall_ms = 2e12 + 0.5;
    EXPECT_DOUBLE_EQ(get_time_from_boot(), 2e12 + 0.5);
    event_timer_set(2, on_timer, name("e"));
    const Pipe busy;
    int rounds = 0;
    busy.fill();
    event_fd_set(busy.fd(), EVENT_READ, on_fd, name("r"));
    on("r", [&] {
        const double left[] = {2, 1, 101};
        EXPECT_NEAR(event_timer_left(on_timer, name("e")), rounds < 3 ? left[rounds] : 103 - rounds, 0.01);
        wall_ms += ++rounds == 2 ? -100 : 1;
    });
    on("e", set_quit);
    middle.trace.clear();
    trace.clear();
    EXPECT_EQ(event_loop(), 0);
    EXPECT_EQ(rounds, 103);
    EXPECT_EQ(middle.trace.find_first_not_of("w0 >1"), std::string::npos) << middle.trace;
}

TEST_P(EventLoop, TheTickCounterMayWrap)
{
    ticks = kFirstTicks - 2; // two before the count since the first call is 0 again
    const double start = get_time_from_boot();
    event_timer_set(50, on_timer, name("a"));
    event_timer_set(10, on_timer, name("b"));
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "ba");
    EXPECT_EQ(get_time_from_boot() - start, 50.0);
    EXPECT_EQ(log.take(), "7: sys_get_ticks_from_boot has wrapped around\n");
}

// Whatever is set, replaced and removed: each pair is found, and fires in the order of expiry.
TEST_P(EventLoop, ManyTimersAgainstAModel)
{
    std::mt19937 random(7);
    std::vector<int> ids(600);
    static std::map<void *, double> model;
    static std::vector<double> fired;
    const auto fire = [](void *data) {
        fired.push_back(model.at(data));
        model.erase(data);
    };
    for (int step = 0; step < 6000; step++) {
        void *data = &ids[random() % ids.size()];
        ASSERT_EQ(event_timer_exist(fire, data), static_cast<int>(model.count(data)));
        if (random() % 3) {
            const double ms = random() % 200;
            event_timer_set(ms, fire, data);
            model[data] = get_time_from_boot() + ms;
            ASSERT_EQ(event_timer_left(fire, data), model[data] - event_get_loop_now());
        } else {
            ASSERT_EQ(event_timer_del(fire, data), model.erase(data) ? 0 : -1);
        }
        ticks += step % 64 == 0;
    }
    const size_t pending = model.size();
    EXPECT_GT(pending, 300U);
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(fired.size(), pending);
    EXPECT_TRUE(std::is_sorted(fired.begin(), fired.end()));
    fired.clear();
}

TEST_P(EventLoop, WhatATimerOwnsIsAlwaysFreed)
{
    const auto release = [](void *data) {
        trace += "freed ";
        free(data);
    };
    kutil::event_free_later(release, malloc(8));
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "freed ");
    kutil::event_free_later(release, malloc(8));
    event_timer_set(0, on_timer, name("lost"));
    event_loop_uninit();
    EXPECT_EQ(trace, "freed freed ");
    kutil::event_free_later(release, malloc(8));
    EXPECT_EQ(trace, "freed freed freed ");
}

TEST_P(EventLoop, ProfilingHooksEncloseTimersAndChildren)
{
    event_prof_set(
        [](event_any_cb, const event_debug_info *site) { trace += std::string("<") + site->cb_name + ":"; },
        [](event_any_cb, const event_debug_info *) { trace += ">"; });
    event_timer_set(0, on_timer, name("t"));
    event_signal_set(SIGUSR1, on_signal, name("s"));
    raise(SIGUSR1);
    EXPECT_EQ(run(20).substr(0, 16), "s<on_timer:t><qu");
    event_signal_del(SIGUSR1);
    event_sigchild_set(child_that_exits(4), on_child, name("c"));
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "<on_child:c4child>");
    event_prof_set(nullptr, nullptr);
}

// --- Descriptors ---

TEST_P(EventLoop, EachTypeCallsItsWatcher)
{
    const Pipe pipe;
    on("r", [&] { pipe.empty(), event_fd_clr(pipe.fd(), EVENT_READ, on_fd, name("r")); });
    on("w", [&] { event_fd_clr(pipe.fd(), EVENT_WRITE, on_fd, name("w")); });
    event_fd_set(pipe.fd(), EVENT_WRITE, on_fd, name("w"));
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, name("r"));
    EXPECT_EQ(run(30), "w");
    pipe.fill();
    EXPECT_EQ(run(30), "r");
    pipe.fill();
    EXPECT_EQ(run(30), "") << "a removed watcher is never called again";
}

// What poll reports unasked reaches a watcher of whatever type there is, so that the loop cannot spin
// unheard.
TEST_P(EventLoop, TroubleReachesWhoeverWatches)
{
    const struct {
        const char *trouble;
        const char *heard_by; // the types that are watched, and behind the colon those that are called
    } rows[] = {
        {"peer gone", "r:r"},   {"peer gone", "w:w"},   {"peer gone", "e:e"},   {"peer gone", "rw:rw"},
        {"reader gone", "w:w"}, {"reader gone", "e:e"}, {"writer gone", "r:r"}, {"writer gone", "e:e"},
        {"reset", "r:r"},       {"reset", "er:er"},     {"closed", "r:r"},      {"closed", "w:w"},
        {"closed", "e:e"},      {"closed", "er:e"},
    };
    static std::set<char> heard;
    const auto hear = [](int, void *data) { heard.insert(*static_cast<char *>(data)); };
    middle.busy_ticks = 1;
    for (const auto &row : rows) {
        const std::string trouble = row.trouble;
        int ends[2];
        const bool with_pipe = trouble == "reader gone" || trouble == "writer gone";
        ASSERT_EQ(with_pipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        kutil::Fd own(ends[trouble == "reader gone"]);
        kutil::Fd peer(ends[trouble != "reader gone"]);
        const int fd = own.get();
        const std::string heard_by = row.heard_by;
        const std::string watched = heard_by.substr(0, heard_by.find(':'));
        const std::map<char, uint32_t> types = {{'r', EVENT_READ}, {'w', EVENT_WRITE}, {'e', EVENT_EXCEPT}};
        for (const char &type : watched)
            event_fd_set(fd, types.at(type), hear, const_cast<char *>(&type));
        if (trouble == "closed")
            own.reset();
        if (trouble == "reset") // the peer goes with unread data
            send(fd, "x", 1, 0);
        peer.reset();
        heard.clear();
        run(30);
        EXPECT_EQ(watched + ":" + std::string(heard.begin(), heard.end()), heard_by) << trouble;
        for (const char &type : watched)
            event_fd_clr(fd, types.at(type), hear, const_cast<char *>(&type));
    }
}

TEST_P(EventLoop, OneWatcherPerDescriptorAndType)
{
    const Pipe pipe;
    pipe.fill();
    char names[][2] = {"a", "b"}; // the second sorts behind the first
    char *a = names[0], *b = names[1];
    on("b", [&] { event_fd_clr(pipe.fd(), EVENT_READ, on_fd, b); });
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, a);
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, b);
    event_fd_clr(pipe.fd(), EVENT_READ, on_fd, a);
    EXPECT_EQ(run(20), "b") << "the first was replaced, so that removing it finds nothing";

    event_fd_set(pipe.fd(), EVENT_READ, on_fd, a);
    EXPECT_EQ(log.take(), "");
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, a);
    const int line = __LINE__ - 1;
    char expected[400];
    snprintf(
        expected, sizeof(expected),
        "4: event already exist: fd %d type 1 func %p data %p\n4: debug info: %s:%d func:TestBody cb:on_fd\n",
        pipe.fd(), reinterpret_cast<void *>(on_fd), static_cast<void *>(a), __FILE__, line);
    EXPECT_EQ(log.take(), expected);
    _event_fd_set(pipe.fd(), EVENT_READ, on_fd, a, nullptr);
    EXPECT_EQ(log.entries.size(), 1U) << "without a site there is nothing more to say";
    log.take();

    // Replaced by its own callback: not served again for the same event.
    on("a", [&] { event_fd_set(pipe.fd(), EVENT_READ, on_fd, b); });
    middle.traced = true;
    event_fd_set(pipe.fd(), EVENT_EXCEPT, on_fd, name("never"));
    EXPECT_EQ(run(20), "ab");
    EXPECT_EQ(std::count(middle.trace.begin(), middle.trace.end(), 'w'), 3) << middle.trace;
}

TEST_P(EventLoop, BadDescriptorsAreReported)
{
    const struct {
        int fd;
        uint32_t type;
    } rows[] = {{-1, 1}, {INT_MIN, 2}, {1048576, 4}, {INT_MAX, 1}, {0, 3}, {0, 0}, {0, 8}};
    for (const auto &row : rows) {
        __event_fd_set(row.fd, row.type, on_fd, nullptr, nullptr);
        const std::string start = "4: event_fd_set with bad fd " + std::to_string(row.fd) + " type ";
        EXPECT_EQ(log.take().substr(0, start.size()), start);
    }
    event_fd_clr(-1, EVENT_READ | EVENT_EXCEPT, on_fd, nullptr);
    EXPECT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(log.take().find("4: event_fd_clr with bad fd -1 type 1 func "), 0U);
    event_fd_clr(INT_MAX, 7, on_fd, nullptr);
    EXPECT_EQ(event_loop(), 1);
    expect_fatal("event of unknown type: 8", [] { event_feed(8, 0); });
}

TEST_P(EventLoop, TheBackEndHearsOnceARoundAndOnlyOfChanges)
{
    const Pipe pipe;
    middle.traced = true;
    middle.busy_ticks = 1;
    char a[] = "a";
    event_loop();
    middle.trace.clear();
    const auto round = [&] {
        run(1);
        std::string updates = std::exchange(middle.trace, "");
        return updates.erase(std::min(updates.find('w'), updates.size()));
    };
    event_fd_set(pipe.fd(), EVENT_READ | EVENT_EXCEPT, on_fd, a);
    EXPECT_EQ(round(), "0>5 ");
    event_fd_set(pipe.fd(), EVENT_WRITE, on_fd, a);
    event_fd_clr(pipe.fd(), EVENT_EXCEPT, on_fd, a);
    EXPECT_EQ(round(), middle.under.split ? "5>0 0>3 " : "5>3 ");
    event_fd_clr(pipe.fd(), EVENT_READ, on_fd, a);
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, a);
    EXPECT_EQ(round(), middle.under.split ? "3>0 0>3 " : "") << "no change";
    event_fd_clr(pipe.fd(), 7, on_fd, a);
    EXPECT_EQ(round(), "3>0 ");
}

// --- The queue ---

TEST_P(EventLoop, QueuedEventsAreServedLastFirstAndCanBeCancelled)
{
    const Pipe one, two, three;
    char a[] = "a", b[] = "b", c[] = "c";
    const std::map<const Pipe *, char *> all = {{&one, a}, {&two, b}, {&three, c}};
    for (const auto &[pipe, data] : all)
        event_fd_set(pipe->fd(), EVENT_READ, on_fd, data);
    // What is fed in a timer is dispatched after the next wait, which is as long as without it.
    on("f", [&] {
        for (const auto *pipe : {&one, &two, &three})
            event_feed(EVENT_READ, pipe->fd());
        event_wakeup_mainloop();
    });
    const int fd = two.fd();
    const int copy = dup(fd);
    const auto set = [fd](uint32_t types, char *data) { event_fd_set(fd, types, on_fd, data); };
    const auto clear = [fd](uint32_t types, char *data) { event_fd_clr(fd, types, on_fd, data); };
    const auto shut = [fd, copy] {
        int closing = fd;
        event_fd_close(&closing);
        EXPECT_EQ(closing, -1);
        EXPECT_EQ(dup2(copy, fd), fd);
    };
    const auto again = [&] { clear(1, b), set(1, b); };
    const auto lost = [&] { set(4, b), clear(1 | 4, b); };
    const auto lost_and_again = [&] { set(4, a), clear(1, b), set(1, c), on("c", [] {}); };
    const auto lost_and_shut = [&] { set(4, b), event_feed(1, fd), shut(); };
    const auto lost_before_known = [](int far, char *data) {
        event_feed(1, far);
        event_fd_set(far, 1, on_fd, data), event_fd_close(&far);
        event_fd_clr(5000, 1, on_fd, data);
    };
    const struct {
        const char *in_c;
        std::function<void()> action;
        const char *order;
    } rows[] = {
        {"nothing: last in, first out", [] {}, "fcba"},
        {"fed: before what is older", [&] { event_feed(1, one.fd()); }, "fcaba"},
        {"removed", [&] { clear(1, b); }, "fca"},
        {"removed and set again", again, "fca"},
        {"removed after another type was set: stays queued, but for nobody", lost, "fca"},
        {"so, and another set", lost_and_again, "fcca"},
        {"closed", shut, "fca"},
        {"closed after another type was set", lost_and_shut, "fca"},
        {"closed, and fed before it was known", [&] { lost_before_known(5000, b); }, "fcba"},
        {"fed for no descriptor", [] { event_feed(1, 5000), event_feed(2, -3); }, "fcba"},
        {"fed with all types at once", [&] { event_feed(7, one.fd()); }, "fcaba"},
    };
    for (const auto &row : rows) {
        on("c", row.action);
        event_timer_set(0, on_timer, name("f"));
        EXPECT_EQ(run(20), row.order) << row.in_c;
        clear(7, a), clear(7, b), clear(7, c), set(1, b);
    }
    close(copy);
    event_call(-1);
    event_call(1 << 20);
}

// Deliberate: an application's event stays queued when its callback sets the quit flag; the library's own
// does not.
TEST_P(EventLoop, TheQuitFlagInADescriptorCallback)
{
    for (const bool library : {false, true}) {
        const Pipe pipe;
        pipe.fill();
        char data[] = "q";
        int calls = 0;
        on("q", [&] {
            event_loop_quit = 1;
            if (++calls == 3)
                event_fd_clr(pipe.fd(), EVENT_READ, on_fd, data);
        });
        if (library)
            kutil::event_fd_set_library(pipe.fd(), EVENT_READ, on_fd, data, nullptr);
        else
            event_fd_set(pipe.fd(), EVENT_READ, on_fd, data);
        trace.clear();
        EXPECT_EQ(event_loop(), 0);
        EXPECT_EQ(trace, library ? "q" : "qqq");
        event_fd_clr(pipe.fd(), EVENT_READ, on_fd, data);
        event_loop_quit = 0;
    }
}

TEST_P(EventLoop, DescriptorsOfAllNumbersComeAndGo)
{
    int high = fcntl(0, F_DUPFD, 300);
    ASSERT_GE(high, 300);
    event_fd_set(high, EVENT_EXCEPT, on_fd, name("h"));
    run(1);
    event_fd_clr(high, EVENT_EXCEPT, on_fd, name("h"));
    run(1);
    // The table shrank; what grows again starts afresh.
    const Pipe pipe;
    int again = fcntl(pipe.fd(), F_DUPFD, 310);
    pipe.fill();
    on("r", [&] { event_fd_clr(again, EVENT_READ, on_fd, name("r")); });
    event_fd_set(again, EVENT_READ, on_fd, name("r"));
    EXPECT_EQ(run(30), "r");
    event_fd_close(&again);
    event_fd_close(&high);
    EXPECT_EQ(event_loop(), 1);
}

// --- Signals ---

TEST_P(EventLoop, EveryDeliveryIsDispatchedLowestSignalFirst)
{
    char u1[] = "1", u2[] = "2", term[] = "t";
    on("t", [] { event_signal_del(SIGTERM); });
    event_signal_set(SIGTERM, on_signal, term);
    event_signal_set(std::max(SIGUSR1, SIGUSR2), on_signal, u2);
    EXPECT_EQ(event_signal_set_flags(std::min(SIGUSR1, SIGUSR2), on_signal, u1, SA_RESTART), 0);
    for (const int signo : {SIGUSR2, SIGTERM, SIGUSR1, SIGUSR1, SIGUSR2, SIGUSR1, SIGTERM}) {
        errno = EDOM;
        raise(signo);
        EXPECT_EQ(errno, EDOM);
    }
    // The second SIGTERM goes with its registration.
    std::string expected = SIGUSR1 < SIGUSR2 ? "11122" : "11222";
    expected.insert(SIGTERM > std::max(SIGUSR1, SIGUSR2) ? expected.size() : 0, "t");
    EXPECT_EQ(run(1), expected);
    event_signal_set(SIGUSR1, on_signal, name("replaced"));
    raise(SIGUSR1);
    EXPECT_EQ(run(1), "replaced");
    event_signal_del(SIGUSR1);
    event_signal_del(SIGUSR2);
    EXPECT_EQ(event_loop(), 1);
    const ChildResult gone = run_in_child([] { raise(SIGUSR1); });
    EXPECT_TRUE(WIFSIGNALED(gone.status)) << "the default action is back";
}

TEST_P(EventLoop, SignalInformationIsOfTheLatestDelivery)
{
    const auto with_info = [](int signo, void *info, void *data) {
        event_signal_del(signo); // the information is valid for the whole call
        EXPECT_EQ(static_cast<siginfo_t *>(info)->si_signo, signo);
        EXPECT_EQ(static_cast<siginfo_t *>(info)->si_pid, getpid());
        trace += static_cast<char *>(data);
    };
    EXPECT_EQ(event_sigaction_set(SIGUSR1, with_info, name("i")), 0);
    kill(getpid(), SIGUSR1);
    EXPECT_EQ(run(1), "i");
    event_sig_handle(SIGUSR1, nullptr);
    EXPECT_EQ(run(1), "");
}

TEST_P(EventLoop, NumbersThatAreNoSignalsLeaveNothing)
{
    for (const int signo : {-1, 0, NSIG, INT_MAX, SIGKILL, SIGSTOP})
        EXPECT_EQ(event_signal_set(signo, on_signal, nullptr), -1) << signo;
    EXPECT_EQ(event_loop(), 1);
}

TEST_P(EventLoop, ASignalEndsARealWait)
{
    middle.real_time = true;
    on("alarm", [] { event_signal_del(SIGALRM); });
    event_signal_set(SIGALRM, on_signal, name("alarm"));
    ualarm(30000, 0);
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "alarm");
}

TEST_P(EventLoop, TheWakeUpPipeHoldsTwoBytesAtMost)
{
    int bytes = 0;
    for (int i = 0; i < 5; i++)
        event_wakeup_mainloop();
    ASSERT_EQ(ioctl(kutil::loop_signals.wake_read, FIONREAD, &bytes), 0);
    EXPECT_EQ(bytes, 2);
    run(1);
    EXPECT_EQ(kutil::loop_signals.wakeups, 0);
    // Somebody else took the byte.
    kutil::loop_signals.wakeups = 2;
    event_feed(EVENT_READ, kutil::loop_signals.wake_read);
    run(1);
    EXPECT_EQ(kutil::loop_signals.wakeups, 0);
    for (const int fd : {kutil::loop_signals.wake_read, kutil::loop_signals.wake_write}) {
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    }
    expect_fatal("cant read for socket properly", [] {
        event_feed(EVENT_READ, kutil::loop_signals.wake_read);
        close(kutil::loop_signals.wake_read);
        run(1);
    });
    expect_fatal("cant create pipe", [] {
        const struct rlimit none = {3, 3};
        event_loop_uninit();
        setrlimit(RLIMIT_NOFILE, &none);
        event_loop_init();
    });
}

// --- Children and exit ---

TEST_P(EventLoop, ChildrenAreReapedAndTold)
{
    const int watched = child_that_exits(3);
    const int dropped = child_that_exits(5);
    event_sigchild_set(watched, on_child, name("a"));
    event_sigchild_set(watched, on_child, name("b"));
    event_sigchild_set(dropped, on_child, name("never"));
    event_sigchild_del(dropped, 0);
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "b3childa3child");
    EXPECT_EQ(log.take().find("Process " + std::to_string(watched)), std::string::npos);
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR)
        ; // the dropped one, when it ended after the loop

    // It ends when the new loop is up: what ended before that is nobody's.
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    const pid_t unknown = fork();
    if (unknown == 0) {
        close(gate[1]);
        char byte;
        _exit(read(gate[0], &byte, 1) < 0);
    }
    close(gate[0]);
    event_sigchild_set(unknown, on_child, name("of the old loop"));
    event_loop_init();
    close(gate[1]);
    while (waitid(P_PID, static_cast<id_t>(unknown), nullptr, WEXITED | WNOWAIT) < 0)
        ;
    run(1);
    EXPECT_EQ(log.take(), "5: Process " + std::to_string(unknown) + " exited. No action was taken\n");
}

TEST_P(EventLoop, WaitingForAChildAndKillingOne)
{
    const int waited = child_that_exits(9);
    event_sigchild_set(waited, on_child, name("w"));
    int status = 0;
    EXPECT_EQ(event_wait_for_child(waited, &status), 0);
    EXPECT_EQ(WEXITSTATUS(status), 9);
    EXPECT_EQ(event_wait_for_child(waited, &status), -1);
    EXPECT_EQ(event_wait_for_child(0, nullptr), -1);
    EXPECT_EQ(event_wait_for_child(-1, nullptr), -1);
    EXPECT_EQ(run(1), "w9child") << "the watch is told all the same";

    const pid_t sleeper = fork();
    if (sleeper == 0) {
        pause();
        _exit(0);
    }
    event_sigchild_set(sleeper, on_child, name("s"));
    event_sigchild_del(sleeper, 1);
    EXPECT_EQ(kill(sleeper, 0), -1);
    event_sigchild_del(0, 1); // would be the whole group
    event_sigchild_del(-1, 1);
    EXPECT_EQ(event_loop(), 1);
    EXPECT_EQ(trace, "");

    sigset_t blocked;
    event_sigchild_disable();
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGCHLD), 1);
    event_sigchild_enable();
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGCHLD), 0);
}

TEST_P(EventLoop, AChildOfForkHasALoopOfItsOwn)
{
    const Pipe pipe;
    event_fd_set(pipe.fd(), EVENT_READ, on_fd, name("parent "));
    event_timer_set(50, on_timer, name("timer "));
    run(1);
    const ChildResult child = run_in_child([&] {
        event_loop_init();
        const bool fresh = event_loop() == 1 && !event_timer_exist(on_timer, name("timer "));
        event_wakeup_mainloop();
        event_timer_set(10, on_timer, name("x"));
        _exit(fresh && event_loop() == 1 && trace == "x" ? 0 : 1);
    });
    EXPECT_TRUE(child.exited_with(0)) << child.output;
    int bytes = -1;
    ASSERT_EQ(ioctl(kutil::loop_signals.wake_read, FIONREAD, &bytes), 0);
    EXPECT_LE(bytes, 1) << "SIGCHLD's own, none of the child's";
    pipe.fill();
    on("parent ", [&] { event_fd_clr(pipe.fd(), EVENT_READ, on_fd, name("parent ")); });
    EXPECT_EQ(run(), "parent timer ");
}

TEST_P(EventLoop, ExitHandlersRunNewestFirstOnceAndOnHangUp)
{
    for (const bool before_init : {false, true}) {
        const ChildResult result = run_in_child([&] {
            trace.clear();
            if (before_init)
                event_loop_uninit();
            printf("%d", event_atexit(on_timer, name("1")));
            printf("%d", event_atexit(on_timer, name("2")));
            event_loop_init(); // neither the count nor the handlers care
            printf("%d ", event_atexit(on_timer, name("3")));
            // SIGHUP came with the first handler and went with that loop, unless there was none yet.
            if (before_init)
                raise(SIGHUP), printf("%s", run(1).c_str());
            else
                printf("%d ", event_loop());
            event_exit();
            event_exit();
            printf("%s", trace.c_str());
        });
        EXPECT_EQ(result.output, before_init ? "123 321" : "123 1 321");
    }
    const ChildResult up = run_in_child([] {
        on("h", [] { printf("exiting"); });
        event_atexit(on_timer, name("h"));
        raise(SIGHUP);
        run(1);
        printf("%d", event_loop()); // the registration is gone: nothing is left to wait for
    });
    EXPECT_EQ(up.output, "exiting1");
    expect_fatal("event_atexit: called after started exiting", [] {
        event_exit();
        event_atexit(on_timer, nullptr);
    });
}

TEST_P(EventLoop, BrokenPipesDoNotKill)
{
    Pipe pipe;
    event_fd_close(&pipe.ends[1]);
    EXPECT_EQ(write(pipe.fd(), "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
}
