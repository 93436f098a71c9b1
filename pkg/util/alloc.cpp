#include "alloc.h"

#include "internal/report.h"

#include <cstdlib>
#include <cstring>

using namespace kutil;

void *malloc_log(uint32_t flags, size_t size)
{
    void *block = malloc(size);
    if (!block)
        zel_error_full(kEntity, flags, "malloc_e(%zd): failed", size);
    return block;
}

void *zalloc_log(uint32_t flags, size_t size)
{
    void *block = calloc(size, 1);
    if (!block)
        zel_error_full(kEntity, flags, "zalloc_e(%zd): failed", size);
    return block;
}

void *realloc_log(uint32_t flags, void *block, size_t size)
{
    void *moved = realloc(block, size);
    if (!moved)
        zel_error_full(kEntity, flags, "realloc_e(%zd): failed", size);
    return moved;
}

char *strdup_log(uint32_t flags, const char *text)
{
    char *copy = strdup_null(text);
    if (!copy)
        zel_error_full(kEntity, flags, "strdup() failed");
    return copy;
}

void *memdup(const void *buf, size_t len)
{
    if (!buf && len)
        return nullptr;
    void *copy = malloc(len);
    if (copy && len)
        memcpy(copy, buf, len);
    return copy;
}

void *memdup_log(uint32_t flags, const void *buf, size_t len)
{
    void *copy = memdup(buf, len);
    // Deliberate: %d, so that a length prints as a signed number like those of the other wrappers.
    if (!copy)
        zel_error_full(kEntity, flags, "memdup(buf %p len %d) failed", buf, static_cast<int>(len));
    return copy;
}

void *memdup_e(const void *buf, size_t len) { return memdup_log(kFatal, buf, len); }

void *memdup_l(const void *buf, size_t len) { return memdup_log(kErr, buf, len); }

char *strdup_null(const char *text) { return strdup(text ? text : ""); }

char *strdup_n(const char *text) { return text ? strdup(text) : nullptr; }

char *strdup_null_e(const char *text) { return strdup_log(kFatal, text); }

void _zfree(void *variable)
{
    if (!variable)
        return;
    // The variable may be of any pointer type, so it is copied and not accessed as a void pointer.
    void *block = nullptr;
    memcpy(&block, variable, sizeof(block));
    free(block);
    block = nullptr;
    memcpy(variable, &block, sizeof(block));
}
