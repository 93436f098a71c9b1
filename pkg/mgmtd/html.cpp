#include "html.h"

#include "json.h"

#include <algorithm>

namespace mgmtd
{

using kutil::sub;

namespace
{

bool is_control(char c) { return (static_cast<unsigned char>(c) < 32 && c != '\n' && c != '\t') || c == 127; }

View reference(char c)
{
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&#39;";
    default:
        return "";
    }
}

} // namespace

void append_html(TextBuilder *out, View text)
{
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        const View escaped = reference(text.front());
        if (length == 0 || is_control(text.front()))
            out->append("\xEF\xBF\xBD");
        else
            out->append(escaped.empty() ? sub(text, 0, length) : escaped);
        text = sub(text, std::max<size_t>(length, 1));
    }
}

bool fits_field(View text)
{
    for (size_t length; !text.empty(); text = sub(text, length)) {
        length = utf8_length(text);
        if (length == 0 || is_control(text.front()))
            return false;
    }
    return true;
}

} // namespace mgmtd
