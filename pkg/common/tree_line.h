#ifndef KUTIL_COMMON_TREE_LINE_H
#define KUTIL_COMMON_TREE_LINE_H

// The line that tree_list and tree_diff write into: a mark that stays, then a path that grows and shrinks
// with the walk.

#include "tree_list.h"
#include "util/internal/text_builder.h"

namespace kutil::common
{

class TreeLineWriter
{
public:
    TreeLineWriter(LineSink sink, void *context) : sink_(sink), context_(context) {}

    // Starts an empty path behind `mark`.
    void start(View mark);
    // Replaces the mark by one of the same length.
    void set_mark(View mark);
    View path() const { return sub(line_.text(), mark_length_); }
    size_t length() const { return line_.size(); }
    bool path_is_empty() const { return line_.size() == mark_length_; }
    // Takes the path back to what it was at this length.
    void shorten(size_t length) { line_.truncate(length); }
    void add_name(const char *name);

    // One line; the path stays. Without a path emit_key writes none, since every tree has a top.
    void emit_value(const char *value);
    void emit_key();

    // Lists the visible node `top` and what is below it; the path is that of `top` and stays. Whether every
    // line reads back.
    bool list(set *top);

    size_t lines() const { return lines_; }

private:
    void emit();

    LineSink sink_;
    void *context_;
    TextBuilder line_;
    size_t mark_length_ = 0;
    size_t lines_ = 0;
};

// Appends the text as a value stands in a line: bytes below 32, from 127 up and & as &xx;.
void append_printable(TextBuilder *out, View text);

// The visible son of a key that holds a value, NULL for other nodes.
set *value_leaf(set *key);

} // namespace kutil::common

#endif
