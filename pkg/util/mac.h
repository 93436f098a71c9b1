#ifndef KUTIL_UTIL_MAC_H
#define KUTIL_UTIL_MAC_H

/* mac.h: MAC addresses, and the two numbers that interface tables want to know of a hardware type.
 *
 * A MAC address is 6 bytes of the caller, read through `const uint8_t *`; NULL reads as 00:00:00:00:00:00. A
 * masked MAC is an address and the mask of the bits that count.
 *
 * Results of the readers and of mactoa are static buffers, each valid until the next call of the same
 * function; atomac, atomacz, atomac_valid and atomac_cpy share one. Only mac_list_add allocates, and running
 * out of memory ends the process there. */

#include "api.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

/* A MAC address and which of its bits count. */
typedef struct masked_mac {
    uint8_t mac[6];
    uint8_t mask[6];
} masked_mac;

/* A list of MAC addresses, newest first. NULL is the empty list. */
typedef struct mac_list {
    struct mac_list *next;
    uint8_t mac[6];
} mac_list;

/* ff:ff:ff:ff:ff:ff */
KUTIL_API extern const uint8_t bcast_mac[6];

/* atomac reads six hexadecimal numbers joined by colons and returns the address in the static buffer, NULL
 * for anything else. It reads like scanf's "%2x": each number has one or two characters, may have white space
 * before it, and what follows the sixth is ignored. */
KUTIL_API uint8_t *atomac(const char *text);

/* atomacz is atomac of a text of exactly 17 characters. */
KUTIL_API uint8_t *atomacz(const char *text);

/* atomac_valid is atomacz that returns NULL also for the all-zero address unless `allow_zero`, for an address
 * mask (is_valid_netmask_mac, the full one too) unless `allow_mask`, and, with `reject_group`, for a group
 * address. Deliberate: `allow_mask` lets group addresses through whatever `reject_group` says, since masks
 * look like them. */
KUTIL_API uint8_t *atomac_valid(const char *text, int allow_zero, int allow_mask, int reject_group);

/* atomac_cpy copies what atomac reads to `out` and returns 0; 1 when it reads nothing or `out` is NULL, with
 * `out` as it was. */
KUTIL_API int atomac_cpy(const char *text, uint8_t out[6]);

/* mactoa returns the address as "00:11:22:aa:bb:cc", lower case, in its static buffer. */
KUTIL_API char *mactoa(const uint8_t *mac);

/* mac_no_colons returns "001122aabbcc" of a text that begins like "00:11:22:aa:bb:cc" in its static buffer:
 * twelve characters with a colon behind every second one, else NULL. Which characters they are is not looked
 * at. */
KUTIL_API char *mac_no_colons(const char *text);

/* is_mac_zero tells whether all six bytes are 0. */
KUTIL_API int is_mac_zero(const uint8_t *mac);

/* is_bcast_mac tells whether the address is bcast_mac. */
KUTIL_API int is_bcast_mac(const uint8_t *mac);

/* masked_mac_cmp compares the bits of m->mac and `mac` that the mask names: 0 when they are equal, else the
 * sign of memcmp. A NULL `m` is equal to everything: its mask is empty. */
KUTIL_API int masked_mac_cmp(const masked_mac *m, const uint8_t *mac);

/* is_valid_netmask_mac tells whether the address is an address mask: leading ones, at least one, and only
 * zeros behind them. The full mask gives `allow_full`, NULL gives 0. */
KUTIL_API int is_valid_netmask_mac(const uint8_t *mac, int allow_full);

/* mac_increment adds 1 to the last three bytes, the number of the interface; the vendor's three stay. Returns
 * 0. After ff:ff:ff comes 00:00:00, with the report "%s:%d: Network interface controller numbers exhausted"
 * with function and line at err and the result -1. NULL: nothing. */
KUTIL_API int mac_increment(uint8_t mac[6]);

/* mac_subtract returns a - b, both taken as 48-bit numbers with the first byte on top. */
KUTIL_API int64_t mac_subtract(const uint8_t *a, const uint8_t *b);

/* mac_list_add puts a copy of `mac` in front of the list in *head and returns the new node, which belongs to
 * the list. A NULL head: NULL. */
KUTIL_API mac_list *mac_list_add(mac_list **head, const uint8_t *mac);

/* mac_list_free frees all nodes and sets *head to NULL. */
KUTIL_API void mac_list_free(mac_list **head);

/* iana_if_type_get returns the ifType of IANA for a hardware type (ARPHRD_*) of Linux: Ethernet (6), IEEE
 * 1394 and such (1, other) and so on; 1 for every type that it does not know. Source: IANAifType-MIB. */
KUTIL_API int iana_if_type_get(int arphrd);

/* if_speed_guess returns the bits per second to show for an interface of that ifType when its driver does not
 * tell: 4000000 for a token ring (9), else 10000000. */
KUTIL_API uint32_t if_speed_guess(int type);

KUTIL_END_DECLS

#endif
