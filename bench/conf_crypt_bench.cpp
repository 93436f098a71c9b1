#include "util/conf_crypt.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

namespace
{

void BM_obscure_and_back(benchmark::State &state)
{
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        int length = 0;
        unsigned char *bytes = obscure_str(text.c_str(), &length);
        char *back = unobscure_str(bytes, length);
        benchmark::DoNotOptimize(back);
        free(back);
        free(bytes);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_obscure_and_back)->Arg(16)->Arg(10000)->Arg(20000)->Arg(40000)->Complexity();

void BM_keystream(benchmark::State &state)
{
    std::string text(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state)
        benchmark::DoNotOptimize(md5_unobscure_str(md5_obscure_str(text.data())));
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_keystream)->Arg(16)->Arg(10000)->Arg(20000)->Arg(40000)->Complexity();

void BM_password_to_key(benchmark::State &state)
{
    for (auto _ : state) {
        unsigned char *key = aes_password_to_key("password");
        benchmark::DoNotOptimize(key);
        free(key);
    }
}
BENCHMARK(BM_password_to_key);

} // namespace
