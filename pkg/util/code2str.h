#ifndef KUTIL_UTIL_CODE2STR_H
#define KUTIL_UTIL_CODE2STR_H

/* code2str.h: constant tables between numbers and words, and the look-ups in them.
 *
 * Enumerations are stored and sent as words. A table is a plain array that ends with a terminator row: code
 * -1 (tables by code) or key NULL (tables by text). The terminator also carries the answer to a failed
 * look-up. Every look-up walks the rows in order and the first match wins; nothing is sorted or indexed, so
 * tables are short and a look-up does not belong on a path that runs once per character.
 *
 * Hidden rows are for words that left a product and are still in stored configurations. In a code_str table
 * str2code still takes them; in a code_names table no look-up sees them, since old words are aliases of the
 * current row there.
 *
 * A row of code_str or str_str may name a string variable ("indirect"); its content then stands for the row's
 * text, so a constant table can follow a text that is chosen at run time.
 *
 * Tables belong to their authors and are never changed here; every returned text points into them. A NULL
 * table is an empty one whose terminator says NULL, 0 or -1, and a NULL word looks like "". Nothing here
 * allocates or ends the process. The word tables of the configuration's enumerations are in code_tables.h. */

#include "api.h"

#include <stddef.h>
#include <stdint.h>

KUTIL_BEGIN_DECLS

/* A code and its word. */
typedef struct code_str {
    int code;              /* -1 ends the table */
    const char *name;      /* may be NULL */
    char *const *indirect; /* not NULL: the address of a string variable that stands for name */
    uint32_t hidden;       /* not 0: skipped when a code is turned into its word */
} code_str;

/* A code and its words. */
typedef struct code_names {
    int code;                 /* -1 ends the table */
    const char *const *names; /* NULL-ended: the canonical word, then accepted aliases; may be NULL */
    uint32_t hidden;          /* not 0: every look-up and the iteration skip the row */
} code_names;

/* A code and a second code or a pointer. */
typedef struct code_code {
    int code; /* -1 ends the table */
    intptr_t value;
} code_code;

/* A code and two values. */
typedef struct code_pair {
    int code; /* -1 ends the table */
    int first;
    int second;
} code_pair;

/* A text and its value. */
typedef struct str_str {
    const char *key; /* NULL ends the table */
    const char *value;
    char *const *indirect; /* not NULL: the address of a string variable that stands for value */
    int lang;
} str_str;

/* code2str returns the word of the first row of `table` with `code` that is not hidden, else the terminator's
 * text. */
KUTIL_API const char *code2str(const code_str *table, int code);

/* str2code returns the code of the first row of `table` whose word is `s`, or -1. Hidden rows count.
 * Deliberate: a row without any text matches every `s`, which makes it the "anything else" row of a table. */
KUTIL_API int str2code(const code_str *table, const char *s);

/* strn2code returns the code of the first row of `table` that is not hidden and whose name is exactly the
 * first `n` characters of `s`, or -1; it has `n` characters, so an `s` that is shorter finds no name.
 * Indirect texts are not looked at. Deliberate: the walk ends at the first row without a name, hidden or not,
 * and returns that row's code. */
KUTIL_API int strn2code(const code_str *table, const char *s, size_t n);

/* code2str_ex returns the canonical word of the first row of `table` with `code` that is not hidden. None:
 * the terminator's first word, which is NULL in this library's tables; also NULL for a row without words. */
KUTIL_API const char *code2str_ex(const code_names *table, int code);

/* code2str_ex_idx returns word number `i` (0: the canonical one) of the row that code2str_ex finds, NULL
 * where the list ends before or is missing, and for a negative `i`. */
KUTIL_API const char *code2str_ex_idx(const code_names *table, int code, int i);

/* str2code_ex returns the code of the first row of `table` that is not hidden and lists `word`, or -1. */
KUTIL_API int str2code_ex(const code_names *table, const char *word);

/* code2str_ex_iter_next returns the index of the first row behind row `i` that is not hidden; start with -1.
 * The last answer is the terminator's index, and from there on always the same. `i` is -1 or an earlier
 * answer. A NULL table gives 0. */
KUTIL_API int code2str_ex_iter_next(const code_names *table, int i);

/* code2code returns the value of the first row of `table` with `code`, else the terminator's, as an int. */
KUTIL_API int code2code(const code_code *table, int code);

/* code2ptr is code2code for tables whose values are pointers. */
KUTIL_API void *code2ptr(const code_code *table, int code);

/* code2code_back returns the code of the first row of `table` with `value`, or -1. */
KUTIL_API int code2code_back(const code_code *table, intptr_t value);

/* code2pair stores the values of the first row of `table` with `code`, or of the terminator, in *first and
 * *second (each may be NULL) and returns the second. */
KUTIL_API int code2pair(const code_pair *table, int code, int *first, int *second);

/* code_in_list returns 1 when `code` stands in `list`, which -1 ends, else 0; so 0 for -1 itself and for a
 * NULL list. */
KUTIL_API int code_in_list(int code, const int *list);

/* str2str returns the value of the first row of `table` with `key`, else the terminator's. */
KUTIL_API const char *str2str(const str_str *table, const char *key);

/* strcase2str is str2str that ignores the case of ASCII letters. */
KUTIL_API const char *strcase2str(const str_str *table, const char *key);

/* str2lang returns the language value of the row that str2str finds, or of the terminator. */
KUTIL_API int str2lang(const str_str *table, const char *key);

/* The report levels 0 to 8 of zel_error.h as headings, "None" for others. For code2str. */
KUTIL_API extern const code_str zel_error2str[];

/* The report levels 1 to 8 as the priorities 0 to 7 of syslog (RFC 5424), 0 for others. For code2code. The
 * two are the same table under the names of the two directions of use. */
KUTIL_API extern const code_code zel_error2syslog[];
KUTIL_API extern const code_code pri2syslog[];

/* HTTP status codes as reason phrases, "Unknown Status" for others. For code2str. The wording is this
 * gateway's own where it differs from RFC 9110. */
KUTIL_API extern const code_str http_status_str[];

/* How a secret configuration value is obscured: 0 "str", 1 "bin". For code2str and str2code. */
KUTIL_API extern const code_str obscure_type_str[];

KUTIL_END_DECLS

#endif
