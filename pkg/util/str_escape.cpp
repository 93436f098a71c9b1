#include "str_escape.h"

#include "internal/chars.h"
#include "internal/escape.h"
#include "internal/heap.h"

#include <cstdint>

namespace kutil
{
namespace
{

constexpr size_t kLongestForm = 8; // "&#255;" and what fits easily

constexpr unsigned copy(char *to, View text)
{
    unsigned length = 0;
    for (const char c : text)
        to[length++] = c;
    return length;
}

constexpr unsigned with_backslash(char *to, char c)
{
    to[0] = '\\';
    to[1] = c;
    return 2;
}

constexpr unsigned percent(char *to, char c, const char *digits)
{
    const unsigned byte = static_cast<unsigned char>(c);
    to[0] = '%';
    to[1] = digits[byte >> 4];
    to[2] = digits[byte & 15];
    return 3;
}

constexpr unsigned three_digits(char *to, char c, unsigned base)
{
    const unsigned byte = static_cast<unsigned char>(c);
    to[0] = static_cast<char>('0' + byte / (base * base));
    to[1] = static_cast<char>('0' + byte / base % base);
    to[2] = static_cast<char>('0' + byte % base);
    return 3;
}

constexpr bool is_upper_half(char c) { return static_cast<unsigned char>(c) >= 0x80; }
constexpr bool is_quote_or_backslash(char c) { return c == '"' || c == '\'' || c == '\\'; }
constexpr bool is_shell_plain(char c) { return is_alnum(c) || c == '_' || c == '-' || c == '.' || c == '/'; }

// What stands for one character: written to `to`, length returned.
constexpr unsigned uri_form(char *to, char c)
{
    if (is_alnum(c) || is_upper_half(c) || c == '-' || c == '.')
        return copy(to, View(&c, 1));
    return percent(to, c, "0123456789ABCDEF");
}

constexpr unsigned query_field_form(char *to, char c)
{
    if (c == '*' || c == '_')
        return copy(to, View(&c, 1));
    return c == ' ' ? copy(to, "+") : uri_form(to, c);
}

constexpr unsigned http_form(char *to, char c)
{
    if (is_alnum(c))
        return copy(to, View(&c, 1));
    return c == ' ' ? copy(to, "+") : percent(to, c, "0123456789abcdef");
}

constexpr unsigned textarea_form(char *to, char c)
{
    if (is_alnum(c) || is_space(c))
        return copy(to, View(&c, 1));
    copy(to, "&#");
    three_digits(to + 2, c, 10);
    return 5 + copy(to + 5, ";");
}

constexpr unsigned shell_form(char *to, char c)
{
    if (is_shell_plain(c) || c == ' ')
        return copy(to, View(&c, 1));
    if (c == '\n')
        return with_backslash(to, 'n');
    to[0] = '\\';
    return 1 + three_digits(to + 1, c, 8);
}

constexpr unsigned sql_form(char *to, char c)
{
    switch (c) {
    case '\n':
        return with_backslash(to, 'n');
    case '\r':
        return with_backslash(to, 'r');
    case 26:
        return with_backslash(to, 'Z');
    case '"':
    case '\'':
    case '\\':
        return with_backslash(to, c);
    default:
        return copy(to, View(&c, 1));
    }
}

constexpr unsigned sql_like_form(char *to, char c)
{
    if (c == '\\')
        return copy(to, "\\\\\\\\");
    return c == '%' || c == '_' ? with_backslash(to, c) : sql_form(to, c);
}

constexpr unsigned c_form(char *to, char c)
{
    switch (c) {
    case '\t':
        return with_backslash(to, 't');
    case '\n':
        return with_backslash(to, 'n');
    case '\r':
        return with_backslash(to, 'r');
    case '"':
    case '\\':
        return with_backslash(to, c);
    default:
        return copy(to, View(&c, 1));
    }
}

constexpr unsigned slashed_form(char *to, char c)
{
    return is_quote_or_backslash(c) ? with_backslash(to, c) : copy(to, View(&c, 1));
}

constexpr unsigned apostrophe_form(char *to, char c)
{
    return c == '\'' ? with_backslash(to, c) : copy(to, View(&c, 1));
}

// A form with the length of every byte worked out by the compiler.
template <auto form>
class StaticForm
{
public:
    size_t length(char c) const { return kLengths.of[static_cast<unsigned char>(c)]; }
    char *write(char *to, char c) const { return to + form(to, c); }

private:
    struct Lengths {
        uint8_t of[256] = {};
    };
    static constexpr Lengths kLengths = [] {
        Lengths lengths;
        for (unsigned byte = 0; byte < 256; byte++) {
            char text[kLongestForm] = {};
            lengths.of[byte] = static_cast<uint8_t>(form(text, static_cast<char>(byte)));
        }
        return lengths;
    }();
};

// The texts of a code table by byte, so that the table is walked once and not once per character.
class TableForm
{
public:
    explicit TableForm(const code_str *table)
    {
        bool seen[256] = {};
        const code_str *row = table;
        for (; row && row->code != -1; row++) {
            if (row->hidden || row->code < -128 || row->code > 127)
                continue;
            const unsigned byte = static_cast<unsigned>(row->code) & 0xFF;
            if (!seen[byte])
                slot_[byte] = add(*row);
            seen[byte] = true;
        }
        const uint16_t rest = row ? add(*row) : uint16_t{0};
        for (unsigned byte = 0; rest && byte < 256; byte++) {
            if (!seen[byte])
                slot_[byte] = rest;
        }
    }
    size_t length(char c) const
    {
        const unsigned slot = slot_[static_cast<unsigned char>(c)];
        return slot ? texts_[slot].size() : 1;
    }
    char *write(char *to, char c) const
    {
        const unsigned slot = slot_[static_cast<unsigned char>(c)];
        if (slot)
            return put(to, texts_[slot]);
        *to = c;
        return to + 1;
    }

private:
    // A row without a text leaves its character as it is, as a missing one does: slot 0.
    uint16_t add(const code_str &row)
    {
        const char *text = row.indirect ? *row.indirect : row.name;
        if (!text)
            return 0;
        texts_[used_] = View(text);
        return used_++;
    }

