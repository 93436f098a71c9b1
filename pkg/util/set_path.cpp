#include "set_node.h"

#include "internal/set_node.h"

#include <strings.h>

using namespace kutil;

namespace
{

// The names of a path, each ended by a NUL, known to be valid before anything is looked up or made. What
// stands behind the last slash is used where it is, the rest is taken apart first; short paths need no
// allocation.
class PathNames
{
public:
    explicit PathNames(const char *path)
    {
        short_[0] = '\0';
        if (!path)
            return;
        const char *slash = strrchr(path, '/');
        const char *end = slash ? slash + 1 : path;
        if (strchr(path, '\\'))
            end = path + strlen(path);
        last_ = end;
        valid_ = end == path || take_apart(View(path, static_cast<size_t>(end - path)));
    }
    PathNames(const PathNames &) = delete;
    PathNames &operator=(const PathNames &) = delete;
    ~PathNames()
    {
        if (names_ != short_)
            free(names_);
    }

    bool valid() const { return valid_; }
    // A name is never empty: the empty one is the end.
    const char *first() const { return *names_ ? names_ : last_; }
    const char *next(const char *name) const
    {
        if (name == last_)
            return "";
        name += strlen(name) + 1;
        return *name ? name : last_;
    }

private:
    // The last name is followed by an empty one: two more characters than the path has.
    static constexpr size_t kEnds = 2;

    // False when a backslash has nothing behind it.
    bool take_apart(View path)
    {
        if (path.size() + kEnds > sizeof(short_))
            names_ = new_array<char>(add_sizes(path.size(), kEnds));
        char *to = names_;
        for (size_t at = 0; at < path.size(); at++) {
            char c = path[at];
            if (c == '/') {
                if (to != names_ && to[-1])
                    *to++ = '\0';
                continue;
            }
            if (c == '\\') {
                if (++at == path.size())
                    return false;
                c = path[at];
            }
            *to++ = c;
        }
        if (to != names_ && to[-1])
            *to++ = '\0';
        *to = '\0';
        return true;
    }

    bool valid_ = false;
    const char *last_ = "";
    char *names_ = short_;
    char short_[128];
};

// What set_path_create returns: the fixed buffer, or one of the same lifetime for what does not fit.
struct JoinedPath {
    char fixed[256];
    char *longer;
};
constinit JoinedPath joined_path = {};

enum class Stop { at_end, at_unchanged };

// The node that the names lead to, or with Stop::at_unchanged the first unmarked node on the way.
set **look_up(set **place, uint32_t mask, const PathNames &names, Stop stop)
{
    if (!names.valid() || !visible_at(place, mask))
        return nullptr;
    for (const char *name = names.first(); *name; name = names.next(name)) {
        if (stop == Stop::at_unchanged && !(*place)->changed)
            return place;
        place = &(*place)->sons;
        while (*place && !(same_text((*place)->value, name) && ((*place)->layers & mask)))
            place = &(*place)->next;
        if (!*place)
            return nullptr;
    }
    return place;
}

size_t joined_size(const char *first, va_list ap)
{
    size_t size = strlen(first) + 1;
    for (const char *text = va_arg(ap, const char *); text; text = va_arg(ap, const char *))
        size = add_sizes(size, 1, strlen(text));
    return size;
}

void write_joined(char *to, const char *first, va_list ap)
{
    to = put(to, first);
    for (const char *text = va_arg(ap, const char *); text; text = va_arg(ap, const char *)) {
        *to++ = '/';
        to = put(to, text);
    }
    *to = '\0';
}

} // namespace

