// What comes from outside the loop: signals, children, and the end of the process.

#include "event_fixture.h"

#include <climits>
#include <sys/ioctl.h>
#include <sys/resource.h>

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
