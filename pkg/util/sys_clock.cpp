#include "sys.h"

#include "internal/errno_scope.h"
#include "internal/report.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/times.h>
#include <unistd.h>

using namespace kutil;

namespace
{

struct TickBase {
    bool known;
    uint32_t ticks;
};
constinit TickBase base = {};

// Some C libraries take a count just below the wrap for an error number and answer -1: negated, the error
// number is the count again. One that sets no error number had -1 as its count.
uint32_t read_ticks()
{
    const ErrnoScope keep_errno;
    errno = 0;
    const clock_t ticks = times(nullptr);
    if (ticks == static_cast<clock_t>(-1) && errno != 0)
        return static_cast<uint32_t>(-errno);
    return static_cast<uint32_t>(ticks);
}

} // namespace

uint32_t sys_get_ticks_from_boot(void)
{
    const uint32_t ticks = read_ticks();
    if (!base.known)
        base = {true, ticks};
    return ticks - base.ticks;
}

int sys_get_clock_rate(void) { return static_cast<int>(sysconf(_SC_CLK_TCK)); }

struct timeval *sys_get_time(struct timeval *tv)
{
    if (tv)
        gettimeofday(tv, nullptr);
    return tv;
}

struct timeval *utc_time_get(struct timeval *tv) { return sys_get_time(tv); }

int32_t utc_time(int32_t *seconds)
{
    struct timeval now = {};
    const auto result = static_cast<int32_t>(static_cast<uint32_t>(utc_time_get(&now)->tv_sec));
    if (seconds)
        *seconds = result;
    return result;
}

int sleep_ms(uint32_t ms)
{
    struct timeval wait = {};
    wait.tv_sec = ms / 1000;
    wait.tv_usec = ms % 1000 * 1000;
    return select(0, nullptr, nullptr, nullptr, &wait);
}

int sys_sock_set_nonblocking(int fd)
{
    // Deliberate: the flag alone, not or-ed into what is set.
    if (fcntl(fd, F_SETFL, O_NONBLOCK) < 0)
        return zel_error_full(kEntity, kErr, "sock_set_sockopt %d: failed setting non-blocking", fd);
    if (fcntl(fd, F_SETOWN, getpid()) < 0)
        return zel_error_full(kEntity, kErr, "sock_set_sockopt %d: failed setting owner", fd);
    return 0;
}
