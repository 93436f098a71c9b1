#ifndef KUTIL_UTIL_LINES_H
#define KUTIL_UTIL_LINES_H

/* lines.h: lists of strings.
 *
 * A list is a variable of type char ** that is NULL or owns a heap array of owned heap strings, ended by a
 * NULL element. There is no stored count. NULL and an array that holds only that NULL are both the empty list
 * and are accepted everywhere. Operations that change a list take the variable's address, may replace the
 * array, and return that address; they turn a NULL list into an empty array, also when they have nothing to
 * do. Release a list with lines_free.
 *
 * Adding copies the text, unless an operation says that it takes a pointer over. Every text and list argument
 * may be part of the list that is being changed. A change ends all pointers to the array, and to the elements
 * it removes; elements that stay keep their addresses.
 *
 * A slot is the place of an element in the array; searches return slots. Counts and indexes below 0 count as
 * 0, those beyond the end as the end. A NULL address of a list variable gives NULL and touches nothing, a
 * NULL text adds nothing and is found nowhere. Callbacks must not change the list that they are called for.
 *
 * Running out of memory ends the process where an array is made anew or grown at its end; where a text is
 * copied or a list grows elsewhere nothing is reported and the list stays as it was. */

#include "api.h"

#include <stdarg.h>
#include <stdio.h>

KUTIL_BEGIN_DECLS

/* A test of one element: (element, data), not 0 for a match. */
typedef int (*lines_match)(const char *, void *);
/* An order of two elements, given their slots, as qsort of the C library gives them to its comparator. */
typedef int (*lines_order)(const void *, const void *);

/* lines_init returns a new empty array. */
KUTIL_API char **lines_init(void);

/* lines_alloc makes *l an empty array. An array that is empty already is kept. */
KUTIL_API char ***lines_alloc(char ***l);

/* lines_free frees the elements and the array and sets *l to NULL. */
KUTIL_API char ***lines_free(char ***l);

/* lines_use frees *l and takes over `array`, a new empty array when it is NULL. The array that *l holds
 * already stays. */
KUTIL_API char ***lines_use(char ***l, char **array);

/* lines_cpy replaces *l by copies of all elements of `src`; *l itself stays as it is. */
KUTIL_API char ***lines_cpy(char ***l, char *const *src);

/* lines_ncpy replaces *l by copies of the first `n` elements of `src`. */
KUTIL_API char ***lines_ncpy(char ***l, char *const *src, int n);

/* lines_set replaces *l by copies of the texts that follow, up to a NULL. */
KUTIL_API char ***lines_set(char ***l, ...) KUTIL_SENTINEL;

/* lines_set_ap is lines_set with its texts in a va_list, which is used up. */
KUTIL_API char ***lines_set_ap(char ***l, va_list ap);

/* lines_count returns the number of elements, 0 for NULL. It walks the list. */
KUTIL_API int lines_count(char *const *l);

/* lines_add appends a copy of `s`. */
KUTIL_API char ***lines_add(char ***l, const char *s);

/* lines_add_multi appends copies of the texts that follow, up to a NULL. */
KUTIL_API char ***lines_add_multi(char ***l, ...) KUTIL_SENTINEL;

/* lines_add_multi_ap is lines_add_multi with its texts in a va_list, which is used up. */
KUTIL_API char ***lines_add_multi_ap(char ***l, va_list ap);

/* lines_add_unique appends a copy of `s` unless an element equals it exactly. */
KUTIL_API char ***lines_add_unique(char ***l, const char *s);

/* lines_add_printf appends the text that printf makes of `format` and what follows. A NULL format, and values
 * that cannot be formatted, add nothing. */
KUTIL_API char ***lines_add_printf(char ***l, const char *format, ...) KUTIL_PRINTF(2, 3);

/* lines_add_fast appends a copy of `s` without walking the list: *count must be the number of elements and is
 * incremented. For a NULL list it is set to 0 first, whatever it was. A NULL count: as lines_add. */
KUTIL_API char ***lines_add_fast(char ***l, const char *s, int *count);

/* lines_add_index inserts a copy of `s` before element `i`. */
KUTIL_API char ***lines_add_index(char ***l, const char *s, int i);

