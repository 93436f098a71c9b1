#include "attrib_text.h"

#include "hex.h"
#include "internal/attrib_list.h"
#include "internal/escape.h"
#include "internal/list_builder.h"
#include "internal/report.h"
#include "internal/text_builder.h"
#include "lines.h"

namespace kutil
{
namespace
{

constexpr View kBytesPrefix = "_HEX_";
constexpr View kContinuation = "  ";

// One run over header lines. An entry is finished when the next one begins, so that a value of many lines is
// copied once.
class HeaderParser
{
public:
    HeaderParser(const char *file_name, uint32_t flags) : file_name_(file_name), flags_(flags) {}

    void take_line(const char *line)
    {
        number_++;
        if (is_space(*line)) {
            const char *rest = line + 1;
            continue_value(line, *rest == ' ' ? rest + 1 : rest);
            return;
        }
        take_header_line(line);
    }

    attrib *finish()
    {
        finish_entry();
        return entries_.release();
    }

private:
    bool has(uint32_t flag) const { return (flags_ & flag) != 0; }

    bool is_name_char(char c) const
    {
        return is_alnum(c) || c == '-' || c == '_' || (c == '.' && has(ATTRIB_F_DOT_NAMES)) ||
               (c == ' ' && has(ATTRIB_F_BLANK_NAMES));
    }

    void take_header_line(const char *line)
    {
        const char *colon = line;
        while (is_name_char(*colon))
            colon++;
        // One blank before the colon is seen also where names have none, to say what is wrong with it.
        if (*colon == ' ' && colon[1] == ':')
            colon++;
        if (*colon != ':') {
            if (!has(ATTRIB_F_BLANK_NAMES))
                bad_line("no ':' after attrib field name");
            else if (!has(ATTRIB_F_LOOSE_LINES))
                bad_line("multiline should start with a space");
            else
                continue_value(line, line); // no indent, so nothing of it is dropped
            return;
        }
        const View name = trim_right(View(line, static_cast<size_t>(colon - line)));
        const char *value = colon + 1;
        if (name.empty())
            return bad_line("empty attrib name");
        if (colon[-1] == ' ' && !has(ATTRIB_F_BLANK_COLON))
            return bad_line("space before ':'");
        if (*value && !is_space(*value) && !has(ATTRIB_F_NO_BLANK))
            return bad_line("needs space after ':'");
        begin_entry(name, *value == ' ' ? value + 1 : value);
    }

    void begin_entry(View name, const char *value)
    {
        finish_entry();
        name_ = name;
        entry_line_ = number_;
        in_entry_ = true;
        value_.append(View(value));
    }

    void continue_value(const char *line, const char *text)
    {
        if (!in_entry_) {
            zel_error_full(kEntity, severity(), "%s:%d: error: Line is not an attrib or a multiline\n  (%s)",
                           file_name_, number_, line);
            return;
        }
        value_.append('\n');
        value_.append(View(text));
    }

    void finish_entry()
    {
        if (!in_entry_)
            return;
        attrib *entry = entries_.add(name_, value_.c_str());
        entry->user[0] = reinterpret_cast<uintptr_t>(file_name_);
        entry->user[1] = static_cast<uintptr_t>(entry_line_);
        value_.clear();
        in_entry_ = false;
    }

    void bad_line(const char *problem) const
    {
        zel_error_full(kEntity, severity(), "%s:%d: error: %s", file_name_, number_, problem);
    }

    uint32_t severity() const { return has(ATTRIB_F_LENIENT) ? kDebug : kFatal; }

    const char *file_name_;
    uint32_t flags_;
    int number_ = 0;
    AttribBuilder entries_;
    bool in_entry_ = false;
    int entry_line_ = 0;
    View name_; // in the line of the entry
    TextBuilder value_;
};

attrib *parse_header(const char *file_name, char *const *lines, uint32_t flags)
{
    HeaderParser parser(file_name, flags);
    for (; *lines; lines++)
        parser.take_line(*lines);
    return parser.finish();
}

bool ends_header(const char *line, uint32_t flags)
{
    return flags & ATTRIB_F_SPACE_LINES ? trim(View(line)).empty() : *line == '\0';
}

// A NULL-ended array of `count` texts that stay another array's.
char **borrow_lines(char *const *lines, size_t count)
{
    char **borrowed = new_array<char *>(add_sizes(count, 1));
    for (size_t i = 0; i < count; i++)
        borrowed[i] = lines[i];
    borrowed[count] = nullptr;
    return borrowed;
}

char **lines_of_file(const char *path, char *const *lines)
{
    char **own = nullptr;
    if (lines)
        lines_cpy(&own, lines);
    else if (path)
        own = lines_read_file_e(path);
    else
        lines_add(&own, "");
    return own;
}

void append_hex(TextBuilder &to, const char *bytes, size_t count)
{
    const size_t digits = mul_sizes(count, 2);
    bin_2_hex(bytes, count, to.room(digits));
    to.commit(digits);
}

// Cuts `text` at the first `mark` and returns what is behind it, NULL without one.
char *cut(char *text, char mark)
{
    char *end = strchr(text, mark);
    if (!end)
        return nullptr;
    *end = '\0';
    return end + 1;
}

attrib *query_entry(char *name, char *value)
{
    unescape_percent_in_place(name, true);
    unescape_percent_in_place(value, true);
    if (!starts_with(View(name), kBytesPrefix))
        return new_attrib(View(name), value, -1);
    // The bytes are half as long as their digits and the decoder reads ahead of what it writes.
    const size_t count = hex_2_bin(value, value);
    return new_attrib(View(name + kBytesPrefix.size()), value, static_cast<int32_t>(count));
}

} // namespace
} // namespace kutil

