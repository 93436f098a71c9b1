#include "lines.h"

#include "internal/formatted.h"
#include "internal/list_builder.h"
#include "internal/spare.h"
#include "str.h"

#include <climits>
#include <cstdlib>
#include <utility>

using namespace kutil;

namespace
{

size_t count_of(char *const *l)
{
    size_t count = 0;
    while (l && l[count])
        count++;
    return count;
}

size_t clip(int n, size_t limit)
{
    const size_t count = n < 0 ? 0 : static_cast<size_t>(n);
    return count < limit ? count : limit;
}

// What every operation that changes a list begins with: a NULL list becomes an empty array. False for a NULL
// address.
bool ready(char ***l)
{
    if (l && !*l)
        *l = lines_init();
    return l != nullptr;
}

void replace_list(char ***l, char **list)
{
    char **old = *l;
    *l = list;
    if (old)
        FreeLines{}(old);
}

// Ends `list` before element `kept` and frees what stood from there on.
void cut(char **list, size_t kept)
{
    for (char **slot = list + kept; *slot; slot++)
        free(*slot);
    list[kept] = nullptr;
}

// Copies `count` texts to `to` and ends them there with NULL. False when memory runs out; nothing is kept
// then.
bool copy_elements(char **to, char *const *from, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        to[i] = try_copy(from[i]);
        if (!to[i]) {
            cut(to, 0);
            return false;
        }
    }
    to[count] = nullptr;
    return true;
}

// Copies of the texts up to a NULL; null when the memory for a text runs out.
HeapLines copy_arguments(va_list ap)
{
    ListBuilder copies;
    while (const char *text = va_arg(ap, const char *)) {
        char *copy = try_copy(text);
        if (!copy)
            return nullptr;
        copies.take(copy);
    }
    return HeapLines(copies.release());
}

// Moves `more` owned texts behind the `count` elements of *l. Running out of memory ends the process.
void append(char ***l, size_t count, char *const *texts, size_t more)
{
    const size_t slots = add_sizes(count, more, 1);
    char **list = static_cast<char **>(grow_with_spare(*l, mul_sizes(slots, sizeof(char *))));
    if (more)
        memcpy(list + count, texts, more * sizeof(char *));
    list[slots - 1] = nullptr;
    *l = list;
}

void append(char ***l, char *text) { append(l, count_of(*l), &text, 1); }

// Opens a gap of `more` slots, not initialised, before element `at`. NULL when memory runs out.
char **open_gap(char ***l, size_t count, size_t at, size_t more)
{
    const size_t slots = add_sizes(count, more, 1);
    char **list = static_cast<char **>(try_realloc(*l, mul_sizes(slots, sizeof(char *))));
    if (!list)
        return nullptr;
    *l = list;
    memmove(list + at + more, list + at, (count - at + 1) * sizeof(char *));
    return list + at;
}

// Inserts an owned text before element `i`, or frees it when memory runs out.
void insert(char ***l, int i, HeapText text)
{
    const size_t count = count_of(*l);
    char **gap = open_gap(l, count, clip(i, count), 1);
    if (gap)
        *gap = text.release();
}

// Keeps the elements for which keep(element) is true, in their order. What goes is freed after the last test,
// so tests may look at all of the list.
template <class Keep>
char ***keep_if(char ***l, Keep keep)
{
    if (!ready(l))
        return nullptr;
    size_t kept = 0;
    for (char **slot = *l; *slot; slot++) {
        if (keep(*slot))
            std::swap((*l)[kept++], *slot);
    }
    cut(*l, kept);
    return l;
}

char ***filter(char ***l, lines_match match, void *data, bool keep_matches)
{
    return keep_if(l, [=](const char *text) { return !match || (match(text, data) != 0) == keep_matches; });
}

