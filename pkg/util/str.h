#ifndef KUTIL_UTIL_STR_H
#define KUTIL_UTIL_STR_H

/* str.h: heap strings, and comparing, scanning and formatting of plain text.
 *
 * A string is an ordinary NUL-terminated text on the heap, owned by exactly one pointer variable that is NULL
 * or holds a malloc block. What changes a string takes the address of that variable, may put another block
 * there (every pointer into the old text ends then) and returns the same address, so that calls chain:
 *
 *     char *s = NULL;
 *     str_trim(str_cpy(&s, line));
 *     str_catprintf(&s, ":%d", port);
 *     str_free(&s);
 *
 * A NULL text counts as "" wherever it is content, and finds nothing where something is searched in it or for
 * it. A NULL address of a variable gives NULL and touches nothing. Arguments may point into the string that
 * is being changed. Running out of memory ends the process (report 0x303) unless a function says otherwise;
 * so does a printf format that the C library refuses.
 *
 * Appending reserves more than it needs, so that repeated appends copy little; everything else allocates
 * exactly. Case and character classes are those of ASCII in the POSIX locale, whatever locale is set; bytes
 * from 128 up belong to no class. White space is blank, tab, line feed, vertical tab, form feed and carriage
 * return. The number formatters and strtokz keep their result or position in static storage of their own. */

#include "api.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

KUTIL_BEGIN_DECLS

/* str_vprintf_full: append instead of replace. */
#define STR_F_APPEND 0x1U

/* The record of str_buf_fastcat. It starts zeroed; the owner frees data. The text in data is NUL-terminated
 * after the first call. */
typedef struct str_buf {
    char *data;
    int size; /* allocated bytes */
    int len;  /* length of the text in data */
} str_buf;

/* Lifecycle and assignment */

/* str_init returns a new empty string for the caller to free, or NULL without a report when memory runs out.
 */
KUTIL_API char *str_init(void);

/* str_alloc frees *s, sets it to a new empty string and returns s. When memory runs out *s stays as it was,
 * without a report. */
KUTIL_API char **str_alloc(char **s);

/* str_free frees *s, sets it to NULL and returns s. */
KUTIL_API char **str_free(char **s);

/* str_use frees *s, makes the malloc block `text` the string and returns s; the string owns it from here on.
 * A NULL `text` gives a new empty string; the block that *s already holds stays. */
KUTIL_API char **str_use(char **s, char *text);

/* str_cpy makes *s a copy of `src` and returns s. */
KUTIL_API char **str_cpy(char **s, const char *src);

/* str_ncpy makes *s a copy of the first `n` characters of `src`, of all when it is shorter, and returns s. */
KUTIL_API char **str_ncpy(char **s, const char *src, size_t n);

/* str_cpy_truncate is str_ncpy with "..." behind a text that was cut, so the result has up to n + 3
 * characters. */
KUTIL_API char **str_cpy_truncate(char **s, const char *src, size_t n);

/* str_cpytok makes *s a copy of `src` over which strtok of the C library has been run once with `delims`, and
 * returns s: the text ends at the first delimiter behind any leading ones, which stay. strtok(NULL, ...) goes
 * on in this copy. */
KUTIL_API char **str_cpytok(char **s, const char *src, const char *delims);

/* strndup_null returns a new copy of the first `n` characters of `src`, of all when it is shorter, for the
 * caller to free. */
KUTIL_API char *strndup_null(const char *src, size_t n);

/* Appending and editing */

/* str_cat appends `add` to *s and returns s. A NULL *s becomes a copy of `add`; when memory runs out for that
 * copy, *s stays NULL without a report. */
KUTIL_API char **str_cat(char **s, const char *add);

/* str_ncat appends exactly `n` bytes of `buf`, which needs no NUL, and returns s. NUL bytes among them are
 * appended too. A NULL `buf` appends nothing. */
KUTIL_API char **str_ncat(char **s, const char *buf, size_t n);

/* str_catfast appends `add` at offset *len of *s, adds its length to *len and returns s; *s is not scanned,
 * so *len must be its length. A NULL *s becomes "" first and *len 0; a NULL `add` changes nothing else. A
 * NULL `len` gives NULL and touches nothing. A length that 32 bits cannot hold counts as running out of
 * memory. */
