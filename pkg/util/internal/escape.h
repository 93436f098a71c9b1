#ifndef KUTIL_INTERNAL_ESCAPE_H
#define KUTIL_INTERNAL_ESCAPE_H

#include "text_builder.h"

namespace kutil
{

// The forms of str_escape.h for texts that are parts of a longer one.

// As str_escape_http and str_escape_url_query_field, appended.
void append_http(TextBuilder &to, View text);
void append_query_field(TextBuilder &to, View text);

// As _str_escape_csv of `prefix` and `text` together, appended.
void append_csv(TextBuilder &to, View prefix, View text, int sep, int quote, int newline, bool force);

// As str_unescape_uri and, with plus_is_blank, str_unescape_http.
void unescape_percent_in_place(char *text, bool plus_is_blank);

} // namespace kutil

#endif
