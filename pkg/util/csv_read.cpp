#include "internal/csv.h"
#include "internal/report.h"
#include "internal/spare.h"

#include <climits>

using namespace kutil;

namespace
{

// Beyond this a buffer that is reused is given back when a much shorter text follows.
constexpr size_t kLargeText = 65536;

// What a character is, under the delimiters that are set.
enum Kind : uint8_t {
    kLine = 1,
    kField = 2,
    kQuote = 4,
    kEscape = 8,
    kCr = 16,
    kNul = 32,
};

class Kinds
{
public:
    Kinds()
    {
        mark(chr_line, kLine);
        mark(chr_field, kField);
        mark(chr_enclose, kQuote);
        mark(chr_escape, kEscape);
        mark(chr_cr, kCr);
        mark(0, kNul);
    }
    uint8_t operator[](char c) const { return kinds_[static_cast<unsigned char>(c)]; }

private:
    void mark(int delimiter, Kind kind)
    {
        if (delimiter != -1)
            kinds_[static_cast<unsigned char>(delimiter)] |= kind;
    }
    uint8_t kinds_[256] = {};
};

// ---- Sources: next() yields a character or -1, plain_run() takes those ahead that mean nothing but
// themselves ----

class CallSource
{
public:
    CallSource(csv_next_char next_char, void *ctx) : next_char_(next_char), ctx_(ctx) {}
    int next() { return next_char_(ctx_); }
    View plain_run(const Kinds &) { return View("", 0); }

private:
    csv_next_char next_char_;
    void *ctx_;
};

class FileSource
{
public:
    explicit FileSource(FILE *fp) : fp_(fp) {}
    // Deliberate: signed, so that a byte 255 is the end too.
    int next()
    {
        if (at_ == end_ && !refill())
            return -1;
        return static_cast<signed char>(*at_++);
    }
    View plain_run(const Kinds &kinds)
    {
        const char *start = at_;
        while (at_ != end_ && kinds[*at_] == 0 && *at_ != '\xff')
            at_++;
        return View(start, static_cast<size_t>(at_ - start));
    }

private:
    bool refill()
    {
        at_ = block_;
        end_ = block_ + fread(block_, 1, sizeof(block_), fp_);
        return at_ != end_;
    }

    FILE *fp_;
    char block_[4096];
    const char *at_ = block_;
    const char *end_ = block_;
};

// ---- Where fields go ----

// Puts fields into lines, and the lines into the table, or with a callback into the hands of that one after
// the other.
class LineSink
{
public:
    LineSink(csv *table, csv_line_cb callback, void *data) : table_(table), callback_(callback), data_(data)
    {
        for (end_ = &table_->lines; *end_;)
            end_ = &(*end_)->next;
    }
    LineSink(const LineSink &) = delete;
    LineSink &operator=(const LineSink &) = delete;
    ~LineSink() { csv_line_list_free(lent_); }

    void begin(int line_number)
    {
        is_header_ = !table_->header && !(table_->flags & CSV_F_NO_HEADER);
        if (is_header_)
            line_ = table_->header = csv_line_alloc(line_number);
        else if (callback_)
            line_ = lend(line_number);
        else
            line_ = link(line_number);
        slot_ = &line_->cells;
    }

    void add(View text)
    {
        if (!*slot_)
            *slot_ = csv_new_cell(text);
        else
            reuse(*slot_, text);
        slot_ = &(*slot_)->next;
    }

    int end()
    {
        csv_free_cells(std::exchange(*slot_, nullptr)); // what is left of the line before
        if (is_header_)
            table_->fields_count = csv_count_cells(line_->cells);
        else
            csv_line_normalize(table_, line_, 0);
        return callback_ && !is_header_ ? callback_(data_, line_) : 0;
    }

private:
    csv_line *lend(int line_number)
    {
        if (!lent_)
            lent_ = csv_line_alloc(0);
        lent_->line_number = line_number;
        return lent_;
    }
    csv_line *link(int line_number)
    {
        csv_line *line = csv_line_alloc(line_number);
        *end_ = line;
        end_ = &line->next;
        return line;
    }
    static void reuse(csv_cell *cell, View text)
    {
        if (text.size() < kLargeText && usable_size(cell->text) > 2 * kLargeText)
            free(std::exchange(cell->text, nullptr));
        cell->text = static_cast<char *>(grow_with_spare(cell->text, add_sizes(text.size(), 1)));
        *put(cell->text, text) = '\0';
    }

    csv *table_;
    csv_line_cb callback_;
    void *data_;
    csv_line **end_;
    csv_line *lent_ = nullptr;
    csv_line *line_ = nullptr;
    csv_cell **slot_ = nullptr;
    bool is_header_ = false;
};

// ---- The tokeniser ----

constexpr char unescaped(char c)
{
    switch (c) {
    case '0':
        return '\0';
    case 'b':
        return '\b';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return c;
    }
}

// Cuts characters into fields. Every step returns 0 to go on; anything else ends the reading with that
// result.
template <class Source>
class Tokeniser
{
public:
    Tokeniser(Source &source, LineSink &sink, const csv *table)
        : source_(source), sink_(sink), table_(table), field_(1024)
    {
    }