// Keeps the elements for which it is `keep_found` that they are equal to one of `other`.
char ***filter_by_list(char ***l, char *const *other, lines_order cmp, bool keep_found)
{
    const size_t count = count_of(other);
    const Heap<char *> sorted(new_array<char *>(count + 1));
    if (count)
        memcpy(sorted.get(), other, count * sizeof(char *));
    qsort(sorted.get(), count, sizeof(char *), cmp);
    return keep_if(l, [&](char *text) {
        return (bsearch(&text, sorted.get(), count, sizeof(char *), cmp) != nullptr) == keep_found;
    });
}

char **search(char *const *l, const char *s, lines_order cmp)
{
    for (char *const *slot = l; s && slot && *slot; slot++) {
        if (cmp(slot, &s) == 0)
            return const_cast<char **>(slot);
    }
    return nullptr;
}

const char *slot_text(const void *slot)
{
    return slot ? text_or_empty(*static_cast<const char *const *>(slot)) : "";
}

} // namespace

// Lifecycle

char **lines_init(void) { return static_cast<char **>(zalloc_e(sizeof(char *))); }

char ***lines_alloc(char ***l)
{
    if (ready(l) && **l)
        replace_list(l, lines_init());
    return l;
}

char ***lines_free(char ***l)
{
    if (l)
        replace_list(l, nullptr);
    return l;
}

char ***lines_use(char ***l, char **array)
{
    if (l && (!array || array != *l))
        replace_list(l, array ? array : lines_init());
    return l;
}

char ***lines_cpy(char ***l, char *const *src)
{
    if (l && src && src == *l)
        return l;
    return lines_ncpy(l, src, INT_MAX);
}

char ***lines_ncpy(char ***l, char *const *src, int n)
{
    if (!ready(l))
        return nullptr;
    const size_t count = clip(n, count_of(src));
    Heap<char *> copies(new_array<char *>(add_sizes(count, 1)));
    if (copy_elements(copies.get(), src, count))
        replace_list(l, copies.release());
    return l;
}

char ***lines_set(char ***l, ...)
{
    va_list ap;
    va_start(ap, l);
    lines_set_ap(l, ap);
    va_end(ap);
    return l;
}

char ***lines_set_ap(char ***l, va_list ap)
{
    if (!ready(l))
        return nullptr;
    if (HeapLines copies = copy_arguments(ap))
        replace_list(l, copies.release());
    return l;
}

int lines_count(char *const *l)
{
    const size_t count = count_of(l);
    return count < INT_MAX ? static_cast<int>(count) : INT_MAX;
}

// Adding and inserting

char ***lines_add(char ***l, const char *s)
{
    if (!ready(l) || !s)
        return l;
    if (char *copy = try_copy(s))
        append(l, copy);
    return l;
}

char ***lines_add_multi(char ***l, ...)
{
    va_list ap;
    va_start(ap, l);
    lines_add_multi_ap(l, ap);
    va_end(ap);
    return l;
}

char ***lines_add_multi_ap(char ***l, va_list ap)
{
    if (!ready(l))
        return nullptr;
    HeapLines copies = copy_arguments(ap);
    if (!copies)
        return l;
    const Heap<char *> texts(copies.release());
    append(l, count_of(*l), texts.get(), count_of(texts.get()));
    return l;
}

char ***lines_add_unique(char ***l, const char *s)
{
    return ready(l) && lines_search(*l, s) ? l : lines_add(l, s);
}

char ***lines_add_printf(char ***l, const char *format, ...)
{
    if (!ready(l))
        return nullptr;
    va_list ap;
    va_start(ap, format);
    Formatted text(format, ap);
    va_end(ap);
    if (format && !text.failed())
        append(l, text.release());
    return l;
}

char ***lines_add_fast(char ***l, const char *s, int *count)
{
    if (!l || !count)
        return lines_add(l, s);
    if (!*l)
        *count = 0;
    const size_t known = clip(*count, INT_MAX);
    char *copy = ready(l) && s ? try_copy(s) : nullptr;
    if (!copy)
        return l;
    append(l, known, &copy, 1);
    *count = static_cast<int>(known + 1);
    return l;
}

