// Lists at three sizes each, the next twice the one before, so that growth other than linear shows.

#include "util/lines.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <malloc.h>
#include <string>

namespace
{

#ifdef __GLIBC__
// The rounds shall not measure how the C library gives freed memory back to the system.
const int kept_memory = mallopt(M_TRIM_THRESHOLD, 1 << 30) + mallopt(M_MMAP_THRESHOLD, 1 << 30);
#endif

std::string text_of_lines(int64_t count)
{
    std::string text;
    for (int64_t i = 0; i < count; i++)
        text += "interface.lan" + std::to_string(i * 7919 % count) + ".address=192.168.1.1\n";
    return text;
}

char **list_of_lines(int64_t count)
{
    char **list = nullptr;
    lines_str_split_nl(&list, text_of_lines(count).c_str());
    return list;
}

// What every benchmark here is asked with: a function of a list and its text.
template <class Body>
void run(benchmark::State &state, Body body)
{
    const std::string text = text_of_lines(state.range(0));
    char **list = list_of_lines(state.range(0));
    char **target = nullptr;
    for (auto _ : state)
        body(&target, list, text);
    lines_free(&list);
    lines_free(&target);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void split(benchmark::State &state)
{
    run(state,
        [](char ***target, char **, const std::string &text) { lines_str_split_nl(target, text.c_str()); });
}

void split_at_several(benchmark::State &state)
{
    run(state, [](char ***target, char **, const std::string &text) {
        lines_str_split(target, text.c_str(), ".=\n", 1);
    });
}

void join(benchmark::State &state)
{
    run(state, [](char ***, char **list, const std::string &) {
        char *text = nullptr;
        str_join_lines_nl(&text, list);
        benchmark::DoNotOptimize(text);
        free(text);
    });
}

void add_fast(benchmark::State &state)
{
    run(state, [](char ***target, char **list, const std::string &) {
        lines_alloc(target);
        int count = 0;
        for (; *list; list++)
            lines_add_fast(target, *list, &count);
    });
}

// Each addition walks the list, as a list without a stored count must: twice the list, four times the work.
void add_quadratic(benchmark::State &state)
{
    run(state, [](char ***target, char **list, const std::string &) {
        lines_alloc(target);
        for (; *list; list++)
            lines_add(target, *list);
    });
}

void copy(benchmark::State &state)
{
    run(state, [](char ***target, char **list, const std::string &) { lines_cpy(target, list); });
}

void copy_and_unique(benchmark::State &state)
{
    run(state, [](char ***target, char **list, const std::string &) {
        lines_cpy(target, list);
        lines_unique(target);
    });
}

void copy_and_filter(benchmark::State &state)
{
    run(state, [](char ***target, char **list, const std::string &) {
        lines_cpy(target, list);
        lines_filter_lines(target, list);
    });
}

void read_file(benchmark::State &state)
{
    char path[] = "/tmp/lines_bench_XXXXXX";
    const int fd = mkstemp(path);
    FILE *fp = fdopen(fd, "w");
    fputs(text_of_lines(state.range(0)).c_str(), fp);
    fclose(fp);
    run(state,
        [&](char ***target, char **, const std::string &) { lines_use(target, lines_read_file(path)); });
    remove(path);
}

BENCHMARK(split)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(split_at_several)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(join)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(add_fast)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(add_quadratic)->RangeMultiplier(2)->Range(256, 1024);
BENCHMARK(copy)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(copy_and_unique)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(copy_and_filter)->RangeMultiplier(2)->Range(16384, 65536);
BENCHMARK(read_file)->RangeMultiplier(2)->Range(16384, 65536);

} // namespace
