#include "attrib.h"

#include "internal/attrib_list.h"
#include "internal/formatted.h"
#include "internal/list_builder.h"
#include "internal/number.h"
#include "lines.h"
#include "str.h"

#include <cstddef>

#include <regex.h>

namespace kutil
{

static_assert(offsetof(attrib, next) == 0, "the address of a list stands for an entry in front of it");
static_assert(offsetof(attrib, name) < offsetof(attrib, value) &&
                  offsetof(attrib, value) < offsetof(attrib, len) &&
                  offsetof(attrib, len) < offsetof(attrib, user),
              "the order of the fields is part of the interface");

attrib *new_attrib(View name, const char *value, int32_t len)
{
    attrib *entry = new_record<attrib>();
    entry->name = copy_text(name);
    entry->len = value && len >= 0 ? len : -1;
    entry->value = copy_text(entry->len < 0 ? view(value) : View(value, static_cast<size_t>(len)));
    return entry;
}

void free_attribs(attrib *first)
{
    while (first) {
        attrib *entry = std::exchange(first, first->next);
        free(entry->name);
        free(entry->value);
        free(entry);
    }
}

namespace
{

// Inside, a place in a list is a slot: the `next` (or the list variable) that holds an entry. Since next is
// the first field, the slot of an entry is the address of the one in front of it.
attrib *in_front(attrib **slot) { return reinterpret_cast<attrib *>(slot); }

bool is_named(const attrib *entry, const char *name)
{
    return name && equal_ignoring_case(view(entry->name), View(name));
}

// The slot of the first entry of the name, else the one at the end, which holds NULL.
attrib **find_slot(attrib **slot, const char *name)
{
    while (*slot && !is_named(*slot, name))
        slot = &(*slot)->next;
    return slot;
}

attrib **end_slot(attrib **slot)
{
    while (*slot)
        slot = &(*slot)->next;
    return slot;
}

attrib **find_last_slot(attrib **list, const char *name)
{
    attrib **last = nullptr;
    for (attrib **slot = find_slot(list, name); *slot; slot = find_slot(&(*slot)->next, name))
        last = slot;
    return last;
}

attrib *find(attrib **list, const char *name) { return list ? *find_slot(list, name) : nullptr; }

attrib *copy_attrib(const attrib *entry)
{
    attrib *copy = new_attrib(view(entry->name), entry->value, entry->len);
    copy->user[0] = entry->user[0];
    copy->user[1] = entry->user[1];
    return copy;
}

void copy_all(AttribBuilder &copies, attrib *const *list)
{
    for (const attrib *entry = list ? *list : nullptr; entry; entry = entry->next)
        copies.take(copy_attrib(entry));
}

attrib **append(attrib **list, attrib *entries)
{
    *end_slot(list) = entries;
    return list;
}

// Unlinks the entries of a name and puts them into `removed`: the name may be one of theirs.
void take_out(attrib **list, const char *name, AttribBuilder &removed)
{
    for (attrib **slot = find_slot(list, name); *slot; slot = find_slot(slot, name)) {
        attrib *entry = *slot;
        *slot = entry->next;
        entry->next = nullptr;
        removed.take(entry);
    }
}

void set_entry(attrib **list, const char *name, const char *value, int32_t len)
{
    attrib **slot = find_slot(list, name);
    attrib *fresh = new_attrib(view(name), value, len);
    if (*slot) {
        std::swap((*slot)->value, fresh->value);
        (*slot)->len = fresh->len;
        free_attribs(fresh);
    } else {
        *slot = fresh;
    }
}

} // namespace
} // namespace kutil

using namespace kutil;

attrib *attrib_get_p(attrib **list, const char *name)
{
    return list ? in_front(find_slot(list, name)) : nullptr;
}

const char *attrib_get(attrib **list, const char *name) { return attrib_get_default(list, name, ""); }

const char *attrib_get_null(attrib **list, const char *name)
{
    return attrib_get_default(list, name, nullptr);
}

const char *attrib_get_default(attrib **list, const char *name, const char *fallback)
{
    const attrib *entry = find(list, name);
    return entry ? text_or_empty(entry->value) : fallback;
}

