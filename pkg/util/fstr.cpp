#include "fstr.h"

#include "internal/formatted.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "internal/text.h"

#include <algorithm>
#include <climits>
#include <cstddef>

namespace kutil
{
namespace
{

static_assert(offsetof(fstr, data) == 0);
static_assert(offsetof(fstr, len) == sizeof(char *));
static_assert(offsetof(fstr, size) == sizeof(char *) + sizeof(int));
static_assert(offsetof(fstr, block) == sizeof(char *) + 2 * sizeof(int));

// Room for `needed` bytes: the size becomes the next whole multiple of the block.
void ensure_room(fstr *f, size_t needed)
{
    if (f->block <= 0)
        zel_error_full(kEntity, kFatal, "fstr: block of %d bytes", f->block);
    if (needed < static_cast<size_t>(f->size))
        return;
    const size_t block = static_cast<size_t>(f->block);
    const size_t size = mul_sizes(needed / block + (needed % block != 0), block);
    f->data = static_cast<char *>(realloc_e(f->data, size > INT_MAX ? SIZE_MAX : size));
    f->size = static_cast<int>(size);
}

// Makes what follows `offset` the piece, which may lie in the text.
void put_at(fstr *f, int offset, View piece)
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(f->data);
    const uintptr_t from = reinterpret_cast<uintptr_t>(piece.data());
    const bool own = f->data && from >= begin && from - begin < static_cast<size_t>(f->size);
    const size_t at = static_cast<size_t>(offset);
    ensure_room(f, add_sizes(at, piece.size(), 1));
    if (!piece.empty())
        memmove(f->data + at, own ? f->data + (from - begin) : piece.data(), piece.size());
    f->len = static_cast<int>(at + piece.size());
}

View bytes_view(const char *bytes, size_t n) { return bytes ? View(bytes, n) : View("", 0); }

int format_at(fstr *f, int offset, const char *format, va_list ap)
{
    const Formatted formatted(format, ap);
    put_at(f, offset, formatted.text());
    fstr_to_str(f);
    return formatted.failed() ? -1 : f->len - offset;
}

} // namespace
} // namespace kutil

using namespace kutil;

fstr *fstr_init(fstr *f, int block)
{
    if (!f)
        return f;
    *f = fstr{nullptr, 0, 0, block};
    ensure_room(f, 1);
    return f;
}

fstr *fstr_free(fstr *f)
{
    if (!f)
        return f;
    free(f->data);
    *f = fstr{};
    return f;
}

fstr *fstr_cpy(fstr *f, const char *text)
{
    if (f)
        put_at(f, 0, view(text));
    return f;
}

fstr *fstr_ncpy(fstr *f, const char *bytes, size_t n)
{
    if (f)
        put_at(f, 0, bytes_view(bytes, n));
    return f;
}

fstr *fstr_cat(fstr *f, const char *text)
{
    if (f)
        put_at(f, f->len, view(text));
    return f;
}

fstr *fstr_ncat(fstr *f, const char *bytes, size_t n)
{
    if (f)
        put_at(f, f->len, bytes_view(bytes, n));
    return f;
}

int fstr_vprintf(fstr *f, const char *format, va_list ap) { return f ? format_at(f, 0, format, ap) : 0; }

int fstr_vcatprintf(fstr *f, const char *format, va_list ap)
{
    return f ? format_at(f, f->len, format, ap) : 0;
}

int fstr_printf(fstr *f, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const int length = fstr_vprintf(f, format, ap);
    va_end(ap);
    return length;
}

int fstr_catprintf(fstr *f, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const int length = fstr_vcatprintf(f, format, ap);
    va_end(ap);
    return length;
}

char *fstr_to_str(fstr *f)
{
    if (!f || !f->data)
        return nullptr;
    f->data[f->len] = '\0';
    return f->data;
}

int fstr_strlen(const fstr *f) { return f ? f->len : 0; }
