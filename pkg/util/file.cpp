#include "file.h"

#include "internal/fd.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "lines.h"

#include <cerrno>
#include <cstdlib>

using namespace kutil;

FILE *file_open(const char *path, const char *mode)
{
    errno = EINVAL;
    FILE *fp = path && mode ? fopen(path, mode) : nullptr;
    if (!fp)
        zel_error_full(kEntity, kErr, "Failed opening %s", text_or_empty(path));
    return fp;
}

char *file_read_bin(const char *path, int *len)
{
    FILE *fp = path ? fopen(path, "rb") : nullptr;
    char *content = file_read_fp_bin(fp, len);
    if (fp)
        fclose(fp);
    return content;
}

char *file_tmp_create(const char *prefix)
{
    constexpr View kFolder = "/tmp/";
    constexpr View kPattern = "XXXXXX"; // as mkstemp wants it
    const View name = view(prefix);
    HeapText path(new_text(add_sizes(kFolder.size(), name.size(), kPattern.size())));
    *put(put(put(path.get(), kFolder), name), kPattern) = '\0';
    errno = EINVAL;
    const Fd made(memchr(name.data(), '/', name.size()) ? -1 : mkstemp(path.get()));
    if (made.valid())
        return path.release();
    zel_error_full(kEntity, kErr, "Failed creating a temporary file for %s", text_or_empty(prefix));
    return nullptr;
}