const char *attrib_get_len_null(attrib **list, const char *name, int32_t *len)
{
    const attrib *entry = find(list, name);
    if (len)
        *len = entry ? entry->len : 0;
    return entry ? text_or_empty(entry->value) : nullptr;
}

int attrib_get_int(attrib **list, const char *name) { return parse_i32(attrib_get(list, name)); }

int attrib_exist(attrib **list, const char *name) { return find(list, name) != nullptr; }

char **attrib_get_val_p(attrib **list, const char *name)
{
    if (!list || !name)
        return nullptr;
    attrib **slot = find_slot(list, name);
    if (!*slot)
        *slot = new_attrib(View(name), "", -1);
    return &(*slot)->value;
}

attrib *attrib_get_p_last(attrib **list, const char *name)
{
    attrib **slot = list ? find_last_slot(list, name) : nullptr;
    return slot ? in_front(slot) : nullptr;
}

const char *attrib_get_last(attrib **list, const char *name)
{
    attrib **slot = list ? find_last_slot(list, name) : nullptr;
    return slot ? text_or_empty((*slot)->value) : "";
}

attrib *attrib_get_p_after(attrib **list, const char *name)
{
    attrib **slot = list ? find_last_slot(list, name) : nullptr;
    return slot ? *slot : in_front(list);
}

char **attrib_get_multi(attrib **list, const char *name)
{
    ListBuilder values;
    for (const attrib *entry = find(list, name); entry; entry = entry->next) {
        if (is_named(entry, name))
            values.add(view(entry->value));
    }
    return values.release();
}

const char *attrib_get_name_by_regex(attrib **list, const char *pattern)
{
    regex_t expression;
    if (!list || !pattern || regcomp(&expression, pattern, REG_EXTENDED | REG_NOSUB) != 0)
        return "";
    const attrib *entry = *list;
    while (entry && regexec(&expression, text_or_empty(entry->name), 0, nullptr, 0) != 0)
        entry = entry->next;
    regfree(&expression);
    return entry ? text_or_empty(entry->name) : "";
}

attrib *attrib_get_p_end(attrib **list) { return list ? in_front(end_slot(list)) : nullptr; }

attrib *attrib_get_next(attrib *entry) { return entry ? entry->next : nullptr; }

const char *attrib_get_name(attrib **place) { return place && *place ? (*place)->name : nullptr; }

attrib **attrib_add(attrib **list, const attrib *entry)
{
    return list && entry && entry->name ? append(list, copy_attrib(entry)) : list;
}

attrib **attrib_addset_len(attrib **list, const char *name, const char *value, int len)
{
    return list && name ? append(list, new_attrib(View(name), value, len)) : list;
}

attrib **attrib_addset(attrib **list, const char *name, const char *value)
{
    return attrib_addset_len(list, name, value, -1);
}

attrib **attrib_set_len(attrib **list, const char *name, const char *value, int len)
{
    if (!value)
        return attrib_del(list, name);
    if (list && name)
        set_entry(list, name, value, len);
    return list;
}

attrib **attrib_set(attrib **list, const char *name, const char *value)
{
    return attrib_set_len(list, name, value, -1);
}

attrib **attrib_set_int(attrib **list, const char *name, int n)
{
    return attrib_set_printf(list, name, "%d", n);
}

attrib **attrib_set_printf(attrib **list, const char *name, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    attrib_set_vprintf(list, name, format, ap);
    va_end(ap);
    return list;
}

attrib **attrib_set_vprintf(attrib **list, const char *name, const char *format, va_list ap)
{
    const Formatted value(format, ap);
    return attrib_set(list, name, value.text().data());
}

attrib **attrib_set_multi(attrib **list, ...)
{
    va_list ap;
    va_start(ap, list);
    attrib_set_multi_ap(list, ap);
    va_end(ap);
    return list;
}

attrib **attrib_set_multi_ap(attrib **list, va_list ap)
{
    // All pairs are copied before the first is set: a later one may lie in a value that an earlier one
    // replaces.
    AttribBuilder pairs;
    while (const char *name = va_arg(ap, const char *)) {
        const char *value = va_arg(ap, const char *);
        pairs.add(View(name), value)->user[0] = value != nullptr;
    }
    for (const attrib *pair = pairs.first(); pair; pair = pair->next)
        attrib_set(list, pair->name, pair->user[0] ? pair->value : nullptr);
    return list;
}

