#ifndef KUTIL_UTIL_ALLOC_H
#define KUTIL_UTIL_ALLOC_H

/* alloc.h: allocation that never fails silently.
 *
 * Each wrapper calls the C library's allocator and reports a failure through zel_error_full with the flag
 * word that its caller chose. Two choices are in use: 0x303 (crit, always shown, fatal), with which the
 * process ends inside the report and the call never returns NULL, and 4 (err), after which the call returns
 * NULL and the caller recovers. The names that end in _e are the fatal ones.
 *
 * Every block is malloc memory and belongs to the caller, who gives it back with free() or _zfree(). There is
 * no bookkeeping behind it. Whether a size of 0 gives a block or NULL is the C library's choice; NULL is then
 * reported like any failure. */

#include "api.h"

#include <stddef.h>
#include <stdint.h>

KUTIL_BEGIN_DECLS

/* malloc_log returns a new block of `size` bytes, not initialised. On failure it reports "malloc_e(%zd):
 * failed" with the size and `flags`, and returns NULL. */
KUTIL_API void *malloc_log(uint32_t flags, size_t size);

/* zalloc_log returns a new zeroed block of `size` bytes. On failure it reports "zalloc_e(%zd): failed" with
 * the size and `flags`, and returns NULL. */
KUTIL_API void *zalloc_log(uint32_t flags, size_t size);

/* realloc_log changes the size of `block` (NULL: a new one) to `size` bytes and returns it, perhaps
 * elsewhere; pointers into the old place end. On failure it reports "realloc_e(%zd): failed" with the size
 * and `flags`, and returns NULL; `block` stays valid. Source: realloc of POSIX, also for what a size of 0
 * does. */
KUTIL_API void *realloc_log(uint32_t flags, void *block, size_t size);

/* strdup_log returns a new copy of `text`; NULL counts as "". On failure it reports "strdup() failed" with
 * `flags` and returns NULL. */
KUTIL_API char *strdup_log(uint32_t flags, const char *text);

/* memdup returns a new block that holds a copy of the `len` bytes at `buf`, or NULL on failure, without a
 * report. `buf` may be NULL when `len` is 0; else a NULL `buf` gives NULL. */
KUTIL_API void *memdup(const void *buf, size_t len);

/* memdup_log is memdup that reports a NULL result as "memdup(buf %p len %d) failed" with `flags`. */
KUTIL_API void *memdup_log(uint32_t flags, const void *buf, size_t len);

/* memdup_e is memdup_log with 0x303: a failure ends the process. */
KUTIL_API void *memdup_e(const void *buf, size_t len);

/* memdup_l is memdup_log with 4: NULL after an err report. */
KUTIL_API void *memdup_l(const void *buf, size_t len);

/* strdup_null returns a new copy of `text`, of "" when it is NULL; NULL on failure, without a report. */
KUTIL_API char *strdup_null(const char *text);

/* strdup_n returns a new copy of `text`, NULL when it is NULL; NULL on failure, without a report. */
KUTIL_API char *strdup_n(const char *text);

/* strdup_null_e returns a new copy of `text`, of "" when it is NULL. A failure ends the process. */
KUTIL_API char *strdup_null_e(const char *text);

/* _zfree frees the block that a pointer variable holds and sets the variable to NULL. `variable` is the
 * address of the variable, of whatever pointer type. A NULL address or a NULL variable: nothing happens. */
KUTIL_API void _zfree(void *variable);

/* malloc_e, zalloc_e and realloc_e are malloc_log, zalloc_log and realloc_log with 0x303: NULL ends the
 * process, also where the C library gives it for a size of 0 (glibc's realloc of a block does). */
static inline void *malloc_e(size_t size) { return malloc_log(0x303, size); }
static inline void *zalloc_e(size_t size) { return zalloc_log(0x303, size); }
static inline void *realloc_e(void *block, size_t size) { return realloc_log(0x303, block, size); }

KUTIL_END_DECLS

#endif
