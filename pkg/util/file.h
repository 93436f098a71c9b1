#ifndef KUTIL_UTIL_FILE_H
#define KUTIL_UTIL_FILE_H

/* file.h: opening, reading and making files by name.
 *
 * The small steps that several families need in the same way. Lists and texts of whole files are read by
 * lines.h (lines_read_file, str_read_file), and streams by its file_read_fp family; here stands what reports,
 * what keeps NUL bytes, and temporary files. Returned names and contents are malloc memory of the caller. */

#include "api.h"

#include <stdio.h>

KUTIL_BEGIN_DECLS

/* file_open opens the file `path` as fopen of the C library does and returns the stream, for the caller to
 * close. On failure, also for a NULL path or mode, it reports "Failed opening %s" at level 4 with the path
 * and returns NULL; errno says why. */
KUTIL_API FILE *file_open(const char *path, const char *mode);

/* file_read_bin returns the content of the file `path` in a new buffer with a NUL behind it, for the caller
 * to free, and stores the byte count without that NUL in *len, unless len is NULL. A file that cannot be
 * opened, and one of more than INT32_MAX bytes, gives NULL and a count of 0, without a report. */
KUTIL_API char *file_read_bin(const char *path, int *len);

/* file_tmp_create makes a new empty file, readable and writable by its owner alone, in "/tmp", and returns
 * its path for the caller to free; the caller also removes the file. The name is `prefix` (NULL: "") and six
 * characters that make it new. A file that cannot be made, and a prefix with a slash, is reported at level 4
 * as "Failed creating a temporary file for %s" with the prefix: NULL. */
KUTIL_API char *file_tmp_create(const char *prefix);

KUTIL_END_DECLS

#endif
