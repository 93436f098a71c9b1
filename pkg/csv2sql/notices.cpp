#include "notices.h"

#include <cstdio>

namespace csv2sql
{

namespace
{

constexpr unsigned long kShown = 5;

constexpr const char *kTexts[] = {
    "a byte order mark is left out",
    "the last line has no line feed; it is read as if it had",
    "a NUL byte is left out",
    "a carriage return inside quotes is left out",
    "a carriage return without a line feed is left out",
    "too few cells",
    "too many cells",
    "a carriage return in a value will be left out when the result is read again",
};
static_assert(sizeof(kTexts) / sizeof(*kTexts) == Notices::kKinds);

} // namespace

bool reports_muted = false;

void Notices::add(Kind kind, int line)
{
    if (!muted_ && ++counts_[kind] <= kShown)
        fprintf(stderr, "csv2sql: %s:%d: %s\n", file_, line, kTexts[kind]);
}

void Notices::finish()
{
    for (int kind = 0; kind < kKinds; kind++) {
        if (counts_[kind] > kShown)
            fprintf(stderr, "csv2sql: %s: %s, %lu times more\n", file_, kTexts[kind], counts_[kind] - kShown);
        counts_[kind] = 0;
    }
}

} // namespace csv2sql
