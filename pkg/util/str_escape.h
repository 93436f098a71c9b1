#ifndef KUTIL_UTIL_STR_ESCAPE_H
#define KUTIL_UTIL_STR_ESCAPE_H

/* str_escape.h: text for a place where some of its characters mean something else, one function per place.
 *
 * A function with a char **s replaces the string in the variable by the escaped text, as str.h's functions
 * do, and returns s; the old buffer is freed when the text changes, so pointers into it end. A NULL string
 * counts as "" unless a function says otherwise, and a NULL s gives NULL. Nothing is reported: what a reader
 * does not understand it copies. Running out of memory ends the process. Texts end at their first NUL, so no
 * form has a NUL to escape. Character classes are ASCII's, whatever locale is set; numbers written for a byte
 * are unsigned, 128 to 255 for the upper half.
 *
 * Which form gives back the same text when the place's own parser reads it:
 *
 * - in all cases: shell (bash, see there), C (without trigraphs), SQL, URI, URL query field, http, JavaScript
 *   (from ES2019 on; before, it has no U+2028 and U+2029 in literals);
 * - but for CR: CSV, where a cell with one gets no quotes; html_field, whose parsers make a line feed of it;
 * - but for white space: XML, whose parsers make a line feed of CR, and in attributes a blank of tab and LF;
 * - not: html_text, since a line end becomes <br>, which is markup; html_textarea, since bytes from 128 up
 *   become characters of Latin-1, so that UTF-8 text comes back as two or more for one.
 *
 * XML and HTML have no escape for most control characters, which stay as they are; a parser may refuse them.
 * str_escape_url_query, which takes an attribute list, is declared in attrib_text.h. */

#include "api.h"
#include "code2str.h"

#include <stddef.h>

KUTIL_BEGIN_DECLS

/* Flags of str_escape_sql. */
#define STR_SQL_LIKE 1 /* the literal is a pattern of LIKE */

/* str_escape replaces every character of *s that has a text in `table` by that text and copies the others;
 * the text is the one that code2str finds for the character as a signed byte. Bytes from 128 up have negative
 * codes; byte 255 is -1, the code of the terminator, so it has no row. When the terminator has a text, that
 * text replaces every character without a row. The table is read once per call. A NULL table changes nothing.
 */
KUTIL_API char **str_escape(char **s, const code_str *table);

/* str_escape_javascript escapes *s for a JavaScript string in either quotes: backslash, both quotes, CR and
 * LF. */
KUTIL_API char **str_escape_javascript(char **s);

/* str_escape_xml escapes *s for XML text and attribute values with the five entities that XML defines. */
KUTIL_API char **str_escape_xml(char **s);

/* str_escape_html_text escapes *s for HTML text: the markup characters, apostrophe (&#039;) and percent
 * (&#037;), and a line feed becomes <br>. */
KUTIL_API char **str_escape_html_text(char **s);

/* str_escape_html_field is str_escape_html_text that leaves line feeds, for the value of a form's field. */
KUTIL_API char **str_escape_html_field(char **s);

/* str_escape_exec puts a backslash before every double quote, apostrophe and backslash of *s. */
KUTIL_API char **str_escape_exec(char **s);

/* str_buf_escape_xml writes `src` as str_escape_xml does to `dst`, without a NUL, and returns the number of
 * bytes. With a NULL `dst` it only counts them; `dst` needs that room and may not overlap `src`. */
KUTIL_API size_t str_buf_escape_xml(char *dst, const char *src);

/* str_escape_uri percent-encodes every ASCII character of *s that is no letter, digit, "-" or ".", in
 * upper-case hexadecimal (RFC 3986). Deliberate: bytes from 128 up stay, so that UTF-8 paths stay readable.
 */
KUTIL_API char **str_escape_uri(char **s);

/* str_escape_url_query_field is str_escape_uri that also leaves "*" and "_" and makes "+" of a blank, for a
 * name or value of a form-encoded query. */
KUTIL_API char **str_escape_url_query_field(char **s);