    uint16_t slot_[256] = {};
    View texts_[1 + 255 + 1]; // slot 0, every code but -1, the terminator
    uint16_t used_ = 1;
};

template <class Form>
size_t escaped_length(View text, const Form &form)
{
    uint64_t length = 0;
    for (const char c : text)
        length += form.length(c);
    return length < SIZE_MAX ? static_cast<size_t>(length) : SIZE_MAX;
}

template <class Form>
char *write_escaped(char *to, View text, const Form &form)
{
    for (const char c : text)
        to = form.write(to, c);
    return to;
}

// Escapes *s and puts it between `before` and `after`.
template <class Form>
char **escape(char **s, const Form &form, View before = {}, View after = {})
{
    if (!s)
        return nullptr;
    const View text = view(*s);
    char *escaped = new_text(add_sizes(escaped_length(text, form), before.size(), after.size()));
    *put(write_escaped(put(escaped, before), text, form), after) = '\0';
    replace_text(s, escaped);
    return s;
}

// Two forms have a mark of their own for "no text".
constexpr char kNoText[] = "''";

char **unescape_percent(char **s, bool plus_is_blank)
{
    if (!s)
        return nullptr;
    if (!*s || !**s)
        replace_text(s, copy_text(""));
    else
        unescape_percent_in_place(*s, plus_is_blank);
    return s;
}

template <class Form>
void append_escaped(TextBuilder &to, View text, const Form &form)
{
    const size_t length = escaped_length(text, form);
    write_escaped(to.room(length), text, form);
    to.commit(length);
}

constexpr char unescaped_c(char c)
{
    switch (c) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return c;
    }
}

bool is_delimiter(char c, int delimiter)
{
    return delimiter != -1 && static_cast<signed char>(c) == static_cast<signed char>(delimiter);
}

constexpr code_str row(char c, const char *text) { return {c, text, nullptr, 0}; }
constexpr code_str kEnd = {-1, nullptr, nullptr, 0};

constexpr code_str kJavascript[] = {row('\\', "\\\\"), row('"', "\\\""), row('\'', "\\'"),
                                    row('\r', "\\r"),  row('\n', "\\n"), kEnd};
constexpr code_str kXml[] = {row('"', "&quot;"), row('\'', "&apos;"), row('&', "&amp;"),
                             row('<', "&lt;"),   row('>', "&gt;"),    kEnd};
constexpr code_str kHtmlText[] = {
    row('"', "&quot;"),  row('&', "&amp;"),  row('<', "&lt;"),  row('>', "&gt;"),
    row('\'', "&#039;"), row('%', "&#037;"), row('\n', "<br>"), kEnd};
constexpr code_str kHtmlField[] = {row('"', "&quot;"),
                                   row('&', "&amp;"),
                                   row('<', "&lt;"),
                                   row('>', "&gt;"),
                                   row('\'', "&#039;"),
                                   row('%', "&#037;"),
                                   kEnd};
constexpr code_str kExec[] = {row('"', "\\\""), row('\'', "\\'"), row('\\', "\\\\"), kEnd};

} // namespace

