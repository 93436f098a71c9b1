#include "code_tables.h"

#include "internal/chars.h"
#include "internal/text.h"

namespace kutil
{
namespace
{

constexpr bool is_canonical(View word)
{
    for (const char c : word) {
        if (!is_lower(c) && !is_digit(c) && c != '_')
            return false;
    }
    return !word.empty();
}

constexpr bool lists(const code_names &row, View word)
{
    for (const char *const *name = row.names; *name; name++) {
        if (word == *name)
            return true;
    }
    return false;
}

constexpr bool words_are_sound(const code_names &row)
{
    if (!row.names[0] || !is_canonical(row.names[0]))
        return false;
    for (const char *const *name = row.names; *name; name++) {
        const code_names rest{0, name + 1, 0};
        if (View(*name).empty() || lists(rest, *name))
            return false;
    }
    return true;
}

constexpr bool can_be_confused(const code_names &a, const code_names &b)
{
    if (a.hidden || b.hidden)
        return false;
    for (const char *const *name = a.names; *name; name++) {
        if (lists(b, *name))
            return true;
    }
    return a.code == b.code;
}

// Every code can be stored and read back: rows count up to the one terminator at the end, have proper words,
// and no two that a look-up sees share a code or a word.
template <size_t N>
consteval bool is_sound(const code_names (&&rows)[N])
{
    for (size_t i = 0; i + 1 < N; i++) {
        if (rows[i].code == -1 || !words_are_sound(rows[i]))
            return false;
        for (size_t j = i + 1; j + 1 < N; j++) {
            if (can_be_confused(rows[i], rows[j]))
                return false;
        }
    }
    return N > 1;
}

// The words of every row.
#define SCHEMA(name)
#define TABLE(type, table, no_code, ...) __VA_ARGS__
#define ROW(constant, code, ...) constexpr const char *constant##_words[] = {__VA_ARGS__, nullptr};
#define HIDDEN_ROW(constant, code, ...) ROW(constant, code, __VA_ARGS__)
#include KUTIL_CODE_TABLES
#undef TABLE
#undef ROW
#undef HIDDEN_ROW

#define ROW(constant, code, ...) {constant, constant##_words, 0},
#define HIDDEN_ROW(constant, code, ...) {constant, constant##_words, 1},
#define TABLE(type, table, no_code, ...)                                                                     \
    static_assert(is_sound({__VA_ARGS__{-1, nullptr, 0}}), #table ": a bad or double code or word");
#include KUTIL_CODE_TABLES
#undef TABLE

} // namespace

} // namespace kutil

using namespace kutil;

// The tables. A schema's own additional ones are declared nowhere else and found by name only.
#define TABLE(type, table, no_code, ...)                                                                     \
    extern "C" const code_names table[] __attribute__((weak));                                               \
    const code_names table[] = {__VA_ARGS__{-1, nullptr, 0}};
#include KUTIL_CODE_TABLES
