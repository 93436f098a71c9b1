#ifndef CSV2SQL_INPUT_H
#define CSV2SQL_INPUT_H

#include "notices.h"
#include "util/csv.h"
#include "util/internal/fd.h"

#include <sys/stat.h>

namespace csv2sql
{

// A file that is read as a table, line by line. The characters go through a sieve first, which adds a missing
// last line feed, so that no field is lost, leaves a byte order mark out, and reports what the library would
// drop or stop at.
class Input
{
public:
    Input(const char *path, Form form);
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;
    ~Input() { csv_close(table_); }

    Exit open();
    // From here on read() can be called again: what is no file is copied to one.
    Exit make_rereadable();
    // Gives every line behind the header to `line` with the cells that it has, whatever their number; a
    // result that is not kDone ends the reading. The header is known before the first of them. Another call
    // reads the file again.
    template <class Line>
    Exit read(const Line &line)
    {
        return read_lines(
            [](void *data, csv_line *cells) -> int { return (*static_cast<const Line *>(data))(cells); },
            const_cast<Line *>(&line));
    }

    // The names of the fields; they live as long as this does.
    const List<const char *> &header() const { return header_; }
    const char *name() const { return name_; }
    Notices &notices() { return notices_; }

private:
    Exit read_lines(csv_line_cb line, void *data);
    int take_line(csv_line *line);
    void take_header(const csv_line *line);
    Exit start();
    int next();
    int special(unsigned char c);
    int end();
    bool refill();
    int refuse(const char *what);
    void count_line_feed();

    const char *path_;
    const char *name_;
    Notices notices_;
    csv *table_ = nullptr;
    kutil::Fd fd_;
    struct stat status_ = {};
    off_t start_ = -1; // where the table begins in a file, -1 when it cannot be read twice
    bool tab_mode_;
    int passes_ = 0;
    bool in_header_ = true;
    Arena names_;
    List<const char *> header_;
    csv_line_cb line_cb_ = nullptr;
    void *line_data_ = nullptr;

    Heap<unsigned char> block_;
    const unsigned char *at_ = nullptr;
    const unsigned char *end_ = nullptr;
    unsigned long long bytes_ = 0;
    unsigned long long mark_bytes_ = 0; // of the byte order mark
    unsigned long long record_start_ = 0;
    int line_ = 1;
    bool attention_ = false; // the next character is not to be taken lightly: one of these two
    bool escaped_ = false;
    bool after_cr_ = false;
    bool in_quotes_ = false;
    bool ended_ = false;
    Exit failure_ = kDone;
};

} // namespace csv2sql

#endif
