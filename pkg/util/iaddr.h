#ifndef KUTIL_UTIL_IADDR_H
#define KUTIL_UTIL_IADDR_H

/* iaddr.h: IPv4 and IPv6 addresses, subnets and masks.
 *
 * An iaddr is a value: 16 address bytes and the address family, passed and returned like a number, never
 * allocated. A subnet is an iaddr and a prefix length. The ip_addr_ functions work on bare address bytes and
 * take the family as an argument: they touch 4 bytes for AF_INET and 16 for every other family. Bytes behind
 * those of the family are no part of a value: nothing compares them, and some functions leave them as they
 * were.
 *
 * Byte order: the bytes of an address are in network order. Every IPv4 address or mask that is a number
 * (uint32_t) has its first octet on top, and every port is a plain number; nothing outside this family
 * converts.
 *
 * Pointers: a NULL `const iaddr *` counts as a value that holds no address (family 0, bytes 0), NULL address
 * bytes (`const void *`, which need no alignment) count as zeros, a NULL text is refused, a NULL output is
 * not written.
 *
 * The text results are static buffers: one shared by ip_addr2str and iaddr2str, one of subnet2str, one of
 * inet_ntoa_t. Each is valid until the next call of its functions. Nothing here allocates, and no call ends
 * the process. */

#include "api.h"

#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>

KUTIL_BEGIN_DECLS

/* Bare address bytes in network order, 4 of them for IPv4. A word is a number of the host, not of the
 * network. */
typedef union ip_addr {
    uint8_t bytes[16];
    uint32_t words[4];
    struct in_addr in;
    struct in6_addr in6;
} ip_addr;

/* An address. A family other than AF_INET and AF_INET6 means that it holds none. */
typedef struct iaddr {
    ip_addr addr;
    uint16_t family;
} iaddr;

/* An address and the length of its network part in bits: 0 to 32 for IPv4, 0 to 128 for IPv6. */
typedef struct subnet {
    iaddr addr;
    uint32_t prefix_len;
} subnet;

/* The result of iaddr_get_type. */
typedef enum iaddr_type {
    IADDR_TYPE_LINK_LOCAL = 0,  /* IPv6, see inet_is_addr_lla */
    IADDR_TYPE_OTHER = 1,       /* any other IPv6 address, or no address */
    IADDR_TYPE_IPV4_MAPPED = 2, /* IPv6 ::ffff:a.b.c.d */
    IADDR_TYPE_ULA = 3,         /* IPv6 unique-local */
    IADDR_TYPE_GLOBAL = 4,      /* IPv6 global unicast */
    IADDR_TYPE_IPV4 = 5
} iaddr_type;

/* The source-address callback: (destination, interface name, firewall mark) to an IPv4 source address, 0 for
 * none. */
typedef uint32_t (*matching_src_ip_cb)(uint32_t dst, const char *ifname, uint32_t mark);

/* ---- Making and converting ---- */

/* ip2iaddr makes *out the IPv4 address `ip` and returns out. The bytes behind the first 4 stay. */
KUTIL_API iaddr *ip2iaddr(iaddr *out, uint32_t ip);

/* in_addr2iaddr makes *out the IPv4 address `a` and returns out. The bytes behind the first 4 stay. */
KUTIL_API iaddr *in_addr2iaddr(iaddr *out, struct in_addr a);

/* in6_addr2iaddr makes *out the IPv6 address `a` and returns out. */
KUTIL_API iaddr *in6_addr2iaddr(iaddr *out, struct in6_addr a);

/* iaddr_from_ip_addr makes *out an address of `family` from the bytes at `src` and returns out. */
KUTIL_API iaddr *iaddr_from_ip_addr(uint16_t family, iaddr *out, const void *src);

/* addr2iaddr returns an address of `family` made from the bytes at `src`. */
KUTIL_API iaddr addr2iaddr(uint16_t family, const void *src);

/* iaddr2ip_addr copies the address bytes of *a to *out, as many as its family has, and returns out. */
KUTIL_API ip_addr *iaddr2ip_addr(ip_addr *out, const iaddr *a);

