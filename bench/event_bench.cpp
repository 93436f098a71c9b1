#include "util/event.h"
#include "util/zel_error.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace
{

void nothing(void *) {}

// A loop with `count` pending timers, one per byte of `owners`, far enough away to stay.
struct Timers {
    explicit Timers(int64_t count) : owners(static_cast<size_t>(count)), order(owners.size())
    {
        event_loop_init();
        std::mt19937 random(1);
        for (size_t i = 0; i < order.size(); i++) {
            order[i] = &owners[i];
            event_timer_set(1e6 + random() % 100000, nothing, &owners[i]);
        }
        std::shuffle(order.begin(), order.end(), random);
    }
    ~Timers() { event_loop_uninit(); }
    Timers(const Timers &) = delete;
    Timers &operator=(const Timers &) = delete;
    void *next() { return order[position++ % order.size()]; }

    std::vector<char> owners;
    std::vector<void *> order;
    size_t position = 0;
};

// A timer of a stream is armed again with every transfer.
void BM_TimerRearm(benchmark::State &state)
{
    Timers timers(state.range(0));
    double ms = 1e6;
    for (auto _ : state)
        event_timer_set(ms += 0.01, nothing, timers.next());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerRearm)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000);

void BM_TimerDeleteAndSet(benchmark::State &state)
{
    Timers timers(state.range(0));
    for (auto _ : state) {
        void *owner = timers.next();
        event_timer_del(nothing, owner);
        event_timer_set(1e6, nothing, owner);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerDeleteAndSet)->Arg(1000)->Arg(10000)->Arg(100000);

void BM_TimerExist(benchmark::State &state)
{
    Timers timers(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(event_timer_exist(nothing, timers.next()));
}
BENCHMARK(BM_TimerExist)->Arg(1000)->Arg(100000);

// All timers set, then all fired.
void BM_TimerSetAndFire(benchmark::State &state)
{
    std::vector<char> owners(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        event_loop_init();
        for (char &owner : owners)
            event_timer_set(0, nothing, &owner);
        event_loop();
        event_loop_uninit();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_TimerSetAndFire)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

struct Pipes {
    explicit Pipes(int64_t count)
    {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int64_t i = 0; i < count; i++) {
            int ends[2];
            if (pipe(ends) < 0)
                return;
            readers.push_back(ends[0]);
            writers.push_back(ends[1]);
        }
        complete = true;
    }
    ~Pipes()
    {
        for (size_t i = 0; i < readers.size(); i++) {
            close(readers[i]);
            close(writers[i]);
        }
    }
    Pipes(const Pipes &) = delete;
    Pipes &operator=(const Pipes &) = delete;

    std::vector<int> readers;
    std::vector<int> writers;
    bool complete = false;
    size_t left = 0; // in this round
};

// Takes the byte; the last one of a round ends the loop through a timer, outside the dispatch.
void take(int fd, void *data)
{
    char byte;
    auto *pipes = static_cast<Pipes *>(data);
    if (read(fd, &byte, 1) == 1 && --pipes->left == 0)
        event_timer_set_now([](void *) { event_loop_quit = 1; }, nullptr);
}

// `range(1)` of `range(0)` watched descriptors are readable in each round.
void BM_Dispatch(benchmark::State &state)
{
    Pipes pipes(state.range(0));
    if (!pipes.complete) {
        state.SkipWithError("not enough descriptors");
        return;
    }
    event_loop_init();
    for (const int fd : pipes.readers)
        event_fd_set(fd, EVENT_READ, take, &pipes);
    const auto active = static_cast<size_t>(state.range(1));
    const size_t step = pipes.writers.size() / active;
    for (auto _ : state) {
        pipes.left = active;
        for (size_t i = 0; i < active; i++)
            benchmark::DoNotOptimize(write(pipes.writers[i * step], "x", 1));
        event_loop();
        event_loop_quit = 0;
    }
    event_loop_uninit();
    state.SetItemsProcessed(state.iterations() * state.range(1));
}
BENCHMARK(BM_Dispatch)
    ->Args({10, 10})
    ->Args({100, 100})
    ->Args({1000, 1000})
    ->Args({9000, 9000})
    ->Args({1000, 10})
    ->Args({9000, 10});

// Watches that come and go: set, handed to the back-end, removed.
void BM_WatchAndUnwatch(benchmark::State &state)
{
    Pipes pipes(state.range(0));
    if (!pipes.complete) {
        state.SkipWithError("not enough descriptors");
        return;
    }
    for (auto _ : state) {
        event_loop_init();
        for (const int fd : pipes.readers)
            event_fd_set(fd, EVENT_READ, take, &pipes);
        pipes.left = 1;
        benchmark::DoNotOptimize(write(pipes.writers[0], "x", 1));
        event_loop();
        for (const int fd : pipes.readers)
            event_fd_clr(fd, EVENT_READ, take, &pipes);
        event_loop_uninit();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_WatchAndUnwatch)->Arg(100)->Arg(9000);

} // namespace
