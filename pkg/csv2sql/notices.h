#ifndef CSV2SQL_NOTICES_H
#define CSV2SQL_NOTICES_H

#include "options.h"

namespace csv2sql
{

// Reports of the library are not printed.
extern bool reports_muted;

// What is said about one file. Of each kind the first few are printed with their line, the rest is counted.
class Notices
{
public:
    enum Kind {
        byte_order_mark,
        no_last_line_feed,
        nul,
        cr_in_quotes,
        lone_cr,
        short_line,
        long_line,
        cr_in_value,
        kKinds
    };

    explicit Notices(const char *file) : file_(file) {}
    void add(Kind kind, int line);
    // A file is read more than once: it is talked about once.
    void mute() { muted_ = true; }
    // Says how many of each kind were not printed.
    void finish();

private:
    const char *file_;
    unsigned long counts_[kKinds] = {};
    bool muted_ = false;
};

} // namespace csv2sql

#endif
