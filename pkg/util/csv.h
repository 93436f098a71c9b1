#ifndef KUTIL_UTIL_CSV_H
#define KUTIL_UTIL_CSV_H

/* csv.h: tables in delimited text files.
 *
 * A table is a header line, whose cells name the fields, and a list of data lines. Fields are found by name,
 * ignoring the case of ASCII letters (the first one of a name counts), or by their header cell. A field's
 * type decides how its values are compared, sorted and quoted. Which characters delimit is a setting of the
 * whole process, comma mode or tab mode; they compare as signed bytes, and -1 is none.
 *
 * csv_close frees a table with everything in it. What a look-up returns lives in the table until that cell is
 * set or freed. Arguments may point into the table. A NULL table or line is empty and stays as it is; a NULL
 * text is "". A table without a header has no fields: nothing is found in it, and its lines are written as
 * line feeds alone.
 *
 * What ends the process, in a report of level 0x303: running out of memory, a field name that csv_field_set,
 * csv_delete_field, csv_type_set, csv_sort, csv_search or a merge does not find, and cell counts when
 * CSV_F_MANY_FATAL or CSV_F_FEW_FATAL is set. What a file holds is reported at level 4 and never ends the
 * process otherwise.
 *
 * What does not come back as it was written: a CR anywhere, and white space in front of a quote. In tab mode
 * cells are written raw, so backslashes, tabs and line feeds inside values do not come back. */

#include "api.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

KUTIL_BEGIN_DECLS

/* A field's type: the low four bits of its header cell's type word. 7 to 15 compare everything as equal. */
#define CSV_TYPE_NONE 0      /* text, ignoring case; quoted when needed, as every type but these: */
#define CSV_TYPE_TEXT 1      /* text, ignoring case; always quoted */
#define CSV_TYPE_TEXT_CASE 2 /* text; always quoted */
#define CSV_TYPE_INT 3       /* the number at its start as atoi reads it, kept within 32 bits */
#define CSV_TYPE_DATE 4      /* date_atoi of date.h in UTC, which reports what is no date; always quoted */
#define CSV_TYPE_FLOAT                                                                                       \
    5 /* the number at its start as atof reads it with a decimal point; "nan" equals everything */
#define CSV_TYPE_FORMULA 6 /* text, ignoring case */
#define CSV_TYPE_MASK 0xFU

/* A sort key's flags. */
#define CSV_KEY_DESC 0x10U /* from the greatest down */

/* A table's flags. */
#define CSV_F_SPREADSHEET                                                                                    \
    0x20U                     /* what is written gets a "'" in front, header names included; formulas a "=" */
#define CSV_F_PLAIN 0x40U     /* cancels CSV_F_SPREADSHEET */
#define CSV_F_NO_HEADER 0x80U /* the first line that is read is a data line */
#define CSV_F_MANY_FATAL 0x100U /* a line with more cells than fields ends the process */
#define CSV_F_FEW_FATAL 0x200U  /* a line with fewer, while reading, too */

typedef struct csv_cell {
    struct csv_cell *next;
    char *text;                 /* a string of its own, never NULL */
    uint32_t type;              /* of a header cell: the field's type, and field flags above it */
    struct csv_cell *reference; /* of a search or sort key: the header cell that it names */
} csv_cell;

typedef struct csv_line {
    struct csv_line *next;
    csv_cell *cells;
    int line_number; /* the source line on which it began, 0 for one made in memory */
} csv_line;

typedef struct csv_sort_entry {
    int position;
    csv_line *line;
} csv_sort_entry;

typedef struct csv {
    char *name; /* the file, for messages and writing; "" for a table made in memory */
    uint32_t flags;
    csv_line *header; /* NULL: none */
    csv_line *lines;
    int fields_count; /* header cells when they were last counted: by reading, adding, deleting, normalising
                       */
    csv_sort_entry *sort_index; /* during a sort, else NULL */
    int lines_count;            /* during a sort, else -1 */
    int sorting;
    FILE *file; /* while reading a file, else NULL */
} csv;

/* Yields the next character of a text, or -1 at its end: (ctx). Characters are plain or unsigned. */
typedef int (*csv_next_char)(void *);
/* Takes a line: (data, line). Not 0 ends the reading. */
typedef int (*csv_line_cb)(void *, csv_line *);

/* ---- Delimiters ---- */

/* The characters that delimit, -1 for none: end of a line (10), of a field (44), quotation (34), escape (-1),
 * and the one that is dropped wherever it stands (13). In brackets what comma mode has. */
