#include "lines.h"

#include "internal/report.h"
#include "internal/text_builder.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>

using namespace kutil;

namespace
{

struct Close {
    void operator()(FILE *fp) const noexcept { fclose(fp); }
};
using Stream = std::unique_ptr<FILE, Close>;

Stream open_stream(const char *path, const char *mode) { return Stream(path ? fopen(path, mode) : nullptr); }

// After a short read: whether there may be more to read, having waited for it where the stream was not ready.
bool read_again(FILE *fp)
{
    if (!ferror(fp) || (errno != EAGAIN && errno != EINTR))
        return false;
    if (errno == EAGAIN) {
        pollfd waiting = {.fd = fileno(fp), .events = POLLIN, .revents = 0};
        if (waiting.fd >= 0) // a stream without a descriptor is asked again at once
            poll(&waiting, 1, -1);
    }
    clearerr(fp);
    return true;
}

// The rest of the stream, NUL-terminated; null when it has more bytes than an int can count.
char *read_rest(FILE *fp, size_t *length)
{
    constexpr size_t kSmallest = 4096;
    TextBuilder text;
    for (;;) {
        const size_t wanted = std::max(kSmallest, text.size());
        errno = 0;
        const size_t came = fread(text.room(wanted), 1, wanted, fp);
        text.commit(came);
        if (text.size() > INT32_MAX)
            return nullptr;
        if (came < wanted && !read_again(fp))
            break;
    }
    *length = text.size();
    return text.release();
}

using Splitter = char ***(*)(char ***, const char *);

char **read_list(FILE *fp, Splitter split)
{
    const HeapText text(file_read_fp(fp));
    char **list = nullptr;
    if (text)
        split(&list, text.get());
    return list;
}

} // namespace

void lines_print_fp(char *const *l, FILE *fp)
{
    for (char *const *slot = l; fp && slot && *slot; slot++) {
        fputs(*slot, fp);
        putc('\n', fp);
    }
}

void lines_print(char *const *l) { lines_print_fp(l, stdout); }

int lines_write_fp(char *const *l, FILE *fp)
{
    lines_print_fp(l, fp);
    return l ? 0 : 1;
}

int _lines_write_file(char *const *l, const char *path, int bin)
{
    const Stream stream = open_stream(path, bin ? "wb" : "w");
    if (!stream)
        return -1;
    lines_print_fp(l, stream.get());
    return 0;
}

int lines_write_file(char *const *l, const char *path) { return _lines_write_file(l, path, 0); }

int lines_write_file_bin(char *const *l, const char *path) { return _lines_write_file(l, path, 1); }

char **_lines_read_file(const char *path, int bin, int fatal)
{
    const Stream stream = open_stream(path, bin ? "rb" : "r");
    if (stream)
        return read_list(stream.get(), lines_str_split_nl);
    if (fatal)
        zel_error_full(kEntity, kFatal, "Failed opening %s", text_or_empty(path));
    return nullptr;
}

char **lines_read_file(const char *path) { return _lines_read_file(path, 0, 0); }

char **lines_read_file_bin(const char *path) { return _lines_read_file(path, 1, 0); }

char **lines_read_file_e(const char *path) { return _lines_read_file(path, 0, 1); }

char **lines_read_file_bin_e(const char *path) { return _lines_read_file(path, 1, 1); }

char **lines_read_file_ws(const char *path)
{
    const Stream stream = open_stream(path, "r");
    return read_list(stream.get(), lines_str_split_ws);
}

char **lines_read_fp(FILE *fp) { return read_list(fp, lines_str_split_nl); }

char *file_read_fp_bin(FILE *fp, int *len)
{
    size_t length = 0;
    char *text = fp ? read_rest(fp, &length) : nullptr;
    if (len)
        *len = static_cast<int>(length);
    return text;
}

char *file_read_fp(FILE *fp) { return file_read_fp_bin(fp, nullptr); }

char *str_read_fp(char *old, FILE *fp)
{
    char *text = file_read_fp(fp);
    free(old);
    return text;
}

char *str_read_file(char *old, const char *path)
{
    const Stream stream = open_stream(path, "r");
    return str_read_fp(old, stream.get());
}
