#ifndef MGMTD_HTML_H
#define MGMTD_HTML_H

#include "base.h"

namespace mgmtd
{

// Appends the text for HTML, content or attribute in quotes: markup characters as references; bytes that are
// no UTF-8, and control characters that HTML has not, as U+FFFD.
void append_html(TextBuilder *out, View text);

// The text comes back from a form's field just as it is.
bool fits_field(View text);

// The style sheet.
extern const char kStyle[];

} // namespace mgmtd

#endif
