#ifndef KUTIL_UTIL_ERECV_H
#define KUTIL_UTIL_ERECV_H

/* erecv.h: datagram receivers in the event loop, and the calls that send datagrams.
 *
 * A receiver reads one datagram each time its socket is readable and calls callback(data, buffer, length)
 * from the loop. Buffer, source address and control data are the receiver's own and describe that datagram
 * until the next one is read: copy what is needed longer. A NUL stands behind the datagram. One longer than
 * the buffer is cut to it. A failed read is reported (at debug when a peer refused, else at err) and the
 * receiver stays open.
 *
 * The callback may close its receiver; buffer, addresses and control data end with that call. One that runs a
 * loop of its own finds them overwritten by the next datagram.
 *
 * The control data hold what the socket was asked to tell (IPV6_RECVPKTINFO, IPV6_RECVHOPLIMIT,
 * SO_TIMESTAMP); the erecv_parse_ and erecv_get_timestamp functions take the pointer that erecv_get_control
 * returns, whose size is ERECV_CONTROL_SIZE.
 *
 * event_loop_init comes first. A NULL receiver: nothing happens, and the answers are 0, NULL and -1. Nothing
 * here ends the process. */

#include "iaddr.h"

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

KUTIL_64_BIT_TIME;

KUTIL_BEGIN_DECLS

#define ERECV_CONTROL_SIZE 524

typedef struct erecv erecv;

/* Where an IPv6 datagram was sent to, or is to come from: the layout of in6_pktinfo of RFC 3542. */
typedef struct erecv_pktinfo {
    struct in6_addr addr;
    uint32_t ifindex;
} erecv_pktinfo;

/* Gets a datagram: (data, buffer, length). */
typedef void (*erecv_cb)(void *, uint8_t *, int);

/* erecv_open_fd makes a receiver for the socket `fd`, which becomes non-blocking and stays the caller's. The
 * buffer has `buffer_size` bytes (0 or less: 2048). Returns NULL after a report on failure, with the socket
 * open. */
KUTIL_API erecv *erecv_open_fd(int fd, int buffer_size, erecv_cb callback, void *data);

/* erecv_open_ip_port_full makes a datagram socket with sock_socket_full and a receiver that owns it. The
 * socket's packet filters are locked, and an IPv6 one tells where its datagrams were sent to; that these fail
 * is no failure. Returns NULL after a report on failure. */
KUTIL_API erecv *erecv_open_ip_port_full(iaddr address, uint16_t port, const char *ifname, uint32_t mark,
                                         uint32_t tos, uint32_t flags, int buffer_size, erecv_cb callback,
                                         void *data);

/* erecv_open_ip_port is erecv_open_ip_port_full of an IPv4 address, first octet on top, with nothing else. */
KUTIL_API erecv *erecv_open_ip_port(uint32_t address, uint16_t port, int buffer_size, erecv_cb callback,
                                    void *data);

/* erecv_close ends the receiver and frees it; a socket that it made is closed. */
KUTIL_API void erecv_close(erecv *receiver);

/* erecv_set_name sets the name that error reports show (copied; NULL: none). */
KUTIL_API void erecv_set_name(erecv *receiver, const char *name);

/* erecv_get_fd returns the socket. */
KUTIL_API int erecv_get_fd(const erecv *receiver);

/* erecv_get_ip, erecv_get_family and erecv_get_port return the source of the last datagram: the IPv4 address,
 * first octet on top (also of an IPv4-mapped one; 0 for IPv6), the address family, the port. 0 before the
 * first datagram. */
KUTIL_API uint32_t erecv_get_ip(const erecv *receiver);
KUTIL_API uint16_t erecv_get_family(const erecv *receiver);
KUTIL_API uint16_t erecv_get_port(const erecv *receiver);

/* erecv_get_addr copies the source address of the last datagram to *out and stores its length (0 before the
 * first datagram). Either may be NULL. */
KUTIL_API void erecv_get_addr(const erecv *receiver, struct sockaddr_storage *out, socklen_t *out_length);

/* erecv_get_buf returns the receive buffer. */
KUTIL_API uint8_t *erecv_get_buf(erecv *receiver);

/* erecv_get_control returns the control data of the last datagram, ERECV_CONTROL_SIZE bytes. */
KUTIL_API void *erecv_get_control(erecv *receiver);

/* erecv_parse_control stores the index of the interface that the gateway's kernel tells with a datagram, and
 * where an IPv6 datagram was sent to; 0 where the control data do not tell. Outputs may be NULL. Packet
 * information of a wrong size or without an interface is passed over after the err report "Wrong IPV6_PKTINFO
 * from the kernel". Returns 0; -1 when `control` is NULL, with the outputs cleared. */
KUTIL_API int erecv_parse_control(const void *control, uint32_t *ifindex_out, erecv_pktinfo *destination_out);

/* erecv_ipv6_get_hop_limit returns the hop limit of an IPv6 datagram, 0 when the control data do not tell, -1
 * when `control` is NULL. */
KUTIL_API int erecv_ipv6_get_hop_limit(const void *control);

/* erecv_get_timestamp returns when the datagram arrived, NULL when the control data do not tell. It points
 * into `control`, where the time need not be aligned: copy it with memcpy. */
KUTIL_API struct timeval *erecv_get_timestamp(void *control);

/* erecv_ipv6_send sends one datagram to `destination` (NULL: the connected peer) from the address and
 * interface of `source` (NULL: the system chooses). Returns 0, or -1 after the err report "Failed to send
 * message". */
KUTIL_API int erecv_ipv6_send(int fd, const void *buffer, int length, const struct sockaddr *destination,
                              socklen_t destination_length, const erecv_pktinfo *source);

/* esend, esendto and esendmsg are send, sendto and sendmsg of POSIX. */
KUTIL_API ssize_t esend(int fd, const void *buffer, size_t length, int flags);
KUTIL_API ssize_t esendto(int fd, const void *buffer, size_t length, int flags,
                          const struct sockaddr *destination, socklen_t destination_length);
KUTIL_API ssize_t esendmsg(int fd, const struct msghdr *message, int flags);

KUTIL_END_DECLS

#endif