/* ip_addr_cpy copies the address bytes of `family` from `src` to `dst` and returns dst. The two may overlap.
 */
KUTIL_API ip_addr *ip_addr_cpy(uint16_t family, ip_addr *dst, const void *src);

/* ip6_zero clears the 16 bytes of *a. */
KUTIL_API void ip6_zero(ip_addr *a);

/* iaddr2in_addr stores the IPv4 address of *a as a number: of an IPv4 address, or of IPv4-mapped bytes
 * whatever the family. Returns 0, or -1 for any other address, with *out as it was. */
KUTIL_API int iaddr2in_addr(const iaddr *a, uint32_t *out);

/* iaddr2sockaddr writes a sockaddr_in (*len_out 16) or a sockaddr_in6 (*len_out 28; flow information and
 * scope 0) of *a and `port` to `out`, which has room for it: a sockaddr_storage has. Returns 0, or -1 when *a
 * holds no address, with nothing written. */
KUTIL_API int iaddr2sockaddr(struct sockaddr *out, const iaddr *a, uint16_t port, socklen_t *len_out);

/* sockaddr2ip_addr stores family, address bytes (the rest of the 16 cleared) and port of an IPv4 or IPv6
 * socket address. Each output may be NULL. Returns 0, or -1 for another family or a NULL `sa`, with nothing
 * written. */
KUTIL_API int sockaddr2ip_addr(uint16_t *family_out, ip_addr *out, uint16_t *port_out,
                               const struct sockaddr *sa);

/* sockaddr2iaddr is sockaddr2ip_addr into an iaddr. */
KUTIL_API int sockaddr2iaddr(iaddr *out, uint16_t *port_out, const struct sockaddr *sa);

/* sockaddr_set_port sets the port of an IPv4 or IPv6 socket address. Returns 0, -1 for another family or
 * NULL. */
KUTIL_API int sockaddr_set_port(struct sockaddr *sa, uint16_t port);

/* sockaddr_get_port stores the port of an IPv4 or IPv6 socket address. Returns 0; -1 for another family or
 * when an argument is NULL, with *port as it was. */
KUTIL_API int sockaddr_get_port(const struct sockaddr *sa, uint16_t *port);

/* ---- Text ---- */

/* str2ip_addr reads a numeric IPv4 or IPv6 address; names are never looked up. The text is what getaddrinfo
 * of POSIX takes with AI_NUMERICHOST: besides the usual forms also IPv4 in the short and the hexadecimal and
 * octal forms of inet_aton ("10.1" is 10.0.0.1), and IPv6 with a zone ("fe80::1%eth0"), which is dropped. Who
 * wants four decimal numbers asks is_ip_format. Stores family and bytes (the rest of the 16 cleared) and
 * returns 0; -1 when `text` is not an address, with family and bytes cleared; -1 when text or out is NULL,
 * with nothing written. */
KUTIL_API int str2ip_addr(uint16_t *family_out, ip_addr *out, const char *text);

/* str2iaddr is str2ip_addr into an iaddr. */
KUTIL_API int str2iaddr(iaddr *out, const char *text);

/* ip_addr2str returns the text of the address bytes `a` of `family` in a static buffer, "" when the family is
 * none or `a` is NULL. Source of the form: inet_ntop of POSIX, the same on every machine: of IPv6 the longest
 * run of two or more zero words is "::", the first of equal ones, and ::1.2.3.4 and ::ffff:1.2.3.4 end in a
 * quad. */
KUTIL_API char *ip_addr2str(uint16_t family, const void *a);

/* iaddr2str returns ip_addr2str of *a, in the same buffer; "" when it holds no address. */
KUTIL_API char *iaddr2str(const iaddr *a);

/* str2subnet reads "ADDRESS/LENGTH" of at most 49 characters, the address as str2iaddr, the length decimal
 * from 0 to 32 or 128; text behind the number is ignored. The address is kept as written, not masked. Returns
 * 0, or -1 for anything else, with *out as it was. */
