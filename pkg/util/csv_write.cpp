#include "file.h"
#include "internal/csv.h"
#include "internal/escape.h"
#include "str_escape.h"

using namespace kutil;

namespace
{

constexpr uint32_t kOutputFlags = CSV_F_SPREADSHEET | CSV_F_PLAIN;

bool is_always_quoted(uint32_t type)
{
    return type == CSV_TYPE_TEXT || type == CSV_TYPE_TEXT_CASE || type == CSV_TYPE_DATE;
}

View prefix_of(uint32_t type, uint32_t output_flags)
{
    if (output_flags != CSV_F_SPREADSHEET)
        return View("", 0);
    return type == CSV_TYPE_FORMULA ? "=" : "'";
}

void append_line(TextBuilder &to, const csv *table, const csv_line *line, bool is_header)
{
    const csv_cell *field = table && table->header ? table->header->cells : nullptr;
    const csv_cell *cell = line ? line->cells : nullptr;
    for (bool first = true; field && cell; field = field->next, cell = cell->next, first = false) {
        if (!first && chr_field != -1)
            to.append(static_cast<char>(chr_field));
        append_csv_cell(to, cell->text, is_header ? CSV_TYPE_NONE : csv_type_of(field),
                        table->flags & kOutputFlags);
    }
    to.append('\n'); // Deliberate: not chr_line
}

int flush(FILE *fp) { return fflush(fp) == 0 && !ferror(fp) ? 0 : -1; }

bool write_text(FILE *fp, TextBuilder &text)
{
    const bool done = fwrite(text.text().data(), 1, text.size(), fp) == text.size();
    text.clear();
    return done;
}

int write_table(const csv *table, FILE *fp)
{
    TextBuilder text;
    if (table && table->header)
        append_line(text, table, table->header, true);
    for (const csv_line *line = table ? table->lines : nullptr; line; line = line->next) {
        append_line(text, table, line, false);
        if (!write_text(fp, text))
            return -1;
    }
    return write_text(fp, text) ? flush(fp) : -1;
}

// Hands a stream for the path of csv_write to `write`.
template <class Write>
int write_to(const csv *table, const char *path, const char *mode, const Write &write)
{
    const char *name = path ? path : table ? table->name : "";
    if (!*name)
        return write(stdout);
    FILE *fp = file_open(name, mode);
    if (!fp)
        return -1;
    const int result = write(fp);
    return fclose(fp) == 0 ? result : -1;
}

} // namespace

void kutil::append_csv_cell(TextBuilder &to, View text, uint32_t type, uint32_t output_flags)
{
    append_csv(to, prefix_of(type, output_flags), text, chr_field, chr_enclose, chr_line,
               is_always_quoted(type));
}

int csv_write(csv *table, const char *path)
{
    return write_to(table, path, "w", [&](FILE *fp) { return write_table(table, fp); });
}

int csv_write_fp(csv *table, FILE *fp) { return fp ? write_table(table, fp) : -1; }

int csv_line_write(csv *table, csv_line *line, const char *path)
{
    return write_to(table, path, "a", [&](FILE *fp) {
        csv_line_print(table, line, 0, fp);
        return flush(fp);
    });
}

void csv_line_print(csv *table, csv_line *line, int is_header, FILE *fp)
{
    if (!fp)
        return;
    TextBuilder text;
    append_line(text, table, line, is_header != 0);
    write_text(fp, text);
}

char **str_escape_csv_bytype(char **s, uint32_t type, uint32_t output_flags)
{
    if (!s)
        return nullptr;
    TextBuilder cell;
    append_csv_cell(cell, view(*s), type, output_flags);
    replace_text(s, cell.release());
    return s;
}
