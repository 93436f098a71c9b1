#ifndef CSV2SQL_TABLE_H
#define CSV2SQL_TABLE_H

#include "list.h"
#include "util/internal/csv.h"

namespace csv2sql
{

// The cells of a line that is being handed on. Their texts end with NUL and live until the next line, or as
// long as the table that they are in.
struct Row {
    List<View> cells;
    int line = 0;
};

struct Field {
    const char *name;
    uint32_t type; // CSV_TYPE_*
};

// The fields of a table, found by name without a walk.
class Fields
{
public:
    static constexpr uint32_t kNone = Index::kNone;

    void add(View name, uint32_t type = CSV_TYPE_NONE);
    // The first of the name, ignoring case.
    uint32_t find(View name) const;
    size_t count() const { return fields_.size(); }
    Field &operator[](size_t i) { return fields_[i]; }
    const Field &operator[](size_t i) const { return fields_[i]; }

private:
    Arena names_;
    List<Field> fields_;
    Index index_;
};

// All lines of a table, packed: a file of many short cells takes little more than its own size.
class Table
{
public:
    void add(const Row &row);
    size_t count() const { return lines_.size(); }
    // The line's cells, and empty ones up to `width`.
    void get(size_t line, size_t width, Row *row) const;
    const char *cell(size_t line, size_t position) const;

private:
    struct Line {
        const char *text; // the cells, each with its NUL
        uint32_t cells;
        int number;
    };
    Arena texts_;
    List<Line> lines_;
};

// The lines of a table with those of another one merged into them: what csv_merge_line_by_field makes when it
// is called for each line of the other table in turn.
class Merge
{
public:
    // Adds the fields that `fields` lacks when any line matched. Returns how many lines of `other` matched
    // nothing.
    size_t run(const Table &table, Fields *fields, uint32_t key, const Table &other,
               const Fields &other_fields, uint32_t other_key);
    // Fills the empty cells of the line's row.
    void fill(size_t line, Row *row) const;

private:
    void list_keys(const Table &table, uint32_t key, uint32_t type);
    uint32_t find_key(const Table &table, uint32_t key, uint32_t type, kutil::CsvValue value) const;
    uint32_t find_line(const Table &table, uint32_t key, uint32_t type, const char *value) const;
    void attach(uint32_t line, uint32_t other_line);

    const Table *other_ = nullptr;
    Index keys_;
    uint32_t first_nan_ = Index::kNone;
    List<uint32_t> last_; // per line: the last line of the other table that belongs to it
    List<uint32_t>
        next_; // per line of the other table: the next of the same line; the last one's is the first
    List<uint32_t> source_; // per field of the other table: the first one of that name
    List<uint32_t> target_; // per field of the other table: where it goes
};

} // namespace csv2sql

#endif
