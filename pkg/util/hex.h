#ifndef KUTIL_UTIL_HEX_H
#define KUTIL_UTIL_HEX_H

/* hex.h: hexadecimal text of numbers and of bytes.
 *
 * Nothing here allocates. The two conversions of byte blocks write to a buffer of the caller, who knows the
 * size: two digits and nothing else make one byte. Input and output must not overlap, except that hex_2_bin
 * may write over the text that it reads. */

#include "api.h"

#include <stddef.h>
#include <stdint.h>

KUTIL_BEGIN_DECLS

/* hex2int returns the number that `text` starts with, in base 16 with an optional sign and "0x" behind white
 * space; 0 when there is none. Numbers beyond 32 bits saturate at 0xffffffff; the result is that pattern as
 * an int. Source: strtoul of C with a 32-bit unsigned long. */
KUTIL_API int hex2int(const char *text);

/* int2hex returns the "%x" text of the 32 bits of `n` in its own static buffer, which its next call
 * overwrites. */
KUTIL_API char *int2hex(int n);

/* bin_2_hex writes two lower-case digits for each of the `len` bytes at `bytes` and a NUL to `out`, which
 * must have 2 * len + 1 bytes, and returns out. NULL bytes give "", a NULL out gives NULL. */
KUTIL_API char *bin_2_hex(const void *bytes, size_t len, char *out);

/* hex_2_bin writes the bytes whose digits `text` is, in either case, to `out` and returns their number. A
 * text of odd length or with another character gives 0 and writes nothing; so do NULL arguments. */
KUTIL_API size_t hex_2_bin(const char *text, void *out);

KUTIL_END_DECLS

#endif