namespace kutil
{

char *join_path(const char *first, va_list ap)
{
    first = text_or_empty(first);
    va_list again;
    va_copy(again, ap);
    const size_t size = joined_size(first, again);
    va_end(again);
    // Any of the texts may be the previous result, so it is written over last.
    if (size > sizeof(joined_path.fixed)) {
        char *text = new_text(size - 1);
        write_joined(text, first, ap);
        replace_text(&joined_path.longer, text);
        return text;
    }
    char text[sizeof(joined_path.fixed)];
    write_joined(text, first, ap);
    memcpy(joined_path.fixed, text, size);
    return joined_path.fixed;
}

set **tree_get(set **place, uint32_t mask, const char *path)
{
    return look_up(place, mask, PathNames(path), Stop::at_end);
}

set **tree_set(set **place, uint32_t mask, const char *path)
{
    const PathNames names(path);
    if (!node_at(place) || !names.valid() || !mask)
        return nullptr;
    add_layers_upward(*place, mask);
    for (const char *name = names.first(); *name; name = names.next(name))
        place = find_or_add_son(*place, name, mask);
    return place;
}

} // namespace kutil

set **set_get(set **handle, const char *path) { return tree_get(handle, reading_mask(), path); }

set **set_set(set **handle, const char *path) { return tree_set(handle, writing_mask(), path); }

set **set_set_path_str(set **handle, const char *path, const char *value)
{
    const uint32_t mask = writing_mask();
    set **key_place = value ? tree_set(handle, mask, path) : nullptr;
    if (!key_place)
        return nullptr;
    set *key = *key_place;
    set *held = key->sons;
    if (held && !held->next && !held->sons && same_text(held->value, value)) {
        give_layers(held, mask);
        return &key->sons;
    }
    HeapText text(copy_text(value));
    tree_free_sons(key_place, mask);
    set **place = find_son(key, text.get());
    if (!*place)
        *place = new_node_use(text.release(), 0, key);
    give_layers(*place, mask);
    return place;
}

char *set_path_create(const char *first, ...)
{
    va_list ap;
    va_start(ap, first);
    char *path = join_path(first, ap);
    va_end(ap);
    return path;
}

set **set_get_path_create(set **handle, const char *first, ...)
{
    va_list ap;
    va_start(ap, first);
    const char *path = join_path(first, ap);
    va_end(ap);
    return set_get(handle, path);
}

set **set_set_path_create(set **handle, const char *first, ...)
{
    va_list ap;
    va_start(ap, first);
    const char *path = join_path(first, ap);
    va_end(ap);
    return set_set(handle, path);
}

char *set_get_path(set **handle)
{
    const set *node = visible_at(handle, reading_mask());
    if (!node || !node->parent)
        return nullptr;
    size_t size = 0;
    for (const set *at = node; at->parent; at = at->parent)
        size = add_sizes(size, strlen(at->value), 1);
    char *path = new_text(size - 1);
    char *end = path + size;
    for (const set *at = node; at->parent; at = at->parent) {
        const View name = at->value;
        *--end = at == node ? '\0' : '/';
        end -= name.size();
        put(end, name);
    }
    return path;
}

set **set_get_byname_case_aware(set **handle, const char *field, const char *value, int case_sensitive)
{
    if (!field || !*field || !value || !*value)
        return nullptr;
    const PathNames names(field);
    const uint32_t mask = reading_mask();
    for (set **son = tree_get_son(handle, mask, 0); son; son = tree_get_next(son, mask)) {
        const char *held = tree_son_get_str(look_up(son, mask, names, Stop::at_end), mask);
        if (held && (case_sensitive ? strcmp(held, value) : strcasecmp(held, value)) == 0)
            return son;
    }
    return nullptr;
}

set **set_get_byname(set **handle, const char *field, const char *value)
{
    return set_get_byname_case_aware(handle, field, value, 1);
}

set **set_get_case_byname(set **handle, const char *field, const char *value)
{
    return set_get_byname_case_aware(handle, field, value, 0);
}

int set_comp_changed_path(set **previous, set **current, const char *path)
{
    const PathNames names(path);
    const uint32_t mask = reading_mask();
    if (set **place = look_up(current, mask, names, Stop::at_unchanged))
        return set_changed_check(*place);
    return look_up(previous, mask, names, Stop::at_end) != nullptr;
}