char ***lines_add_index(char ***l, const char *s, int i)
{
    if (!ready(l) || !s)
        return l;
    if (HeapText copy{try_copy(s)})
        insert(l, i, std::move(copy));
    return l;
}

char ***lines_add_index_printf(char ***l, int i, const char *format, ...)
{
    if (!ready(l))
        return nullptr;
    va_list ap;
    va_start(ap, format);
    Formatted text(format, ap);
    va_end(ap);
    if (format && !text.failed())
        insert(l, i, HeapText(text.release()));
    return l;
}

char ***lines_cat(char ***l, char *const *src)
{
    if (!ready(l))
        return nullptr;
    const size_t more = count_of(src);
    const Heap<char *> copies(new_array<char *>(add_sizes(more, 1)));
    if (copy_elements(copies.get(), src, more))
        append(l, count_of(*l), copies.get(), more);
    return l;
}

char ***lines_ninsert(char ***l, int i, int n, char *const *src)
{
    if (!ready(l))
        return nullptr;
    const size_t count = count_of(*l);
    const size_t more = clip(n == -1 ? INT_MAX : n, count_of(src));
    Heap<char *> copies(static_cast<char **>(try_malloc(mul_sizes(add_sizes(more, 1), sizeof(char *)))));
    if (!copies || !copy_elements(copies.get(), src, more))
        return l;
    if (char **gap = open_gap(l, count, clip(i, count), more)) {
        for (size_t k = 0; k < more; k++)
            gap[k] = copies.get()[k];
        return l;
    }
    cut(copies.get(), 0);
    return l;
}

char ***lines_insert(char ***l, int i, char *const *src) { return lines_ninsert(l, i, -1, src); }

char ***lines_insert_empty(char ***l, int i, int n)
{
    if (!ready(l))
        return nullptr;
    const size_t count = count_of(*l);
    const size_t at = clip(i, count);
    const size_t more = clip(n, INT_MAX);
    char **gap = open_gap(l, count, at, more);
    for (size_t k = 0; gap && k < more; k++) {
        gap[k] = try_copy("");
        if (gap[k])
            continue;
        while (k > 0)
            free(gap[--k]);
        memmove(gap, gap + more, (count - at + 1) * sizeof(char *));
        return l;
    }
    return l;
}

char ***lines_merge(char ***l, char ***src)
{
    if (!ready(l) || !src || !*src || *src == *l)
        return l;
    const size_t count = count_of(*l);
    const size_t more = count_of(*src);
    char **gap = open_gap(l, count, count, more);
    if (!gap)
        return l;
    memcpy(gap, *src, more * sizeof(char *));
    free(*src);
    *src = nullptr;
    return l;
}

// Removing

char ***lines_delete(char ***l, int i, int n)
{
    if (!ready(l))
        return nullptr;
    const size_t count = count_of(*l);
    const size_t at = clip(i, count);
    const size_t gone = clip(n, count - at);
    char **gap = *l + at;
    for (size_t k = 0; k < gone; k++)
        free(gap[k]);
    memmove(gap, gap + gone, (count - at - gone + 1) * sizeof(char *));
    return l;
}

char ***lines_delete_ptr(char ***l, char **slot)
{
    if (!ready(l))
        return nullptr;
    char **place = *l;
    while (*place && place != slot)
        place++;
    if (!*place)
        return l;
    free(*place);
    do {
        place[0] = place[1];
    } while (*place++);
    return l;
}

char *lines_pop(char ***l)
{
    const size_t count = l ? count_of(*l) : 0;
    return count ? std::exchange((*l)[count - 1], nullptr) : nullptr;
}

char ***lines_filter(char ***l, lines_match match) { return filter(l, match, nullptr, true); }

char ***lines_filter_ex(char ***l, lines_match match, void *data) { return filter(l, match, data, true); }

