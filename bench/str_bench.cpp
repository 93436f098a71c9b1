#include "util/fstr.h"
#include "util/str.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

namespace
{

constexpr char kPiece[] = "name=value;index";
constexpr size_t kPieceLength = sizeof(kPiece) - 1;

void sizes(benchmark::internal::Benchmark *benchmark) { benchmark->Arg(1 << 10)->Arg(1 << 14)->Arg(1 << 18); }

void count(benchmark::State &state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

// A text of `size` bytes with a dot every `every` bytes.
std::string dotted(int64_t size, size_t every)
{
    std::string text(static_cast<size_t>(size), 'x');
    for (size_t i = every - 1; i < text.size(); i += every)
        text[i] = '.';
    return text;
}

void BM_str_catfast(benchmark::State &state)
{
    for (auto _ : state) {
        char *s = nullptr;
        uint32_t length = 0;
        while (length < state.range(0))
            str_catfast(&s, kPiece, &length);
        benchmark::DoNotOptimize(s);
        str_free(&s);
    }
    count(state);
}
BENCHMARK(BM_str_catfast)->Apply(sizes)->Complexity(benchmark::oN);

// The same with the string of the C++ library, to compare with.
void BM_std_string_append(benchmark::State &state)
{
    for (auto _ : state) {
        std::string s;
        while (s.size() < static_cast<size_t>(state.range(0)))
            s += static_cast<const char *>(kPiece);
        benchmark::DoNotOptimize(s.data());
    }
    count(state);
}
BENCHMARK(BM_std_string_append)->Apply(sizes);

void BM_fstr_cat(benchmark::State &state)
{
    for (auto _ : state) {
        fstr f;
        fstr_init(&f, 4096);
        while (fstr_strlen(&f) < state.range(0))
            fstr_cat(&f, kPiece);
        benchmark::DoNotOptimize(fstr_to_str(&f));
        fstr_free(&f);
    }
    count(state);
}
BENCHMARK(BM_fstr_cat)->Apply(sizes)->Complexity(benchmark::oN);

// Appending that has to find the end first: a short text, as it is used.
void BM_str_cat_8(benchmark::State &state)
{
    for (auto _ : state) {
        char *s = nullptr;
        for (int i = 0; i < 8; i++)
            str_cat(&s, kPiece);
        benchmark::DoNotOptimize(s);
        str_free(&s);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(8 * kPieceLength));
}
BENCHMARK(BM_str_cat_8);

void BM_str_printf(benchmark::State &state)
{
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    char *s = nullptr;
    for (auto _ : state) {
        str_printf(&s, "%s:%d", text.c_str(), 80);
        benchmark::DoNotOptimize(s);
    }
    str_free(&s);
    count(state);
}
BENCHMARK(BM_str_printf)->Arg(16)->Arg(240)->Arg(1 << 14);

void BM_str_catprintf(benchmark::State &state)
{
    for (auto _ : state) {
        char *s = nullptr;
        for (int i = 0; i < 8; i++)
            str_catprintf(&s, "%s:%d,", kPiece, i);
        benchmark::DoNotOptimize(s);
        str_free(&s);
    }
}
BENCHMARK(BM_str_catprintf);

void BM_str_replace_growing(benchmark::State &state)
{
    const std::string text = dotted(state.range(0), 16);
    char *s = nullptr;
    for (auto _ : state) {
        str_cpy(&s, text.c_str());
        str_replace(&s, ".", "&#46;");
        benchmark::DoNotOptimize(s);
    }
    str_free(&s);
    count(state);
}
BENCHMARK(BM_str_replace_growing)->Apply(sizes)->Complexity(benchmark::oN);

void BM_str_replace_without_hit(benchmark::State &state)
{
    const std::string text = dotted(state.range(0), 16);
    char *s = nullptr;
    str_cpy(&s, text.c_str());
    for (auto _ : state) {
        str_replace(&s, "x..", "");
        benchmark::DoNotOptimize(s);
    }
    str_free(&s);
    count(state);
}
BENCHMARK(BM_str_replace_without_hit)->Apply(sizes)->Complexity(benchmark::oN);

// Near misses everywhere: the time stays linear.
void BM_str_count_str_near_misses(benchmark::State &state)
{
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    const std::string wanted = std::string(text.size() / 2, 'x') + "y";
    for (auto _ : state)
        benchmark::DoNotOptimize(str_count_str(text.c_str(), wanted.c_str()));
    count(state);
}
BENCHMARK(BM_str_count_str_near_misses)->Apply(sizes)->Complexity(benchmark::oN);

void BM_str_strip(benchmark::State &state)
{
    const std::string text = dotted(state.range(0), 16);
    char *s = nullptr;
    for (auto _ : state) {
        str_cpy(&s, text.c_str());
        str_strip(&s, ".,;", 1);
        benchmark::DoNotOptimize(s);
    }
    str_free(&s);
    count(state);
}
BENCHMARK(BM_str_strip)->Apply(sizes)->Complexity(benchmark::oN);

void BM_itoa(benchmark::State &state)
{
    int n = 1234567;
    for (auto _ : state) {
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(itoa(n));
    }
}
BENCHMARK(BM_itoa);

} // namespace
