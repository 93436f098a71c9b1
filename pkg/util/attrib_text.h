#ifndef KUTIL_UTIL_ATTRIB_TEXT_H
#define KUTIL_UTIL_ATTRIB_TEXT_H

/* attrib_text.h: attribute lists as text: header lines and files that begin with them, form-encoded queries,
 * and lines that end with CR LF.
 *
 * A header line is a name, ":", one blank and the value; the name holds letters, digits, "-" and "_". A value
 * of several lines goes on in lines that start with a blank; two blanks are written there, and reading drops
 * the first character and one more blank. An attribute file is a header of such lines, an empty line, and a
 * body of any text.
 *
 * What ends the process: without ATTRIB_F_LENIENT any line of a header that is none does, with a report 0x303
 * that names the file and the line; so do a file that cannot be read or opened for writing, and running out
 * of memory.
 *
 * An entry that was read from header lines carries in its user words the address of the file's name and the
 * number of its line, from 1 on. The name is not copied, so it must live as long as the list; the entries of
 * an attrib_file point to the record's own copy.
 *
 * What does not come back: header lines and the line form write a value up to its first NUL, and the line end
 * at the very end of a value is lost in header lines. The line form writes CR and LF in values as they stand,
 * which lets a value from outside add lines; the caller checks that. In the query form a text named _HEX_...
 * comes back as bytes. */

#include "api.h"
#include "attrib.h"

#include <stdint.h>
#include <stdio.h>

KUTIL_BEGIN_DECLS

/* Flags of header lines. */
#define ATTRIB_F_NO_BLANK 0x01U    /* no blank is needed behind ":" */
#define ATTRIB_F_LOOSE_LINES 0x02U /* with BLANK_NAMES: what is no header line continues the value, whole */
#define ATTRIB_F_BLANK_NAMES 0x04U /* names may hold blanks */
#define ATTRIB_F_BLANK_COLON 0x08U /* a blank may stand directly before ":"; it is no part of the name */
#define ATTRIB_F_LENIENT 0x10U     /* a bad line is reported at level 8 (debug) and skipped */
#define ATTRIB_F_SPACE_LINES 0x20U /* white space alone ends a header like an empty line; is not written */
#define ATTRIB_F_DOT_NAMES 0x40U   /* names may hold "." */

/* An attribute file in memory. */
typedef struct attrib_file {
    char **lines;    /* all lines, an array of lines.h; owned */
    char **header;   /* the lines of the header: a NULL-ended array, whose texts belong to `lines` */
    char **body;     /* the lines behind the separator, likewise */
    attrib *attribs; /* what the header says; the owner changes it before writing */
    uint32_t flags;  /* ATTRIB_F_... */
    char *file_name; /* "" when there is none; owned */
    int separator;   /* 1: an empty line stands between header and body */
} attrib_file;

/* attrib_hdr_lines_to_attrib returns a new list of the entries in `lines`, an array of lines.h, for the
 * caller to free with attrib_free; NULL lines give NULL. Entries of one name are all kept. `file_name` (NULL:
 * "") and the number of the line stand in front of every report: "FILE:LINE: error: ...". */
KUTIL_API attrib *attrib_hdr_lines_to_attrib(const char *file_name, char *const *lines, uint32_t flags);

/* attrib_to_lines returns a new array of lines.h with the entries as header lines, for the caller to free
 * with lines_free. */
KUTIL_API char **attrib_to_lines(attrib **list, uint32_t flags);

/* attrib_write writes attrib_to_lines to `stream`, a line feed behind each, and returns 0. Write errors stay
 * with the stream. */
KUTIL_API int attrib_write(FILE *stream, attrib **list, uint32_t flags);

/* attrib_file_alloc returns a new record of a copy of `lines`, or, when that is NULL, of the lines of the
 * file `path`; when both are NULL, of one empty line, which is a separator. `path` is copied as the file's
 * name in any case. */
KUTIL_API attrib_file *attrib_file_alloc(const char *path, char *const *lines, uint32_t flags);

/* attrib_file_write writes the entries as header lines, and, unless the body is empty and there was no
 * separator, an empty line and the body, to the file `path` (NULL: the record's own name), which it makes or
 * empties. Returns 0, or -1 for a NULL record and, after an err report, when writing fails. A file that
 * cannot be opened is the report "attrib_file_write: Cannot open file %s for writing", which ends the
 * process. */
KUTIL_API int attrib_file_write(attrib_file *file, const char *path);

/* attrib_file_free frees the record and all that it owns. */
KUTIL_API void attrib_file_free(attrib_file *file);

/* str_http_to_attrib replaces *list by the entries of the form-encoded query `text`: fields between
 * ampersands, each a name and, behind its first "=", a value, both unescaped as str_unescape_http does. Every
 * field is an entry, an empty one too; only an empty or NULL text gives an empty list. A name that starts
 * with _HEX_ loses that, and its value is hexadecimal text of bytes, stored with their number; no bytes are
 * stored of a value that is none. */
KUTIL_API attrib **str_http_to_attrib(attrib **list, const char *text);

/* attrib_to_str_http replaces the string variable *s by the form-encoded query of `list`, in the form that
 * str_http_to_attrib reads, escaped as str_escape_http does, and returns s. */
KUTIL_API char **attrib_to_str_http(char **s, attrib **list);

/* attrib_to_str replaces the string variable *s by a line "NAME:VALUE" and CR LF for each entry, and returns
 * s. */
KUTIL_API char **attrib_to_str(char **s, attrib **list);

/* str_escape_url_query appends the entries of `list` as a query to the string variable *s, each as NAME=VALUE
 * escaped as str_escape_url_query_field does, with "&" in front of all but the first of an empty *s, and
 * returns s. Values are written as texts. A NULL *s becomes "". */
KUTIL_API char **str_escape_url_query(char **s, attrib **list);

KUTIL_END_DECLS

#endif
