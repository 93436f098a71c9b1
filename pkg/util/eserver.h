#ifndef KUTIL_UTIL_ESERVER_H
#define KUTIL_UTIL_ESERVER_H

/* eserver.h: listening TCP servers that accept into event streams.
 *
 * A server has entries, one for each address, port and interface that it listens on. A connection becomes a
 * stream (estream.h) that is handed to the accept callback from the loop, once it is complete:
 * callback(stream, 1). There the stream's data is the server (estream_get_data), its callback and request are
 * the owner's to set; a result other than 0 closes it.
 *
 * A server keeps count of the streams that it accepted: closing it, or dropping the entry that a stream came
 * in by, closes the stream. The stream's owner pops (estream_pop) what the server pushed and sets data of its
 * own to take a stream over for good; it then outlives the server.
 *
 * A connection that cannot be taken is reported at err and dropped, and the server stays. When the process
 * has no descriptor left, waiting connections are closed by means of one held in reserve; if that fails too
 * the entry rests for 250 ms, so that nothing spins.
 *
 * event_loop_init comes first. A server is freed from the loop's next timers after eserver_close, so it can
 * be closed in any callback, its own included. A NULL server: nothing happens, and the answer is that of a
 * closed one. Running out of memory for a server record is no server, for the entries it ends the process,
 * for a single connection it closes that. */

#include "estream.h"
#include "iaddr.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

typedef struct eserver eserver;

/* What to listen on. An array of them ends with an address of family 0. */
typedef struct eserver_req {
    iaddr addr;
    uint16_t port;      /* 0: the system chooses */
    uint32_t flags;     /* ESTREAM_V6ONLY, and the stream flags of accepted streams (ESTREAM_SSL ...) */
    const char *ifname; /* only on this interface; NULL for any */
} eserver_req;

/* Chooses streams to close: (stream, argument, 0); not 0 closes it. */
typedef int (*eserver_estream_cb)(estream *, void *, int);

/* eserver_open makes a server without entries and returns it. `accept_cb` (NULL: none) becomes the connect
 * callback of every accepted stream, `data` is the owner's. NULL after a report when there is no memory. */
KUTIL_API eserver *eserver_open(estream_connect_cb accept_cb, void *data);

/* eserver_bind makes the server listen on exactly `requests` (NULL: on nothing). An entry with the same
 * address, port and interface keeps its socket and its streams, and gets the new flags; others are closed
 * with their streams before new sockets are made. Returns 0; not 0 after a report when one cannot be opened:
 * then those in front of it are closed too, and those behind it only stay where they were kept. Also not 0 on
 * a closed server and when a callback of a stream closed here bound the server anew. */
KUTIL_API int eserver_bind(eserver *server, const eserver_req *requests);

/* eserver_open_addrs_ports is eserver_open and eserver_bind; new sockets get receive and send buffers of
 * these sizes in bytes (0: the system's). NULL when it cannot listen, or there is no request. */
KUTIL_API eserver *eserver_open_addrs_ports(const eserver_req *requests, int receive_buffer, int send_buffer,
                                            estream_connect_cb accept_cb, void *data);

/* eserver_open_addr listens on one address and port. */
KUTIL_API eserver *eserver_open_addr(iaddr addr, uint16_t port, uint32_t flags, estream_connect_cb accept_cb,
                                     void *data);

/* eserver_open_port listens on one port of every IPv4 address, eserver_open_ports on each of an array of
 * ports that ends with 0. */
KUTIL_API eserver *eserver_open_port(uint16_t port, uint32_t flags, estream_connect_cb accept_cb, void *data);
KUTIL_API eserver *eserver_open_ports(const uint16_t *ports, uint32_t flags, estream_connect_cb accept_cb,
                                      void *data);

/* eserver_open_ports_ex is eserver_open_ports on one address and interface (NULL: any). */
KUTIL_API eserver *eserver_open_ports_ex(iaddr addr, const uint16_t *ports, uint32_t flags,
                                         const char *ifname, estream_connect_cb accept_cb, void *data);

/* eserver_close closes every socket and every accepted stream, and frees the server from the loop's next
 * timers. A second call does nothing. */
KUTIL_API void eserver_close(eserver *server);

/* eserver_estreams_close asks `predicate` about each accepted stream that is open now, once, entry by entry
 * and the newest first, and closes those for which it answers other than 0. The predicate may close anything.
 * Returns -1, which carries no meaning. */
KUTIL_API int eserver_estreams_close(eserver *server, eserver_estream_cb predicate, void *argument);

/* eserver_get_data returns the owner data, NULL of a NULL server. */
KUTIL_API void *eserver_get_data(const eserver *server);

/* eserver_fd_get returns the socket of the entry at `index`, counted from 0 in the order of the requests; -1
 * when it has none or there is no such entry. */
KUTIL_API int eserver_fd_get(const eserver *server, int index);

KUTIL_END_DECLS

#endif