/* lines_add_index_printf inserts the formatted text before element `i`; otherwise as lines_add_printf. */
KUTIL_API char ***lines_add_index_printf(char ***l, int i, const char *format, ...) KUTIL_PRINTF(3, 4);

/* lines_cat appends copies of all elements of `src`; lines_cat(&l, l) doubles the list. */
KUTIL_API char ***lines_cat(char ***l, char *const *src);

/* lines_ninsert inserts copies of the first `n` elements of `src` before element `i`. n of -1 means all. */
KUTIL_API char ***lines_ninsert(char ***l, int i, int n, char *const *src);

/* lines_insert inserts copies of all elements of `src` before element `i`. */
KUTIL_API char ***lines_insert(char ***l, int i, char *const *src);

/* lines_insert_empty inserts `n` new empty strings before element `i`. */
KUTIL_API char ***lines_insert_empty(char ***l, int i, int n);

/* lines_merge moves the elements of *src behind those of *l, without copying a text, frees the array of *src
 * and sets *src to NULL. When both are the same list nothing changes. */
KUTIL_API char ***lines_merge(char ***l, char ***src);

/* lines_delete frees `n` elements from element `i` on and closes the gap. */
KUTIL_API char ***lines_delete(char ***l, int i, int n);

/* lines_delete_ptr deletes the element in `slot`. A slot that is none of this list's: nothing happens. */
KUTIL_API char ***lines_delete_ptr(char ***l, char **slot);

/* lines_pop removes the last element and returns it; the caller owns it and frees it with free(). NULL when
 * the list is empty; a NULL list stays NULL. */
KUTIL_API char *lines_pop(char ***l);

/* lines_filter keeps the elements for which match(element, NULL) is not 0 and frees the others. A NULL match:
 * all stay. */
KUTIL_API char ***lines_filter(char ***l, lines_match match);

/* lines_filter_ex is lines_filter with `data` for the callback. */
KUTIL_API char ***lines_filter_ex(char ***l, lines_match match, void *data);

/* lines_filterout frees the elements for which match(element, NULL) is not 0 and keeps the others. A NULL
 * match: all stay. */
KUTIL_API char ***lines_filterout(char ***l, lines_match match);

/* lines_filterout_ex is lines_filterout with `data` for the callback. */
KUTIL_API char ***lines_filterout_ex(char ***l, lines_match match, void *data);

/* lines_filter_lines keeps the elements that occur in `other`. */
KUTIL_API char ***lines_filter_lines(char ***l, char *const *other);

/* lines_filter_caselines keeps the elements that occur in `other`, ignoring the case of ASCII letters. */
KUTIL_API char ***lines_filter_caselines(char ***l, char *const *other);

/* lines_filterout_lines frees the elements that occur in `other`. */
KUTIL_API char ***lines_filterout_lines(char ***l, char *const *other);

/* lines_filterout_caselines frees the elements that occur in `other`, ignoring the case of ASCII letters. */
KUTIL_API char ***lines_filterout_caselines(char ***l, char *const *other);

/* lines_nonempty frees the empty elements. */
KUTIL_API char ***lines_nonempty(char ***l);

/* lines_nonspace frees the elements that are empty or only ASCII white space. */
KUTIL_API char ***lines_nonspace(char ***l);

/* lines_sort sorts by byte values, as strcmp_qsort. */
KUTIL_API char ***lines_sort(char ***l);

/* lines_casesort sorts as strcasecmp_qsort; the order of elements that differ only in case is not defined. */
KUTIL_API char ***lines_casesort(char ***l);

/* lines_sort_func sorts with qsort of the C library and `cmp`. A NULL cmp: nothing changes. */
KUTIL_API char ***lines_sort_func(char ***l, lines_order cmp);

/* lines_unique sorts the list and frees every element that equals the one before it. */
KUTIL_API char ***lines_unique(char ***l);

/* lines_caseunique is lines_unique ignoring the case of ASCII letters; which spelling stays is not defined.
 */
KUTIL_API char ***lines_caseunique(char ***l);

