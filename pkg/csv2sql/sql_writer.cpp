#include "util/date.h"
#include "util/str_escape.h"
#include "writers.h"

#include <cstdlib>
#include <ctime>

namespace csv2sql
{

namespace
{

constexpr size_t kRowsInStatement = 500;
constexpr size_t kBytesInStatement = 256 * 1024;
constexpr size_t kSqliteColumns = 2000;
constexpr size_t kMariadbColumns = 4096;
constexpr size_t kMariadbText = 65535;

size_t count_digits(View text, size_t from)
{
    size_t end = from;
    while (end < text.size() && kutil::is_digit(text[end]))
        end++;
    return end - from;
}

bool is_form(View text, View form)
{
    bool same = text.size() == form.size();
    for (size_t i = 0; same && i < text.size(); i++)
        same = form[i] == '0' ? kutil::is_digit(text[i]) : form[i] == text[i];
    return same;
}

// Reads a date of any form; the text of the SQL form, "" of an empty date, NULL of no date.
const char *sql_date_of(const char *text)
{
    bool has_time;
    if (is_sql_date(text, &has_time))
        return text;
    struct tm fields;
    const bool was_muted = std::exchange(reports_muted, true);
    const struct tm *read = date_k2tm(text, &fields);
    reports_muted = was_muted;
    if (!read)
        return nullptr;
    const char *printed = date_tm2sql(&fields);
    return *printed == '\0' || check_date_time(&fields, 1, 1) ? printed : nullptr;
}

} // namespace

bool is_canonical_integer(View text)
{
    const bool negative = kutil::starts_with(text, "-");
    const View digits = kutil::sub(text, negative ? 1 : 0);
    if (digits.empty() || count_digits(digits, 0) != digits.size())
        return false;
    if (digits.front() == '0')
        return digits.size() == 1 && !negative;
    const View limit = negative ? "9223372036854775808" : "9223372036854775807";
    return digits.size() < limit.size() || (digits.size() == limit.size() && digits <= limit);
}

bool is_decimal(View text, size_t digits)
{
    const size_t start = kutil::starts_with(text, "-") ? 1 : 0;
    const size_t whole = count_digits(text, start);
    if (whole == 0 || (whole > 1 && text[start] == '0'))
        return false;
    size_t at = start + whole;
    size_t fraction = 0;
    if (at < text.size() && text[at] == '.') {
        fraction = count_digits(text, at + 1);
        if (fraction == 0)
            return false;
        at += 1 + fraction;
    }
    return at == text.size() && (digits == 0 || whole + fraction <= digits);
}

bool is_sql_date(const char *text, bool *has_time)
{
    *has_time = is_form(text, "0000-00-00 00:00:00");
    if (!*has_time && !is_form(text, "0000-00-00"))
        return false;
    struct tm fields = {};
    fields.tm_year = atoi(text) - 1900;
    fields.tm_mon = atoi(text + 5) - 1;
    fields.tm_mday = atoi(text + 8);
    if (*has_time) {
        fields.tm_hour = atoi(text + 11);
        fields.tm_min = atoi(text + 14);
        fields.tm_sec = atoi(text + 17);
    }
    return check_date_time(&fields, 1, 1) != 0;
}

void Column::look_at(View cell)
{
    longest = cell.size() > longest ? cell.size() : longest;
    if (cell.empty())
        return;
    has_value = true;
    is_integer = is_integer && is_canonical_integer(cell);
    is_real = is_real && is_decimal(cell, 15);
    bool time = false;
    is_date = is_date && is_sql_date(cell.data(), &time);
    has_time = has_time || time;
}

Exit SqlWriter::begin()
{
    const size_t most = is_mariadb() ? kMariadbColumns : kSqliteColumns;
    if (shape_.empty())
        return complain(kRefused, "%s: no header, so there is no table to make", file_);
    if (shape_.size() > most)
        return complain(kRefused, "%s: %zu fields; a table has %zu at most", file_, shape_.size(), most);
    Fields seen;
    for (const Field &field : shape_) {
        if (!*field.name)
            return complain(kRefused, "%s: the name of field %zu is empty", file_, seen.count() + 1);
        if (seen.find(field.name) != Fields::kNone)
            return complain(kRefused, "%s: two fields are named %s", file_, field.name);
        seen.add(field.name);
    }
    columns_.resize(shape_.size(), Column());
    return kDone;
}

Exit SqlWriter::measure(const Row &row)
{
    for (size_t i = 0; i < columns_.size(); i++) {
        const View cell = row.cells[i];
        columns_[i].look_at(cell);
        const uint32_t type = shape_[i].type;
        const bool bad = !cell.empty() && ((type == CSV_TYPE_INT && !is_canonical_integer(cell)) ||
                                           (type == CSV_TYPE_FLOAT && !is_decimal(cell, 0)) ||
                                           (type == CSV_TYPE_DATE && !sql_date_of(cell.data())));
        if (bad)
            return complain(kRefused, "%s:%d: field %s: %s: %s", file_, row.line, shape_[i].name,
                            type == CSV_TYPE_INT     ? "not a whole number of 64 bits"
                            : type == CSV_TYPE_FLOAT ? "not a number"
                                                     : "not a date",
                            cell.data());
        if (type == CSV_TYPE_DATE && !cell.empty())
            columns_[i].has_time = columns_[i].has_time || strlen(sql_date_of(cell.data())) > 10;
    }
    return kDone;
}

SqlWriter::Kind SqlWriter::kind_of(size_t i) const
{
    switch (shape_[i].type) {
    case CSV_TYPE_INT:
        return Kind::integer;
    case CSV_TYPE_FLOAT:
        return Kind::real;
    case CSV_TYPE_DATE:
        return Kind::date;
    case CSV_TYPE_TEXT:
        return Kind::text;
    default:
        break;
    }
    const Column &column = columns_[i];
    if (!column.has_value)
        return Kind::text;
    return column.is_integer ? Kind::integer
           : column.is_real  ? Kind::real
           : column.is_date  ? Kind::date
                             : Kind::text;
}

const char *SqlWriter::type_name(size_t i) const
{
    switch (kind_of(i)) {
    case Kind::integer:
        return is_mariadb() ? "BIGINT" : "INTEGER";
    case Kind::real:
        return is_mariadb() ? "DOUBLE" : "REAL";
    case Kind::date:
        return columns_[i].has_time ? "DATETIME" : "DATE";
    default:
        return is_mariadb() && columns_[i].longest > kMariadbText ? "LONGTEXT" : "TEXT";
    }
}

// The given name, else the file's without folder and ending.
HeapText SqlWriter::table_name() const
{
    if (settings_.table)
        return HeapText(kutil::copy_text(settings_.table));
    const char *path = View(settings_.in) != "-" ? settings_.in : settings_.out;
    const char *slash = strrchr(path, '/');
    View name(slash ? slash + 1 : path);
    const size_t dot = name.rfind('.');
    if (dot != View::npos && dot > 0)
        name = kutil::sub(name, 0, dot);
    return HeapText(kutil::copy_text(name.empty() || name == "-" ? View("data") : name));
}

void SqlWriter::append_identifier(View name)
{
    kutil::TextBuilder &text = output_->text();
    const char mark = is_mariadb() ? '`' : '"';
    text.append(mark);
    for (const char c : name) {
        text.append(c);
        if (c == mark)
            text.append(c);
    }
    text.append(mark);
}

void SqlWriter::append_literal(View cell)
{
    kutil::TextBuilder &text = output_->text();
    text.append('\'');
    if (is_mariadb()) {
        char *escaped = kutil::copy_text(cell);
        str_escape_sql(&escaped, 0);
        text.append(View(escaped));
        free(escaped);
    } else {
        char *to = text.room(kutil::mul_sizes(cell.size(), 2));
        const char *const start = to;
        for (const char c : cell) {
            *to++ = c;
            if (c == '\'')
                *to++ = c;
        }
        text.commit(static_cast<size_t>(to - start));
    }
    text.append('\'');
}

bool SqlWriter::append_date(View cell)
{
    const char *date = sql_date_of(cell.data());
    if (!date)
        return false;
    if (*date)
        append_literal(date);
    else
        output_->text().append("NULL");
    return true;
}

// Returns false when the cell does not fit its column.
bool SqlWriter::append_value(size_t i, View cell)
{
    const Kind kind = kind_of(i);
    if (kind == Kind::text) {
        append_literal(cell);
        return true;
    }
    if (kind == Kind::date && !cell.empty())
        return append_date(cell);
    output_->text().append(cell.empty() ? View("NULL") : cell);
    return cell.empty() || (kind == Kind::integer ? is_canonical_integer(cell) : is_decimal(cell, 0));
}

Exit SqlWriter::header(Output &output)
{
    output_ = &output;
    kutil::TextBuilder &text = output_->text();
    const HeapText name = table_name();
    // MariaDB ends a transaction where a table is made, and must read backslashes as escapes.
    text.append(is_mariadb()
                    ? "SET NAMES utf8mb4;\n"
                      "SET SESSION sql_mode = REPLACE(@@SESSION.sql_mode, 'NO_BACKSLASH_ESCAPES', '');\n"
                    : "BEGIN TRANSACTION;\n");
    text.append("CREATE TABLE ");
    append_identifier(name.get());
    for (size_t i = 0; i < shape_.size(); i++) {
        text.append(i == 0 ? " (\n  " : ",\n  ");
        append_identifier(shape_[i].name);
        text.append(' ');
        text.append(type_name(i));
    }
    // Where the server's own default is another character set, it would refuse letters or lose them.
    text.append(is_mariadb() ? "\n) DEFAULT CHARACTER SET utf8mb4;\nSTART TRANSACTION;\n" : "\n);\n");
    return output_->flush_some();
}

Exit SqlWriter::row(const Row &row)
{
    kutil::TextBuilder &text = output_->text();
    if (rows_in_statement_ == 0) {
        text.append("INSERT INTO ");
        append_identifier(table_name().get());
        text.append(" VALUES\n");
    } else {
        text.append(",\n");
    }
    const size_t start = text.size();
    for (size_t i = 0; i < shape_.size(); i++) {
        text.append(i == 0 ? '(' : ',');
        if (!append_value(i, row.cells[i]))
            return complain(kRefused, "%s:%d: it changed while it was being read", file_, row.line);
    }
    text.append(')');
    statement_bytes_ += text.size() - start;
    if (++rows_in_statement_ == kRowsInStatement || statement_bytes_ > kBytesInStatement) {
        text.append(";\n");
        rows_in_statement_ = statement_bytes_ = 0;
    }
    return output_->flush_some();
}

Exit SqlWriter::end()
{
    output_->text().append(rows_in_statement_ > 0 ? ";\nCOMMIT;\n" : "COMMIT;\n");
    return output_->flush_some();
}

} // namespace csv2sql
