#ifndef CSV2SQL_WRITERS_H
#define CSV2SQL_WRITERS_H

#include "notices.h"
#include "output.h"
#include "table.h"

namespace csv2sql
{

// The fields that are written, in order; they point into the table's.
using Shape = List<Field>;

// Writes csv and tab.
class TextWriter
{
public:
    TextWriter(Output &output, const Settings &settings, const Shape &shape, Notices &notices)
        : output_(output), settings_(settings), shape_(shape), notices_(notices)
    {
    }
    Exit header();
    Exit row(const Row &row);

private:
    void append(View cell, uint32_t type, int line);
    void append_csv_cell(View cell, uint32_t type, int line);
    void append_tab_cell(View cell);

    Output &output_;
    const Settings &settings_;
    const Shape &shape_;
    Notices &notices_;
};

// What a column of a database is to be, found out by looking at every cell.
struct Column {
    bool is_integer = true;
    bool is_real = true;
    bool is_date = true;
    bool has_time = false;
    bool has_value = false;
    size_t longest = 0;

    void look_at(View cell);
};

// Writes the statements that make a table: first every row is shown to measure(), then the same ones to
// row().
class SqlWriter
{
public:
    SqlWriter(const Settings &settings, const Shape &shape, const char *file)
        : settings_(settings), shape_(shape), file_(file)
    {
    }
    // Refuses fields that no table can have.
    Exit begin();
    Exit measure(const Row &row);
    // The statements go to `output` from here on.
    Exit header(Output &output);
    Exit row(const Row &row);
    Exit end();

private:
    enum class Kind { integer, real, date, text };
    Kind kind_of(size_t column) const;
    const char *type_name(size_t column) const;
    bool is_mariadb() const { return settings_.dialect == Dialect::mariadb; }
    HeapText table_name() const;
    void append_identifier(View name);
    void append_literal(View cell);
    bool append_value(size_t column, View cell);
    bool append_date(View cell);

    Output *output_ = nullptr;
    const Settings &settings_;
    const Shape &shape_;
    const char *file_;
    List<Column> columns_;
    size_t rows_in_statement_ = 0;
    size_t statement_bytes_ = 0;
};

// "-12" and "0", not "007", "+1" or what 64 bits do not hold.
bool is_canonical_integer(View text);
// A decimal number that a double gives back: at most 15 digits, a digit on both sides of a point. `digits` 0:
// any.
bool is_decimal(View text, size_t digits);
// "2026-11-15" and "2026-11-15 12:30:05" of days and times that there are.
bool is_sql_date(const char *text, bool *has_time);

} // namespace csv2sql

#endif
