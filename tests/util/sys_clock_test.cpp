#include "util/sys.h"

#include "support.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/times.h>
#include <unistd.h>

namespace
{
clock_t ticks = 1000;
int ticks_errno = 0;
} // namespace

// In place of the C library's: the tick counter stands where a test puts it.
extern "C" clock_t times(struct tms *)
{
    if (ticks_errno)
        errno = ticks_errno;
    return ticks;
}

TEST(SysClock, TicksCountFromTheFirstCallAndWrap)
{
    const ChildResult fresh = run_in_child([] { _exit(sys_get_ticks_from_boot() == 0 ? 0 : 1); });
    EXPECT_TRUE(fresh.exited_with(0));

    const uint32_t base = static_cast<uint32_t>(ticks) - sys_get_ticks_from_boot();
    const struct {
        int64_t reading;
        int error;
        uint32_t expected;
    } rows[] = {
        {1250, 0, 1250U},
        {0xFFFFFFFE, 0, 0xFFFFFFFEU},
        {-1, 0, 0xFFFFFFFFU},                // the count itself, from a C library that sets no error
        {-1, ERANGE, 0U - uint32_t{ERANGE}}, // a count that was taken for an error
        {3, 0, 3U},
    };
    for (const auto &row : rows) {
        ticks = static_cast<clock_t>(row.reading);
        ticks_errno = row.error;
        errno = EDOM;
        EXPECT_EQ(sys_get_ticks_from_boot(), row.expected - base) << row.reading;
        EXPECT_EQ(errno, EDOM);
    }
    ticks_errno = 0;
    EXPECT_EQ(sys_get_clock_rate(), sysconf(_SC_CLK_TCK));
}

TEST(SysClock, WallClock)
{
    struct timeval tv = {};
    const time_t before = time(nullptr);
    EXPECT_EQ(sys_get_time(&tv), &tv);
    EXPECT_GE(tv.tv_sec, before);
    EXPECT_LE(tv.tv_sec, before + 5);
    EXPECT_EQ(utc_time_get(&tv), &tv);
    EXPECT_EQ(sys_get_time(nullptr), nullptr);
    int32_t seconds = 0;
    const int32_t now = utc_time(&seconds);
    EXPECT_EQ(now, seconds);
    EXPECT_LE(utc_time(nullptr) - now, 5);
    EXPECT_LE(static_cast<uint32_t>(now) - static_cast<uint32_t>(before), 5U);
}

TEST(SysClock, SleepEndsInTimeOrWithASignal)
{
    struct timespec start = {};
    struct timespec end = {};
    EXPECT_EQ(sleep_ms(0), 0);
    clock_gettime(CLOCK_MONOTONIC, &start);
    EXPECT_EQ(sleep_ms(30), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    const auto elapsed_ms = (end.tv_sec - start.tv_sec) * 1000 + (end.tv_nsec - start.tv_nsec) / 1000000;
    EXPECT_GE(elapsed_ms, 29);

    signal(SIGALRM, [](int) {});
    const struct itimerval soon = {{0, 0}, {0, 20000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(sleep_ms(20000), -1);
    EXPECT_EQ(errno, EINTR);
    signal(SIGALRM, SIG_DFL);
}

TEST(SysClock, NonBlockingIsTheOnlyFlagAndTheOwnerIsThisProcess)
{
    ReportLog log;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fcntl(ends[1], F_SETFL, O_APPEND);
    EXPECT_EQ(sys_sock_set_nonblocking(ends[1]), 0);
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & (O_APPEND | O_NONBLOCK), O_NONBLOCK);
    EXPECT_EQ(fcntl(ends[1], F_GETOWN), getpid());
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(sys_sock_set_nonblocking(ends[1]), -1);
    EXPECT_EQ(log.take(),
              "4: sock_set_sockopt " + std::to_string(ends[1]) + ": failed setting non-blocking\n");
}
