#include "internal/csv.h"
#include "internal/formatted.h"
#include "internal/list_builder.h"
#include "internal/report.h"
#include "lines.h"

#include <cstddef>

using namespace kutil;

static_assert(offsetof(csv_cell, next) < offsetof(csv_cell, text) &&
              offsetof(csv_cell, text) < offsetof(csv_cell, type) &&
              offsetof(csv_cell, type) < offsetof(csv_cell, reference));
static_assert(offsetof(csv_line, next) < offsetof(csv_line, cells) &&
              offsetof(csv_line, cells) < offsetof(csv_line, line_number));
static_assert(offsetof(csv, name) < offsetof(csv, flags) && offsetof(csv, flags) < offsetof(csv, header) &&
              offsetof(csv, header) < offsetof(csv, lines) &&
              offsetof(csv, lines) < offsetof(csv, fields_count) &&
              offsetof(csv, fields_count) < offsetof(csv, sort_index) &&
              offsetof(csv, sort_index) < offsetof(csv, lines_count) &&
              offsetof(csv, lines_count) < offsetof(csv, sorting) &&
              offsetof(csv, sorting) < offsetof(csv, file));

int chr_line = '\n';
int chr_field = ',';
int chr_enclose = '"';
int chr_escape = -1;
int chr_cr = '\r';
int silent = 0;

namespace
{

int fatal_field(const csv *table, const char *name)
{
    return zel_error_full(kEntity, kFatal, "%s: field %s does not exist", table->name, text_or_empty(name));
}

csv_cell *header_cells(const csv *table) { return table && table->header ? table->header->cells : nullptr; }

csv_cell *cell_at(const csv_line *line, int position)
{
    csv_cell *cell = line ? line->cells : nullptr;
    for (; cell && position > 0; position--)
        cell = cell->next;
    return cell;
}

// The value may be a text of the line.
void set_cell_at(csv_line *line, int position, const char *value)
{
    char *text = copy_text(view(value));
    csv_cell **slot = &line->cells;
    for (; position > 0; position--, slot = &(*slot)->next) {
        if (!*slot)
            *slot = csv_new_cell("");
    }
    if (!*slot)
        *slot = csv_new_cell("");
    replace_text(&(*slot)->text, text);
}

void delete_cell_at(csv_line *line, int position)
{
    csv_cell **slot = &line->cells;
    for (; *slot && position > 0; position--)
        slot = &(*slot)->next;
    csv_cell *cell = *slot;
    if (!cell)
        return;
    *slot = std::exchange(cell->next, nullptr);
    csv_free_cells(cell);
}

// A line whose cells are added at its end one after the other.
class LineBuilder
{
public:
    LineBuilder() : line_(csv_line_alloc(0)), end_(&line_->cells) {}
    void add(const char *text)
    {
        *end_ = csv_cell_alloc(text);
        end_ = &(*end_)->next;
    }
    void add_all(va_list texts)
    {
        while (const char *text = va_arg(texts, const char *))
            add(text);
    }
    csv_line *line() { return line_; }

private:
    csv_line *line_;
    csv_cell **end_;
};

csv *table_with_header(csv_line *header)
{
    csv *table = csv_alloc();
    table->header = header;
    table->fields_count = csv_count_cells(header->cells);
    return table;
}

void count_fields(csv *table) { table->fields_count = csv_count_cells(header_cells(table)); }

} // namespace

// ---- Lists of cells ----

int kutil::csv_count_cells(const csv_cell *cells)
{
    int count = 0;
    for (; cells; cells = cells->next)
        count++;
    return count;
}

csv_cell *kutil::csv_new_cell(View text)
{
    auto *cell = new_record<csv_cell>();
    cell->text = copy_text(text);
    return cell;
}

void kutil::csv_free_cells(csv_cell *cells)
{
    while (cells) {
        csv_cell *cell = std::exchange(cells, cells->next);
        free(cell->text);
        free(cell);
    }
}

csv_cell *kutil::csv_find_field(const csv *table, const char *name, int *position)
{
    const View wanted = view(name);
    int at = 0;
    for (csv_cell *cell = header_cells(table); cell; cell = cell->next, at++) {
        if (!equal_ignoring_case(cell->text, wanted))
            continue;
        if (position)
            *position = at;
        return cell;
    }
    return nullptr;
}

// ---- Delimiters ----

int csv_delim_set(int line, int field, int enclose, int escape)
{
    chr_line = line;
    chr_enclose = enclose;
    chr_escape = escape;
    return std::exchange(chr_field, field);
}

int csv_delim_set_comma(void) { return csv_delim_set('\n', ',', '"', -1); }
int csv_delim_set_tab(void) { return csv_delim_set('\n', '\t', -1, '\\'); }
int csv_delim_reset(void) { return csv_delim_set_comma(); }
int csv_silent_mode(int flag) { return std::exchange(silent, flag); }

// ---- Making and freeing ----