/* lines_unique_func sorts with `cmp` and frees every element for which cmp(kept, element), both as slots, is
 * 0, where kept is the last element that stayed. A NULL cmp: nothing changes. */
KUTIL_API char ***lines_unique_func(char ***l, lines_order cmp);

/* lines_search returns the slot of the first element that equals `s`, or NULL. */
KUTIL_API char **lines_search(char *const *l, const char *s);

/* lines_casesearch is lines_search ignoring the case of ASCII letters. */
KUTIL_API char **lines_casesearch(char *const *l, const char *s);

/* lines_search_func returns the slot of the first element for which match(element, NULL) is not 0, or NULL.
 */
KUTIL_API char **lines_search_func(char *const *l, lines_match match);

/* lines_search_func_ex is lines_search_func with `data` for the callback. */
KUTIL_API char **lines_search_func_ex(char *const *l, lines_match match, void *data);

/* lines_cmp compares element by element with strcmp_qsort: the first result that is not 0, else -1 when a is
 * shorter, 1 when b is, 0 when both are equal. */
KUTIL_API int lines_cmp(char *const *a, char *const *b);

/* lines_casecmp is lines_cmp with strcasecmp_qsort. */
KUTIL_API int lines_casecmp(char *const *a, char *const *b);

/* lines_cmp_func is lines_cmp with `cmp` on the two slots. A NULL cmp compares the lengths only. */
KUTIL_API int lines_cmp_func(char *const *a, char *const *b, lines_order cmp);

/* lines_get_common_prefix sets the string variable *s to the longest text that every element begins with, ""
 * for an empty array, and returns s. A NULL list: returns NULL and leaves *s alone. */
KUTIL_API char **lines_get_common_prefix(char *const *l, char **s);

/* strcmp_qsort compares the strings in two slots by unsigned byte values: below, equal to or above 0. It is a
 * comparator for qsort. NULL counts as "". */
KUTIL_API int strcmp_qsort(const void *a, const void *b);

/* strcasecmp_qsort is strcmp_qsort with ASCII capitals taken as small letters. */
KUTIL_API int strcasecmp_qsort(const void *a, const void *b);

/* lines_str_split replaces *l by the pieces of `text` between characters of `delims`; a NULL delims has none.
 * With `skip_empty` empty pieces are left out. A delimiter at the very end is followed by no piece: "a,"
 * gives "a", and ",a" gives "" and "a". NULL and "" give the empty array. Running out of memory ends the
 * process. */
KUTIL_API char ***lines_str_split(char ***l, const char *text, const char *delims, int skip_empty);

/* lines_str_split_ws splits at any of " \t\n\r" without empty pieces. */
KUTIL_API char ***lines_str_split_ws(char ***l, const char *text);

/* lines_str_split_nl splits at line feeds; empty lines are pieces. */
KUTIL_API char ***lines_str_split_nl(char ***l, const char *text);

/* lines_str_split_crlf splits at line feeds and drops one carriage return at the end of each piece. */
KUTIL_API char ***lines_str_split_crlf(char ***l, const char *text);

/* lines_str_extract_words replaces *l by the words of `text`: runs of ASCII letters, digits and underscores.
 * Deliberate: a word that the end of the text ends is replaced by an empty string, so "ab cd" gives "ab" and
 * "". Running out of memory ends the process. */
KUTIL_API char ***lines_str_extract_words(char ***l, const char *text);

/* str_join_lines sets the string variable *s to the elements of `l` with `sep` between them, and behind the
 * last one too when `trailing` is not 0, and returns s. An empty list gives "". The old text is freed last,
 * so l and sep may be part of it. Running out of memory ends the process. */
KUTIL_API char **str_join_lines(char **s, char *const *l, const char *sep, int trailing);

/* str_join_lines_nl joins with "\n", behind the last element too. */
KUTIL_API char **str_join_lines_nl(char **s, char *const *l);

/* str_join_lines_crlf joins with "\r\n", behind the last element too. */
KUTIL_API char **str_join_lines_crlf(char **s, char *const *l);

/* str_join_lines_ws joins with single blanks, none behind the last element. */
KUTIL_API char **str_join_lines_ws(char **s, char *const *l);

