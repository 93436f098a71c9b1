#include "event_fixture.h"

#include <climits>
#include <random>
#include <set>

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