void unescape_percent_in_place(char *text, bool plus_is_blank)
{
    char *to = text;
    for (const char *from = text; *from;) {
        const int high = *from == '%' ? xdigit_value(from[1]) : -1;
        const int low = high >= 0 ? xdigit_value(from[2]) : -1;
        if (low >= 0) {
            *to++ = static_cast<char>(high * 16 + low);
            from += 3;
        } else {
            *to++ = plus_is_blank && *from == '+' ? ' ' : *from;
            from++;
        }
    }
    *to = '\0';
}

void append_http(TextBuilder &to, View text) { append_escaped(to, text, StaticForm<http_form>()); }

void append_query_field(TextBuilder &to, View text)
{
    append_escaped(to, text, StaticForm<query_field_form>());
}

} // namespace kutil

using namespace kutil;

char **str_escape(char **s, const code_str *table) { return escape(s, TableForm(table)); }

char **str_escape_javascript(char **s) { return str_escape(s, kJavascript); }

char **str_escape_xml(char **s) { return str_escape(s, kXml); }

char **str_escape_html_text(char **s) { return str_escape(s, kHtmlText); }

char **str_escape_html_field(char **s) { return str_escape(s, kHtmlField); }

char **str_escape_exec(char **s) { return str_escape(s, kExec); }

size_t str_buf_escape_xml(char *dst, const char *src)
{
    const View text = view(src);
    const TableForm form(kXml);
    return dst ? static_cast<size_t>(write_escaped(dst, text, form) - dst) : escaped_length(text, form);
}

char **str_escape_uri(char **s) { return escape(s, StaticForm<uri_form>()); }

char **str_escape_url_query_field(char **s) { return escape(s, StaticForm<query_field_form>()); }

char **str_escape_http(char **s) { return escape(s, StaticForm<http_form>()); }

char **str_unescape_uri(char **s) { return unescape_percent(s, false); }

char **str_unescape_http(char **s) { return unescape_percent(s, true); }

char **str_escape_html_textarea(char **s) { return escape(s, StaticForm<textarea_form>()); }

char **str_escape_shell(char **s)
{
    if (!s)
        return nullptr;
    const View text = view(*s);
    if (text.empty())
        return escape(s, StaticForm<shell_form>(), "'", "'");
    for (const char c : text) {
        if (!is_shell_plain(c))
            return escape(s, StaticForm<shell_form>(), "$'", "'");
    }
    return s;
}

