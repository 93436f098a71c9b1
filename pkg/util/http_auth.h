#ifndef KUTIL_UTIL_HTTP_AUTH_H
#define KUTIL_UTIL_HTTP_AUTH_H

/* http_auth.h: HTTP authentication by Basic and Digest, for servers and for clients (RFC 2617; MD5 only,
 * quality of protection "auth" only).
 *
 * No connection is owned here. The caller hands over the request's method, URL and header value, the stream
 * to write header lines to and, as a server, a callback that looks a password up. A server calls
 * http_check_auth, and answers what is not HTTP_AUTH_OK with status 401 (407 as a proxy) and
 * http_send_challenge; on HTTP_AUTH_STALE with `stale` set, so that the client tries again without asking its
 * user. A client hands the challenge to http_send_auth_header.
 *
 * A Digest nonce is valid for 60 seconds and only in the process that made it: it carries its time and a
 * random number, and a hash over both and a secret of the process. Within that time a captured header is
 * accepted again for the same method, since nonce counts are not kept. The Digest `uri` is not compared with
 * the request, only reported when it differs.
 *
 * Random numbers in nonces come from rand(), which is never seeded here; the secret comes from libcrypto, and
 * having no randomness or no MD5 there ends the process, as running out of memory does. What the peer sent is
 * written to the log only as a value of a report. Passwords and what is made of them are cleared from memory
 * before it is freed, and compared in a time that does not depend on where they differ. */

#include "estream.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

/* Flags of http_send_challenge. */
#define HTTP_AUTH_BASIC 1  /* offer Basic */
#define HTTP_AUTH_DIGEST 2 /* offer Digest */
#define HTTP_AUTH_PROXY 4  /* as a proxy: Proxy-Authenticate instead of WWW-Authenticate */

/* Results of http_check_auth besides -1. */
#define HTTP_AUTH_OK 0     /* the user is who the header says */
#define HTTP_AUTH_DENIED 1 /* wrong user or password, or a quality of protection that is not supported */
#define HTTP_AUTH_STALE                                                                                      \
    2 /* right, but the nonce is too old or not of this process: challenge again, with stale */
#define HTTP_AUTH_NONE 4 /* no header, or a scheme other than Basic and Digest */

/* What one call works on. The texts are the caller's and stay unchanged; NULL counts as "", and a NULL header
 * is none. When the header's scheme is Basic or Digest, a call moves `header` behind the scheme word and the
 * white space there, so it is set anew for the next one. */
typedef struct http_auth_request {
    const char *method; /* GET, POST and so on */
    const char *url;    /* as the request has it */
    const char *header; /* the value of Authorization (server), of WWW- or Proxy-Authenticate (client) */
} http_auth_request;

/* Looks a password up: (data, user name). The result is a new text, which is cleared and freed with free() by
 * the library, or NULL for an unknown user. */
typedef char *(*http_auth_password_cb)(void *, const char *);

/* The Digest parameters by their names, and the lengths of these: username, realm, nonce, response,
 * algorithm, cnonce, opaque, nc, uri, qop. */
KUTIL_API extern const char *const digest_names[10];
KUTIL_API extern const int digest_name_len[10];

/* http_send_challenge writes the challenge header lines that `flags` ask for to `s`: first Digest with a
 * fresh nonce, and stale="true" when `stale` is not 0, then Basic. The realm is written between quotes as it
 * is, so it should hold none; NULL counts as "". Returns the result of the last write. Deliberate: 0 whenever
 * Basic is not asked for, also after a failed write; a stream that failed is closing and says so itself. A
 * realm with CR or LF: -1, nothing is written. */
KUTIL_API int http_send_challenge(estream *s, int flags, const char *realm, int stale);

/* http_check_auth checks the Authorization value of `req` with the passwords that `get_password` finds, which
 * is called with `data` and the user's name; a NULL callback knows nobody. Returns one of HTTP_AUTH_*, or -1
 * for a header that is malformed: Basic without one decoded byte, and after a warn report Digest that cannot
 * be parsed or lacks username, realm, nonce or uri, or with a qop or md5-sess cnonce or nc. Deliberate: the
 * scheme and the names of parameters are compared over their own length only, so "Basically" is Basic; the
 * uri may differ from `req`'s URL; a nonce that is not of this process is stale. A Basic text with a NUL in
 * its password is denied. Bad Digest logins are reported at warn, bad Basic logins are not. A NULL `req` has
 * no header. */
KUTIL_API int http_check_auth(http_auth_request *req, http_auth_password_cb get_password, void *data);

/* http_send_auth_header writes the Authorization line that answers the challenge in `req` to `s`; NULL
 * username or password count as "". A challenge with a qop, whatever it lists, is answered with qop="auth", a
 * fresh cnonce and nc=00000001. Deliberate: every value but nc stands between quotes, as it is, and the
 * challenge's parameters are echoed, also an algorithm that is not MD5. Returns the first negative result of
 * a write, else 0; -1 without a write when the scheme is neither Basic nor Digest, when the challenge cannot
 * be parsed (after a warn report), or when a value holds CR or LF. */
KUTIL_API int http_send_auth_header(estream *s, const char *username, const char *password,
                                    http_auth_request *req);

/* hmac_md5 writes the 16 bytes of the HMAC-MD5 of `data` under `key` to `digest`. A NULL block or one of a
 * negative length is empty; a NULL digest: nothing happens. Source: RFC 2104. */
KUTIL_API void hmac_md5(const uint8_t *data, int data_len, const uint8_t *key, int key_len,
                        uint8_t digest[16]);

KUTIL_END_DECLS

#endif
