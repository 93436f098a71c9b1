#ifndef KUTIL_UTIL_FSTR_H
#define KUTIL_UTIL_FSTR_H

/* fstr.h: a builder for texts that are made of many pieces.
 *
 * The record keeps length and size beside the buffer, so appending never scans the text, and it grows by
 * whole blocks of a size that its owner chose: nothing is reserved beyond the last block. Choose the block
 * near the size of the final text divided by a few; with a tiny block a long text is moved very often. The
 * record lives where the caller puts it, starts with fstr_init and ends with fstr_free; only its buffer is on
 * the heap.
 *
 * The text in data has a NUL behind it only after the formatting functions and fstr_to_str; room for it is
 * always there. Growing moves the buffer, so pointers into it end with every call that changes the text.
 * Arguments may point into the text itself. Running out of memory ends the process (report 0x303), and so
 * does changing a record whose block is 0 or less, as that of a freed record is; so does a text whose size an
 * int cannot hold. A NULL record gives NULL or 0. */

#include "api.h"

#include <stdarg.h>
#include <stddef.h>

KUTIL_BEGIN_DECLS

typedef struct fstr {
    char *data;
    int len;   /* length of the text in data */
    int size;  /* allocated bytes, a multiple of block */
    int block; /* bytes to grow by */
} fstr;

/* fstr_init makes `f` an empty text that grows by `block` bytes, allocates the first block and returns f.
 * What the record held is not looked at. A block of 0 or less ends the process. */
KUTIL_API fstr *fstr_init(fstr *f, int block);

/* fstr_free frees the buffer, zeroes the record, block included, and returns f. The record needs fstr_init
 * again. */
KUTIL_API fstr *fstr_free(fstr *f);

/* fstr_cpy makes the text of `f` a copy of `text` and returns f. NULL counts as "". */
KUTIL_API fstr *fstr_cpy(fstr *f, const char *text);

/* fstr_ncpy makes the text of `f` a copy of the `n` bytes at `bytes` and returns f. NULL bytes empty it. */
KUTIL_API fstr *fstr_ncpy(fstr *f, const char *bytes, size_t n);

/* fstr_cat appends `text` to `f` and returns f. NULL counts as "". */
KUTIL_API fstr *fstr_cat(fstr *f, const char *text);

/* fstr_ncat appends the `n` bytes at `bytes` to `f` and returns f. NULL bytes append nothing. */
KUTIL_API fstr *fstr_ncat(fstr *f, const char *bytes, size_t n);

/* fstr_printf and fstr_vprintf make the text of `f` the formatted text, with a NUL behind it, and return its
 * length. When the C library refuses the format, the text becomes empty and the result is -1. */
KUTIL_API int fstr_printf(fstr *f, const char *format, ...) KUTIL_PRINTF(2, 3);
KUTIL_API int fstr_vprintf(fstr *f, const char *format, va_list ap) KUTIL_PRINTF(2, 0);

/* fstr_catprintf and fstr_vcatprintf append the formatted text to `f`, with a NUL behind it, and return the
 * length of what they appended. When the C library refuses the format, nothing is appended and the result is
 * -1. */
KUTIL_API int fstr_catprintf(fstr *f, const char *format, ...) KUTIL_PRINTF(2, 3);
KUTIL_API int fstr_vcatprintf(fstr *f, const char *format, va_list ap) KUTIL_PRINTF(2, 0);

/* fstr_to_str writes the NUL behind the text and returns the text, which stays the record's. A freed record
 * gives NULL. */
KUTIL_API char *fstr_to_str(fstr *f);

/* fstr_strlen returns the length of the text, 0 for a freed record. */
KUTIL_API int fstr_strlen(const fstr *f);

KUTIL_END_DECLS

#endif
