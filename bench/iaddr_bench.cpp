#include "util/iaddr.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>

namespace
{

constexpr const char *kTexts[] = {"192.168.100.200", "2001:db8:1:2:3:4:5:6", "fe80::1", "10.1"};

void BM_str2iaddr(benchmark::State &state)
{
    const char *text = kTexts[state.range(0)];
    iaddr a;
    for (auto _ : state)
        benchmark::DoNotOptimize(str2iaddr(&a, text));
    state.SetLabel(text);
}
BENCHMARK(BM_str2iaddr)->DenseRange(0, 3);

// The C library's own reader, to compare with.
void BM_inet_pton(benchmark::State &state)
{
    const char *text = kTexts[state.range(0)];
    in6_addr a;
    for (auto _ : state)
        benchmark::DoNotOptimize(inet_pton(state.range(0) == 0 ? AF_INET : AF_INET6, text, &a));
    state.SetLabel(text);
}
BENCHMARK(BM_inet_pton)->DenseRange(0, 2);

void BM_zel_inet_atonz(benchmark::State &state)
{
    uint32_t ip = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(zel_inet_atonz(kTexts[0], &ip));
}
BENCHMARK(BM_zel_inet_atonz);

void BM_iaddr2str(benchmark::State &state)
{
    iaddr a;
    str2iaddr(&a, kTexts[state.range(0)]);
    for (auto _ : state)
        benchmark::DoNotOptimize(iaddr2str(&a));
    state.SetLabel(kTexts[state.range(0)]);
}
BENCHMARK(BM_iaddr2str)->DenseRange(0, 1);

void BM_str2subnet(benchmark::State &state)
{
    subnet s;
    for (auto _ : state)
        benchmark::DoNotOptimize(str2subnet(&s, "2001:db8::/32"));
}
BENCHMARK(BM_str2subnet);

void BM_iaddr_is_in_subnet(benchmark::State &state)
{
    subnet s;
    iaddr a;
    str2subnet(&s, state.range(0) == 4 ? "10.0.0.0/8" : "2001:db8::/33");
    str2iaddr(&a, state.range(0) == 4 ? "10.1.2.3" : "2001:db8::1");
    for (auto _ : state)
        benchmark::DoNotOptimize(iaddr_is_in_subnet(&a, &s));
}
BENCHMARK(BM_iaddr_is_in_subnet)->Arg(4)->Arg(6);

} // namespace
