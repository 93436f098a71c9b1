#ifndef ZCONF_SHELL_WORDS_H
#define ZCONF_SHELL_WORDS_H

#include "util/internal/heap.h"
#include "util/internal/text.h"

namespace zconf
{

// A line split into words as a shell splits it: at blanks and tabs; '...' takes everything as it is, "..."
// too but for a backslash before one of \ " $ and `, and elsewhere a backslash takes the next character. A #
// where a word could begin starts a comment. Nothing is expanded.
class ShellWords
{
public:
    // Returns NULL, or what is wrong with the line; *offset is where.
    const char *split(kutil::View line, size_t *offset);

    int count() const { return count_; }
    // The words, and a NULL behind them.
    char **words() const { return words_.get(); }
    // The column from 1 at which each word starts.
    const size_t *columns() const { return columns_.get(); }

private:
    kutil::HeapText text_;
    kutil::Heap<char *> words_;
    kutil::Heap<size_t> columns_;
    int count_ = 0;
};

} // namespace zconf

#endif