    int run()
    {
        for (;;) {
            if (in_line_ && !quote_pending_ && state_ != State::closed)
                add(source_.plain_run(kinds_));
            const int c = source_.next();
            if (c == -1)
                return end();
            if (const int result = step(static_cast<char>(c)))
                return result;
        }
    }

private:
    enum class State { field, quoted, closed };

    int step(char c)
    {
        const uint8_t kind = kinds_[c];
        if (kind & kCr)
            return 0;
        if (!in_line_ && (!started_ || !(kind & kLine))) {
            sink_.begin(line_number_);
            started_ = in_line_ = true;
        }
        if (quote_pending_ && !(kind & kQuote)) {
            quote_pending_ = false;
            state_ = State::closed;
        }
        if (kind & kLine)
            return line_end(c);
        if (kind & kQuote)
            return quote(c);
        return state_ == State::quoted ? character(c, kind) : outside_quotes(c, kind);
    }

    int line_end(char c)
    {
        line_number_ += line_number_ < INT_MAX;
        if (state_ == State::quoted)
            return add(View(&c, 1));
        if (!in_line_)
            return 0; // an empty line
        store();
        in_line_ = false;
        return sink_.end();
    }

    int quote(char c)
    {
        if (state_ == State::closed)
            return fail("invalid \" outside of quotation, expected new field.");
        if (state_ == State::field) {
            if (!trim_left(field_.text()).empty())
                return fail("got enclose in middle of field");
            clear();
            state_ = State::quoted;
            return 0;
        }
        quote_pending_ = !quote_pending_;
        return quote_pending_ ? 0 : add(View(&c, 1));
    }

    int outside_quotes(char c, uint8_t kind)
    {
        if (kind & kField) {
            store();
            return 0;
        }
        if (state_ == State::closed && !is_space(c))
            return fail("invalid char outside of quotation, expected new field.");
        return character(c, kind);
    }

    int character(char c, uint8_t kind)
    {
        if (kind & kEscape)
            return escaped();
        return kind & kNul ? 0 : add(View(&c, 1));
    }

    int escaped()
    {
        const int raw = source_.next();
        if (raw == -1)
            return fail("file ended in middle of escape");
        const char c = unescaped(static_cast<char>(raw));
        if (c != '\0')
            return add(View(&c, 1));
        cut_ = true;
        return 0;
    }

    int end()
    {
        if (state_ == State::quoted)
            return fail("file ended without closing quotation");
        // Deliberate: the field that no delimiter ended is lost with the rest of the file.
        return in_line_ ? sink_.end() : 0;
    }

    void store()
    {
        sink_.add(field_.text());
        clear();
        state_ = State::field;
    }

    // Behind a NUL, which ends the value, nothing is gathered.
    int add(View text)
    {
        if (!cut_)
            field_.append(text);
        return 0;
    }

    void clear()
    {
        field_.clear();
        cut_ = false;
    }

    int fail(const char *what) const
    {
        return zel_error_full(kEntity, kErr, "%s:%d: %s", table_->name, line_number_, what);
    }

    Source &source_;
    LineSink &sink_;
    const csv *table_;
    const Kinds kinds_;
    TextBuilder field_;
    State state_ = State::field;
    int line_number_ = 1;
    bool started_ = false;
    bool in_line_ = false;
    bool quote_pending_ = false;
    bool cut_ = false;
};

template <class Source>
int read_from(Source &source, csv *table, csv_line_cb callback, void *data)
{
    LineSink sink(table, callback, data);
    return Tokeniser<Source>(source, sink, table).run();
}

int read_file(csv *table)
{
    FileSource source(table->file);
    const int result = read_from(source, table, nullptr, nullptr);
    if (result == 0 && ferror(table->file))
        return zel_perror_full(kEntity, kErr, "%s: reading failed", table->name);
    return result;
}

} // namespace

csv *csv_open(const char *path, uint32_t flags)
{
    FILE *fp = path ? fopen(path, "r") : nullptr;
    if (!fp)
        return nullptr;
    csv *table = csv_alloc();
    replace_text(&table->name, copy_text(view(path)));
    table->flags = flags;
    table->file = fp;
    if (read_file(table) != 0) {
        csv_close(table);
        return nullptr;
    }
    fclose(std::exchange(table->file, nullptr));
    return table;
}

int csv_read(csv *table, csv_next_char next_char, void *ctx)
{
    if (!table || !next_char)
        return -1;
    CallSource source(next_char, ctx);
    return read_from(source, table, nullptr, nullptr);
}

int csv_read_lines(csv *table, csv_next_char next_char, void *ctx, csv_line_cb line, void *data)
{
    if (!table || !next_char || !line)
        return -1;
    CallSource source(next_char, ctx);
    return read_from(source, table, line, data);
}