/* str_unique_delim splits the string variable *s at characters of `delims`, keeping empty pieces, sorts the
 * pieces as lines_unique does, joins them with `sep` as str_join_lines does, and returns s. A NULL *s becomes
 * "". */
KUTIL_API char **str_unique_delim(char **s, const char *delims, const char *sep, int trailing);

/* str_caseunique_delim is str_unique_delim with lines_caseunique. */
KUTIL_API char **str_caseunique_delim(char **s, const char *delims, const char *sep, int trailing);

/* str_unique is str_unique_delim at any of " \n\r", joined with a blank: "b a b" becomes "a b". */
KUTIL_API char **str_unique(char **s);

/* str_caseunique is str_unique ignoring the case of ASCII letters. */
KUTIL_API char **str_caseunique(char **s);

/* lines_print_fp writes each element and a line feed to `fp`; NULL writes nothing. Write errors stay with the
 * stream. */
KUTIL_API void lines_print_fp(char *const *l, FILE *fp);

/* lines_print is lines_print_fp to standard output. */
KUTIL_API void lines_print(char *const *l);

/* lines_write_fp is lines_print_fp that returns 1 for a NULL list, else 0. */
KUTIL_API int lines_write_fp(char *const *l, FILE *fp);

/* _lines_write_file writes each element and a line feed to the file `path`, which it makes or empties; opened
 * as "wb" when `bin` is not 0, else as "w". Returns -1 when it cannot be opened, else 0. Deliberate: what
 * fails after that is not reported; a text that must not be lost is written and checked by its owner. */
KUTIL_API int _lines_write_file(char *const *l, const char *path, int bin);

/* lines_write_file and lines_write_file_bin are _lines_write_file with bin 0 and 1. */
KUTIL_API int lines_write_file(char *const *l, const char *path);
KUTIL_API int lines_write_file_bin(char *const *l, const char *path);

/* _lines_read_file returns a new list of the lines of the file `path`, split as lines_str_split_nl does, for
 * the caller to free; an empty file gives an empty array. Lists hold no NUL bytes: the first one ends the
 * text. `bin` makes the mode "rb" instead of "r". A file that cannot be opened gives NULL; with `fatal` it is
 * the report "Failed opening %s", which ends the process. */
KUTIL_API char **_lines_read_file(const char *path, int bin, int fatal);

/* lines_read_file and lines_read_file_bin are _lines_read_file with bin 0 and 1; the names in _e are fatal.
 */
KUTIL_API char **lines_read_file(const char *path);
KUTIL_API char **lines_read_file_bin(const char *path);
KUTIL_API char **lines_read_file_e(const char *path);
KUTIL_API char **lines_read_file_bin_e(const char *path);

/* lines_read_file_ws is lines_read_file that splits as lines_str_split_ws does. */
KUTIL_API char **lines_read_file_ws(const char *path);

/* lines_read_fp returns a new list of the lines of the rest of `fp`, as _lines_read_file; NULL for NULL. */
KUTIL_API char **lines_read_fp(FILE *fp);

/* file_read_fp_bin reads `fp` to its end or to an error, and returns a new buffer with what came and a NUL
 * behind it, for the caller to free; the byte count without that NUL goes to *len, unless len is NULL. It
 * waits for a stream that is not ready (poll on its descriptor, if it has one) and repeats interrupted reads.
 * NULL with a count of 0 for a NULL fp, and for more than INT32_MAX bytes. Running out of memory ends the
 * process. */
KUTIL_API char *file_read_fp_bin(FILE *fp, int *len);

/* file_read_fp is file_read_fp_bin without the count. */
KUTIL_API char *file_read_fp(FILE *fp);

/* str_read_fp frees the string `old` and returns the rest of `fp` as a new string; NULL for a NULL fp.
 * Typical use: s = str_read_fp(s, fp). */
KUTIL_API char *str_read_fp(char *old, FILE *fp);

/* str_read_file frees the string `old` and returns the file `path` as a new string, NULL when it cannot be
 * opened. The path may be part of `old`. */
KUTIL_API char *str_read_file(char *old, const char *path);

KUTIL_END_DECLS

#endif
