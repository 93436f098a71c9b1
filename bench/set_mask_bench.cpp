#include "util/set.h"
#include "util/str.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

namespace
{

// A configuration of `keys` keys as a gateway has them: eight keys in each entry of an index list, twenty
// entries in each list. With `step` -1 the brothers of every level come in reverse order.
set *make_config(int64_t keys, int step)
{
    static const char *const kFields[] = {"name", "type", "enabled", "ip", "netmask", "mtu", "mode", "vlan"};
    set *root = set_alloc("conf");
    for (int64_t n = 0; n < keys; n++) {
        const int64_t i = step > 0 ? n : keys - 1 - n;
        char path[64];
        snprintf(path, sizeof(path), "list%d/%d/%s", static_cast<int>(i / 160), static_cast<int>(i / 8 % 20),
                 kFields[i % 8]);
        set_set_path_str(&root, path, "192.168.1.254");
    }
    return root;
}

// One list of `count` sons, each with a number that is not in order.
set *make_list(int64_t count)
{
    set *root = set_alloc("list");
    for (int64_t i = 0; i < count; i++) {
        char number[16];
        snprintf(number, sizeof(number), "%d", static_cast<int>(i * 7919 % count));
        set_set_path_str(set_index_add(&root, -1), "n", number);
    }
    return root;
}

void BM_merge_into_empty(benchmark::State &state)
{
    set *source = make_config(state.range(0), 1);
    for (auto _ : state) {
        set *target = set_alloc("conf");
        set_merge(&target, &source);
        set_free(&target);
    }
    set_free(&source);
}

void BM_merge_over_same(benchmark::State &state)
{
    set *source = make_config(state.range(0), 1);
    set *target = make_config(state.range(0), -1);
    for (auto _ : state)
        set_merge(&target, &source);
    set_free(&source);
    set_free(&target);
}

void BM_replace(benchmark::State &state)
{
    set *source = make_config(state.range(0), 1);
    set *target = set_dup(&source);
    for (auto _ : state)
        set_replace(&target, &source);
    set_free(&source);
    set_free(&target);
}

void BM_compare_reversed(benchmark::State &state)
{
    set *a = make_config(state.range(0), 1);
    set *b = make_config(state.range(0), -1);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_compare(&a, &b));
    set_free(&a);
    set_free(&b);
}

void BM_merge_list(benchmark::State &state)
{
    set *source = make_list(state.range(0));
    for (auto _ : state) {
        set *target = set_alloc("list");
        set_merge(&target, &source);
        set_free(&target);
    }
    set_free(&source);
}

void BM_replace_list(benchmark::State &state)
{
    set *source = make_list(state.range(0));
    set *target = set_dup(&source);
    for (auto _ : state)
        set_replace(&target, &source);
    set_free(&source);
    set_free(&target);
}

void BM_compare_list(benchmark::State &state)
{
    set *a = make_list(state.range(0));
    set *b = set_dup(&a);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_compare(&a, &b));
    set_free(&a);
    set_free(&b);
}

void BM_sort_num(benchmark::State &state)
{
    set *list = make_list(state.range(0));
    for (auto _ : state)
        free(set_sort_num(&list, "n"));
    set_free(&list);
}

void BM_index_insert_at_front(benchmark::State &state)
{
    set *list = make_list(state.range(0));
    for (auto _ : state) {
        set_free(set_index_add(&list, 0));
        set_index_reindex(&list);
    }
    set_free(&list);
}

void BM_delim_list(benchmark::State &state)
{
    char *text = nullptr;
    for (int64_t i = 0; i < state.range(0); i++)
        str_cat(&text, "a,");
    set *list = set_alloc("list");
    for (auto _ : state)
        set_set_path_delim_list(&list, "v", text, ",", 0);
    set_free(&list);
    str_free(&text);
}

#define CONFIGS RangeMultiplier(2)->Range(1024, 4096)
#define LISTS RangeMultiplier(2)->Range(256, 1024)

BENCHMARK(BM_merge_into_empty)->CONFIGS;
BENCHMARK(BM_merge_over_same)->CONFIGS;
BENCHMARK(BM_replace)->CONFIGS;
BENCHMARK(BM_compare_reversed)->CONFIGS;
BENCHMARK(BM_merge_list)->LISTS;
BENCHMARK(BM_replace_list)->LISTS;
BENCHMARK(BM_compare_list)->LISTS;
BENCHMARK(BM_sort_num)->LISTS;
BENCHMARK(BM_index_insert_at_front)->LISTS;
BENCHMARK(BM_delim_list)->RangeMultiplier(2)->Range(2048, 8192);

} // namespace
