#ifndef KUTIL_UTIL_SOCK_H
#define KUTIL_UTIL_SOCK_H

/* sock.h: making, binding and tuning sockets for an event-driven process.
 *
 * Descriptors are plain numbers that the caller owns and closes with socket_close, which also tells the event
 * loop that the number ends. Sockets are inherited across exec unless the caller says otherwise. Ports are in
 * host order, an address goes by value (iaddr.h).
 *
 * Every failure is one err report, -1, and errno as the failing call left it. The reports that begin with
 * "FUNCTION:LINE" name where in the library they arose. Nothing here allocates or ends the process. */

#include "iaddr.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

#define SOCK_F_V6ONLY 1U /* sock_socket_full: IPv6 sockets take no IPv4 peers */
#define SOCK_F_PLAIN 8U  /* sock_set_sockopt: not a TCP socket, no socket options */

/* sock_socket_full makes a socket of `type` (SOCK_STREAM, SOCK_DGRAM ...) of the address's family, binds it
 * to `address` and `port`, and returns its descriptor, or -1. A port other than 0 gets SO_REUSEADDR; port 0
 * lets the system choose and deliberately does not get it, so that no other process shares the choice. An
 * IPv6 socket's IPV6_V6ONLY is bit 0 of `flags`. `ifname` (NULL: none) binds to an interface, cut to 16
 * characters. `mark` and `tos` other than 0 become firewall mark and type of service; that these fail is not
 * noticed. */
KUTIL_API int sock_socket_full(int type, iaddr address, uint16_t port, const char *ifname, uint32_t mark,
                               uint32_t tos, uint32_t flags);

/* sock_socket is sock_socket_full of an IPv4 address, first octet on top, with nothing else. */
KUTIL_API int sock_socket(int type, uint32_t address, uint16_t port);

/* sock_set_sockopt makes `fd` non-blocking (its status flags become O_NONBLOCK alone) and, unless bit 8 is
 * set in `flags`, puts urgent data in line (SO_OOBINLINE) and turns TCP_NODELAY on where there is such a
 * thing. Returns 0; -1 after a report when the first two fail. */
KUTIL_API int sock_set_sockopt(int fd, uint32_t flags);

/* sock_valid returns 0 when `fd` is a socket, else -1 after the report "socket: FD failed getsockname() -
 * REASON". */
KUTIL_API int sock_valid(int fd);

/* sock_accept accepts a connection of the listening socket `fd`, again when a signal interrupts it, applies
 * sock_set_sockopt and returns the new descriptor, or -1 after a report. */
KUTIL_API int sock_accept(int fd);

/* socket_close is event_fd_close of a copy of `fd`: closes it and cancels queued events of that number.
 * Negative: nothing happens. */
KUTIL_API void socket_close(int fd);

KUTIL_END_DECLS

#endif
