#include "util/attrib.h"
#include "util/attrib_text.h"
#include "util/lines.h"
#include "util/str.h"

#include <benchmark/benchmark.h>

namespace
{

attrib *list_of(int64_t count)
{
    attrib *list = nullptr;
    char *query = nullptr;
    for (int64_t i = 0; i < count; i++)
        str_catprintf(&query, "%sfield-%d=value+%%26+%d", i ? "&" : "", static_cast<int>(i),
                      static_cast<int>(i));
    str_http_to_attrib(&list, query);
    str_free(&query);
    return list;
}

void done(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

void BM_query_read(benchmark::State &state)
{
    attrib *list = list_of(state.range(0));
    char *query = nullptr;
    attrib_to_str_http(&query, &list);
    for (auto _ : state)
        str_http_to_attrib(&list, query);
    done(state);
    attrib_free(&list);
    str_free(&query);
}

void BM_query_write(benchmark::State &state)
{
    attrib *list = list_of(state.range(0));
    char *query = nullptr;
    for (auto _ : state)
        attrib_to_str_http(&query, &list);
    done(state);
    attrib_free(&list);
    str_free(&query);
}

void BM_header_write_and_read(benchmark::State &state)
{
    attrib *list = list_of(state.range(0));
    for (auto _ : state) {
        char **lines = attrib_to_lines(&list, 0);
        attrib *again = attrib_hdr_lines_to_attrib("", lines, 0);
        attrib_free(&again);
        lines_free(&lines);
    }
    done(state);
    attrib_free(&list);
}

void BM_copy(benchmark::State &state)
{
    attrib *list = list_of(state.range(0));
    attrib *copy = nullptr;
    for (auto _ : state)
        attrib_cpy(&copy, &list);
    done(state);
    attrib_free(&list);
    attrib_free(&copy);
}

// The last of so many.
void BM_get(benchmark::State &state)
{
    attrib *list = list_of(state.range(0));
    attrib_addset(&list, "wanted", "x");
    for (auto _ : state)
        benchmark::DoNotOptimize(attrib_get(&list, "wanted"));
    state.SetComplexityN(state.range(0));
    attrib_free(&list);
}

// Sizes whose texts malloc does not map as blocks of their own: the figures are the code's, not the kernel's.
BENCHMARK(BM_query_read)->Arg(10)->Arg(500)->Arg(1000)->Arg(2000)->Complexity();
BENCHMARK(BM_query_write)->Arg(10)->Arg(500)->Arg(1000)->Arg(2000)->Complexity();
BENCHMARK(BM_header_write_and_read)->Arg(10)->Arg(500)->Arg(1000)->Arg(2000)->Complexity();
BENCHMARK(BM_copy)->Arg(10)->Arg(500)->Arg(1000)->Arg(2000)->Complexity();
BENCHMARK(BM_get)->Arg(10)->Arg(500)->Arg(1000)->Arg(2000)->Complexity();

} // namespace
