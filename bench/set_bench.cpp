// The tree's hot paths on a gateway's shape: sections of groups of keys, 20 keys a group and 20 groups a
// section. The argument is the number of keys. Reading, writing, copying and freeing are linear in it; so is
// building and looking up, but for the few sections at the top.
#include "util/set.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

std::vector<std::string> make_paths(int64_t keys)
{
    std::vector<std::string> paths;
    for (int64_t i = 0; i < keys; i++) {
        char path[64];
        snprintf(path, sizeof(path), "section%d/group%d/key%d", static_cast<int>(i / 400),
                 static_cast<int>(i / 20 % 20), static_cast<int>(i % 20));
        paths.push_back(path);
    }
    return paths;
}

set *make_tree(int64_t keys)
{
    set *tree = set_alloc("conf");
    for (const std::string &path : make_paths(keys))
        set_set_path_str(&tree, path.c_str(), "192.168.1.1");
    return tree;
}

// A tree of state.range(0) keys while it lives.
struct Fixture {
    explicit Fixture(const benchmark::State &state) : tree(make_tree(state.range(0))) {}
    ~Fixture() { set_free(&tree); }
    set *tree;
};

void BM_lookup_by_path(benchmark::State &state)
{
    Fixture fixture(state);
    const auto paths = make_paths(state.range(0));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(set_get(&fixture.tree, paths[i].c_str()));
        i = i + 1 < paths.size() ? i + 1 : 0;
    }
}

// What a lookup is measured against: the same nodes, found by strcmp along the sons, from names taken apart
// beforehand.
void BM_lookup_by_strcmp_walk(benchmark::State &state)
{
    Fixture fixture(state);
    std::vector<std::vector<std::string>> paths;
    for (const std::string &path : make_paths(state.range(0))) {
        const size_t first = path.find('/');
        const size_t second = path.find('/', first + 1);
        paths.push_back(
            {path.substr(0, first), path.substr(first + 1, second - first - 1), path.substr(second + 1)});
    }
    size_t i = 0;
    for (auto _ : state) {
        set **place = &fixture.tree;
        for (const std::string &name : paths[i]) {
            place = &(*place)->sons;
            while (*place && strcmp((*place)->value, name.c_str()) != 0)
                place = &(*place)->next;
        }
        benchmark::DoNotOptimize(place);
        i = i + 1 < paths.size() ? i + 1 : 0;
    }
}

void BM_value_by_path(benchmark::State &state)
{
    Fixture fixture(state);
    const auto paths = make_paths(state.range(0));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(set_get_path_str(&fixture.tree, paths[i].c_str()));
        i = i + 1 < paths.size() ? i + 1 : 0;
    }
}

void BM_build_by_path(benchmark::State &state)
{
    const auto paths = make_paths(state.range(0));
    for (auto _ : state) {
        set *tree = set_alloc("conf");
        for (const std::string &path : paths)
            set_set_path_str(&tree, path.c_str(), "192.168.1.1");
        state.PauseTiming();
        set_free(&tree);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_write(benchmark::State &state)
{
    Fixture fixture(state);
    size_t size = 0;
    for (auto _ : state) {
        char *text = set_write_alloc(&fixture.tree);
        size = strlen(text);
        free(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

void BM_read(benchmark::State &state)
{
    Fixture fixture(state);
    char *text = set_write_alloc(&fixture.tree);
    for (auto _ : state) {
        set *tree = set_read(text);
        state.PauseTiming();
        set_free(&tree);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strlen(text)));
    free(text);
}

void BM_read_check(benchmark::State &state)
{
    Fixture fixture(state);
    char *text = set_write_alloc(&fixture.tree);
    const size_t size = strlen(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_read_check(text, size, nullptr));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
    free(text);
}

void BM_dup_and_free(benchmark::State &state)
{
    Fixture fixture(state);
    for (auto _ : state) {
        set *copy = set_dup(&fixture.tree);
        set_free(&copy);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_compare(benchmark::State &state)
{
    Fixture fixture(state);
    set *copy = set_dup(&fixture.tree);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_compare(&fixture.tree, &copy));
    state.SetItemsProcessed(state.iterations() * state.range(0));
    set_free(&copy);
}

void BM_free(benchmark::State &state)
{
    Fixture fixture(state);
    for (auto _ : state) {
        state.PauseTiming();
        set *copy = set_dup(&fixture.tree);
        state.ResumeTiming();
        set_free(&copy);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define SIZES Arg(1600)->Arg(3200)->Arg(6400)
BENCHMARK(BM_lookup_by_path)->SIZES;
BENCHMARK(BM_lookup_by_strcmp_walk)->SIZES;
BENCHMARK(BM_value_by_path)->SIZES;
BENCHMARK(BM_build_by_path)->SIZES;
BENCHMARK(BM_write)->SIZES;
BENCHMARK(BM_read)->SIZES;
BENCHMARK(BM_read_check)->SIZES;
BENCHMARK(BM_dup_and_free)->SIZES;
BENCHMARK(BM_compare)->SIZES;
BENCHMARK(BM_free)->SIZES;

} // namespace
