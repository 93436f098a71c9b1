// Any sequence of registrations, removals, events, quits, nested loops and restarts, made outside and inside
// callbacks: only what is registered is called, with the data it was registered with, and the back-end's
// picture stays true.

#include "util/event.h"
#include "util/zel_error.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sys/times.h>

static uint32_t ticks = 1000;
extern "C" clock_t times(struct tms *) { return static_cast<clock_t>(ticks); }

namespace
{

constexpr int kFirstFd = 700; // never open
constexpr int kFds = 6;
constexpr int kTimers = 12;
constexpr int kMostDepth = 3;

struct Input {
    const uint8_t *at;
    const uint8_t *end;
    unsigned next() { return at < end ? *at++ : 0; }
    bool empty() const { return at == end; }
} input;

// What the loop should know: the variant (1..2) that watches, for each descriptor and type; whether a timer
// is pending.
struct Model {
    char variant[kFds][3];
    bool pending[kTimers];
    bool periodic[kTimers];
    bool signal;
} model;
char data_of[kFds][3][2];
char timer_data[kTimers];
std::map<int, uint32_t> applied;
int depth;

void require(bool holds)
{
    if (!holds)
        abort();
}

void act();

void clear(int fd, int type, int variant)
{
    char *watching = &model.variant[fd][type];
    if (*watching == variant + 1)
        *watching = 0;
}

void on_fd(int fd, void *data)
{
    const int64_t index = static_cast<char *>(data) - &data_of[0][0][0];
    const int type = static_cast<int>(index / 2 % 3);
    const int variant = static_cast<int>(index % 2);
    require(index / 6 == fd - kFirstFd && model.variant[fd - kFirstFd][type] == variant + 1);
    depth++;
    act();
    depth--;
    // A callback that lets the loop quit removes its watcher.
    if (event_loop_quit || input.empty()) {
        event_fd_clr(fd, 1U << type, on_fd, data);
        clear(fd - kFirstFd, type, variant);
    }
}

void on_timer(void *data)
{
    const int64_t i = static_cast<char *>(data) - timer_data;
    require(model.pending[i] && event_timer_exist(on_timer, data) == model.periodic[i]);
    model.pending[i] = model.periodic[i];
    depth++;
    act();
    depth--;
}

void on_signal(int, void *)
{
    require(model.signal);
    depth++;
    act();
    depth--;
}

void restart()
{
    applied.clear();
    model = {};
    event_loop_init();
}

void change_watch(unsigned byte)
{
    const int fd = static_cast<int>(byte % kFds);
    const int type = static_cast<int>(byte / kFds % 3);
    const int variant = static_cast<int>(byte / kFds / 3 % 2);
    char *data = &data_of[fd][type][variant];
    switch (byte % 5) {
    case 0:
    case 1:
        event_fd_set(kFirstFd + fd, 1U << type, on_fd, data);
        model.variant[fd][type] = static_cast<char>(variant + 1);
        break;
    case 2:
        event_fd_clr(kFirstFd + fd, 1U << type, on_fd, data);
        clear(fd, type, variant);
        break;
    case 3:
        event_feed(1 + byte % 7, kFirstFd + fd);
        break;
    default:
        int closing = kFirstFd + fd;
        event_fd_close(&closing);
    }
}

void change_timer(unsigned byte)
{
    const int i = static_cast<int>(byte % kTimers);
    const double ms = byte % 32;
    void *data = &timer_data[i];
    require(event_timer_exist(on_timer, data) == model.pending[i]);
    if (byte & 0x80) {
        require(event_timer_del(on_timer, data) == (model.pending[i] ? 0 : -1));
        model.pending[i] = false;
        return;
    }
    model.pending[i] = true;
    model.periodic[i] = (byte & 0x40) && ms > 0;
    if (byte & 0x40)
        event_timer_set_period(ms, on_timer, data);
    else
        event_timer_set(ms, on_timer, data);
}

void change_loop(unsigned byte)
{
    if (byte < 100)
        event_loop_quit = 1;
    else if (byte < 200 && depth < kMostDepth) {
        event_loop();
        event_loop_quit = input.empty();
    } else if (byte < 215)
        restart();
    else if (byte < 235) {
        model.signal = byte & 1;
        if (model.signal)
            event_signal_set(SIGUSR1, on_signal, nullptr);
        else
            event_signal_del(SIGUSR1);
    } else if (model.signal)
        raise(SIGUSR1);
}

// A few of the next steps of the input.
void act()
{
    for (unsigned steps = input.next() % 4; steps > 0 && !input.empty(); steps--) {
        const unsigned kind = input.next();
        if (kind % 8 < 4)
            change_watch(input.next());
        else if (kind % 8 < 7)
            change_timer(input.next());
        else
            change_loop(input.next());
    }
    if (input.empty())
        event_loop_quit = 1;
}

int be_wait(int count, int has_timeout, double ms)
{
    if (input.empty())
        event_loop_quit = 1;
    ticks += has_timeout ? static_cast<uint32_t>(ms / 10) + 1 : 0;
    for (const auto &[fd, types] : applied) {
        require(types != 0 && fd < count);
        // The loop's own pipe gets its events too: it is not blocking, and empty is no error.
        for (uint32_t type = 1, happened = input.next(); type <= 4; type *= 2) {
            if (types & happened & type)
                event_feed(type, fd);
        }
    }
    return 0;
}

void be_update(int fd, uint32_t old_types, uint32_t types)
{
    const auto known = applied.find(fd);
    require(old_types == (known == applied.end() ? 0 : known->second));
    if (types)
        applied[fd] = types;
    else
        applied.erase(fd);
}

int be_none() { return 0; }
void be_closing(int) {}
int be_needs_split(int fd) { return fd & 1; }

const event_be kBackEnd = {be_wait, be_update, be_none, be_none, be_closing, be_needs_split};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool ready = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
    (void)ready;
    event_be_set(&kBackEnd);
    input = {data, data + size};
    depth = 0;
    restart();
    while (!input.empty()) {
        event_loop_quit = 0;
        act();
        event_loop();
    }
    event_loop_uninit();
    return 0;
}
