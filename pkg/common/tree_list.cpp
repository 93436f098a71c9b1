#include "tree_list.h"
#include "tree_line.h"

#include "util/internal/walk_stack.h"

#include <algorithm>

namespace kutil::common
{

namespace
{

constexpr const char *kNoKey = "neither a value behind \"=\" nor a \"/\" at the end";
constexpr const char *kBadEscape = "\"&\" does not start two hexadecimal digits and \";\"";
constexpr const char *kNul = "a NUL character";
constexpr const char *kDangling = "a backslash at the end of the path";

constexpr bool is_path_special(char c) { return c == '/' || c == '\\' || c == '='; }
constexpr bool is_escaped(char c) { return !is_print(c) || c == '&'; }

void append_escaped(TextBuilder *out, char c)
{
    constexpr char kDigits[] = "0123456789abcdef";
    const unsigned byte = static_cast<unsigned char>(c);
    const char escape[] = {'&', kDigits[byte >> 4], kDigits[byte & 15], ';'};
    out->append(View(escape, sizeof(escape)));
}

// Reads the byte at *pos, escaped or not, and steps behind it. NULL, or the fault.
const char *read_byte(View text, size_t *pos, char *byte)
{
    const char c = text[*pos];
    if (c == '\0')
        return kNul;
    if (c != '&') {
        *byte = c;
        ++*pos;
        return nullptr;
    }
    const View escape = sub(text, *pos, 4);
    if (escape.size() < 4 || !is_xdigit(escape[1]) || !is_xdigit(escape[2]) || escape[3] != ';')
        return kBadEscape;
    *byte = static_cast<char>(xdigit_value(escape[1]) * 16 + xdigit_value(escape[2]));
    if (*byte == '\0')
        return kNul;
    *pos += 4;
    return nullptr;
}

const char *read_value(View text, TextBuilder *out, size_t *pos)
{
    while (*pos < text.size()) {
        char byte = '\0';
        if (const char *fault = read_byte(text, pos, &byte))
            return fault;
        out->append(byte);
    }
    return nullptr;
}

const char *read_path(View text, TextBuilder *out, size_t *pos)
{
    while (*pos < text.size()) {
        const bool quoted = text[*pos] == '\\';
        if (quoted && *pos + 1 == text.size())
            return kDangling;
        const size_t start = *pos += quoted;
        char byte = '\0';
        if (const char *fault = read_byte(text, pos, &byte))
            return fault;
        const bool from_escape = *pos - start > 1;
        if (quoted || (from_escape && is_path_special(byte)))
            out->append('\\');
        out->append(byte);
    }
    return nullptr;
}

// Where the path of a line ends: at the first "=" that no backslash takes away, or at the "/" that ends a
// line without one. npos: the line has neither.
size_t end_of_path(View line)
{
    bool ends_in_slash = false;
    for (size_t i = 0; i < line.size(); i++) {
        if (line[i] == '=')
            return i;
        ends_in_slash = line[i] == '/';
        i += line[i] == '\\';
    }
    return ends_in_slash ? line.size() - 1 : View::npos;
}

bool has_repeated_name(set *parent, int count)
{
    const Heap<const char *> names(new_array<const char *>(static_cast<size_t>(count)));
    const char **end = names.get();
    for (set **son = set_get_son(&parent, 0); son; son = set_get_next(son))
        *end++ = (*son)->value;
    std::sort(names.get(), end, [](const char *a, const char *b) { return strcmp(a, b) < 0; });
    return std::adjacent_find(names.get(), end,
                              [](const char *a, const char *b) { return strcmp(a, b) == 0; }) != end;
}

// Adds the names from below the root down to the node.
void add_path(TreeLineWriter *writer, const set *node)
{
    WalkStack<const set *> names;
    for (; node->parent; node = node->parent)
        names.push(node);
    while (!names.empty())
        writer->add_name(names.pop()->value);
}

} // namespace

void append_printable(TextBuilder *out, View text)
{
    size_t start = 0;
    // What needs no escape goes over in runs.
    for (size_t i = 0; i < text.size(); i++) {
        if (!is_escaped(text[i]))
            continue;
        out->append(sub(text, start, i - start));
        append_escaped(out, text[i]);
        start = i + 1;
    }
    out->append(sub(text, start));
}

set *value_leaf(set *key)
{
    set **son = set_get_son(&key, 0);
    return son && !set_get_next(son) && !set_get_son(son, 0) ? *son : nullptr;
}

void TreeLineWriter::start(View mark)
{
    line_.clear();
    line_.append(mark);
    mark_length_ = mark.size();
}

void TreeLineWriter::set_mark(View mark) { put(line_.c_str(), mark); }

void TreeLineWriter::add_name(const char *name)
{
    if (!path_is_empty() || !*name) // no name leaves the path empty: that is the root's
        line_.append('/');
    for (const char *c = name; *c; c++) {
        if (is_path_special(*c))
            line_.append('\\');
        if (is_escaped(*c))
            append_escaped(&line_, *c);
        else
            line_.append(*c);
    }
}

void TreeLineWriter::emit()
{
    lines_++;
    sink_(context_, line_.c_str(), line_.size());
}

void TreeLineWriter::emit_value(const char *value)
{
    const size_t path_end = line_.size();
    line_.append('=');
    append_printable(&line_, value);
    emit();
    line_.truncate(path_end);
}

void TreeLineWriter::emit_key()
{
    if (path_is_empty())
        return;
    line_.append('/');
    emit();
    line_.truncate(line_.size() - 1);
}

bool TreeLineWriter::list(set *top)
{
    // The next son to list, and where its parent's path ends.
    struct Level {
        set **son;
        size_t path_end;
    };
    WalkStack<Level> levels;
    bool exact = true;

    // A key becomes its line at once, a structure a level of the walk.
    const auto visit = [&](set *node) {
        const set *leaf = path_is_empty() ? nullptr : value_leaf(node);
        if (leaf)
            return emit_value(leaf->value);
        const int sons = set_get_nsons(&node);
        if (sons == 0)
            return emit_key();
        exact = exact && !(sons > 1 && has_repeated_name(node, sons));
        levels.push({set_get_son(&node, 0), line_.size()});
    };
    const size_t top_end = line_.size();
    visit(top);
    while (!levels.empty()) {
        Level &level = levels.top();
        line_.truncate(level.path_end);
        if (!level.son) {
            levels.pop();
            continue;
        }
        set *node = *level.son;
        level.son = set_get_next(level.son);
        exact = exact && *node->value;
        add_name(node->value);
        visit(node);
    }
    line_.truncate(top_end);
    return exact;
}

bool tree_list(set **tree, LineSink sink, void *context)
{
    if (!set_get_value(tree))
        return true;
    TreeLineWriter writer(sink, context);
    writer.start("");
    add_path(&writer, *tree);
    return writer.list(*tree);
}

TreeLine::~TreeLine()
{
    free(path);
    free(value);
}

const char *tree_line_read(const char *text, size_t length, TreeLine *line, size_t *offset)
{
    const View whole(text, length);
    const size_t path_end = end_of_path(whole);
    *offset = length;
    if (path_end == View::npos)
        return kNoKey;
    TextBuilder path;
    *offset = 0;
    if (const char *fault = read_path(sub(whole, 0, path_end), &path, offset))
        return fault;
    const bool has_value = whole[path_end] == '=';
    TextBuilder value;
    *offset = path_end + 1;
    if (const char *fault = has_value ? read_value(whole, &value, offset) : nullptr)
        return fault;
    replace_text(&line->path, path.release());
    replace_text(&line->value, has_value ? value.release() : nullptr);
    return nullptr;
}

char *tree_path_read(const char *text, size_t length, size_t *offset)
{
    TextBuilder path;
    *offset = 0;
    return read_path(View(text, length), &path, offset) ? nullptr : path.release();
}

char *tree_path_write(set **tree)
{
    if (!tree || !*tree)
        return nullptr;
    TreeLineWriter writer(nullptr, nullptr);
    writer.start("");
    add_path(&writer, *tree);
    return copy_text(writer.path());
}

} // namespace kutil::common