attrib **attrib_set_lines(attrib **list, const char *name, char *const *lines)
{
    char *value = nullptr;
    str_join_lines(&value, lines, "\n", 0);
    attrib_set(list, name, value);
    free(value);
    return list;
}

attrib **attrib_add_lines(attrib **list, const char *name, char *const *lines)
{
    char **all = nullptr;
    lines_cat(lines_str_split_nl(&all, attrib_get(list, name)), lines);
    attrib_set_lines(list, name, all);
    lines_free(&all);
    return list;
}

attrib **attrib_del(attrib **list, const char *name)
{
    AttribBuilder removed;
    if (list)
        take_out(list, name, removed);
    return list;
}

attrib **attrib_del_byname(attrib **list, ...)
{
    va_list ap;
    va_start(ap, list);
    attrib_del_byname_ap(list, ap);
    va_end(ap);
    return list;
}

attrib **attrib_del_byname_ap(attrib **list, va_list ap)
{
    AttribBuilder removed; // until the last name is used, which may lie in an entry of the first
    while (const char *name = list ? va_arg(ap, const char *) : nullptr)
        take_out(list, name, removed);
    return list;
}

attrib **attrib_free(attrib **list)
{
    if (list)
        free_attribs(std::exchange(*list, nullptr));
    return list;
}

attrib **attrib_merge(attrib **list, attrib **other)
{
    return list && other && list != other ? append(list, std::exchange(*other, nullptr)) : list;
}

attrib **attrib_cat(attrib **list, attrib **other)
{
    AttribBuilder copies;
    copy_all(copies, other);
    return list ? append(list, copies.release()) : nullptr;
}

attrib **attrib_cpy(attrib **list, attrib **other)
{
    AttribBuilder copies;
    copy_all(copies, other);
    if (list)
        free_attribs(std::exchange(*list, copies.release()));
    return list;
}

attrib **attrib_cat_byname(attrib **list, attrib **other, ...)
{
    AttribBuilder copies;
    for (const attrib *entry = other ? *other : nullptr; entry; entry = entry->next) {
        va_list names;
        va_start(names, other);
        while (const char *name = va_arg(names, const char *)) {
            if (is_named(entry, name))
                copies.take(copy_attrib(entry));
        }
        va_end(names);
    }
    return list ? append(list, copies.release()) : nullptr;
}

attrib **attrib_setcpy(attrib **list, attrib **other)
{
    for (const attrib *entry = list && other ? *other : nullptr; entry; entry = entry->next)
        attrib_set_len(list, entry->name, text_or_empty(entry->value), entry->len);
    return list;
}

attrib **attrib_setcpy_byname(attrib **list, attrib **other, ...)
{
    va_list ap;
    va_start(ap, other);
    attrib_setcpy_byname_ap(list, other, ap);
    va_end(ap);
    return list;
}

attrib **attrib_setcpy_byname_ap(attrib **list, attrib **other, va_list ap)
{
    AttribBuilder chosen; // before the first is set: a name may lie in a value that it replaces
    while (const char *name = va_arg(ap, const char *)) {
        const attrib *entry = find(other, name);
        if (entry && entry->value && entry->len != 0)
            chosen.add(View(name), entry->value, entry->len);
    }
    attrib *entries = chosen.first();
    return attrib_setcpy(list, &entries);
}

attrib **lines_to_attrib(attrib **list, char **lines, char separator, const char *terminators)
{
    if (!list)
        return nullptr;
    attrib *entries = nullptr;
    for (; lines && *lines; lines++) {
        char *line = *lines;
        char *end_of_name = separator ? strchr(line, separator) : nullptr;
        if (!end_of_name || end_of_name == line)
            continue;
        *end_of_name = '\0';
        char *value = end_of_name + 1;
        value[strcspn(value, text_or_empty(terminators))] = '\0';
        attrib_set(&entries, line, value);
    }
    free_attribs(std::exchange(*list, entries));
    return list;
}