KUTIL_API extern int chr_line;
KUTIL_API extern int chr_field;
KUTIL_API extern int chr_enclose;
KUTIL_API extern int chr_escape;
KUTIL_API extern int chr_cr;
/* What csv_silent_mode set, 0 at first. The library does not read it. */
KUTIL_API extern int silent;

/* csv_delim_set sets the four delimiters. Returns the field delimiter before, as the three that follow do. */
KUTIL_API int csv_delim_set(int line, int field, int enclose, int escape);

/* csv_delim_set_comma sets comma mode: fields end with a comma, double quotes enclose, nothing escapes (RFC
 * 4180). */
KUTIL_API int csv_delim_set_comma(void);

/* csv_delim_set_tab sets tab mode: fields end with a tab, nothing encloses, a backslash escapes. */
KUTIL_API int csv_delim_set_tab(void);

/* csv_delim_reset is csv_delim_set_comma. */
KUTIL_API int csv_delim_reset(void);

/* csv_silent_mode sets `silent` and returns what it was. */
KUTIL_API int csv_silent_mode(int flag);

/* ---- Making and freeing ---- */

/* csv_alloc returns a new table without header and lines. */
KUTIL_API csv *csv_alloc(void);

/* csv_alloc_with_hdr returns a new table whose header names are the texts given, up to a NULL. */
KUTIL_API csv *csv_alloc_with_hdr(const char *name, ...) KUTIL_SENTINEL;

/* csv_alloc_with_hdr_ap is csv_alloc_with_hdr with the names after the first in a va_list, which is used up.
 */
KUTIL_API csv *csv_alloc_with_hdr_ap(const char *name, va_list ap);

/* csv_alloc_with_hdr_lines is csv_alloc_with_hdr with its names in an array of lines.h. */
KUTIL_API csv *csv_alloc_with_hdr_lines(char *const *lines);

/* csv_line_alloc returns a new line without cells. Until it is added to a table, it is freed by
 * csv_line_free. */
KUTIL_API csv_line *csv_line_alloc(int line_number);

/* csv_line_alloc_cells returns a new line of number 0 with cells of the texts given, up to a NULL. */
KUTIL_API csv_line *csv_line_alloc_cells(const char *text, ...) KUTIL_SENTINEL;

/* csv_line_alloc_cells_ap is csv_line_alloc_cells with the texts after the first in a va_list, which is used
 * up. */
KUTIL_API csv_line *csv_line_alloc_cells_ap(const char *text, va_list ap);

/* csv_cell_alloc returns a new cell with a copy of `text`. */
KUTIL_API csv_cell *csv_cell_alloc(const char *text);

/* csv_line_free frees a line that is in no table, with its cells. csv_line_list_free frees it and those
 * behind it. */
KUTIL_API void csv_line_free(csv_line *line);
KUTIL_API void csv_line_list_free(csv_line *line);

/* csv_close frees the table with everything in it, and closes its file if it is open. */
KUTIL_API void csv_close(csv *table);

/* ---- Reading ---- */

/* csv_open returns a new table with `flags` (CSV_F_*) that csv_read read from the file `path`, whose name it
 * keeps. A byte 255 in it ends it (deliberate: characters are signed here, and -1 is the end). NULL without a
 * report when it cannot be opened, NULL with csv_read's when it is malformed. */
KUTIL_API csv *csv_open(const char *path, uint32_t flags);

/* csv_read adds the lines of a text to the table, behind those that are there. The first one becomes the
 * header when the table has none and no CSV_F_NO_HEADER; it sets the number of fields, to which every line is
 * normalised. Empty lines between lines are skipped, an empty first line is a header with one empty name. CR
 * and NUL are dropped wherever they stand, white space behind a closing quote belongs to the value. A last
 * line without its line delimiter loses its last field (deliberate: a file that was cut off ends in half a
 * value). An escape and the next character, whatever it is, stand for one: 0 NUL, which ends the value, b
 * backspace, n LF, r CR, t tab, any other itself. The delimiters are those that are set when reading begins.
 * Returns 0. What is malformed is reported at level 4 with
 * the table's name and the line number: -1, and what was read so far is in the table. */
KUTIL_API int csv_read(csv *table, csv_next_char next_char, void *ctx);

/* csv_read_lines reads as csv_read does, in the memory of one line: it gives every data line to `line` as
 * soon as the next one begins. The line is lent: it and its texts are reused when `line` returns. The header
 * is the table's from before the first call. Returns 0, -1 after a report, or what `line` returned when that
 * was not 0. */
KUTIL_API int csv_read_lines(csv *table, csv_next_char next_char, void *ctx, csv_line_cb line, void *data);

/* ---- Writing ---- */

