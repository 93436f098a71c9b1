#include "event.h"

#include "internal/event.h"
#include "internal/report.h"
#include "internal/signal_block.h"
#include "sys.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>

using namespace kutil;

int event_loop_quit;

namespace
{

constexpr double kTicksPerWrap = 4294967296.0;
constexpr int kLeastTicksPerSecond = 100;

void clock_init()
{
    loop.ticks_per_second = sys_get_clock_rate();
    if (loop.ticks_per_second <= 0)
        zel_error_full(kEntity, kFatalEmerg, "Error getting ticks per second");
    if (loop.ticks_per_second < kLeastTicksPerSecond) {
        zel_error_full(
            kEntity, kWarn,
            "Ticks per second lower than minimum resolution required!\nEvent fire time may not be exact.");
    }
    loop.now = get_time_from_boot();
}

// Everything but child watches and exit handlers. Signals stay blocked meanwhile: their handler uses what is
// freed here.
void take_down()
{
    Timer *owners = nullptr;
    {
        const SignalBlock block;
        loop.generation++;
        wakeup_stop();
        loop.be->uninit();
        wakeup_close();
        owners = timers_free();
        fd_table_free();
        signals_free();
        queue_free();
        loop_signals.up = 0;
    }
    // Without a loop, so that what they remove and set is not looked for in it.
    timers_run_owners(owners);
}

struct Timeout {
    bool set;
    double ms;
};

// Deliberate: in exact mode the loop polls without sleeping until the timer is due, precision for processor
// time.
Timeout time_to_next_timer()
{
    const Timer *timer = next_timer();
    if (!timer)
        return {false, 0};
    if (loop.exact)
        return {true, 0};
    loop.now = get_time_from_boot();
    return {true, std::max(timer->expiry - loop.now, 0.0)};
}

bool nothing_left_to_wait_for()
{
    return !next_timer() && loop.active == loop.own_active && loop.registrations == loop.own_registrations;
}

// The callbacks that are due before the loop waits. Returns false when it ends.
bool run_due(uint32_t generation)
{
    run_arrived_signals(generation);
    if (!same_loop(generation) || event_loop_quit)
        return false;
    run_exited_children(generation);
    if (!same_loop(generation))
        return false;
    run_due_timers(generation);
    return same_loop(generation) && !event_loop_quit;
}

// One round of the loop; a value ends the loop with it. Queue entries below `floor` belong to an outer loop.
std::optional<int> iterate(uint32_t generation, int floor)
{
    if (event_loop_quit)
        return 0;
    loop.now = get_time_from_boot();
    if (!run_due(generation))
        return 0;
    const Timeout timeout = time_to_next_timer();
    flush_dirty_descriptors();
    shrink_fd_table();
    if (nothing_left_to_wait_for())
        return 1;
    if (loop.be->wait(loop.fd_table.used, timeout.set, timeout.ms) < 0) {
        if (errno == EINTR)
            return std::nullopt;
        const int result = zel_perror_full(kEntity, kErr, "event_loop_single: be->select()");
        return result ? std::optional(result) : std::nullopt;
    }
    if (!drain_queue(floor, generation))
        return 0;
    return std::nullopt;
}

} // namespace

namespace kutil
{

constinit Loop loop = {};

bool loop_is_up_for(const char *what)
{
    if (!event_loop_is_up())
        zel_error_full(kEntity, kErr, "%s: there is no event loop", what);
    return event_loop_is_up();
}

} // namespace kutil

void event_loop_init(void)
{
    if (event_loop_is_up())
        take_down();
    event_loop_quit = 0;
    loop.generation++;
    loop.depth = 0;
    loop.registrations = 0;
    children_free();
    fd_table_init();
    timers_init();
    clock_init();
    loop.be = chosen_back_end();
    if (loop.be->init() != 0)
        zel_error_full(kEntity, kFatalEmerg, "cant initialize event back-end");
    wakeup_init();
    children_init();
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR)
        zel_error_full(kEntity, kFatalEmerg, "Error initializing SIGPIPE handler");
    exit_init();
}

int event_loop(void)
{
    if (!event_loop_is_up())
        return 1;
    const uint32_t generation = loop.generation;
    const int floor = loop.depth > 0 ? loop.queue_desc.used : 0;
    loop.depth++;
    std::optional<int> result;
    while (!result)
        result = iterate(generation, floor);
    if (same_loop(generation))
        loop.depth--;
    return *result;
}

void event_loop_uninit(void)
{
    if (event_loop_is_up())
        take_down();
}

void event_prof_set(event_prof_hook pre, event_prof_hook post)
{
    loop.prof_pre = pre;
    loop.prof_post = post;
}

double event_get_loop_now(void) { return loop.now; }

double get_time_from_boot(void)
{
    if (loop.exact) {
        struct timeval now = {};
        sys_get_time(&now);
        return static_cast<double>(now.tv_sec) * 1000.0 + static_cast<double>(now.tv_usec) / 1000.0;
    }
    const uint32_t ticks = sys_get_ticks_from_boot();
    if (ticks < loop.last_ticks) {
        zel_error_full(kEntity, kInfo, "sys_get_ticks_from_boot has wrapped around");
        loop.wraps++;
    }
    loop.last_ticks = ticks;
    if (loop.ticks_per_second <= 0)
        loop.ticks_per_second = sys_get_clock_rate();
    return (ticks + loop.wraps * kTicksPerWrap) / loop.ticks_per_second * 1000.0;
}

void event_timer_set_exact(int exact) { loop.exact = exact != 0; }
