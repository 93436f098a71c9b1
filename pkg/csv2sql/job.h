#ifndef CSV2SQL_JOB_H
#define CSV2SQL_JOB_H

#include "input.h"
#include "progress.h"
#include "writers.h"

namespace csv2sql
{

// One call of the program. Lines go through one at a time; only sorting and merging hold the table, packed.
// What a result needs to know of all lines (the columns of a database, the width of the widest line) is found
// out by reading the file once more.
class Job
{
public:
    explicit Job(const Settings &settings);
    Exit run();

private:
    bool needs_table() const { return !settings_.sorts.empty() || settings_.merge; }
    Exit open();
    Exit load();
    Exit load_other();
    Exit merge();
    void sort();
    Exit measure();
    Exit write();
    Exit report();

    template <class Line>
    Exit each_line(const Line &line);
    template <class Begin, class Use>
    Exit each_row(const Begin &begin, const Use &use);
    template <class Use>
    Exit stream_row(csv_line *line, const Use &use);
    template <class Use>
    Exit use_row(const Use &use);

    Exit find_width();
    Exit take_row(Input &input, csv_line *line, size_t width, Row *row);
    Exit prepare();
    void add_fields();
    Exit set_types(bool all_known);
    Exit resolve();
    Exit find_field(const char *name, uint32_t *position) const;
    bool is_selected(const Row &row) const;
    void get_table_row(size_t line);

    struct Select {
        uint32_t field;
        const char *text;
        kutil::CsvValue value;
    };
    struct SortKey {
        uint32_t field;
        bool descending;
    };

    const Settings &settings_;
    Input in_;
    Input other_;
    Fields fields_;
    Fields other_fields_;
    Shape shape_;            // what is written
    List<uint32_t> columns_; // for each field that is written: where it is
    List<Select> selects_;
    List<SortKey> sort_keys_;
    bool prepared_ = false;
    size_t width_ = 0; // of the widest line, when lines may be wider than the header

    Table table_;
    Table other_table_;
    Merge merge_;
    List<uint32_t> order_; // the lines of the table that are written

    SqlWriter sql_;
    Row row_; // of the table's fields
    Row cut_; // of the fields that are written
    Progress progress_;
    bool refused_ = false; // by a check, which goes on
};

} // namespace csv2sql

#endif