/* csv_write writes the table to the file `path` (NULL: the table's name; "": standard output), replacing it.
 * Lines end with LF whatever chr_line is (deliberate: the files of a gateway do). Returns 0; -1 when the file
 * cannot be opened, after the report "Failed opening %s" at level 4, and when writing or closing fails. */
KUTIL_API int csv_write(csv *table, const char *path);

/* csv_write_fp is csv_write to an open stream, which it flushes. */
KUTIL_API int csv_write_fp(csv *table, FILE *fp);

/* csv_line_write appends `line` to the file, otherwise as csv_write. */
KUTIL_API int csv_line_write(csv *table, csv_line *line, const char *path);

/* csv_line_print writes one line: as many cells as the shorter of line and header has, each as
 * str_escape_csv_bytype does under its field's type, or under CSV_TYPE_NONE with `is_header`. */
KUTIL_API void csv_line_print(csv *table, csv_line *line, int is_header, FILE *fp);

/* str_escape_csv_bytype makes *s a cell as it is written: with `output_flags` equal to CSV_F_SPREADSHEET a
 * "=" for CSV_TYPE_FORMULA and a "'" for every other type goes in front, then _str_escape_csv of str_escape.h
 * does the rest with the delimiters that are set. Returns s. */
KUTIL_API char **str_escape_csv_bytype(char **s, uint32_t type, uint32_t output_flags);

/* ---- Fields ---- */

/* csv_get_field_idx returns the position of the field from 0, or -1. */
KUTIL_API int csv_get_field_idx(csv *table, const char *name);

/* csv_get_headers replaces *lines by the header names and returns lines. */
KUTIL_API char ***csv_get_headers(char ***lines, csv *table);

/* csv_field_get_cell returns the line's cell of the field; NULL when there is no such field or the line is
 * shorter. */
KUTIL_API csv_cell *csv_field_get_cell(csv *table, csv_line *line, const char *name);

/* csv_field_get returns the text of csv_field_get_cell, "" for NULL. */
KUTIL_API const char *csv_field_get(csv *table, csv_line *line, const char *name);

/* csv_field_get_cell_fast and csv_field_get_fast are the two by header cell: no names are compared. */
KUTIL_API csv_cell *csv_field_get_cell_fast(csv *table, csv_line *line, csv_cell *header_cell);
KUTIL_API const char *csv_field_get_fast(csv *table, csv_line *line, csv_cell *header_cell);

/* csv_field_set sets the line's cell of the field, and gives a short line the cells up to it. An unknown
 * field is the fatal report "%s: field %s does not exist". */
KUTIL_API void csv_field_set(csv *table, csv_line *line, const char *name, const char *value);

/* csv_fields_set sets pairs of names and values (const char *) in order, up to a NULL name. */
KUTIL_API void csv_fields_set(csv *table, csv_line *line, ...) KUTIL_SENTINEL;

/* csv_fields_set_ap is csv_fields_set with its pairs in a va_list, which is used up. */
KUTIL_API void csv_fields_set_ap(csv *table, csv_line *line, va_list ap);

/* csv_field_set_printf is csv_field_set of the text that printf makes of `format` and what follows. */
KUTIL_API void csv_field_set_printf(csv *table, csv_line *line, const char *name, const char *format, ...)
    KUTIL_PRINTF(4, 5);

/* csv_field_set_vprintf is csv_field_set_printf with its values in a va_list, which is used up. */
KUTIL_API void csv_field_set_vprintf(csv *table, csv_line *line, const char *name, const char *format,
                                     va_list ap) KUTIL_PRINTF(4, 0);

/* csv_field_set_fast is csv_field_set by header cell; nothing when it is not in the header. */
KUTIL_API void csv_field_set_fast(csv *table, csv_line *line, csv_cell *header_cell, const char *value);

/* csv_cell_set replaces the cell's text by a copy of `text`. */
KUTIL_API void csv_cell_set(csv_cell *cell, const char *text);

/* csv_field_add appends a field unless there is one of that name, and normalises every line: an empty cell,
 * or the first that a line had too many. */
KUTIL_API void csv_field_add(csv *table, const char *name);

/* csv_delete_field removes the field from the header and from every line. An unknown one is the fatal report
 * "Cannot find %s". */
KUTIL_API void csv_delete_field(csv *table, const char *name);

/* csv_delete_field_by_index removes the cell at a position from 0 from the header and from every line that
 * has it. */
KUTIL_API void csv_delete_field_by_index(csv *table, int index);

/* csv_type_set sets types, pairs of names (const char *) and types (int), up to a NULL name: the header
 * cell's type word becomes its low four bits OR the type. Deliberate: a second type is combined with the
 * first (1 and 2 make 3). An unknown field is the fatal report "%s: field %s does not exist". */
