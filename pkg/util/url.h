#ifndef KUTIL_UTIL_URL_H
#define KUTIL_UTIL_URL_H

/* url.h: URLs of the download clients, host:port pairs, and whether a text is a domain name, a host name, an
 * e-mail address or an IPv4 address.
 *
 * The validators answer 1 or 0 and never report; NULL is not valid. Where they take an `end`, the text ends
 * there (it points behind the last character, which need not be a NUL); NULL means the end of the string.
 * They accept ASCII only and look nothing up.
 *
 * parse_url fills a record of the caller with heap texts, which parsed_url_uninit frees. Running out of
 * memory ends the process. */

#include "api.h"

KUTIL_BEGIN_DECLS

typedef enum url_scheme {
    URL_SCHEME_FTP = 1,
    URL_SCHEME_HTTP = 2,
    URL_SCHEME_HTTPS = 3,
    URL_SCHEME_TFTP = 4
} url_scheme;

/* The parts of a URL. A text that the URL does not have is NULL; one that is there but empty is "". */
typedef struct parsed_url {
    int scheme; /* a url_scheme, 0 when the record is clear */
    char *user;
    char *password;
    char *host;     /* an IPv6 address without its brackets */
    int port;       /* the scheme's own (80, 443, 21, 69) unless given */
    int port_given; /* 1 when the URL carries a port */
    char *path;     /* without the leading "/" */
    char *query;    /* what follows "?", HTTP and HTTPS only */
} parsed_url;

/* parse_url splits `url` into *out, which is overwritten, not freed, and returns 0. On refusal *out is clear,
 * the reason is reported at err, and -1 is returned: another scheme ("Not a HTTP, HTTPS, FTP or TFTP url:
 * %s"), an FTP or TFTP URL without "/" behind the host ("The URL path must not be empty for FTP/TFTP"), an
 * open bracket that is never closed ("Host IPv6 address needs to be inside [ ]").
 *
 * It splits and does not judge: the texts are as they stand, escapes included; a host may be empty; a port is
 * read as strtol does, so it may be 0 for a text that is no number, negative, or above 65535, and saturates
 * at 32 bits; what stands between "]" and the port's ":" is dropped. The last "@" before the path ends the
 * user information. */
KUTIL_API int parse_url(const char *url, parsed_url *out);

/* parsed_url_uninit frees the texts and clears the record. NULL: nothing. */
KUTIL_API void parsed_url_uninit(parsed_url *out);

/* url_has_transport tells whether the text begins with "http://", "https://", "ftp://" or "tftp://", in any
 * case. */
KUTIL_API int url_has_transport(const char *text);

/* split_host_port splits "host:port", "[host]:port" or either without the port in place: *host and *port
 * point into `text`, *port is NULL when there is none. The first ":" separates, so an IPv6 address needs its
 * brackets; what follows "]" without ":" is ignored. Returns 0; -1, with both NULL, when "]" is missing or
 * `text` is NULL. */
KUTIL_API int split_host_port(char *text, char **host, char **port);

/* is_valid_domain_name tells whether the text is a domain name: 1 to 255 characters, labels joined by single
 * dots, each of 1 to 63 letters, digits, "-" and "_" that begins with a letter or digit and does not end with
 * "-" or "_", the last one beginning with a letter. */
KUTIL_API int is_valid_domain_name(const char *text, const char *end);

/* is_valid_host_name tells whether the text is a name of at most 63 letters, digits, "-", "_" and "." that
 * begins with a letter or digit and does not end with "-" or "_". */
KUTIL_API int is_valid_host_name(const char *text, const char *end);

/* is_valid_email tells whether the text is 7-bit, has 1 to 64 characters before its first "@" and a domain
 * name behind it, and is not too long: at most 320 characters without an `end`, 319 with one. Deliberate:
 * with an `end` one character more is counted than there is, as it always was. */
KUTIL_API int is_valid_email(const char *text, const char *end);

/* is_valid_domain_or_ip tells whether the text is a domain name with a letter in it, or four decimal numbers
 * other than 0.0.0.0. Deliberate: every other form of a numeric address is refused, IPv6 and the short IPv4
 * forms too. */
KUTIL_API int is_valid_domain_or_ip(const char *text, const char *end);

/* is_valid_ip tells whether the text is four numbers below 256 joined by dots, read as scanf's "%d" does:
 * white space and a sign may stand before all but the first, white space behind the last. */
KUTIL_API int is_valid_ip(const char *text);

KUTIL_END_DECLS

#endif
