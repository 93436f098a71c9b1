#ifndef KUTIL_UTIL_BASE64_H
#define KUTIL_UTIL_BASE64_H

/* base64.h: bytes as text of 64 letters, and back.
 *
 * The alphabet is the usual one, with "+" and "/" and "=" as padding (RFC 4648, section 4). Encoding writes
 * one line whatever the length. Decoding is for texts from a peer: it takes what is there up to the first
 * character that does not belong, and never writes more than three bytes for four characters of its input.
 * Both work on buffers of the caller, allocate nothing and report nothing. Secrets pass through here, so the
 * caller clears its buffers. */

#include "api.h"

KUTIL_BEGIN_DECLS

/* base64_enc writes the `len` bytes at `src` as base64 text with a NUL to `dst` and returns the length
 * without that NUL. `dst` needs 4 * ((len + 2) / 3) + 1 bytes and must not overlap `src`. A NULL src or a len
 * below 1 writes "" and returns 0; a NULL dst gives 0. A text longer than INT32_MAX is not written: -1. */
KUTIL_API int base64_enc(char *dst, const void *src, int len);

/* base64_dec writes the bytes that the text `src` stands for to `dst`, without a NUL, and returns their
 * count. White space is passed over; the first "=" or other foreign character ends the text, and bits that
 * fill no byte are dropped. `dst` needs 3 * (strlen(src) / 4) + 2 bytes and may be `src`. Returns -1 when not
 * one byte results, also for NULL, and when they are more than INT32_MAX. */
KUTIL_API int base64_dec(void *dst, const char *src);

KUTIL_END_DECLS

#endif