char ***lines_filterout(char ***l, lines_match match) { return filter(l, match, nullptr, false); }

char ***lines_filterout_ex(char ***l, lines_match match, void *data) { return filter(l, match, data, false); }

char ***lines_filter_lines(char ***l, char *const *other)
{
    return filter_by_list(l, other, strcmp_qsort, true);
}

char ***lines_filter_caselines(char ***l, char *const *other)
{
    return filter_by_list(l, other, strcasecmp_qsort, true);
}

char ***lines_filterout_lines(char ***l, char *const *other)
{
    return filter_by_list(l, other, strcmp_qsort, false);
}

char ***lines_filterout_caselines(char ***l, char *const *other)
{
    return filter_by_list(l, other, strcasecmp_qsort, false);
}

char ***lines_nonempty(char ***l)
{
    return keep_if(l, [](const char *text) { return *text != '\0'; });
}

char ***lines_nonspace(char ***l)
{
    return keep_if(l, [](const char *text) { return !trim_left(text).empty(); });
}

// Order and search

char ***lines_sort(char ***l) { return lines_sort_func(l, strcmp_qsort); }

char ***lines_casesort(char ***l) { return lines_sort_func(l, strcasecmp_qsort); }

char ***lines_sort_func(char ***l, lines_order cmp)
{
    if (ready(l) && cmp)
        qsort(*l, count_of(*l), sizeof(char *), cmp);
    return l;
}

char ***lines_unique(char ***l) { return lines_unique_func(l, strcmp_qsort); }

char ***lines_caseunique(char ***l) { return lines_unique_func(l, strcasecmp_qsort); }

char ***lines_unique_func(char ***l, lines_order cmp)
{
    if (!lines_sort_func(l, cmp) || !cmp || !**l)
        return l;
    char **list = *l;
    size_t kept = 1;
    for (char **slot = list + 1; *slot; slot++) {
        if (cmp(&list[kept - 1], slot) != 0)
            std::swap(list[kept++], *slot);
    }
    cut(list, kept);
    return l;
}

char **lines_search(char *const *l, const char *s) { return search(l, s, strcmp_qsort); }

char **lines_casesearch(char *const *l, const char *s) { return search(l, s, strcasecmp_qsort); }

char **lines_search_func(char *const *l, lines_match match)
{
    return lines_search_func_ex(l, match, nullptr);
}

char **lines_search_func_ex(char *const *l, lines_match match, void *data)
{
    for (char *const *slot = l; match && slot && *slot; slot++) {
        if (match(*slot, data))
            return const_cast<char **>(slot);
    }
    return nullptr;
}

int lines_cmp(char *const *a, char *const *b) { return lines_cmp_func(a, b, strcmp_qsort); }

int lines_casecmp(char *const *a, char *const *b) { return lines_cmp_func(a, b, strcasecmp_qsort); }

int lines_cmp_func(char *const *a, char *const *b, lines_order cmp)
{
    static char *const kNone[] = {nullptr};
    if (!a)
        a = kNone;
    if (!b)
        b = kNone;
    for (; *a && *b; a++, b++) {
        const int result = cmp ? cmp(a, b) : 0;
        if (result)
            return result;
    }
    return *a ? 1 : *b ? -1 : 0;
}

char **lines_get_common_prefix(char *const *l, char **s)
{
    if (!l || !s)
        return nullptr;
    View prefix = view(*l);
    for (char *const *slot = l; *slot; slot++) {
        size_t shared = 0;
        while (shared < prefix.size() && (*slot)[shared] == prefix[shared])
            shared++;
        prefix = sub(prefix, 0, shared);
    }
    replace_text(s, copy_text(prefix));
    return s;
}

int strcmp_qsort(const void *a, const void *b) { return strcmp(slot_text(a), slot_text(b)); }

int strcasecmp_qsort(const void *a, const void *b) { return str_casecmp(slot_text(a), slot_text(b)); }
