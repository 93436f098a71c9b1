#include "util/internal/escape.h"
#include "writers.h"

namespace csv2sql
{

Exit TextWriter::header()
{
    for (size_t i = 0; i < shape_.size(); i++) {
        if (i > 0)
            output_.text().append(settings_.to == Form::csv ? ',' : '\t');
        append(shape_[i].name, CSV_TYPE_NONE, 1);
    }
    if (!shape_.empty())
        output_.text().append('\n');
    return output_.flush_some();
}

Exit TextWriter::row(const Row &row)
{
    for (size_t i = 0; i < row.cells.size(); i++) {
        if (i > 0)
            output_.text().append(settings_.to == Form::csv ? ',' : '\t');
        append(row.cells[i], shape_[i].type, row.line);
    }
    output_.text().append('\n');
    return output_.flush_some();
}

void TextWriter::append(View cell, uint32_t type, int line)
{
    if (settings_.to == Form::csv)
        append_csv_cell(cell, type, line);
    else
        append_tab_cell(cell);
}

void TextWriter::append_csv_cell(View cell, uint32_t type, int line)
{
    const bool has_cr = memchr(cell.data(), '\r', cell.size()) != nullptr;
    if (has_cr)
        notices_.add(Notices::cr_in_value, line);
    // A line of one empty cell would be an empty line, which is skipped in reading.
    const bool force = type == CSV_TYPE_TEXT || type == CSV_TYPE_DATE || has_cr || shape_.size() == 1;
    kutil::append_csv(output_.text(), settings_.spreadsheet ? "'" : "", cell, ',', '"', '\n', force);
}

void TextWriter::append_tab_cell(View cell)
{
    kutil::TextBuilder &text = output_.text();
    if (settings_.spreadsheet)
        text.append('\'');
    else if (cell.empty() && shape_.size() == 1)
        text.append("\\0"); // not an empty line; a value that ends at once
    char *to = text.room(kutil::mul_sizes(cell.size(), 2));
    const char *const start = to;
    for (const char c : cell) {
        const char letter = c == '\t' ? 't' : c == '\n' ? 'n' : c == '\r' ? 'r' : c == '\\' ? '\\' : '\0';
        if (letter)
            *to++ = '\\';
        *to++ = letter ? letter : c;
    }
    text.commit(static_cast<size_t>(to - start));
}

} // namespace csv2sql