KUTIL_API char **str_catfast(char **s, const char *add, uint32_t *len);

/* str_insert replaces `del` characters of *s at `pos` by `text` and returns s. pos and del are clipped to the
 * text; a NULL *s becomes "" first. */
KUTIL_API char **str_insert(char **s, size_t pos, size_t del, const char *text);

/* str_replace replaces every occurrence of `from` in *s by `to`, from left to right, and returns s. Replaced
 * text is not searched again. A NULL *s becomes ""; an empty or NULL `from` replaces nothing. */
KUTIL_API char **str_replace(char **s, const char *from, const char *to);

/* str_left and str_right keep the first, the last `n` characters of *s and return s. A NULL *s becomes "". */
KUTIL_API char **str_left(char **s, size_t n);
KUTIL_API char **str_right(char **s, size_t n);

/* str_mid keeps the text of *s from position `start` to its end and returns s; nothing is left when start
 * lies behind it. A NULL *s becomes "". Deliberate: `count` does not shorten the text; callers rely on
 * getting the whole rest. */
KUTIL_API char **str_mid(char **s, size_t start, size_t count);

/* str_ltrim, str_rtrim and str_trim remove the white space at the start, the end, both ends of *s and return
 * s; str_chomp is str_rtrim. A NULL *s becomes "". */
KUTIL_API char **str_ltrim(char **s);
KUTIL_API char **str_rtrim(char **s);
KUTIL_API char **str_trim(char **s);
KUTIL_API char **str_chomp(char **s);

/* str_toupper and str_tolower convert *s in place by toupper and tolower of the C library, so in the
 * process's locale, and return s. A NULL *s becomes "". */
KUTIL_API char **str_toupper(char **s);
KUTIL_API char **str_tolower(char **s);

/* str_strip drops the characters of *s that occur in `chars` (`remove` not 0), or keeps only those (`remove`
 * 0), and returns s. A NULL *s becomes "". */
KUTIL_API char **str_strip(char **s, const char *chars, int remove);

/* str_strip_non_digit keeps the decimal digits of *s and returns s. A NULL *s becomes "". */
KUTIL_API char **str_strip_non_digit(char **s);

/* str_strip_ansi removes terminal escape sequences from *s in place and returns s: ESC "[", then digits and
 * "=?#;", then one more character. A sequence that the end of the text cuts off is removed. A NULL *s becomes
 * "", and stays NULL without a report when memory runs out. */
KUTIL_API char **str_strip_ansi(char **s);

/* str_valid_terminate_nl appends one blank to a *s that is not empty and does not end in a line feed, and
 * returns s. A NULL *s becomes "". Deliberate: a blank, not a line feed; stored texts depend on it. */
KUTIL_API char **str_valid_terminate_nl(char **s);

/* Formatting */

/* str_vprintf_full makes *s the text that printf makes of `format` and `ap`, or appends it with STR_F_APPEND
 * in `flags`, and returns s. The values may point into *s. A refused format is the fatal report "Error in
 * printf format (FORMAT)". `ap` is used up. */
KUTIL_API char **str_vprintf_full(char **s, uint32_t flags, const char *format, va_list ap)
    KUTIL_PRINTF(3, 0);

/* str_printf and str_vprintf make *s the formatted text and return s, as str_vprintf_full without flags. */
KUTIL_API char **str_printf(char **s, const char *format, ...) KUTIL_PRINTF(2, 3);
KUTIL_API char **str_vprintf(char **s, const char *format, va_list ap) KUTIL_PRINTF(2, 0);

/* str_catprintf appends the formatted text to *s and returns s, as str_vprintf_full with STR_F_APPEND. */
KUTIL_API char **str_catprintf(char **s, const char *format, ...) KUTIL_PRINTF(2, 3);

/* strcat_printf appends the formatted text and a NUL to the text in the caller's buffer `buf` and returns
 * buf. There is no bound: the buffer must have the room. */
KUTIL_API char *strcat_printf(char *buf, const char *format, ...) KUTIL_PRINTF(2, 3);

/* str2buf writes the characters of the formatted text to `dst`, which must have the room, and returns their
 * number; a NULL dst gives 0. Deliberate: no NUL is written, the text is for fields of fixed width. */
KUTIL_API size_t str2buf(char *dst, const char *format, ...) KUTIL_PRINTF(2, 3);