KUTIL_API int str2subnet(subnet *out, const char *text);

/* subnet2str returns the text "ADDRESS/LENGTH" in a static buffer of its own, "" when *s holds no address or
 * is NULL. It leaves the buffer of iaddr2str alone. */
KUTIL_API char *subnet2str(const subnet *s);

/* inet_ntoa_t returns the dotted text of `ip` in the static buffer of inet_ntoa of POSIX. */
KUTIL_API char *inet_ntoa_t(uint32_t ip);

/* zel_inet_atonz reads exactly four decimal numbers from 0 to 255, of one to three digits each, leading zeros
 * allowed, joined by dots, and stores the address. Returns 1; 0 for anything else, with *out as it was. */
KUTIL_API int zel_inet_atonz(const char *text, uint32_t *out);

/* zel_inet_aton sets *out to 0, then reads as zel_inet_atonz, but lets a space, tab, CR or LF end the text:
 * what follows that one is ignored. */
KUTIL_API int zel_inet_aton(const char *text, uint32_t *out);

/* is_ip_format tells whether zel_inet_atonz takes the text. */
KUTIL_API int is_ip_format(const char *text);

/* zel_is_valid_netmask tells whether the text is a strict dotted quad and is_netmask_valid takes it. */
KUTIL_API int zel_is_valid_netmask(const char *text);

/* zel_is_valid_host_netmask tells whether the text is "255.255.255.255". */
KUTIL_API int zel_is_valid_host_netmask(const char *text);

/* zel_is_valid_net_netmask tells whether the text is a valid netmask other than "255.255.255.255". */
KUTIL_API int zel_is_valid_net_netmask(const char *text);

/* ---- Constants: shared, never to be changed or freed ---- */

/* ip_addr_loopback returns the bytes of 127.0.0.1 (rest 0) for AF_INET, of ::1 for any other family. */
KUTIL_API const ip_addr *ip_addr_loopback(uint16_t family);

/* ip_addr_any returns 16 bytes of 0. */
KUTIL_API const ip_addr *ip_addr_any(void);

/* iaddr_any returns :: for AF_INET6 and 0.0.0.0 for any other family. */
KUTIL_API const iaddr *iaddr_any(uint16_t family);

/* ip_addr_mask_full returns 128 one-bits. */
KUTIL_API const ip_addr *ip_addr_mask_full(void);

/* iaddr_mask_full returns the mask of /128 for AF_INET6, of /32 for any other family. */
KUTIL_API const iaddr *iaddr_mask_full(uint16_t family);

/* ---- Masks ---- */

/* ip_addr_prefix_len2mask clears the 16 bytes of *out, sets the first `len` bits (clamped to 0..128) and
 * returns out. */
KUTIL_API ip_addr *ip_addr_prefix_len2mask(ip_addr *out, int len);

/* iaddr_prefix_len2mask returns an address of `family` with the mask of `len` bits. Deliberate: a length
 * beyond the family's width is not clamped to it, so IPv4 masks of more than 32 bits carry ones in bytes that
 * nothing reads. */
KUTIL_API iaddr iaddr_prefix_len2mask(uint16_t family, int len);

/* ip_addr_mask2prefix_len returns the number of leading one bits of a mask of 4 bytes (AF_INET) or 16.
 * Deliberate: a mask with ones behind its first zero gives its leading run without an error. */
KUTIL_API int ip_addr_mask2prefix_len(uint16_t family, const void *mask);

/* iaddr_mask2prefix_len is ip_addr_mask2prefix_len of a mask held in an iaddr. */
KUTIL_API int iaddr_mask2prefix_len(iaddr mask);

/* ip_addr_mask_and stores a AND b over the bytes of `family` in *out, which may be a or b, and returns out.
 */
KUTIL_API ip_addr *ip_addr_mask_and(uint16_t family, ip_addr *out, const void *a, const void *b);

