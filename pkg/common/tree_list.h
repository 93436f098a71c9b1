#ifndef KUTIL_COMMON_TREE_LIST_H
#define KUTIL_COMMON_TREE_LIST_H

// A configuration tree as lines, one for each key, and back.
//
//   PATH=VALUE   a node whose only son is a leaf: the leaf's text is the value
//   PATH/        a leaf that is no value, so a key that holds nothing; also a leaf right below the root,
//                which has no path of its own
//
// PATH is the tree's path syntax: names joined by "/", a backslash before each / \ and = inside a name.
// Everywhere bytes below 32, bytes from 127 up and the ampersand stand as &xx; (two hexadecimal digits), so a
// line is printable ASCII whatever the tree holds. Setting every line of a listing in a new tree gives the
// same tree again, as long as no name is empty and no two brothers share a name: a path cannot tell those
// apart, and tree_list says when it met one.
//
// Only what the get mask on top of the mask stack shows takes part. Running out of memory ends the process.

#include "util/set_node.h"

#include <cstddef>

namespace kutil::common
{

// Takes one line of `length` characters, without a line end but with a NUL behind it. The text ends with the
// call.
using LineSink = void (*)(void *context, const char *line, size_t length);

// Lists the keys of the node at `tree`, in tree order. Paths start below the tree's root, wherever in it the
// node stands. Returns true when the lines read back as the same tree, false when a name was empty or
// repeated. A NULL, empty or hidden node has no lines, and neither has a root without sons; both are true.
bool tree_list(set **tree, LineSink sink, void *context);

// One line, read.
struct TreeLine {
    char *path = nullptr;  // in the tree's path syntax, for set_get, set_set and set_set_path_str
    char *value = nullptr; // the text itself; NULL for a PATH/ line

    TreeLine() = default;
    TreeLine(const TreeLine &) = delete;
    TreeLine &operator=(const TreeLine &) = delete;
    ~TreeLine();
};

// Reads a line of `length` characters, which has no line end. Nothing is trimmed: a blank belongs to the name
// or to the value. Returns NULL, or what is wrong as a text without a line end, with *offset at the
// character; the line then stays as it was. Refused are: neither an unescaped "=" nor a "/" at the end, an
// "&" that does not start two hexadecimal digits and ";", &00;, a NUL, and a backslash at the end of the
// path.
const char *tree_line_read(const char *text, size_t length, TreeLine *line, size_t *offset);

// tree_path_read turns a path as it stands in a line into the tree's path syntax: &xx; becomes its byte,
// behind a backslash when it would mean something in a path. Returns a new text, or NULL with *offset at the
// fault, as above.
char *tree_path_read(const char *text, size_t length, size_t *offset);

// tree_path_write returns the path of the node at `tree` from below its root as it stands in a line; "" for
// the root. A new text. NULL for a NULL or empty handle.
char *tree_path_write(set **tree);

} // namespace kutil::common

#endif