char **str_escape_sql(char **s, int flags)
{
    return flags & STR_SQL_LIKE ? escape(s, StaticForm<sql_like_form>()) : escape(s, StaticForm<sql_form>());
}

void kutil::append_csv(TextBuilder &to, View prefix, View text, int sep, int quote, int newline, bool force)
{
    const bool has_quote = quote != -1 && quote != 0;
    size_t quotes = 0;
    bool wrap = force;
    for (const View part : {prefix, text}) {
        for (const char c : part) {
            const bool is_quote = has_quote && is_delimiter(c, quote);
            quotes += is_quote;
            wrap = wrap || is_quote || is_delimiter(c, sep) || is_delimiter(c, newline);
        }
    }
    const char mark = static_cast<char>(quote);
    const View wrapping(&mark, wrap && has_quote ? 1 : 0);
    const size_t size = add_sizes(prefix.size(), text.size(), quotes, 2 * wrapping.size());
    char *end = put(to.room(size), wrapping);
    if (quotes == 0) {
        end = put(put(end, prefix), text);
    } else {
        for (const View part : {prefix, text}) {
            for (const char c : part) {
                *end++ = c;
                if (is_delimiter(c, quote))
                    *end++ = c;
            }
        }
    }
    put(end, wrapping);
    to.commit(size);
}

char **_str_escape_csv(char **s, int sep, int quote, int newline, int force)
{
    if (!s)
        return nullptr;
    TextBuilder cell;
    append_csv(cell, "", view(*s), sep, quote, newline, force != 0);
    replace_text(s, cell.release());
    return s;
}

char **str_escape_csv(char **s) { return _str_escape_csv(s, ',', '"', '\n', 0); }

char **str_escape_c(char **s)
{
    if (s && !*s) {
        *s = copy_text(kNoText);
        return s;
    }
    return escape(s, StaticForm<c_form>(), "\"", "\"");
}

char **str_unescape_c(char **s)
{
    if (!s)
        return nullptr;
    if (!*s) {
        *s = copy_text(kNoText);
        return s;
    }
    bool inside = false;
    char *to = *s;
    for (const char *from = *s; *from; from++) {
        if (*from == '"') {
            inside = !inside;
            continue;
        }
        if (!inside && is_space(*from))
            continue;
        inside = true;
        const bool escaped = *from == '\\' && from[1];
        from += escaped;
        *to++ = escaped ? unescaped_c(*from) : *from;
    }
    *to = '\0';
    return s;
}

char **str_escape_im_convert(char **s)
{
    if (s && !*s) {
        *s = copy_text(kNoText);
        return s;
    }
    return escape(s, StaticForm<slashed_form>());
}

char **str_esc_quotes(char **s)
{
    if (!s || !*s || !strchr(*s, '\''))
        return s;
    return escape(s, StaticForm<apostrophe_form>());
}

char *str_escape_apostrophe(const char *text)
{
    const View source = view(text);
    char *escaped = static_cast<char *>(zalloc_e(add_sizes(mul_sizes(source.size(), 2), 1)));
    char *to = escaped;
    for (size_t i = 0; i < source.size(); i++) {
        if (source[i] == '\'' && (i == 0 || source[i - 1] != '\\'))
            *to++ = '\\';
        if (source[i] != '\\' || i + 1 < source.size())
            *to++ = source[i];
    }
    return escaped;
}

size_t str_escape_with_slash(const char *set, const char *src, char *dst)
{
    const CharSet slashed(view(set));
    size_t length = 0;
    for (const char c : view(src)) {
        if (slashed.contains(c)) {
            if (dst)
                dst[length] = '\\';
            length++;
        }
        if (dst)
            dst[length] = c;
        length++;
    }
    if (dst)
        dst[length] = '\0';
    return length;
}

int str_escape_is_char_alnum_or_unicode(int ch)
{
    return ch >= 0 && ch < 128 && !is_alnum(static_cast<char>(ch));
}
