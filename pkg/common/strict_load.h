#ifndef KUTIL_COMMON_STRICT_LOAD_H
#define KUTIL_COMMON_STRICT_LOAD_H

// Loading a tree that is to be saved again: what reading would pass over is refused, because the next save
// would lose it. A problem names the place as FILE:LINE:COLUMN, columns in bytes from 1.

#include "problem.h"
#include "util/set_node.h"

#include <cstddef>

namespace kutil::common
{

enum class Load {
    done,
    missing, // there is no such file; the problem says so
    failed
};

// A whole file in memory, with a NUL behind it.
struct FileText {
    HeapText text;
    size_t length = 0;

    View view() const { return View(text ? text.get() : "", length); }
};

// file_text_read reads the rest of the descriptor, at most INT32_MAX bytes; `name` is for the problem.
bool file_text_read(int fd, const char *name, FileText *text, Problem *problem);

// file_text_load reads the file at `path`.
Load file_text_load(const char *path, FileText *text, Problem *problem);

// strict_read returns the tree of the text, behind which a NUL must stand, in the layers of the set mask, for
// the caller to free by set_free. NULL with a problem when the text is not one whole tree; `name` stands for
// the file there.
set *strict_read(const char *name, View text, Problem *problem);

// strict_load is file_text_load and strict_read: *tree gets the tree, *text the text it came from.
Load strict_load(const char *path, set **tree, FileText *text, Problem *problem);

// The line end of the text's first line is CR LF.
bool has_dos_line_ends(View text);

// Stores the line and column, from 1, of the byte at `offset`.
void find_position(View text, size_t offset, size_t *line, size_t *column);

} // namespace kutil::common

#endif
