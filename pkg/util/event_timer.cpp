#include "event.h"

#include "internal/event.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "internal/timer_heap.h"

#include <algorithm>
#include <utility>

// A timer stands in the heap, where its slot is, and in a table by callback and data, so that no look-up
// searches.

using namespace kutil;

namespace
{

constexpr uint32_t kFirstBuckets = 16;
// A period that does not move the clock's number would keep the loop in its timers for ever. One microsecond
// is the wall clock's step and well above the precision of a double that holds the date.
constexpr double kShortestPeriod = 0.001;

uint32_t hash_of(event_timer_cb callback, const void *data)
{
    const auto code = reinterpret_cast<uintptr_t>(callback);
    const auto object = reinterpret_cast<uintptr_t>(data);
    const uint64_t both = static_cast<uint64_t>(object) + (static_cast<uint64_t>(code) << 16);
    return static_cast<uint32_t>((both * 0x9E3779B97F4A7C15U) >> 32);
}

Timer **bucket_of(event_timer_cb callback, const void *data)
{
    return &loop.buckets[hash_of(callback, data) & (loop.bucket_count - 1)];
}

Timer *find(event_timer_cb callback, const void *data)
{
    if (!event_loop_is_up())
        return nullptr;
    Timer *timer = *bucket_of(callback, data);
    while (timer && (timer->callback != callback || timer->data != data))
        timer = timer->next_in_bucket;
    return timer;
}

void push(Timer *timer)
{
    Timer **bucket = bucket_of(timer->callback, timer->data);
    timer->next_in_bucket = std::exchange(*bucket, timer);
}

void resize_buckets(uint32_t count)
{
    Timer **old =
        std::exchange(loop.buckets, static_cast<Timer **>(zalloc_e(mul_sizes(count, sizeof(Timer *)))));
    const uint32_t old_count = std::exchange(loop.bucket_count, count);
    for (uint32_t i = 0; i < old_count; i++) {
        for (Timer *timer = old[i]; timer;)
            push(std::exchange(timer, timer->next_in_bucket));
    }
    free(old);
}

void moved(void *record, int slot) { static_cast<Timer *>(record)->slot = slot; }

int timer_count() { return loop.timers.desc.used - TIMER_HEAP_ROOT; }

void add(Timer *timer)
{
    if (static_cast<uint32_t>(timer_count()) >= loop.bucket_count)
        resize_buckets(loop.bucket_count * 2);
    push(timer);
    heap_add(&loop.timers, timer, moved);
}

void take_out(Timer *timer)
{
    Timer **link = bucket_of(timer->callback, timer->data);
    while (*link != timer)
        link = &(*link)->next_in_bucket;
    *link = timer->next_in_bucket;
    heap_remove_at(&loop.timers, timer->slot, moved);
}

Timer *set_timer(double ms, event_timer_cb callback, void *data, bool periodic, const event_debug_info *site)
{
    if (ms < 0) {
        zel_error_full(kEntity, kFatalEmerg, "Negative timeout value: %lf", ms);
        return nullptr;
    }
    if (!loop_is_up_for("event_timer_set"))
        return nullptr;
    if (ms != ms)
        ms = 0;
    // A timer that is set again leaves the heap first: its place among equal expiries is that of a new one.
    Timer *timer = find(callback, data);
    if (timer)
        take_out(timer);
    else
        timer = new_record<Timer>();
    timer->expiry = get_time_from_boot() + ms;
    timer->period = periodic ? ms : 0;
    timer->site = site;
    timer->callback = callback;
    timer->data = data;
    timer->owns_data = false;
    add(timer);
    return timer;
}

} // namespace

namespace kutil
{

void timers_init()
{
    timer_heap_init(&loop.timers);
    loop.bucket_count = 0;
    resize_buckets(kFirstBuckets);
}

Timer *timers_free()
{
    Timer *owners = nullptr;
    // From the last slot on, so that nothing is put in order for nothing.
    while (timer_count() > 0) {
        auto *timer = static_cast<Timer *>(heap_remove_at(&loop.timers, loop.timers.desc.used - 1, nullptr));
        if (timer->owns_data)
            timer->next_in_bucket = std::exchange(owners, timer);
        else
            free(timer);
    }
    timer_heap_free(&loop.timers);
    free(std::exchange(loop.buckets, nullptr));
    loop.bucket_count = 0;
    return owners;
}

void timers_run_owners(Timer *first)
{
    while (first) {
        const Heap<Timer> timer(std::exchange(first, first->next_in_bucket));
        timer->callback(timer->data);
    }
}

Timer *next_timer() { return static_cast<Timer *>(timer_heap_get_head(&loop.timers)); }

void run_due_timers(uint32_t generation)
{
    while (same_loop(generation) && !event_loop_quit) {
        Timer *timer = next_timer();
        if (!timer || timer->expiry > loop.now)
            return;
        // Set again or freed before the call, so that the callback may set or remove its own timer.
        const Timer due = *timer;
        if (due.period != 0) {
            timer->expiry = loop.now + std::max(due.period, kShortestPeriod);
            heap_adjust(&loop.timers, TIMER_HEAP_ROOT, moved);
        } else {
            take_out(timer);
            free(timer);
        }
        if (!due.callback)
            continue;
        const ProfiledCall profiled(due.callback, due.site);
        due.callback(due.data);
    }
}

void event_free_later(event_timer_cb callback, void *data)
{
    if (!event_loop_is_up()) {
        callback(data);
        return;
    }
    set_timer(0, callback, data, false, nullptr)->owns_data = true;
}

} // namespace kutil

void _event_timer_set(double ms, event_timer_cb callback, void *data, const event_debug_info *site)
{
    set_timer(ms, callback, data, false, site);
}

void _event_timer_set_period(double ms, event_timer_cb callback, void *data, const event_debug_info *site)
{
    set_timer(ms, callback, data, true, site);
}

void _event_timer_set_now(event_timer_cb callback, void *data, const event_debug_info *site)
{
    set_timer(0, callback, data, false, site);
}

int event_timer_del(event_timer_cb callback, void *data)
{
    Timer *timer = find(callback, data);
    if (!timer)
        return -1;
    take_out(timer);
    free(timer);
    return 0;
}

int event_timer_exist(event_timer_cb callback, void *data) { return find(callback, data) != nullptr; }

double event_timer_left(event_timer_cb callback, void *data)
{
    const Timer *timer = find(callback, data);
    return timer ? timer->expiry - loop.now : -1.0;
}
