#include "table.h"

#include <bit>
#include <cmath>

namespace csv2sql
{

using kutil::csv_compare;
using kutil::csv_value;
using kutil::CsvValue;

void Fields::add(View name, uint32_t type)
{
    index_.add(hash_text(name), static_cast<uint32_t>(fields_.size()));
    fields_.add({names_.keep(name), type});
}

uint32_t Fields::find(View name) const
{
    return index_.find(hash_text(name),
                       [&](uint32_t i) { return kutil::equal_ignoring_case(fields_[i].name, name); });
}

void Table::add(const Row &row)
{
    size_t size = 0;
    for (const View &cell : row.cells)
        size += cell.size() + 1;
    char *to = texts_.room(size);
    lines_.add({to, static_cast<uint32_t>(row.cells.size()), row.line});
    for (const View &cell : row.cells) {
        to = kutil::put(to, cell);
        *to++ = '\0';
    }
}

void Table::get(size_t line, size_t width, Row *row) const
{
    const Line &packed = lines_[line];
    row->line = packed.number;
    row->cells.clear();
    const char *text = packed.text;
    for (uint32_t i = 0; i < packed.cells; i++) {
        const View cell(text);
        row->cells.add(cell);
        text += cell.size() + 1;
    }
    if (row->cells.size() < width)
        row->cells.resize(width, View("", 0));
}

const char *Table::cell(size_t line, size_t position) const
{
    const Line &packed = lines_[line];
    if (position >= packed.cells)
        return "";
    const char *text = packed.text;
    for (; position > 0; position--)
        text += strlen(text) + 1;
    return text;
}

namespace
{

uint32_t hash_value(uint32_t type, CsvValue value)
{
    switch (type) {
    case CSV_TYPE_INT:
    case CSV_TYPE_DATE:
        return hash_number(static_cast<uint64_t>(value.number));
    case CSV_TYPE_FLOAT:
        return hash_number(std::bit_cast<uint64_t>(value.real == 0 ? 0.0 : value.real));
    default:
        return hash_text(value.text);
    }
}

bool equals_everything(uint32_t type, CsvValue value)
{
    return type == CSV_TYPE_FLOAT && std::isnan(value.real);
}

} // namespace

void Merge::list_keys(const Table &table, uint32_t key, uint32_t type)
{
    for (size_t line = table.count(); line-- > 0;) {
        const CsvValue value = csv_value(type, table.cell(line, key));
        if (equals_everything(type, value))
            first_nan_ = static_cast<uint32_t>(line);
    }
    for (size_t line = 0; line < table.count(); line++) {
        const CsvValue value = csv_value(type, table.cell(line, key));
        if (find_key(table, key, type, value) == Index::kNone)
            keys_.add(hash_value(type, value), static_cast<uint32_t>(line));
    }
}

uint32_t Merge::find_key(const Table &table, uint32_t key, uint32_t type, CsvValue value) const
{
    return keys_.find(hash_value(type, value), [&](uint32_t line) {
        return csv_compare(type, csv_value(type, table.cell(line, key)), value) == 0;
    });
}

// The first line whose key compares equal to the value.
uint32_t Merge::find_line(const Table &table, uint32_t key, uint32_t type, const char *text) const
{
    const CsvValue value = csv_value(type, text);
    if (equals_everything(type, value))
        return table.count() > 0 ? 0 : Index::kNone;
    const uint32_t found = find_key(table, key, type, value);
    return found < first_nan_ ? found : first_nan_;
}

void Merge::attach(uint32_t line, uint32_t other_line)
{
    const uint32_t last = last_[line];
    next_[other_line] = last == Index::kNone ? other_line : next_[last];
    if (last != Index::kNone)
        next_[last] = other_line;
    last_[line] = other_line;
}

size_t Merge::run(const Table &table, Fields *fields, uint32_t key, const Table &other,
                  const Fields &other_fields, uint32_t other_key)
{
    const uint32_t type = (*fields)[key].type;
    other_ = &other;
    list_keys(table, key, type);
    last_.resize(table.count(), Index::kNone);
    next_.resize(other.count(), Index::kNone);
    size_t unmatched = 0;
    for (uint32_t line = 0; line < other.count(); line++) {
        const char *value = other.cell(line, other_key);
        const uint32_t found = *value ? find_line(table, key, type, value) : Index::kNone;
        if (found == Index::kNone) {
            unmatched++;
            continue;
        }
        attach(found, line);
        // An empty key is a 0 that this value equals only when it equals everything; from now on the line
        // does.
        if (found < first_nan_ && !*table.cell(found, key) && equals_everything(type, csv_value(type, value)))
            first_nan_ = found;
    }
    const bool any = unmatched < other.count();
    for (size_t i = 0; any && i < other_fields.count(); i++) {
        const View name = other_fields[i].name;
        if (fields->find(name) == Fields::kNone)
            fields->add(name);
        source_.add(other_fields.find(name));
        target_.add(fields->find(name));
    }
    return unmatched;
}

void Merge::fill(size_t line, Row *row) const
{
    const uint32_t last = last_.empty() ? Index::kNone : last_[line];
    if (last == Index::kNone)
        return;
    Row from;
    for (uint32_t at = next_[last];; at = next_[at]) {
        other_->get(at, source_.size(), &from);
        for (size_t i = 0; i < source_.size(); i++) {
            View &cell = row->cells[target_[i]];
            if (cell.empty())
                cell = from.cells[source_[i]];
        }
        if (at == last)
            return;
    }
}

} // namespace csv2sql