/* str_escape_http form-encodes *s: letters and digits stay, a blank becomes "+", every other byte %xx in
 * lower-case hexadecimal. */
KUTIL_API char **str_escape_http(char **s);

/* str_unescape_uri replaces every "%" with two hexadecimal digits in *s by that byte, in place; any other "%"
 * stays. %00 ends the text. A NULL or empty *s becomes a new empty string. */
KUTIL_API char **str_unescape_uri(char **s);

/* str_unescape_http is str_unescape_uri that also makes a blank of every "+". */
KUTIL_API char **str_unescape_http(char **s);

/* str_escape_html_textarea writes every character of *s that is no letter, digit or white space as a decimal
 * reference of at least three digits (&#060;). */
KUTIL_API char **str_escape_html_textarea(char **s);

/* str_escape_shell makes *s one word of a shell command line. A text of letters, digits, "_", "-", "." and
 * "/" stays as it is; others become $'...' with octal escapes, and NULL and "" become ''. A shell that knows
 * $'...' is needed: bash and busybox' ash do, dash does not. */
KUTIL_API char **str_escape_shell(char **s);

/* str_escape_sql escapes *s for the inside of an SQL string literal in either quotes, as MariaDB reads it
 * (backslash escapes; other databases do not have them). With STR_SQL_LIKE in `flags` "%" and "_" get a
 * backslash too and a backslash becomes four, so that a LIKE pattern takes them as they are. */
KUTIL_API char **str_escape_sql(char **s, int flags);

/* _str_escape_csv makes *s a cell of a CSV line (RFC 4180): every `quote` is doubled, and the cell is put in
 * quotes when `force` is not 0 or it holds a separator, quote or newline character. The characters are
 * compared as signed bytes; -1 as `sep` or `newline` matches nothing, and a `quote` of -1 or 0 neither
 * doubles nor wraps, even when forced. */
KUTIL_API char **_str_escape_csv(char **s, int sep, int quote, int newline, int force);

/* str_escape_csv is _str_escape_csv with comma, double quote, line feed and no force. */
KUTIL_API char **str_escape_csv(char **s);

/* str_escape_c makes *s a C string literal: in double quotes, with \t, \n, \r, \" and \\. Other control
 * characters stay as they are. NULL becomes two apostrophes. */
KUTIL_API char **str_escape_c(char **s);

/* str_unescape_c reads *s as backslash-escaped text in double quotes, in place: white space outside quotes
 * and the quotes go, \n, \r and \t become line feed, carriage return and tab, and any other character behind
 * a backslash stands for itself. Unquoted text counts as quoted up to the next quote. A backslash at the very
 * end stays. NULL becomes two apostrophes. */
KUTIL_API char **str_unescape_c(char **s);

/* str_escape_im_convert is str_escape_exec, but NULL becomes two apostrophes. */
KUTIL_API char **str_escape_im_convert(char **s);

/* str_esc_quotes puts a backslash before every apostrophe of *s. NULL stays NULL. */
KUTIL_API char **str_esc_quotes(char **s);

/* str_escape_apostrophe returns a copy of `text`, for the caller to free, with a backslash before every
 * apostrophe that has none directly before it. A backslash at the very end is dropped. */
KUTIL_API char *str_escape_apostrophe(const char *text);

/* str_escape_with_slash writes `src` to `dst` with a backslash before every character that stands in `set`,
 * ends it with NUL and returns its length. With a NULL `dst` it only counts; `dst` needs one byte more than
 * that and may not overlap `src`. */
KUTIL_API size_t str_escape_with_slash(const char *set, const char *src, char *dst);

/* str_escape_is_char_alnum_or_unicode returns not 0 when `ch` is an ASCII character that is no letter or
 * digit. Deliberate: despite its name, it is 0 for letters, digits and bytes from 128 up; it says what needs
 * an escape. `ch` is a plain or an unsigned char. */
KUTIL_API int str_escape_is_char_alnum_or_unicode(int ch);

KUTIL_END_DECLS

#endif