KUTIL_API void csv_type_set(csv *table, ...) KUTIL_SENTINEL;

/* csv_type_set_ap is csv_type_set with its pairs in a va_list, which is used up. */
KUTIL_API void csv_type_set_ap(csv *table, va_list ap);

/* csv_type_set_all makes every header cell's type word its low four bits OR `flags`. */
KUTIL_API void csv_type_set_all(csv *table, uint32_t flags);

/* ---- Lines ---- */

/* csv_lines_count returns the number of data lines. */
KUTIL_API int csv_lines_count(csv *table);

/* csv_line_add puts a line that is in no table behind the line `after`, or with NULL at the end, and
 * normalises it allowing too few cells. The table owns it then. Returns the line. The end is found by
 * walking: who adds many lines hands in the last one. */
KUTIL_API csv_line *csv_line_add(csv *table, csv_line *line, csv_line *after);

/* csv_line_add_empty appends a new line of empty cells and returns it. */
KUTIL_API csv_line *csv_line_add_empty(csv *table);

/* csv_line_add_fields_set is csv_line_add_empty, csv_fields_set on that line, and returns it. */
KUTIL_API csv_line *csv_line_add_fields_set(csv *table, ...) KUTIL_SENTINEL;

/* csv_line_delete unlinks and frees the line; nothing when it is not one of the table's data lines. */
KUTIL_API void csv_line_delete(csv *table, csv_line *line);

/* csv_line_get returns "NAME:NUMBER" of table and line, for messages. Static, until the next call. */
KUTIL_API const char *csv_line_get(csv *table, csv_line *line);

/* csv_line_normalize appends empty cells until the line has as many as there are fields; cells too many stay.
 * When CSV_F_FEW_FATAL is set and not `allow_few`, the fatal report "%s:%d: too few cells (has %d needs %d).
 * use 'csv2sql -i %s -o %s csv csv' to normalize the CSV file."; with CSV_F_MANY_FATAL "%s:%d: too many cells
 * (has %d needs %d)". */
KUTIL_API void csv_line_normalize(csv *table, csv_line *line, int allow_few);

/* csv_normalize counts the fields and normalises every data line. */
KUTIL_API void csv_normalize(csv *table, int allow_few);

/* ---- Searching, sorting, merging ---- */

/* csv_search returns the first line whose values compare equal to those given, pairs of texts, a name and a
 * value each, up to a NULL name; NULL when there is none. Fatal reports: "csv: name %s does not exist",
 * "csv: got search name with no value". */
KUTIL_API csv_line *csv_search(csv *table, ...) KUTIL_SENTINEL;

/* csv_search_ap is csv_search with its pairs in a va_list, which is used up. */
KUTIL_API csv_line *csv_search_ap(csv *table, va_list ap);

/* csv_search_from is csv_search that starts with `line` (NULL: finds nothing). */
KUTIL_API csv_line *csv_search_from(csv *table, csv_line *line, ...) KUTIL_SENTINEL;

/* csv_search_from_ap is csv_search_from with its pairs in a va_list, which is used up. */
KUTIL_API csv_line *csv_search_from_ap(csv *table, csv_line *line, va_list ap);

/* csv_sort sorts the data lines by keys, pairs of a name (const char *) and flags (int, CSV_KEY_DESC or 0),
 * up to a NULL name; the first key whose values differ decides. Lines with equal keys keep their order. Each
 * value is read once a sort, by walking the lines; where they lie scattered in memory, as after a sort by
 * another key, a table that outgrows the processor's cache takes longer than its size says. An unknown field
 * is the fatal report "Invalid key field %s". */
KUTIL_API void csv_sort(csv *table, ...) KUTIL_SENTINEL;

/* csv_sort_ap is csv_sort with its pairs in a va_list, which is used up. */
KUTIL_API void csv_sort_ap(csv *table, va_list ap);

/* csv_merge_line_by_field finds the first line of `dst` that has the value of `src_line` in the field
 * `key_name`, as csv_search does, and copies to its empty cells the values that `src_line` of `src` has
 * there: all of them, or those of the names in `only_fields` (an array of lines.h, ignoring case; NULL: all).
 * Fields that `dst` lacks are added. Returns 0, or -1 when there is no such line. A source line without a
 * value there is the fatal report "%s, field %s does not exist in the line you want to merge." with
 * csv_line_get. */
KUTIL_API int csv_merge_line_by_field(csv *dst, const char *key_name, csv *src, csv_line *src_line,
                                      char *const *only_fields);

KUTIL_END_DECLS

#endif
