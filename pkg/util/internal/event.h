#ifndef KUTIL_INTERNAL_EVENT_H
#define KUTIL_INTERNAL_EVENT_H

// The state of the event loop, shared by its sources, and what the loop offers to the library's other
// families: the four functions under "For streams and servers".

#include "../array.h"
#include "../event.h"
#include "../timer_heap.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kutil
{

inline constexpr uint32_t kEventTypes = EVENT_READ | EVENT_WRITE | EVENT_EXCEPT;

// At most one per descriptor and type, in the order of types.
struct Watcher {
    Watcher *next;
    uint32_t type;
    bool library; // a callback of this library: see event_fd_set_library
    uint32_t serial;
    event_fd_cb callback;
    void *data;
};

// What is known of one descriptor number.
struct FdEntry {
    uint32_t wanted;  // types that have a watcher
    uint32_t applied; // types last handed to the back-end
    Watcher *watchers;
    int pending[3]; // queue indexes of the read, write and except event, -1 for none
    int queued;     // live queue entries of this number, those without an index too
    int next_dirty; // descriptor plus one, 0 at the end
    bool dirty;
};

struct QueuedEvent {
    uint32_t type; // 0: cancelled
    int fd;
};

struct Timer {
    double expiry; // the key: first
    double period;
    const event_debug_info *site;
    event_timer_cb callback;
    void *data;
    Timer *next_in_bucket;
    int slot;
    bool owns_data; // its callback frees `data`: run when the loop is taken down
};
static_assert(offsetof(Timer, expiry) == 0);

inline constexpr size_t kSignalInfoSize = 128;

struct SignalRecord {
    SignalRecord *next;
    int signo;
    int kind;
    std::atomic<uint32_t> deliveries; // not yet dispatched
    const event_debug_info *site;
    event_any_cb callback;
    void *data;
    alignas(8) unsigned char info[kSignalInfoSize]; // of the latest delivery
};

struct Loop {
    bool exact;
    double now; // ms
    uint32_t last_ticks;
    uint32_t wraps;
    int ticks_per_second;
    const event_be *be;
    uint32_t generation; // changes with every init and uninit, so that a callback's effect on the loop shows
    int depth;           // of event_loop calls inside one another

    FdEntry *fds;
    array_desc fd_table; // of fds; used is the size of the table
    QueuedEvent *queue;
    array_desc queue_desc; // of queue; used is the number of entries
    int strays;            // entries were queued for descriptors outside the table
    int first_dirty;       // descriptor plus one
    int active;            // (descriptor, type) pairs at the back-end
    int own_active;
    uint32_t last_serial;

    timer_heap timers;
    Timer **buckets; // of pending timers, by callback and data
    uint32_t bucket_count;

    SignalRecord *signals; // ascending numbers; changed with all signals blocked
    event_child *children;
    int registrations; // of signals and children
    int own_registrations;

    event_prof_hook prof_pre;
    event_prof_hook prof_post;
};
extern Loop loop;

// What signal handlers may touch, besides the deliveries and copies in signal records.
struct LoopSignals {
    std::atomic<int> up; // there is a loop
    std::atomic<int> arrived;
    std::atomic<int> wakeups; // bytes in the pipe
    int wake_read;
    int wake_write;
};
extern LoopSignals loop_signals;

extern const event_be kPollBackEnd;

inline bool same_loop(uint32_t generation) { return loop.generation == generation; }

// Reports a registration without a loop. True when there is one.
bool loop_is_up_for(const char *what);

// --- For streams and servers ---

// Whether there is a loop: before event_loop_init and after event_loop_uninit there are no timers and no
// watches.
inline bool event_loop_is_up() { return loop_signals.up.load(std::memory_order_relaxed) != 0; }

// _event_fd_set for callbacks of this library: when the quit flag is set after the call, the event is done
// with. (An application's stays queued and is dispatched again.)
void event_fd_set_library(int fd, uint32_t types, event_fd_cb callback, void *data,
                          const event_debug_info *site);

// Has callback(data), which frees `data`, called from a 0 ms timer. The call is never lost: taking the loop
// down makes it too, and without a loop it happens at once.
void event_free_later(event_timer_cb callback, void *data);

// Brackets a callback with the profiling hooks.
class ProfiledCall
{
public:
    template <class Callback>
    ProfiledCall(Callback callback, const event_debug_info *site)
        : callback_(reinterpret_cast<event_any_cb>(callback)), site_(site)
    {
        if (loop.prof_pre)
            loop.prof_pre(callback_, site_);
    }
    ~ProfiledCall()
    {
        if (loop.prof_post)
            loop.prof_post(callback_, site_);
    }
    ProfiledCall(const ProfiledCall &) = delete;
    ProfiledCall &operator=(const ProfiledCall &) = delete;

private:
    event_any_cb callback_;
    const event_debug_info *site_;
};

// --- Between the sources of the loop ---

// Those that call callbacks take the generation of the loop, and stop when it is no more that loop.

// event_fd.cpp
void fd_table_init();
void fd_table_free();
void queue_free();
void flush_dirty_descriptors();
void shrink_fd_table();
bool drain_queue(int floor, uint32_t generation); // down to `floor` entries; false when the loop is gone

// event_poll.cpp
const event_be *chosen_back_end();

// event_timer.cpp
void timers_init();
Timer *timers_free(); // returns the timers that own their data, for timers_run_owners
void timers_run_owners(Timer *first);
Timer *next_timer();
void run_due_timers(uint32_t generation); // until the quit flag is set

// event_signal.cpp
void wakeup_init(); // from here on there is a loop
void wakeup_stop();
void wakeup_close();
void signals_free();
void run_arrived_signals(uint32_t generation);

// event_child.cpp
void children_free();
void children_init();
void run_exited_children(uint32_t generation);

// event_exit.cpp
void exit_init();
void register_exit_signal();

} // namespace kutil

#endif
