#ifndef KUTIL_UTIL_SET_VALUE_H
#define KUTIL_UTIL_SET_VALUE_H

/* set_value.h: values of the configuration tree, reached by path.
 *
 * Every value is kept as text. A getter looks the path up with the get mask (set_get) and converts the text
 * that the key holds; a setter converts to text and stores it with set_set_path_str, whose result it returns:
 * the handle of the value's node, or NULL when nothing could be made. A key that is absent, or holds nothing,
 * gives the stated absent result; nothing is ever reported.
 *
 * The texts: decimal numbers; "1" or "0" for a flag; digits of base 16; "%f" with a decimal point in every
 * locale; the canonical word of an enumeration; addresses as iaddr2str and mactoa write them; bytes as two
 * hexadecimal digits each. Numbers are read as the C library of a 32-bit machine reads them, on every host:
 * leading white space and a sign are taken, int saturates at 32 bits, an unsigned number saturates at its
 * size, and "-1" is the largest one.
 *
 * A secret is stored obscured (conf_crypt.h) under the current configuration key, as the hexadecimal text of
 * its bytes. Texts that are returned without the word "new" belong to the tree and are valid until the key
 * changes. */

#include "code2str.h"
#include "iaddr.h"
#include "set_node.h"

#include <stddef.h>
#include <time.h>

KUTIL_64_BIT_TIME;

KUTIL_BEGIN_DECLS

/* --- Texts --- */

/* set_get_path_str returns the text that the key at `path` holds, or NULL. */
KUTIL_API char *set_get_path_str(set **handle, const char *path);

/* set_get_path_strz is set_get_path_str with "" for NULL; do not write to it. */
KUTIL_API char *set_get_path_strz(set **handle, const char *path);

/* set_get_path_str_default is set_get_path_str with `def` for NULL; do not write to it. */
KUTIL_API char *set_get_path_str_default(set **handle, const char *path, const char *def);

/* --- Numbers --- */

/* set_get_path_int returns the text as atoi reads it, saturated to 32 bits; 0 when absent. set_get_path_flag
 * is the same: any number but 0 is set. */
KUTIL_API int set_get_path_int(set **handle, const char *path);
KUTIL_API int set_get_path_flag(set **handle, const char *path);

/* set_get_path_int_default returns the number that the text is, and `def` when it is absent, empty, no
 * number, followed by anything (a blank, too) or beyond 32 bits. set_get_path_flag_default is the same. */
KUTIL_API int set_get_path_int_default(set **handle, const char *path, int def);
KUTIL_API int set_get_path_flag_default(set **handle, const char *path, int def);

/* set_get_path_u32 returns the text as strtoul reads it, saturated to 32 bits; 0 when absent. The default
 * form returns `def` where set_get_path_int_default does. */
KUTIL_API uint32_t set_get_path_u32(set **handle, const char *path);
KUTIL_API uint32_t set_get_path_u32_default(set **handle, const char *path, uint32_t def);

/* set_get_path_u64 returns the text as strtoull reads it, saturated to 64 bits; 0 when absent.
 * set_get_path_time is the same as a time: what set_set_path_time stored for a time before 1970 reads back.
 */
KUTIL_API uint64_t set_get_path_u64(set **handle, const char *path);
KUTIL_API time_t set_get_path_time(set **handle, const char *path);

/* set_get_path_hex returns the number in base 16, as hex2int; 0 when absent. */
KUTIL_API int set_get_path_hex(set **handle, const char *path);

/* set_get_path_float returns the number as atof reads it in the C locale; 0 when absent. */
KUTIL_API double set_get_path_float(set **handle, const char *path);

/* set_get_path_enum returns the code of the word in `table` (an alias too), -1 when the key is absent or
 * holds another word. The default form returns `def` when the key is absent, and -1 for a foreign word. */
KUTIL_API int set_get_path_enum(set **handle, const char *path, const code_names *table);
KUTIL_API int set_get_path_enum_default(set **handle, const char *path, const code_names *table, int def);

KUTIL_API set **set_set_path_int(set **handle, const char *path, int n);
/* set_set_path_flag stores "1" for any `on` but 0. */
KUTIL_API set **set_set_path_flag(set **handle, const char *path, int on);
KUTIL_API set **set_set_path_u32(set **handle, const char *path, uint32_t n);
KUTIL_API set **set_set_path_u64(set **handle, const char *path, uint64_t n);
/* set_set_path_time stores the time widened to 64 bits and without a sign: -1 is "18446744073709551615". */
KUTIL_API set **set_set_path_time(set **handle, const char *path, time_t t);
KUTIL_API set **set_set_path_hex(set **handle, const char *path, int n);
/* set_set_path_float stores six digits behind the point. A text of more than 77 characters is cut,
 * as ftoa says. */
KUTIL_API set **set_set_path_float(set **handle, const char *path, double n);
/* set_set_path_enum stores the canonical word of `code`. A code without a word gives NULL, and nothing is
 * made. */
KUTIL_API set **set_set_path_enum(set **handle, const char *path, const code_names *table, int code);

/* --- Addresses and bytes --- */

/* set_get_path_ip_ex stores the address that the text is, all zero when it is none (str2iaddr), and returns
 * out. A NULL out gives NULL. */
KUTIL_API iaddr *set_get_path_ip_ex(iaddr *out, set **handle, const char *path);