using namespace kutil;

attrib *attrib_hdr_lines_to_attrib(const char *file_name, char *const *lines, uint32_t flags)
{
    return lines ? parse_header(text_or_empty(file_name), lines, flags) : nullptr;
}

char **attrib_to_lines(attrib **list, uint32_t flags)
{
    ListBuilder lines;
    TextBuilder line;
    const auto add_line = [&] {
        if (!(flags & ATTRIB_F_SPACE_LINES) || !trim(line.text()).empty())
            lines.add(line.text());
        line.clear();
    };
    for (const attrib *entry = list ? *list : nullptr; entry; entry = entry->next) {
        View rest = view(entry->value);
        line.append(view(entry->name));
        line.append(rest.empty() ? View(":") : View(": "));
        while (!rest.empty()) {
            const size_t end = rest.find('\n');
            line.append(sub(rest, 0, end));
            rest = end == View::npos ? View() : sub(rest, end + 1);
            if (!rest.empty()) {
                add_line();
                line.append(kContinuation);
            }
        }
        add_line();
    }
    return lines.release();
}

int attrib_write(FILE *stream, attrib **list, uint32_t flags)
{
    if (!stream)
        return 0;
    char **lines = attrib_to_lines(list, flags);
    lines_write_fp(lines, stream);
    lines_free(&lines);
    return 0;
}

attrib_file *attrib_file_alloc(const char *path, char *const *lines, uint32_t flags)
{
    attrib_file *file = new_record<attrib_file>();
    file->lines = lines_of_file(path, lines);
    file->flags = flags;
    file->file_name = copy_text(view(path));

    size_t count = 0;
    while (file->lines[count])
        count++;
    size_t header = 0;
    while (header < count && !ends_header(file->lines[header], flags))
        header++;
    file->separator = header < count;
    const size_t body = header + static_cast<size_t>(file->separator);
    file->header = borrow_lines(file->lines, header);
    file->body = borrow_lines(file->lines + body, count - body);
    file->attribs = parse_header(file->file_name, file->header, flags);
    return file;
}

int attrib_file_write(attrib_file *file, const char *path)
{
    if (!file)
        return -1;
    const char *target = path ? path : file->file_name;
    FILE *stream = fopen(target, "w");
    if (!stream)
        return zel_error_full(kEntity, kFatal, "attrib_file_write: Cannot open file %s for writing", target);
    attrib_write(stream, &file->attribs, file->flags);
    if (file->separator || file->body[0]) {
        putc('\n', stream);
        lines_write_fp(file->body, stream);
    }
    const bool failed = ferror(stream) != 0;
    if (fclose(stream) != 0 || failed)
        return zel_error_full(kEntity, kErr, "attrib_file_write: Failed writing file %s", target);
    return 0;
}

void attrib_file_free(attrib_file *file)
{
    if (!file)
        return;
    free(file->header);
    free(file->body);
    lines_free(&file->lines);
    attrib_free(&file->attribs);
    free(file->file_name);
    free(file);
}

attrib **str_http_to_attrib(attrib **list, const char *text)
{
    if (!list)
        return nullptr;
    AttribBuilder entries;
    const HeapText copy(copy_text(view(text)));
    for (char *field = *copy ? copy.get() : nullptr; field;) {
        char *next = cut(field, '&');
        char *value = cut(field, '=');
        char none[] = "";
        entries.take(query_entry(field, value ? value : none));
        field = next;
    }
    free_attribs(std::exchange(*list, entries.release()));
    return list;
}

char **attrib_to_str_http(char **s, attrib **list)
{
    if (!s)
        return nullptr;
    TextBuilder query;
    for (const attrib *entry = list ? *list : nullptr; entry; entry = entry->next) {
        if (!query.empty())
            query.append('&');
        const bool is_bytes = entry->len >= 0 && entry->value;
        if (is_bytes)
            query.append(kBytesPrefix);
        append_http(query, view(entry->name));
        query.append('=');
        if (is_bytes)
            append_hex(query, entry->value, static_cast<size_t>(entry->len));
        else
            append_http(query, view(entry->value));
    }
    replace_text(s, query.release());
    return s;
}

char **attrib_to_str(char **s, attrib **list)
{
    if (!s)
        return nullptr;
    TextBuilder text;
    for (const attrib *entry = list ? *list : nullptr; entry; entry = entry->next) {
        text.append(view(entry->name));
        text.append(':');
        text.append(view(entry->value));
        text.append("\r\n");
    }
    replace_text(s, text.release());
    return s;
}

char **str_escape_url_query(char **s, attrib **list)
{
    if (!s)
        return nullptr;
    TextBuilder query;
    query.append(view(*s));
    for (const attrib *entry = list ? *list : nullptr; entry; entry = entry->next) {
        if (!query.empty())
            query.append('&');
        append_query_field(query, view(entry->name));
        query.append('=');
        append_query_field(query, view(entry->value));
    }
    replace_text(s, query.release());
    return s;
}