csv *csv_alloc(void)
{
    auto *table = new_record<csv>();
    table->name = copy_text("");
    table->lines_count = -1;
    return table;
}

csv *csv_alloc_with_hdr(const char *name, ...)
{
    va_list ap;
    va_start(ap, name);
    csv *table = csv_alloc_with_hdr_ap(name, ap);
    va_end(ap);
    return table;
}

csv *csv_alloc_with_hdr_ap(const char *name, va_list ap)
{
    return table_with_header(csv_line_alloc_cells_ap(name, ap));
}

csv *csv_alloc_with_hdr_lines(char *const *lines)
{
    LineBuilder header;
    for (; lines && *lines; lines++)
        header.add(*lines);
    return table_with_header(header.line());
}

csv_line *csv_line_alloc(int line_number)
{
    auto *line = new_record<csv_line>();
    line->line_number = line_number;
    return line;
}

csv_line *csv_line_alloc_cells(const char *text, ...)
{
    va_list ap;
    va_start(ap, text);
    csv_line *line = csv_line_alloc_cells_ap(text, ap);
    va_end(ap);
    return line;
}

csv_line *csv_line_alloc_cells_ap(const char *text, va_list ap)
{
    LineBuilder builder;
    if (text) {
        builder.add(text);
        builder.add_all(ap);
    }
    return builder.line();
}

csv_cell *csv_cell_alloc(const char *text) { return csv_new_cell(view(text)); }

void csv_line_free(csv_line *line)
{
    if (!line)
        return;
    csv_free_cells(line->cells);
    free(line);
}

void csv_line_list_free(csv_line *line)
{
    while (line)
        csv_line_free(std::exchange(line, line->next));
}

void csv_close(csv *table)
{
    if (!table)
        return;
    csv_line_list_free(table->header);
    csv_line_list_free(table->lines);
    if (table->file)
        fclose(table->file);
    free(table->name);
    free(table);
}

// ---- Fields ----

int csv_get_field_idx(csv *table, const char *name)
{
    int position = -1;
    csv_find_field(table, name, &position);
    return position;
}

char ***csv_get_headers(char ***lines, csv *table)
{
    if (!lines)
        return nullptr;
    ListBuilder names;
    for (const csv_cell *cell = header_cells(table); cell; cell = cell->next)
        names.add(cell->text);
    return lines_use(lines, names.release());
}

csv_cell *csv_field_get_cell(csv *table, csv_line *line, const char *name)
{
    const int position = csv_get_field_idx(table, name);
    return position < 0 ? nullptr : cell_at(line, position);
}

const char *csv_field_get(csv *table, csv_line *line, const char *name)
{
    const csv_cell *cell = csv_field_get_cell(table, line, name);
    return cell ? cell->text : "";
}

csv_cell *csv_field_get_cell_fast(csv *table, csv_line *line, csv_cell *header_cell)
{
    csv_cell *cell = line ? line->cells : nullptr;
    csv_cell *field = header_cells(table);
    for (; cell && field && field != header_cell; field = field->next)
        cell = cell->next;
    return field && header_cell ? cell : nullptr;
}

const char *csv_field_get_fast(csv *table, csv_line *line, csv_cell *header_cell)
{
    const csv_cell *cell = csv_field_get_cell_fast(table, line, header_cell);
    return cell ? cell->text : "";
}

void csv_field_set(csv *table, csv_line *line, const char *name, const char *value)
{
    if (!table)
        return;
    int position = 0;
    if (!csv_find_field(table, name, &position)) {
        fatal_field(table, name);
        return;
    }
    if (line)
        set_cell_at(line, position, value);
}

void csv_fields_set(csv *table, csv_line *line, ...)
{
    va_list ap;
    va_start(ap, line);
    csv_fields_set_ap(table, line, ap);
    va_end(ap);
}

void csv_fields_set_ap(csv *table, csv_line *line, va_list ap)
{
    // All pairs are copied before the first is set: a later one may lie in a cell that an earlier one
    // changes.
    LineBuilder pairs;
    while (const char *name = va_arg(ap, const char *)) {
        pairs.add(name);
        pairs.add(va_arg(ap, const char *));
    }
    for (const csv_cell *pair = pairs.line()->cells; pair; pair = pair->next->next)
        csv_field_set(table, line, pair->text, pair->next->text);
    csv_line_free(pairs.line());
}

void csv_field_set_printf(csv *table, csv_line *line, const char *name, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    csv_field_set_vprintf(table, line, name, format, ap);
    va_end(ap);
}

void csv_field_set_vprintf(csv *table, csv_line *line, const char *name, const char *format, va_list ap)
{
    const HeapText value(Formatted(format, ap).release());
    csv_field_set(table, line, name, value.get());
}

void csv_field_set_fast(csv *table, csv_line *line, csv_cell *header_cell, const char *value)
{
    int position = 0;
    const csv_cell *field = header_cells(table);
    for (; field && field != header_cell; field = field->next)
        position++;
    if (field && line)
        set_cell_at(line, position, value);
}

