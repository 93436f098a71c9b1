#ifndef KUTIL_INTERNAL_CSV_H
#define KUTIL_INTERNAL_CSV_H

#include "../csv.h"
#include "text_builder.h"

namespace kutil
{

inline uint32_t csv_type_of(const csv_cell *header_cell) { return header_cell->type & CSV_TYPE_MASK; }

// A value as its field's type reads it. Texts are lent by their cell.
union CsvValue {
    int64_t number;
    double real;
    const char *text;
};

// Reads the text once; what is no date is reported here.
CsvValue csv_value(uint32_t type, const char *text);

// Below 0, 0 or above 0; both values were read under `type`.
int csv_compare(uint32_t type, CsvValue a, CsvValue b);

// As str_escape_csv_bytype, appended.
void append_csv_cell(TextBuilder &to, View text, uint32_t type, uint32_t output_flags);

// ---- Lists of cells ----

int csv_count_cells(const csv_cell *cells);
csv_cell *csv_new_cell(View text);
void csv_free_cells(csv_cell *cells);
// The header cell of the name, and its position unless that is NULL; or NULL.
csv_cell *csv_find_field(const csv *table, const char *name, int *position);

// The keys of a search or a sort: cells that refer to their header cell, hold the key's flags as type and the
// value looked for as text.
class CsvKeys
{
public:
    CsvKeys() = default;
    CsvKeys(const CsvKeys &) = delete;
    CsvKeys &operator=(const CsvKeys &) = delete;
    ~CsvKeys() { csv_free_cells(first_); }

    void add(csv_cell *header_cell, uint32_t flags, const char *value)
    {
        csv_cell *key = csv_new_cell(view(value));
        key->type = flags;
        key->reference = header_cell;
        *end_ = key;
        end_ = &key->next;
        count_++;
    }
    const csv_cell *first() const { return first_; }
    size_t count() const { return count_; }

private:
    csv_cell *first_ = nullptr;
    csv_cell **end_ = &first_;
    size_t count_ = 0;
};

// ---- Sorting ----

// Sorts by merging: stable, and within bounds for every comparison, also one that contradicts itself as a
// "nan" that equals everything does. `spare` has room for `count` items too. compare(a, b) is above 0 when b
// goes first.
template <class T, class Compare>
void merge_sort(T *items, T *spare, size_t count, const Compare &compare)
{
    constexpr size_t kRun = 8;
    for (size_t start = 0; start < count; start += kRun) {
        const size_t end = count - start < kRun ? count : start + kRun;
        for (size_t i = start + 1; i < end; i++) {
            const T item = items[i];
            size_t to = i;
            for (; to > start && compare(items[to - 1], item) > 0; to--)
                items[to] = items[to - 1];
            items[to] = item;
        }
    }
    T *from = items;
    T *into = spare;
    for (size_t width = kRun; width < count; width *= 2) {
        for (size_t start = 0; start < count; start += 2 * width) {
            const size_t middle = count - start < width ? count : start + width;
            const size_t end = count - start < 2 * width ? count : start + 2 * width;
            size_t left = start;
            size_t right = middle;
            for (size_t to = start; to < end; to++) {
                const bool take_right =
                    left == middle || (right < end && compare(from[left], from[right]) > 0);
                into[to] = from[take_right ? right++ : left++];
            }
        }
        T *const sorted = into;
        into = from;
        from = sorted;
    }
    if (from != items)
        memcpy(static_cast<void *>(items), from, count * sizeof(T));
}

} // namespace kutil

#endif