/* iaddr_mask_and and iaddr_mask_or return a AND b, a OR b, of a's family. Of two different families they
 * report "%s:%d: Cannot mask to different address families" with function and line at err and return a. */
KUTIL_API iaddr iaddr_mask_and(iaddr a, iaddr b);
KUTIL_API iaddr iaddr_mask_or(iaddr a, iaddr b);

/* iaddr_mask_not returns `a` with every bit of its family's bytes turned over. */
KUTIL_API iaddr iaddr_mask_not(iaddr a);

/* iaddr_prefix_len_and returns `a` with all but the first `len` bits cleared. */
KUTIL_API iaddr iaddr_prefix_len_and(iaddr a, int len);

/* bitcmp compares `count` bits from `start` on of the words a and b, bit 0 being the top bit of word 0: 0
 * means equal. A negative start or a count of 0 or less compares nothing. Only the words that hold the range
 * are read. Deliberate: when the range spans words, a bit before `start` in its first word that differs
 * counts as a difference too. */
KUTIL_API int bitcmp(const uint32_t *a, const uint32_t *b, int start, int count);

/* ---- Comparing and classifying ---- */

/* iaddr_cmp compares two addresses: 0 means equal; every IPv4 address is less than every IPv6 address (-1 and
 * 1); IPv6 addresses have the sign of memcmp. Deliberate: IPv4 addresses give their difference as a number
 * wrapped to 32 bits, so two that are more than 2^31 apart have the wrong sign, and only zero or not zero is
 * reliable. */
KUTIL_API int iaddr_cmp(const iaddr *a, const iaddr *b);

/* ip_addr_is_in_range tells whether lo <= a <= hi by the comparison of iaddr_cmp, wrapped for IPv4 as there.
 */
KUTIL_API int ip_addr_is_in_range(uint16_t family, const void *a, const void *lo, const void *hi);

/* iaddr_is_any tells whether the address is all zero; one that holds no address is looked at as IPv4. */
KUTIL_API int iaddr_is_any(const iaddr *a);

/* iaddr_is_loopback tells whether the address is 127.0.0.1 or ::1. */
KUTIL_API int iaddr_is_loopback(const iaddr *a);

/* iaddr_is_valid tells whether `a` is not NULL and holds an address. */
KUTIL_API int iaddr_is_valid(const iaddr *a);

/* iaddr_is_ipv4_mapped tells whether the 16 bytes are those of ::ffff:a.b.c.d, whatever the family. Source:
 * RFC 4291, 2.5.5.2. */
KUTIL_API int iaddr_is_ipv4_mapped(const iaddr *a);

/* iaddr_get_type returns the class of the address, the first that fits of: IPv4, other family, global,
 * unique-local, link-local, IPv4-mapped, other. */
KUTIL_API iaddr_type iaddr_get_type(const iaddr *a);

/* iaddr_is_in_subnet tells whether *a lies in *s, whose address need not be masked. Different families or
 * NULL: 0. Deliberate: a subnet of prefix length 0 contains nothing, so that an unset one never matches. */
KUTIL_API int iaddr_is_in_subnet(const iaddr *a, const subnet *s);

/* iaddr_dec makes *a the address before it; the one before 0.0.0.0 or :: is all ones. No address or NULL:
 * nothing. */
KUTIL_API void iaddr_dec(iaddr *a);

/* inet_is_addr_ula, inet_is_addr_global and inet_is_addr_mc tell whether an IPv6 address is unique-local
 * (fc00::/7, RFC 4193), global unicast (2000::/3, RFC 4291), multicast (ff00::/8). */
KUTIL_API int inet_is_addr_ula(const void *a);
KUTIL_API int inet_is_addr_global(const void *a);
KUTIL_API int inet_is_addr_mc(const void *a);

/* inet_is_addr_lla tells whether an IPv6 address is link-local. Deliberate: it asks only that the bits of
 * fe80 are set, so all of fe80::/9 (that is fe80 to feff) and the multicast addresses of ff80::/9 pass too.
 */
KUTIL_API int inet_is_addr_lla(const void *a);

