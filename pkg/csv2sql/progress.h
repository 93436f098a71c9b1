#ifndef CSV2SQL_PROGRESS_H
#define CSV2SQL_PROGRESS_H

#include <cstddef>
#include <ctime>

namespace csv2sql
{

// Counts lines, and shows the count on standard error when that is a terminal and the work takes longer than
// a second.
class Progress
{
public:
    Progress();
    void line_read()
    {
        if (++read_ % 4096 == 0 && is_terminal_)
            show();
    }
    void line_written() { written_++; }
    // Another pass over the same lines begins.
    void restart_reading() { read_ = 0; }
    void restart_writing() { written_ = 0; }
    void finish();
    // Prints lines, seconds and the most memory that was in use to standard error.
    void print_stats() const;
    size_t read() const { return read_; }

private:
    void show();
    double seconds() const;

    timespec start_;
    double next_ = 1;
    size_t read_ = 0;
    size_t written_ = 0;
    bool is_terminal_;
    bool shown_ = false;
};

} // namespace csv2sql

#endif
