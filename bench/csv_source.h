#ifndef KUTIL_BENCH_CSV_SOURCE_H
#define KUTIL_BENCH_CSV_SOURCE_H

// Tables read from a text in memory.

#include "util/csv.h"

#include <string>

struct Source {
    const char *at, *end;
    static int next(void *ctx)
    {
        auto *source = static_cast<Source *>(ctx);
        return source->at == source->end ? -1 : static_cast<unsigned char>(*source->at++);
    }
};

inline csv *read_table(const std::string &text)
{
    csv *table = csv_alloc();
    Source source = {text.data(), text.data() + text.size()};
    csv_read(table, Source::next, &source);
    return table;
}

#endif