/* buf2str copies `n` bytes of `src` to `dst` and writes a NUL behind them; dst must hold n + 1 bytes. A NULL
 * src makes dst "". */
KUTIL_API void buf2str(char *dst, const char *src, size_t n);

/* strncpyz copies at most `n` characters of `src` to `dst`, fills the rest of the n bytes with NULs and
 * writes a NUL at dst[n]; dst must hold n + 1 bytes. Source: strncpy of C. */
KUTIL_API void strncpyz(char *dst, const char *src, size_t n);

/* itoa, utoa, ulltoa, u32toa and u64toa return the decimal text of `n`, each in its own static buffer that
 * its next call overwrites. */
KUTIL_API char *itoa(int n);
KUTIL_API char *utoa(uint32_t n);
KUTIL_API char *ulltoa(uint64_t n);
KUTIL_API char *u32toa(uint32_t n);
KUTIL_API char *u64toa(uint64_t n);

/* ftoa returns the "%f" text of `n`, cut after 77 characters, in its own static buffer that its next call
 * overwrites. */
KUTIL_API char *ftoa(double n);

/* str_buf_fastcat appends `s1` and then `s2` to the text of `buf` and returns its new length. When the room
 * does not suffice, the size becomes twice the sum of both lengths and the old size, and pointers into the
 * old data end. A NULL buf gives 0; a size that an int cannot hold counts as running out of memory. */
KUTIL_API int str_buf_fastcat(str_buf *buf, const char *s1, const char *s2);

/* Plain buffers, changed in place: no ownership, the argument is returned, NULL stays NULL */

/* strltrim, strrtrim and strtrim remove the white space at the start (the text moves left), the end, both
 * ends of `s`; strchomp is strrtrim. */
KUTIL_API char *strltrim(char *s);
KUTIL_API char *strrtrim(char *s);
KUTIL_API char *strtrim(char *s);
KUTIL_API char *strchomp(char *s);

/* strtoupper converts the ASCII letters of `s` to upper case. */
KUTIL_API char *strtoupper(char *s);

/* Comparing and testing: truth values are 1 and 0 */

/* str_cmp compares `a` with `b`: below 0, 0 or above 0. Source: strcmp of C. */
KUTIL_API int str_cmp(const char *a, const char *b);

/* str_casecmp is str_cmp ignoring the case of ASCII letters, which compare as lower case. */
KUTIL_API int str_casecmp(const char *a, const char *b);

/* str_cmpsub and str_casecmpsub compare only as many characters as `prefix` has: 0 when s starts with it. The
 * case form ignores case. */
KUTIL_API int str_cmpsub(const char *s, const char *prefix);
KUTIL_API int str_casecmpsub(const char *s, const char *prefix);

/* str_rcasecmpsub compares the end of `s` with `suffix`, ignoring case: 0 when s ends with it. 1 when either
 * is empty or s is shorter. */
KUTIL_API int str_rcasecmpsub(const char *s, const char *suffix);

/* str_ends_with says whether `s` ends with `suffix`; every text ends with "". */
KUTIL_API int str_ends_with(const char *s, const char *suffix);

/* str_cmpdelim and str_casecmpdelim compare the part of `s` before its first character from `delims`, all of
 * it when there is none, with `word`: 0 when they are equal. 1 when there is a delimiter and the lengths
 * differ. The case form ignores case. */
KUTIL_API int str_cmpdelim(const char *s, const char *word, const char *delims);
KUTIL_API int str_casecmpdelim(const char *s, const char *word, const char *delims);

/* str_wscmp compares `a` with `b` ignoring all white space: 0 when they are equal, else the first differing
 * character of b minus that of a, as signed characters. Deliberate: the opposite sign of str_cmp; sort orders
 * depend on it. */
KUTIL_API int str_wscmp(const char *a, const char *b);

/* str_isempty says whether `s` is NULL or "". */
KUTIL_API int str_isempty(const char *s);

/* str_isspace says whether `s` is NULL or nothing but white space, "" included. */
KUTIL_API int str_isspace(const char *s);

/* str_hasspace says whether `s` has white space anywhere. NULL: 0. */
KUTIL_API int str_hasspace(const char *s);

/* str_isnumber says whether `s` is 1 to 10 decimal digits and nothing else; with `allow_ws` white space may
 * stand before and behind them. There is no sign. NULL: 0. */
