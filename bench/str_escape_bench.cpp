#include "util/str.h"
#include "util/str_escape.h"

#include <benchmark/benchmark.h>

namespace
{

using Escaper = char **(*)(char **);

// Page text: mostly letters, a mark every few words.
char *page(size_t size)
{
    static const char pattern[] = "The quick <b>fox</b> isn't 50% \"lazy\", but a/b & c_d.\n";
    char *s = nullptr;
    str_printf(&s, "%*s", static_cast<int>(size), "");
    for (size_t i = 0; i < size; i++)
        s[i] = pattern[i % (sizeof(pattern) - 1)];
    return s;
}

void run(benchmark::State &state, Escaper escaper)
{
    const size_t size = static_cast<size_t>(state.range(0));
    char *text = page(size);
    char *s = nullptr;
    for (auto _ : state) {
        str_cpy(&s, text);
        escaper(&s);
        benchmark::DoNotOptimize(s);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
    state.SetComplexityN(state.range(0));
    str_free(&s);
    str_free(&text);
}

char **nothing(char **s) { return s; }
char **sql_like(char **s) { return str_escape_sql(s, STR_SQL_LIKE); }
char **c_and_back(char **s) { return str_unescape_c(str_escape_c(s)); }
char **http_and_back(char **s) { return str_unescape_http(str_escape_http(s)); }

// A short field and three sizes of pages; `nothing` is the copy alone.
#define ESCAPE(name, function)                                                                               \
    BENCHMARK_CAPTURE(run, name, function)->Arg(16)->Arg(10000)->Arg(20000)->Arg(40000)->Complexity()
ESCAPE(copy_alone, nothing);
ESCAPE(table_xml, str_escape_xml);
ESCAPE(table_html, str_escape_html_text);
ESCAPE(uri, str_escape_uri);
ESCAPE(http_and_back, http_and_back);
ESCAPE(textarea, str_escape_html_textarea);
ESCAPE(shell, str_escape_shell);
ESCAPE(sql_like, sql_like);
ESCAPE(csv, str_escape_csv);
ESCAPE(c_and_back, c_and_back);

} // namespace
