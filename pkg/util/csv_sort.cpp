#include "internal/csv.h"
#include "internal/report.h"

using namespace kutil;

namespace
{

bool take_sort_keys(csv *table, va_list ap, CsvKeys &keys)
{
    while (const char *name = va_arg(ap, const char *)) {
        const auto flags = static_cast<uint32_t>(va_arg(ap, int));
        csv_cell *field = csv_find_field(table, name, nullptr);
        if (!field)
            return zel_error_full(kEntity, kFatal, "Invalid key field %s", name) == 0;
        keys.add(field, flags, "");
    }
    return true;
}

// The keys of all lines, each value read once.
class KeyValues
{
public:
    KeyValues(csv *table, const CsvKeys &keys, size_t lines)
        : keys_(keys), values_(new_array<CsvValue>(mul_sizes(keys.count(), lines)))
    {
        CsvValue *value = values_.get();
        for (csv_line *line = table->lines; line; line = line->next) {
            for (const csv_cell *key = keys.first(); key; key = key->next)
                *value++ =
                    csv_value(csv_type_of(key->reference), csv_field_get_fast(table, line, key->reference));
        }
    }

    int compare(const csv_sort_entry &a, const csv_sort_entry &b) const
    {
        const CsvValue *left = of(a);
        const CsvValue *right = of(b);
        for (const csv_cell *key = keys_.first(); key; key = key->next, left++, right++) {
            const int result = csv_compare(csv_type_of(key->reference), *left, *right);
            if (result != 0)
                return key->type & CSV_KEY_DESC ? -(result > 0) + (result < 0) : result;
        }
        return 0; // the sort is stable: the input positions decide
    }

private:
    const CsvValue *of(const csv_sort_entry &entry) const
    {
        return values_.get() + static_cast<size_t>(entry.position) * keys_.count();
    }

    const CsvKeys &keys_;
    const Heap<CsvValue> values_;
};

void list_lines(csv_line *line, csv_sort_entry *entries)
{
    for (int position = 0; line; line = line->next, position++)
        entries[position] = {position, line};
}

void link_lines(csv *table, const csv_sort_entry *entries, size_t count)
{
    csv_line **end = &table->lines;
    for (size_t i = 0; i < count; i++) {
        *end = entries[i].line;
        end = &entries[i].line->next;
    }
    *end = nullptr;
}

void sort_lines(csv *table, const CsvKeys &keys, size_t count)
{
    const Heap<csv_sort_entry> entries(new_array<csv_sort_entry>(count));
    const Heap<csv_sort_entry> spare(new_array<csv_sort_entry>(count));
    list_lines(table->lines, entries.get());
    table->sort_index = entries.get();
    table->lines_count = static_cast<int>(count);
    table->sorting = 1;
    const KeyValues values(table, keys, count);
    merge_sort(entries.get(), spare.get(), count,
               [&](const csv_sort_entry &a, const csv_sort_entry &b) { return values.compare(a, b); });
    link_lines(table, entries.get(), count);
    table->sort_index = nullptr;
    table->lines_count = -1;
    table->sorting = 0;
}

} // namespace

void csv_sort(csv *table, ...)
{
    va_list ap;
    va_start(ap, table);
    csv_sort_ap(table, ap);
    va_end(ap);
}

void csv_sort_ap(csv *table, va_list ap)
{
    CsvKeys keys;
    if (!table || !take_sort_keys(table, ap, keys) || keys.count() == 0)
        return;
    const int count = csv_lines_count(table);
    if (count > 1)
        sort_lines(table, keys, static_cast<size_t>(count));
}
