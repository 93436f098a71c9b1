// Command start from a small process and from one with 1 GB resident, beside a plain fork.

#include "util/sys.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

// Touches memory in pages of 4 kB, whatever larger pages the kernel would like to use.
class Resident
{
public:
    explicit Resident(size_t megabytes) : size_(megabytes << 20)
    {
        if (!size_)
            return;
        block_ = static_cast<char *>(
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (block_ == MAP_FAILED)
            abort();
        madvise(block_, size_, MADV_NOHUGEPAGE);
        for (size_t at = 0; at < size_; at += 4096)
            block_[at] = 1;
    }
    ~Resident()
    {
        if (size_)
            munmap(block_, size_);
    }

private:
    size_t size_;
    char *block_ = nullptr;
};

void BM_exec(benchmark::State &state)
{
    const Resident memory(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(sys_exec(":"));
}

void BM_spawn(benchmark::State &state)
{
    const Resident memory(static_cast<size_t>(state.range(0)));
    char *argv[] = {const_cast<char *>("/bin/true"), nullptr};
    for (auto _ : state)
        waitpid(spawn_child_process(0, argv, nullptr, nullptr), nullptr, 0);
}

void BM_fork_and_exec(benchmark::State &state)
{
    const Resident memory(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        const pid_t pid = fork();
        if (pid == 0) {
            execl("/bin/true", "true", nullptr);
            _exit(1);
        }
        waitpid(pid, nullptr, 0);
    }
}

} // namespace

BENCHMARK(BM_exec)->Arg(0)->Arg(1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_spawn)->Arg(0)->Arg(1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_fork_and_exec)->Arg(0)->Arg(1024)->Unit(benchmark::kMicrosecond);
