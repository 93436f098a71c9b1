#include "input.h"

#include "util/zel_error.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace csv2sql
{

namespace
{

constexpr size_t kBlock = 64 * 1024;
// A line longer than this is refused: no table has one, and the memory that it takes stays bounded.
constexpr unsigned long long kLongestLine = 64ULL << 20;

struct Special {
    bool is[256] = {};
    constexpr explicit Special(bool tab_mode)
    {
        for (const char c : {'\n', '\r', '\0', '\xff', tab_mode ? '\\' : '"'})
            is[static_cast<unsigned char>(c)] = true;
    }
};
constexpr Special kSpecial[2] = {Special(false), Special(true)};

// The descriptor of a new file without a name.
int open_scratch()
{
    const char *folder = getenv("TMPDIR");
    char path[PATH_MAX];
    const int length = snprintf(path, sizeof(path), "%s/csv2sql.XXXXXX", folder && *folder ? folder : "/tmp");
    if (length < 0 || static_cast<size_t>(length) >= sizeof(path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int fd = mkstemp(path);
    if (fd >= 0)
        unlink(path);
    return fd;
}

bool write_all(int fd, const unsigned char *from, size_t size)
{
    while (size > 0) {
        const ssize_t written = write(fd, from, size);
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0) {
            from += written;
            size -= static_cast<size_t>(written);
        }
    }
    return true;
}

ssize_t read_some(int fd, unsigned char *to, size_t size)
{
    ssize_t count;
    do
        count = read(fd, to, size);
    while (count < 0 && errno == EINTR);
    return count;
}

} // namespace

Input::Input(const char *path, Form form)
    : path_(path), name_(View(path) == "-" ? "standard input" : path), notices_(name_),
      tab_mode_(form == Form::tab), block_(kutil::new_array<unsigned char>(kBlock))
{
}

Exit Input::open()
{
    fd_.reset(View(path_) == "-" ? dup(0) : ::open(path_, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!fd_.valid() || fstat(fd_.get(), &status_) != 0)
        return complain(kMisuse, "%s: %s", name_, strerror(errno));
    if (S_ISDIR(status_.st_mode))
        return complain(kMisuse, "%s: %s", name_, strerror(EISDIR));
    start_ = S_ISREG(status_.st_mode) ? lseek(fd_.get(), 0, SEEK_CUR) : -1;
    return kDone;
}

Exit Input::make_rereadable()
{
    if (start_ >= 0)
        return kDone;
    kutil::Fd scratch(open_scratch());
    if (!scratch.valid())
        return complain(kMisuse, "cannot make a temporary file: %s", strerror(errno));
    ssize_t count;
    while ((count = read_some(fd_.get(), block_.get(), kBlock)) > 0) {
        if (!write_all(scratch.get(), block_.get(), static_cast<size_t>(count)))
            return complain(kMisuse, "cannot write a temporary file: %s", strerror(errno));
    }
    if (count < 0 || fstat(scratch.get(), &status_) != 0)
        return complain(kMisuse, "%s: %s", name_, strerror(errno));
    fd_ = static_cast<kutil::Fd &&>(scratch);
    start_ = 0;
    return kDone;
}

Exit Input::start()
{
    if (start_ >= 0 && lseek(fd_.get(), start_, SEEK_SET) < 0)
        return complain(kMisuse, "%s: %s", name_, strerror(errno));
    if (passes_++ > 0) {
        struct stat now;
        if (fstat(fd_.get(), &now) != 0 || now.st_size != status_.st_size || now.st_mtime != status_.st_mtime)
            return complain(kRefused, "%s: it changed while it was being read", name_);
        notices_.mute();
    }
    csv_close(table_);
    table_ = csv_alloc();
    free(table_->name);
    table_->name = kutil::copy_text(name_);
    table_->flags = CSV_F_NO_HEADER; // so that lines come as they are, not filled up
    in_header_ = true;
    at_ = end_ = block_.get();
    bytes_ = mark_bytes_ = record_start_ = 0;
    line_ = 1;
    attention_ = escaped_ = after_cr_ = in_quotes_ = ended_ = false;
    failure_ = kDone;
    return kDone;
}

Exit Input::read_lines(csv_line_cb line, void *data)
{
    const Exit started = start();
    if (started != kDone)
        return started;
    if (tab_mode_)
        csv_delim_set_tab();
    else
        csv_delim_set_comma();
    line_cb_ = line;
    line_data_ = data;
    const int result = csv_read_lines(
        table_, [](void *input) { return static_cast<Input *>(input)->next(); }, this,
        [](void *input, csv_line *cells) { return static_cast<Input *>(input)->take_line(cells); }, this);
    if (failure_ != kDone)
        return failure_;
    return result == -1 ? kRefused : static_cast<Exit>(result);
}

int Input::take_line(csv_line *line)
{
    if (!std::exchange(in_header_, false))
        return line_cb_(line_data_, line);
    if (passes_ == 1)
        take_header(line);
    return kDone;
}

void Input::take_header(const csv_line *line)
{
    for (const csv_cell *cell = line->cells; cell; cell = cell->next)
        header_.add(names_.keep(cell->text));
}

inline int Input::next()
{
    if (at_ == end_ && !refill())
        return end();
    const unsigned char c = *at_++;
    return attention_ || kSpecial[tab_mode_].is[c] ? special(c) : c;
}

int Input::special(unsigned char c)
{
    if (c == 255)
        return refuse("byte 255, at which reading would stop");
    if (escaped_) {
        escaped_ = attention_ = false;
        return c; // whatever it is; a line feed here is not counted
    }
    if (after_cr_) {
        after_cr_ = attention_ = false;
        if (c != '\n')
            notices_.add(Notices::lone_cr, line_);
    }
    switch (c) {
    case '\n':
        count_line_feed();
        break;
    case '\r':
        if (in_quotes_)
            notices_.add(Notices::cr_in_quotes, line_);
        else
            after_cr_ = attention_ = true;
        break;
    case '\0':
        notices_.add(Notices::nul, line_);
        break;
    case '"':
        in_quotes_ = !tab_mode_ && !in_quotes_;
        break;
    case '\\':
        escaped_ = attention_ = tab_mode_;
        break;
    default:
        break;
    }
    return c;
}

void Input::count_line_feed()
{
    line_ += line_ < INT_MAX;
    if (!in_quotes_)
        record_start_ = bytes_ - static_cast<size_t>(end_ - at_);
}

// The end of the file, or what it lacks before that. An escape or a quotation that is open is left for the
// library to refuse.
int Input::end()
{
    const bool complete = bytes_ == mark_bytes_ || end_[-1] == '\n' || failure_ != kDone;
    if (ended_ || complete || escaped_ || in_quotes_)
        return -1;
    ended_ = true;
    if (end_[-1] != '\r')
        notices_.add(Notices::no_last_line_feed, line_);
    return '\n';
}

bool Input::refill()
{
    if (ended_ || failure_ != kDone)
        return false;
    if (bytes_ - record_start_ > kLongestLine) {
        refuse("a line of more than 64 MB");
        return false;
    }
    size_t size = 0;
    ssize_t count = 1;
    // The first block holds at least what may be a byte order mark.
    while (count > 0 && size < (bytes_ == 0 ? 3 : 1)) {
        count = read_some(fd_.get(), block_.get() + size, kBlock - size);
        size += count > 0 ? static_cast<size_t>(count) : 0;
    }
    if (count < 0) {
        failure_ = complain(kMisuse, "%s: %s", name_, strerror(errno));
        return false;
    }
    if (size == 0)
        return false;
    at_ = block_.get();
    end_ = at_ + size;
    if (bytes_ == 0 && size >= 3 && memcmp(at_, "\xef\xbb\xbf", 3) == 0) {
        notices_.add(Notices::byte_order_mark, 1);
        at_ += 3;
        mark_bytes_ = 3;
    }
    bytes_ += size;
    return at_ != end_ || refill();
}

int Input::refuse(const char *what)
{
    reports_muted = true; // what the library says of the end that it gets now
    failure_ = complain(kRefused, "%s:%d: %s", name_, line_, what);
    return -1;
}

} // namespace csv2sql