KUTIL_API int str_isnumber(const char *s, int allow_ws);

/* str_isxdigit says whether every character of `s` is a hexadecimal digit, which is true of "". NULL: 0. */
KUTIL_API int str_isxdigit(const char *s);

/* str_is_ascii says whether every character of `s` is in 1..127. */
KUTIL_API int str_is_ascii(const char *s);

/* char_is_valid says whether `ch` is printable ASCII, 32..126. */
KUTIL_API int char_is_valid(int ch);

/* charset_is_valid says whether every character of `s` is printable ASCII. NULL: 1. */
KUTIL_API int charset_is_valid(const char *s);

/* The validators below say whether a text may be a user name of the kind. NULL and "" are acceptable.
 *
 * sip_username_charset_is_valid: printable ASCII without blank : @ " | \ = < > [ ] ? , ; */
KUTIL_API int sip_username_charset_is_valid(const char *s);

/* knet_password_charset_is_valid: printable ASCII without blank : @ " | \ / = + < > [ ] * ? , ; _ */
KUTIL_API int knet_password_charset_is_valid(const char *s);

/* username_charset_is_valid: printable ASCII without blank : " | \ / = + < > [ ] * ? , ; */
KUTIL_API int username_charset_is_valid(const char *s);

/* credentials_charset_is_valid: anything, printable or not, without blank : @ " | \ / = + < > [ ] * ? , ; */
KUTIL_API int credentials_charset_is_valid(const char *s);

/* Scanning: results point into the text that was searched, which stays the caller's */

/* str_nlen returns the length of `s`, or `max` when it is longer; it reads no further. */
KUTIL_API size_t str_nlen(const char *s, size_t max);

/* strrevchr returns the last `ch` from `start` to `end`, both included, or NULL. NUL bytes are no ends. */
KUTIL_API char *strrevchr(const char *start, int ch, const char *end);

/* strchrs returns the first character of `s` that occurs in `chars`, or NULL. */
KUTIL_API char *strchrs(const char *s, const char *chars);

/* str_cspn returns the number of leading characters of `s` that do not occur in `chars`. */
KUTIL_API size_t str_cspn(const char *s, const char *chars);

/* str_count_chrs returns how many characters of `s` occur in `chars`. */
KUTIL_API size_t str_count_chrs(const char *s, const char *chars);

/* str_count_str returns the number of occurrences of `sub` in `s` that do not overlap, counted from the left.
 * An empty sub: 0. */
KUTIL_API size_t str_count_str(const char *s, const char *sub);

/* strnstr returns the first occurrence of the text `sub` that lies within the `n` bytes at `s`, or NULL. A
 * NUL byte does not end the search, in contrast to the BSD function of this name. An empty sub is found at s.
 */
KUTIL_API char *strnstr(const char *s, const char *sub, size_t n);

/* str_memstr returns the first occurrence of the text `sub` that lies within the `n` bytes at `buf`, or NULL.
 * An empty sub is found at buf. */
KUTIL_API char *str_memstr(const void *buf, const char *sub, size_t n);

/* strstrcase returns the first occurrence of `sub` in `s` ignoring case, or NULL; NULL too when s is empty.
 */
KUTIL_API char *strstrcase(const char *s, const char *sub);

/* strtokz returns the text up to the next character from `delims`, over which it writes a NUL, and remembers
 * what follows; `s` NULL goes on there. Delimiters in a row give empty texts. NULL when the text is used up.
 * The position is one for the process, and the text must live until the last call. */
KUTIL_API char *strtokz(char *s, const char *delims);

/* tok_match returns the place behind `tok` in `s` when s starts with it, ignoring case, or NULL. */
KUTIL_API char *tok_match(const char *s, const char *tok);

/* tok_match_skip is tok_match that also passes the blanks and tabs behind tok. */
KUTIL_API char *tok_match_skip(const char *s, const char *tok);

/* str_re matches `text` with the regular expression `pattern`: 0 when it occurs anywhere in it, else not 0. A
 * pattern that is no regular expression, or NULL, matches nothing. Source: extended regular expressions of
 * POSIX, with case. */
KUTIL_API int str_re(const char *text, const char *pattern);

KUTIL_END_DECLS

#endif
