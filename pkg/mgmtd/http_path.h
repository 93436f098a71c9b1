#ifndef MGMTD_HTTP_PATH_H
#define MGMTD_HTTP_PATH_H

// Names in request targets and in the tree.

#include "base.h"

namespace mgmtd
{

inline constexpr size_t kMaxLevels = 200;

// The pieces of a request's path, percent-decoded. Each is one name.
class PathPieces
{
public:
    // Splits at "/" and then decodes each piece. One "/" at the end is allowed. Returns NULL, or what is
    // wrong: an empty piece, "." or "..", a NUL, a bad escape, more than kMaxLevels pieces.
    const char *read(View path);

    size_t count() const { return count_; }
    // Piece `i`, or "".
    View piece(size_t i) const;
    // The pieces from number `first` on as a path of the tree. A new text.
    char *tree_path(size_t first) const;

private:
    const char *add(View piece);
    TextBuilder text_; // the pieces, each with a NUL behind it
    size_t start_[kMaxLevels];
    size_t count_ = 0;
};

// Appends `name` with a backslash before "/" and "\": as one name in a path of the tree.
void append_tree_name(TextBuilder *out, View name);

// The path as append_tree_name writes its names, joined by one "/" each: two paths lead to one node when
// these are the same. A new text; NULL when the path is invalid or has more than kMaxLevels names.
char *normal_path(const char *path);

// `path` is `top` or below it; both normal.
bool is_at_or_below(View path, View top);
// What of a path that is at or below `top` is below it.
View path_below(View path, View top);

// Calls use(context, name) with each name of a normal path, unescaped.
void for_each_name(View path, void (*use)(void *, View), void *context);

// Appends the path of the tree as a target's path: its names percent-encoded, "/" between them.
void append_url_path(TextBuilder *out, View normal);
// Appends a text percent-encoded for a path or query.
void append_url_text(TextBuilder *out, View text);

// Each field of a form is an edit, and a new key is compared with all its brothers.
inline constexpr size_t kMaxFields = 2000;

// A decoded form: the query of a target, or a body of the kind application/x-www-form-urlencoded.
class Form
{
public:
    // NULL, or what is wrong: a bad escape, a NUL, more than kMaxFields fields. Replaces what was there.
    const char *read(View encoded);
    size_t count() const { return count_; }
    const char *name(size_t i) const { return fields_.get()[i].name; }
    const char *value(size_t i) const { return fields_.get()[i].value; }
    // The value of the first field `name`, "" when it has none, NULL without such a field.
    const char *find(View name) const;

private:
    struct Field {
        char *name;
        char *value;
    };
    HeapText text_;
    kutil::Heap<Field> fields_;
    size_t count_ = 0;
};

} // namespace mgmtd

#endif