void csv_cell_set(csv_cell *cell, const char *text)
{
    if (cell)
        replace_text(&cell->text, copy_text(view(text)));
}

void csv_field_add(csv *table, const char *name)
{
    if (!table || csv_find_field(table, name, nullptr))
        return;
    if (!table->header)
        table->header = csv_line_alloc(0);
    csv_cell **end = &table->header->cells;
    while (*end)
        end = &(*end)->next;
    *end = csv_cell_alloc(name);
    csv_normalize(table, 1);
}

void csv_delete_field(csv *table, const char *name)
{
    if (!table)
        return;
    const int position = csv_get_field_idx(table, name);
    if (position < 0)
        zel_error_full(kEntity, kFatal, "Cannot find %s", text_or_empty(name));
    csv_delete_field_by_index(table, position);
}

void csv_delete_field_by_index(csv *table, int index)
{
    if (!table || index < 0)
        return;
    if (table->header)
        delete_cell_at(table->header, index);
    for (csv_line *line = table->lines; line; line = line->next)
        delete_cell_at(line, index);
    count_fields(table);
}

void csv_type_set(csv *table, ...)
{
    va_list ap;
    va_start(ap, table);
    csv_type_set_ap(table, ap);
    va_end(ap);
}

void csv_type_set_ap(csv *table, va_list ap)
{
    while (const char *name = va_arg(ap, const char *)) {
        const auto type = static_cast<uint32_t>(va_arg(ap, int));
        csv_cell *field = csv_find_field(table, name, nullptr);
        if (field)
            field->type = csv_type_of(field) | type; // Deliberate: combined, never replaced
        else if (table)
            fatal_field(table, name);
    }
}

void csv_type_set_all(csv *table, uint32_t flags)
{
    for (csv_cell *field = header_cells(table); field; field = field->next)
        field->type = csv_type_of(field) | flags;
}

// ---- Lines ----

int csv_lines_count(csv *table)
{
    if (!table)
        return 0;
    if (table->lines_count != -1)
        return table->lines_count;
    int count = 0;
    for (const csv_line *line = table->lines; line; line = line->next)
        count++;
    return count;
}

csv_line *csv_line_add(csv *table, csv_line *line, csv_line *after)
{
    if (!table || !line)
        return line;
    csv_line **place = after ? &after->next : &table->lines;
    while (!after && *place)
        place = &(*place)->next;
    line->next = *place;
    *place = line;
    csv_line_normalize(table, line, 1);
    return line;
}

csv_line *csv_line_add_empty(csv *table)
{
    return table ? csv_line_add(table, csv_line_alloc(0), nullptr) : nullptr;
}

csv_line *csv_line_add_fields_set(csv *table, ...)
{
    csv_line *line = csv_line_add_empty(table);
    va_list ap;
    va_start(ap, table);
    csv_fields_set_ap(table, line, ap);
    va_end(ap);
    return line;
}

void csv_line_delete(csv *table, csv_line *line)
{
    if (!table || !line)
        return;
    csv_line **place = &table->lines;
    while (*place && *place != line)
        place = &(*place)->next;
    if (!*place)
        return;
    *place = line->next;
    csv_line_free(line);
}

const char *csv_line_get(csv *table, csv_line *line)
{
    static constinit char *place = nullptr;
    constexpr size_t kNumberSize = 16; // a colon, an int and the NUL
    const View name = table ? View(table->name) : View("");
    char *text = static_cast<char *>(malloc_e(add_sizes(name.size(), kNumberSize)));
    snprintf(put(text, name), kNumberSize, ":%d", line ? line->line_number : 0);
    replace_text(&place, text);
    return place;
}

void csv_line_normalize(csv *table, csv_line *line, int allow_few)
{
    if (!table || !line)
        return;
    int count = 0;
    csv_cell **end = &line->cells;
    for (; *end; end = &(*end)->next)
        count++;
    const int needed = table->fields_count;
    if (count > needed && (table->flags & CSV_F_MANY_FATAL))
        zel_error_full(kEntity, kFatal, "%s:%d: too many cells (has %d needs %d)", table->name,
                       line->line_number, count, needed);
    if (count < needed && (table->flags & CSV_F_FEW_FATAL) && !allow_few)
        zel_error_full(
            kEntity, kFatal,
            "%s:%d: too few cells (has %d needs %d). use 'csv2sql -i %s -o %s csv csv' to normalize the "
            "CSV file.",
            table->name, line->line_number, count, needed, table->name, table->name);
    for (; count < needed; count++, end = &(*end)->next)
        *end = csv_new_cell("");
}

void csv_normalize(csv *table, int allow_few)
{
    if (!table)
        return;
    count_fields(table);
    for (csv_line *line = table->lines; line; line = line->next)
        csv_line_normalize(table, line, allow_few);
}
