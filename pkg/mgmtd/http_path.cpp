#include "http_path.h"

#include "common/secrets.h"

#include <algorithm>

namespace mgmtd
{

using kutil::sub;

namespace
{

constexpr char kDigits[] = "0123456789ABCDEF";

// Decodes "%xx" of `text` into `to` and returns the end, NULL for an escape that is none and for %00.
char *decode(View text, bool plus_is_blank, char *to)
{
    for (size_t i = 0; i < text.size(); i++) {
        char c = text[i];
        if (c == '+' && plus_is_blank)
            c = ' ';
        if (c == '%') {
            const int high = i + 2 < text.size() ? kutil::xdigit_value(text[i + 1]) : -1;
            const int low = high >= 0 ? kutil::xdigit_value(text[i + 2]) : -1;
            if (low < 0)
                return nullptr;
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (c == '\0')
            return nullptr;
        *to++ = c;
    }
    return to;
}

} // namespace

const char *PathPieces::read(View path)
{
    text_.clear();
    count_ = 0;
    path = sub(path, 1);
    while (!path.empty()) {
        const size_t slash = path.find('/');
        const char *fault = add(sub(path, 0, slash));
        if (fault)
            return fault;
        path = slash == View::npos ? View() : sub(path, slash + 1);
    }
    return nullptr;
}

const char *PathPieces::add(View piece)
{
    if (piece.empty())
        return "the path has an empty name";
    if (count_ == kMaxLevels)
        return "the path has too many names";
    char *const start = text_.room(piece.size() + 1);
    char *const end = decode(piece, false, start);
    if (!end)
        return "the path has a bad percent escape or a NUL";
    const View name(start, static_cast<size_t>(end - start));
    if (name == "." || name == "..")
        return "the path has a name . or ..";
    *end = '\0';
    start_[count_++] = text_.size();
    text_.commit(name.size() + 1);
    return nullptr;
}

View PathPieces::piece(size_t i) const
{
    return i < count_ ? View(text_.text().data() + start_[i]) : View("", 0);
}

char *PathPieces::tree_path(size_t first) const
{
    TextBuilder path;
    for (size_t i = first; i < count_; i++) {
        if (i > first)
            path.append('/');
        append_tree_name(&path, piece(i));
    }
    return path.release();
}

void append_tree_name(TextBuilder *out, View name)
{
    for (const char c : name) {
        if (c == '/' || c == '\\')
            out->append('\\');
        out->append(c);
    }
}

char *normal_path(const char *path)
{
    HeapText normal(kutil::common::normal_path(kutil::text_or_empty(path)));
    size_t names = 0;
    if (normal)
        for_each_name(
            normal.get(), [](void *count, View) { ++*static_cast<size_t *>(count); }, &names);
    return names <= kMaxLevels ? normal.release() : nullptr;
}

bool is_at_or_below(View path, View top)
{
    if (top.empty())
        return true;
    return kutil::starts_with(path, top) && (path.size() == top.size() || path[top.size()] == '/');
}

View path_below(View path, View top)
{
    return top.empty() || path.size() == top.size() ? sub(path, top.size()) : sub(path, top.size() + 1);
}

void for_each_name(View path, void (*use)(void *, View), void *context)
{
    TextBuilder name;
    for (size_t i = 0; i < path.size(); i++) {
        if (path[i] == '/') {
            use(context, name.text());
            name.clear();
            continue;
        }
        if (path[i] == '\\' && i + 1 < path.size())
            i++;
        name.append(path[i]);
    }
    if (!path.empty())
        use(context, name.text());
}

void append_url_text(TextBuilder *out, View text)
{
    for (const char c : text) {
        if (kutil::is_alnum(c) || c == '-' || c == '_' || c == '~' || (c == '.' && text.size() > 2)) {
            out->append(c);
            continue;
        }
        out->append('%');
        out->append(kDigits[static_cast<unsigned char>(c) >> 4]);
        out->append(kDigits[static_cast<unsigned char>(c) & 15]);
    }
}

void append_url_path(TextBuilder *out, View normal)
{
    struct Sink {
        TextBuilder *out;
        bool first;
    } sink = {out, true};
    for_each_name(
        normal,
        [](void *context, View name) {
            Sink *to = static_cast<Sink *>(context);
            if (!to->first)
                to->out->append('/');
            to->first = false;
            append_url_text(to->out, name);
        },
        &sink);
}

const char *Form::read(View encoded)
{
    count_ = 0;
    const size_t most = static_cast<size_t>(std::ranges::count(encoded, '&')) + 1;
    if (most > kMaxFields)
        return "more than 2000 fields";
    text_.reset(kutil::new_text(encoded.size() + 2 * most));
    char *end = text_.get();
    fields_.reset(kutil::new_array<Field>(most));
    while (!encoded.empty()) {
        const size_t next = encoded.find('&');
        const View field = sub(encoded, 0, next);
        encoded = next == View::npos ? View() : sub(encoded, next + 1);
        if (field.empty())
            continue;
        const size_t equals = field.find('=');
        char *const name = end;
        end = decode(sub(field, 0, equals), true, end);
        if (!end)
            return "a field has a bad percent escape or a NUL";
        *end++ = '\0';
        char *const value = end;
        end = equals == View::npos ? end : decode(sub(field, equals + 1), true, end);
        if (!end)
            return "a field has a bad percent escape or a NUL";
        *end++ = '\0';
        fields_.get()[count_++] = {name, value};
    }
    return nullptr;
}

const char *Form::find(View name) const
{
    for (size_t i = 0; i < count_; i++) {
        if (name == fields_.get()[i].name)
            return fields_.get()[i].value;
    }
    return nullptr;
}

} // namespace mgmtd