/* inet_addr_mc_scope returns the scope, 0 to 15, of an IPv6 multicast address. Source: RFC 4291, 2.7. */
KUTIL_API int inet_addr_mc_scope(const void *a);

/* ---- IPv4 addresses and masks as numbers ---- */

/* netmask_to_bitcount returns the number of leading one bits. */
KUTIL_API int netmask_to_bitcount(uint32_t mask);

/* bitcount_to_netmask returns `n` leading one bits, n clamped to 0..32. */
KUTIL_API uint32_t bitcount_to_netmask(int n);

/* is_netmask_valid tells whether all ones stand at the top; 0.0.0.0 and 255.255.255.255 do. */
KUTIL_API int is_netmask_valid(uint32_t mask);

/* ip_class_netmask returns the mask of the address class: 255.0.0.0 (A), 255.255.0.0 (B), 255.255.255.0 (C),
 * else 0. */
KUTIL_API uint32_t ip_class_netmask(uint32_t ip);

/* subnet_compare compares two networks: -1 when they are apart, 0 when they are the same, 1 when a contains
 * b, 2 when a lies inside b. */
KUTIL_API int subnet_compare(uint32_t ip_a, uint32_t mask_a, uint32_t ip_b, uint32_t mask_b);

/* is_ip_in_range tells whether lo <= ip <= hi, unsigned. */
KUTIL_API int is_ip_in_range(uint32_t ip, uint32_t lo, uint32_t hi);

/* is_ip_in_subnet tells whether `ip` masked is `net`. Deliberate: the mask 0 matches nothing, so that an
 * unset network never matches. */
KUTIL_API int is_ip_in_subnet(uint32_t ip, uint32_t mask, uint32_t net);

/* ip_netmask_verify tells what `ip` is under `mask`, the first that fits of: 1 the network address, 2 the
 * broadcast address, 3 network part 0, 4 network part all ones, 0 an ordinary host. */
KUTIL_API int ip_netmask_verify(uint32_t ip, uint32_t mask);

/* is_ip_subnet and is_ip_broadcast tell whether ip_netmask_verify says 1, 2. */
KUTIL_API int is_ip_subnet(uint32_t ip, uint32_t mask);
KUTIL_API int is_ip_broadcast(uint32_t ip, uint32_t mask);

/* is_loopback_ip tells whether the address is of 127.0.0.0/8. */
KUTIL_API int is_loopback_ip(uint32_t ip);

/* inet_is_ip_private_rfc1918 tells whether the address is of 10.0.0.0/8, 172.16.0.0/12 or 192.168.0.0/16. */
KUTIL_API int inet_is_ip_private_rfc1918(uint32_t ip);

/* is_non_routable_lan_device_ip is inet_is_ip_private_rfc1918 under the name that the LAN pages use. */
KUTIL_API int is_non_routable_lan_device_ip(uint32_t ip);

/* inet_set_private_ip_list makes `list` what inet_is_ip_private goes by and frees the list set before; NULL:
 * none. The list is malloc memory, passes to the library, ends with an entry whose address is "any", and
 * holds its addresses masked to their prefix lengths. */
KUTIL_API void inet_set_private_ip_list(subnet *list);

/* inet_is_ip_private tells whether an entry of the list holds the address. Without a list: whether it is
 * private by RFC 1918 or of 169.254.0.0/16 or 192.0.2.0/24. Deliberate: that documentation range counts as
 * private. */
KUTIL_API int inet_is_ip_private(uint32_t ip);

/* set_matching_src_ip_cb sets the callback (NULL: none) that get_matching_src_ip asks. One for the process.
 */
KUTIL_API void set_matching_src_ip_cb(matching_src_ip_cb cb);

/* get_matching_src_ip returns what the callback answers for the source address of traffic to `dst` through
 * `ifname` with the firewall mark `mark`, 0 when no callback is set. */
KUTIL_API uint32_t get_matching_src_ip(uint32_t dst, const char *ifname, uint32_t mark);

KUTIL_END_DECLS

#endif