/* set_get_path_ip stores the IPv4 address that the text is, as a number in host order, 0 when it is none, and
 * returns out. */
KUTIL_API uint32_t *set_get_path_ip(uint32_t *out, set **handle, const char *path);

/* set_get_path_ip_default stores the address of the text as zel_inet_aton reads it, else that of `def`, 0
 * when that is none either, and returns out. */
KUTIL_API uint32_t *set_get_path_ip_default(uint32_t *out, set **handle, const char *path, const char *def);

/* set_get_path_ip_prefix_len returns the length of a network part: the number that the text is
 * (str_isnumber), or the leading one bits of the mask that it is. Deliberate: only the low 8 bits, so that
 * "300" is 44. */
KUTIL_API int set_get_path_ip_prefix_len(set **handle, const char *path);

/* set_get_path_mac stores the six bytes that the text is (atomac), zeros when it is none, and returns out. */
KUTIL_API uint8_t *set_get_path_mac(uint8_t out[6], set **handle, const char *path);

/* set_get_path_bin_len returns the number of bytes: half the number of characters, 0 when that is odd or the
 * key absent. */
KUTIL_API int set_get_path_bin_len(set **handle, const char *path);

/* set_get_path_bin_buf writes the bytes to `buf`, which must have as many as set_get_path_bin_len says, and
 * returns their number. An odd or absent text writes nothing and gives 0; one with a character that is no
 * digit writes zeros and gives 0. */
KUTIL_API int set_get_path_bin_buf(set **handle, const char *path, void *buf);

/* set_set_path_ip_ex stores iaddr2str of *a, "" when it holds no address. */
KUTIL_API set **set_set_path_ip_ex(set **handle, const char *path, const iaddr *a);
/* set_set_path_ip stores the IPv4 address `ip`, a number in host order. */
KUTIL_API set **set_set_path_ip(set **handle, const char *path, uint32_t ip);
/* set_set_path_mac stores mactoa of the six bytes. */
KUTIL_API set **set_set_path_mac(set **handle, const char *path, const uint8_t *mac);
/* set_set_path_bin stores `len` bytes, "" for none. */
KUTIL_API set **set_set_path_bin(set **handle, const char *path, int len, const void *bytes);

/* ip_set_set_or_free_ex stores *a at `path` when it holds an address other than the any-address; otherwise it
 * frees the node there (set_free). ip_set_set_or_free does the same with an IPv4 number other than 0. */
KUTIL_API void ip_set_set_or_free_ex(set **handle, const char *path, const iaddr *a);
KUTIL_API void ip_set_set_or_free(set **handle, const char *path, uint32_t ip);

/* --- Several values --- */

/* set_set_path_delim_list frees all sons of the node and gives it, for each piece of `text` between `delims`,
 * a son "0", "1", ... that holds the piece at `path`. `skip_empty` and the rule of the last piece are
 * lines_str_split's. */
KUTIL_API void set_set_path_delim_list(set **handle, const char *path, const char *text, const char *delims,
                                       int skip_empty);

/* set_set_path_key_list makes `path` and below it, for every row of `table`, hidden ones too, the flag that
 * has the row's canonical word for a name: 1 when `bits` and the row's code share a bit. Rows without words
 * are skipped. Returns -1. */
KUTIL_API int set_set_path_key_list(set **handle, const char *path, const code_names *table, uint32_t bits);

/* set_split_get returns the handle of "split/shared" (`kind` 1) or "split/specific" (2) below the node, NULL
 * when absent; any other kind returns handle. set_split_set makes it. */
KUTIL_API set **set_split_get(set **handle, int kind);
KUTIL_API set **set_split_set(set **handle, int kind);

/* --- Secrets --- */

/* set_set_path_obscured stores `text` obscured. Returns 0; -1 when `text` is NULL, no key is current, or
 * nothing could be made. */
KUTIL_API int set_set_path_obscured(set **handle, const char *path, const char *text);

/* set_get_path_unobscured returns the stored secret as a new text, "" when there is none or the number of its
 * digits is odd. NULL when what is stored cannot have been obscured (another character, or no whole blocks)
 * or no key is current; under another key it is some other text. */
KUTIL_API char *set_get_path_unobscured(set **handle, const char *path);

/* set_path_unobscured_is_equal returns 1 when the stored secret is exactly `text`, else 0. */
KUTIL_API int set_path_unobscured_is_equal(set **handle, const char *path, const char *text);

/* set_get_path_unobscured_buf copies at most `size` - 1 characters of the secret to `buf` and ends it with a
 * NUL; "" where set_get_path_unobscured gives NULL. Nothing is written for a size of 0 or less. */
KUTIL_API void set_get_path_unobscured_buf(set **handle, const char *path, char *buf, int size);

/* set_set_path_bin_obscured stores `len` bytes in the keyless form of obscure_bin, "" for none. Returns 0; -1
 * for NULL bytes, when there is no memory for the copy (reported at err) and when nothing could be made. */
KUTIL_API int set_set_path_bin_obscured(set **handle, const char *path, int len, const void *bytes);

/* set_get_path_bin_buf_unobscured is set_get_path_bin_buf with the bytes as they were before
 * set_set_path_bin_obscured. */
KUTIL_API int set_get_path_bin_buf_unobscured(set **handle, const char *path, void *buf);

KUTIL_END_DECLS

#endif
