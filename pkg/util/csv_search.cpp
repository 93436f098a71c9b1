#include "internal/csv.h"

#include "date.h"
#include "internal/c_locale.h"
#include "internal/number.h"
#include "internal/report.h"
#include "str.h"

#include <cstdlib>

using namespace kutil;

namespace
{

template <class T>
int order(T a, T b)
{
    return (a > b) - (a < b);
}

double float_of(const char *text)
{
    const CLocale scope;
    return strtod(text, nullptr);
}

bool take_search_keys(csv *table, va_list ap, CsvKeys &keys)
{
    while (const char *name = va_arg(ap, const char *)) {
        const char *value = va_arg(ap, const char *);
        csv_cell *field = csv_find_field(table, name, nullptr);
        if (!field)
            return zel_error_full(kEntity, kFatal, "csv: name %s does not exist", name) == 0;
        if (!value)
            return zel_error_full(kEntity, kFatal, "csv: got search name with no value") == 0;
        keys.add(field, 0, value);
    }
    return true;
}

bool matches(csv *table, csv_line *line, const CsvKeys &keys, const CsvValue *values)
{
    for (const csv_cell *key = keys.first(); key; key = key->next, values++) {
        const uint32_t type = csv_type_of(key->reference);
        const CsvValue value = csv_value(type, csv_field_get_fast(table, line, key->reference));
        if (csv_compare(type, value, *values) != 0)
            return false;
    }
    return true;
}

} // namespace

CsvValue kutil::csv_value(uint32_t type, const char *text)
{
    switch (type) {
    case CSV_TYPE_INT:
        return {.number = parse_i32(text)};
    case CSV_TYPE_DATE:
        return {.number = date_atoi(text, 0)};
    case CSV_TYPE_FLOAT:
        return {.real = float_of(text)};
    default:
        return {.text = text};
    }
}

int kutil::csv_compare(uint32_t type, CsvValue a, CsvValue b)
{
    switch (type) {
    case CSV_TYPE_NONE:
    case CSV_TYPE_TEXT:
    case CSV_TYPE_FORMULA:
        return str_casecmp(a.text, b.text);
    case CSV_TYPE_TEXT_CASE:
        return str_cmp(a.text, b.text);
    case CSV_TYPE_INT:
    case CSV_TYPE_DATE:
        return order(a.number, b.number);
    case CSV_TYPE_FLOAT:
        return order(a.real, b.real);
    default:
        return 0;
    }
}

csv_line *csv_search(csv *table, ...)
{
    va_list ap;
    va_start(ap, table);
    csv_line *line = csv_search_ap(table, ap);
    va_end(ap);
    return line;
}

csv_line *csv_search_ap(csv *table, va_list ap)
{
    return csv_search_from_ap(table, table ? table->lines : nullptr, ap);
}

csv_line *csv_search_from(csv *table, csv_line *line, ...)
{
    va_list ap;
    va_start(ap, line);
    csv_line *found = csv_search_from_ap(table, line, ap);
    va_end(ap);
    return found;
}

csv_line *csv_search_from_ap(csv *table, csv_line *line, va_list ap)
{
    CsvKeys keys;
    if (!table || !take_search_keys(table, ap, keys))
        return nullptr;
    const Heap<CsvValue> values(new_array<CsvValue>(keys.count() + 1));
    CsvValue *value = values.get();
    for (const csv_cell *key = keys.first(); key; key = key->next)
        *value++ = csv_value(csv_type_of(key->reference), key->text);
    while (line && !matches(table, line, keys, values.get()))
        line = line->next;
    return line;
}
