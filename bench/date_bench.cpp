#include "util/date.h"

#include <benchmark/benchmark.h>

namespace
{

constexpr time_t kTime = 1794745805; // 2026-11-15 12:30:05 UTC

void BM_date_sql2time(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(date_sql2time("2026-11-15 12:30:05"));
}
BENCHMARK(BM_date_sql2time);

// Arg 1: in local time, which is the C library's mktime.
void BM_date_atoi(benchmark::State &state)
{
    const char *previous = change_tz("CET-1CEST,M3.5.0,M10.5.0/3");
    for (auto _ : state)
        benchmark::DoNotOptimize(date_atoi("15-Nov-2026 12:30:05", static_cast<int>(state.range(0))));
    change_tz(previous);
}
BENCHMARK(BM_date_atoi)->Arg(0)->Arg(1);

void BM_kmktime_utc(benchmark::State &state)
{
    tm fields;
    date_sql2tm("2026-11-15 12:30:05", &fields);
    for (auto _ : state)
        benchmark::DoNotOptimize(kmktime(&fields, 0));
}
BENCHMARK(BM_kmktime_utc);

// What UTC costs by way of the TZ variable: set it, mktime, put it back.
void BM_mktime_by_tz(benchmark::State &state)
{
    tm fields;
    date_sql2tm("2026-11-15 12:30:05", &fields);
    for (auto _ : state) {
        const char *previous = change_tz("UTC");
        benchmark::DoNotOptimize(mktime(&fields));
        change_tz(previous);
    }
}
BENCHMARK(BM_mktime_by_tz);

void BM_timegm(benchmark::State &state)
{
    tm fields;
    date_sql2tm("2026-11-15 12:30:05", &fields);
    for (auto _ : state)
        benchmark::DoNotOptimize(timegm(&fields));
}
BENCHMARK(BM_timegm);

void BM_date_time2sql(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(date_time2sql(kTime, 0));
}
BENCHMARK(BM_date_time2sql);

void BM_arpa_date_get(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(arpa_date_get(kTime));
}
BENCHMARK(BM_arpa_date_get);

} // namespace
