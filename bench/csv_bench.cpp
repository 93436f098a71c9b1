#include "csv_source.h"

#include <benchmark/benchmark.h>

namespace
{

std::string make_text(int lines)
{
    std::string text = "id,name,price,note\n";
    for (int i = 0; i < lines; i++) {
        const std::string n = std::to_string(i * 7919LL % 100003);
        text += n + ",user" + n + "," + n + ".25,\"a note, quoted\"\n";
    }
    return text;
}

void set_bytes(benchmark::State &state, const std::string &text)
{
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.SetComplexityN(state.range(0));
}

void BM_csv_read(benchmark::State &state)
{
    const std::string text = make_text(static_cast<int>(state.range(0)));
    for (auto _ : state)
        csv_close(read_table(text));
    set_bytes(state, text);
}
BENCHMARK(BM_csv_read)->RangeMultiplier(4)->Range(1 << 10, 1 << 14)->Complexity();

void BM_csv_read_lines(benchmark::State &state)
{
    const std::string text = make_text(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        csv *table = csv_alloc();
        Source source = {text.data(), text.data() + text.size()};
        csv_read_lines(
            table, Source::next, &source, [](void *, csv_line *) { return 0; }, nullptr);
        csv_close(table);
    }
    set_bytes(state, text);
}
BENCHMARK(BM_csv_read_lines)->RangeMultiplier(4)->Range(1 << 10, 1 << 14)->Complexity();

void BM_csv_write(benchmark::State &state)
{
    const std::string text = make_text(static_cast<int>(state.range(0)));
    csv *table = read_table(text);
    FILE *null = fopen("/dev/null", "w");
    for (auto _ : state)
        csv_write_fp(table, null);
    fclose(null);
    csv_close(table);
    set_bytes(state, text);
}
BENCHMARK(BM_csv_write)->RangeMultiplier(4)->Range(1 << 10, 1 << 14)->Complexity();

// Arg 1: the type of the key.
void BM_csv_sort(benchmark::State &state)
{
    csv *table = read_table(make_text(static_cast<int>(state.range(0))));
    csv_type_set(table, "id", static_cast<int>(state.range(1)), NULL);
    unsigned flags = 0;
    for (auto _ : state) {
        csv_sort(table, "name", 0, NULL);
        csv_sort(table, "id", static_cast<int>(flags ^= CSV_KEY_DESC), NULL);
    }
    csv_close(table);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_csv_sort)
    ->ArgsProduct({benchmark::CreateRange(1 << 10, 1 << 14, 4), {CSV_TYPE_INT}})
    ->Complexity(benchmark::oNLogN);
BENCHMARK(BM_csv_sort)->Args({1 << 12, CSV_TYPE_NONE})->Args({1 << 12, CSV_TYPE_FLOAT});

void BM_csv_field_add(benchmark::State &state)
{
    csv *table = read_table(make_text(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        csv_field_add(table, "new");
        csv_delete_field(table, "new");
    }
    csv_close(table);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_csv_field_add)->RangeMultiplier(4)->Range(1 << 10, 1 << 14)->Complexity();

void BM_csv_search(benchmark::State &state)
{
    csv *table = read_table(make_text(static_cast<int>(state.range(0))));
    for (auto _ : state)
        benchmark::DoNotOptimize(csv_search(table, "name", "nobody", NULL));
    csv_close(table);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_csv_search)->RangeMultiplier(4)->Range(1 << 10, 1 << 14)->Complexity();

} // namespace
