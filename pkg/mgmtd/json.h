#ifndef MGMTD_JSON_H
#define MGMTD_JSON_H

#include "base.h"
#include "util/set_node.h"

namespace mgmtd
{

// Appends the tree as JSON (RFC 8259): a key that holds a value is a string, any other an object of its sons
// in order. Sons of one name become one member, an array, where the first of them stands. Bytes that are no
// UTF-8 become U+FFFD. Deep trees take memory, not stack.
void write_json(set *node, TextBuilder *out);

// Appends the text as a string of JSON, in quotes.
void append_json_string(TextBuilder *out, View text);

// The length of the UTF-8 character that `text` begins with (RFC 3629), 0 when it begins with none.
size_t utf8_length(View text);

} // namespace mgmtd

#endif
