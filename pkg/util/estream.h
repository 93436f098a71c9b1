#ifndef KUTIL_UTIL_ESTREAM_H
#define KUTIL_UTIL_ESTREAM_H

/* estream.h: non-blocking byte streams in the event loop.
 *
 * A stream is made over a descriptor (estream_connect_fd), by connecting (estream_connect_tcp) or by
 * accepting (estream_accept). Its owner issues a read request, appends output with the writes, and is called
 * back from the loop: callback(stream, buffer, length) for each input record that the request asks for, and
 * callback(stream, NULL, 0) each time all output has been sent. A callback that returns other than 0 closes
 * the stream. The buffer belongs to the stream and is valid during the call, whatever the callback does.
 *
 * A stream without a request watches nothing for reading: it does not notice that its peer is gone until it
 * reads or writes. At the end of input, or on an error, the stream closes after one report; an unterminated
 * last line is not delivered. The owner learns of it by the release function of its data (estream_set_data).
 *
 * estream_close may be called at any time, in callbacks too. It releases everything at once and the record
 * from the loop's next timers: until then every call on the stream does nothing and answers -1 or 0. After
 * that the pointer is no more. While a callback of a stream runs, its input and output are not served: a
 * callback that runs a loop of its own cannot wait for its own stream, whose time-out goes on.
 *
 * A NULL stream: nothing happens, and the answer is that of a closing one. Making a stream ends the process
 * when memory runs out; a stream whose buffers cannot grow is closed with a report. */

#include "event.h"
#include "iaddr.h"

#include <stdint.h>
#include <sys/socket.h>

KUTIL_BEGIN_DECLS

/* Stream flags, given when a stream is made. */
#define ESTREAM_OWN_FD 1U        /* closing the stream closes the descriptor */
#define ESTREAM_TIMEOUT 2U       /* an inactivity time-out of 3000 ms */
#define ESTREAM_CONNECTED 4U     /* the descriptor is connected already */
#define ESTREAM_PLAIN 8U         /* no TCP socket: no socket options, no addresses, no urgent data */
#define ESTREAM_SOCKOPT_DONE 16U /* the descriptor is non-blocking and tuned already */
#define ESTREAM_SSL 32U          /* over TLS; ends the process unless estream_ssl_open_func_set was called */
#define ESTREAM_NULL_STREAM 0x1000U /* what estream_null makes */
#define ESTREAM_HALF_CLOSE 0x2000U  /* the end of input ends the read request, not the stream */
#define ESTREAM_SHRINK 0x4000U      /* a large read buffer goes back to 1460 bytes after a complete record */
#define ESTREAM_V6ONLY 0x8000U      /* a socket made here takes no IPv4 */

typedef struct estream estream;

/* The stream, time-out and urgent-data callback: (stream, buffer, length). 0 goes on, other values close the
 * stream; that of a time-out callback is not looked at. */
typedef int (*estream_cb)(estream *, char *, int);
/* The connect callback: (stream, ok). With ok 1 the stream is up, and a result other than 0 closes it; with
 * ok 0 the connection failed, and the stream closes. */
typedef int (*estream_connect_cb)(estream *, int);
/* Releases owner data: (old data, new data, new release function); the new ones are NULL at close. */
typedef void (*estream_release_cb)(void *, void *, event_any_cb);
/* A hook: (its data, buffer, length) to a new length. It may change the bytes. */
typedef int (*estream_hook)(void *, char *, int);
/* Releases a hook's data: (old data, new hook, new release function, new data); the new ones are NULL at
 * close. */
typedef void (*estream_hook_release_cb)(void *, event_any_cb, event_any_cb, void *);
/* Called when the peer has sent everything: (stream). */
typedef int (*estream_half_close_cb)(estream *);
/* Starts TLS on a stream: (stream, argument). 0, or the stream closes. */
typedef int (*estream_ssl_open_cb)(estream *, void *);

/* What a filter of a relay answers; any other value forwards what its buffer and length then say. */
#define ESTREAM_FILTER_FAIL 1 /* the stream closes */
#define ESTREAM_FILTER_DROP 2 /* nothing is forwarded */
/* Flags of one side of a relay. */
#define ESTREAM_THROTTLE_POP 1U    /* at the end the stream goes back to its owner instead of closing */
#define ESTREAM_THROTTLE_MANUAL 2U /* the relay never issues a read request on this side */

/* A filter sees input before it is forwarded: (filter data, buffer, length) to one of the answers above. It
 * may put another buffer, valid until its next call, and another length (-1: that of a text) in place. */
typedef int (*estream_filter)(void *, char **, int *);
/* Acknowledges input: estream_read_ack. */
typedef int (*estream_ack)(estream *, int);
/* A filter that itself acknowledges the input that it has used. */
typedef int (*estream_full_filter)(void *, char **, int *, estream_ack);

/* One side of a relay. */
typedef struct estream_throttle_opt {
    int32_t read_size;  /* for estream_read_forever */
    int32_t high_water; /* the other stream is not read while this one has more output than that to send */
    uint32_t flags;
    estream_filter filter;
    estream_full_filter full_filter; /* instead of `filter` */
    void *filter_data;
} estream_throttle_opt;

/* ---- Making and closing ---- */

/* estream_connect_fd makes a stream over `fd` with `flags` and returns it. A descriptor that is not connected
 * yet (connect has been started on it) is waited for; connect_cb (NULL: none) is called from the loop once it
 * is up or has failed. With ESTREAM_CONNECTED connect_cb is called from a 0 ms timer, so that the caller has
 * the stream first; without one the stream is complete on return. Returns NULL when setting up fails, after a
 * report; the descriptor is then closed if ESTREAM_OWN_FD says so. */
KUTIL_API estream *estream_connect_fd(int fd, uint32_t flags, estream_connect_cb connect_cb);

/* estream_connect_tcp_full connects to `dst` and `dst_port`. With a negative `fd` it makes the socket, bound
 * to `src` and `src_port` (0: any), to `ifname` (NULL: none), with firewall mark and type of service (0:
 * none), and the stream owns it; else `fd` is the socket. An IPv4 any-address as source is replaced by
 * get_matching_src_ip when the destination is IPv4. Returns the stream, or NULL after a report when it fails
 * at once; a socket made here, or given with ESTREAM_OWN_FD, is closed then. */
KUTIL_API estream *estream_connect_tcp_full(int fd, uint32_t flags, estream_connect_cb connect_cb, iaddr dst,
                                            uint16_t dst_port, iaddr src, uint16_t src_port,
                                            const char *ifname, uint32_t mark, uint32_t tos);

/* estream_connect_tcp_ex is estream_connect_tcp_full with a new socket from any address. */
KUTIL_API estream *estream_connect_tcp_ex(uint32_t flags, estream_connect_cb connect_cb, iaddr dst,
                                          uint16_t dst_port);

/* estream_connect_tcp is estream_connect_tcp_ex to an IPv4 address, first octet on top. */
KUTIL_API estream *estream_connect_tcp(uint32_t flags, estream_connect_cb connect_cb, uint32_t dst,
                                       uint16_t dst_port);

/* estream_accept accepts one connection of the listening socket `listen_fd` into a new stream, which owns its
 * descriptor. connect_cb (NULL: none) is called from a 0 ms timer. An IPv4 peer of an IPv6 socket is shown
 * as IPv4. Returns NULL after a report, with errno of the failure. */
KUTIL_API estream *estream_accept(int listen_fd, uint32_t flags, estream_connect_cb connect_cb);

/* estream_close withdraws the stream from the loop, closes a descriptor that it owns, calls the release
 * functions of owner data, of every pushed frame (newest first) and of the hooks, and frees the record from
 * a 0 ms timer. Unsent output is lost. Returns 0, for NULL too, or not 0 when closing had begun before. */
KUTIL_API int estream_close(estream *es);

/* estream_ssl_open_func_set sets what starts TLS on streams with ESTREAM_SSL (NULL: nothing) and returns the
 * previous one. One for the process. */
KUTIL_API estream_ssl_open_cb estream_ssl_open_func_set(estream_ssl_open_cb func);

/* ---- Reading ----
 * One request at a time; a new one replaces it and keeps what is buffered. Each returns 0; -1 on a closing
 * stream or when the buffer cannot be had, which closes it. */

/* estream_read asks for `n` bytes, once: they are delivered together, and removed. 0 or less ends the
 * request. */
KUTIL_API int estream_read(estream *es, int n);

/* estream_read_line asks for lines, each delivered without its LF or CR LF and with a NUL behind it; a NUL
 * byte ends a line too. The lines of one arrival follow one another, until the callback changes the stream
 * or writes: then the next one comes from a 0 ms timer. Of a line without an end 8192 bytes are buffered, and
 * nothing more is read until the owner acts; an inactivity time-out still runs. */
KUTIL_API int estream_read_line(estream *es);

/* estream_read_partial asks for `n` bytes; each arrival before that delivers all that is there, without
 * removing it. Complete, it is like estream_read. */
KUTIL_API int estream_read_partial(estream *es, int n);

/* estream_read_forever asks for everything: each arrival delivers the whole buffer, which is read up to `n`
 * bytes (below 1: 102400; an earlier request may have left more). The owner removes with estream_read_ack
 * what it has used; until then nothing is delivered again but with more bytes behind it, and a full buffer
 * stops reading. */
KUTIL_API int estream_read_forever(estream *es, int n);

/* estream_read_null_terminated asks for texts that end with a NUL, at most 102400 bytes each; otherwise as
 * estream_read_line. */
KUTIL_API int estream_read_null_terminated(estream *es);

/* estream_read_abort ends the request. What is buffered stays for the next one. */
KUTIL_API void estream_read_abort(estream *es);

/* estream_read_ack removes `n` bytes, at most all, from the front of the buffer of an estream_read_forever.
 * What is left is delivered again. Returns 0, or -1 without such a request. */
KUTIL_API int estream_read_ack(estream *es, int n);

/* estream_clear_input drops all buffered input. */
KUTIL_API void estream_clear_input(estream *es);

/* estream_pending_read returns how many bytes are buffered, or when there are none how many the system holds
 * for the descriptor. */
KUTIL_API int estream_pending_read(estream *es);

/* estream_get_read_req returns the size of the current request, 0 for none. */
KUTIL_API int estream_get_read_req(const estream *es);

/* ---- Writing ----
 * Output is buffered without limit and sent when the descriptor takes it: compare estream_pending_write with
 * a limit of your own. The texts and bytes may lie in buffers of the stream itself. Each returns 0; -1 on a
 * closing stream, or when the buffer cannot grow, which closes it. */

/* estream_write appends `len` bytes; -1 means strlen(buffer), other negative lengths nothing and -1. Writing
 * nothing while nothing is buffered calls the stream callback with (NULL, 0) at once, except from that very
 * notice. */
KUTIL_API int estream_write(estream *es, const void *buffer, int len);

/* estream_printf appends the text that printf makes. -1 also when the C library refuses the format. */
KUTIL_API int estream_printf(estream *es, const char *format, ...) KUTIL_PRINTF(2, 3);

/* estream_write_str appends a text, estream_write_strn at most `n` characters of it. NULL counts as "". */
KUTIL_API int estream_write_str(estream *es, const char *text);
KUTIL_API int estream_write_strn(estream *es, const char *text, int n);

/* estream_write_str_replace appends `text` with every `from` in it, looked for from left to right, replaced
 * by `to`. An empty or NULL `from` replaces nothing. */
KUTIL_API int estream_write_str_replace(estream *es, const char *text, const char *from, const char *to);

/* estream_write_u8, _u16 and _u32 append a number of 1, 2 and 4 bytes, in network order. */
KUTIL_API int estream_write_u8(estream *es, uint8_t value);
KUTIL_API int estream_write_u16(estream *es, uint16_t value);
KUTIL_API int estream_write_u32(estream *es, uint32_t value);

/* estream_write_alloc makes room for `n` more bytes, to be placed at estream_get_write_buf and committed with
 * estream_write0. Returns 0; not 0 with the stream unchanged when there is no memory, after an err report. */
KUTIL_API int estream_write_alloc(estream *es, int n);

/* estream_get_write_buf returns the place behind the buffered output, valid until the next write;
 * estream_get_write_buf_len returns the room there. NULL and 0 before the first estream_write_alloc. */
KUTIL_API char *estream_get_write_buf(estream *es);
KUTIL_API int estream_get_write_buf_len(const estream *es);

/* estream_write0 commits `n` bytes (clipped to the room) that were just placed at estream_get_write_buf,
 * through the write hook. When nothing at all is buffered then, the stream callback is called with (NULL, 0)
 * at once, as in estream_write. */
KUTIL_API int estream_write0(estream *es, int n);

/* estream_pending_write returns how many bytes of output are not sent. */
KUTIL_API int estream_pending_write(const estream *es);

/* ---- The owner ---- */

/* estream_set_data sets the owner's data. When there were data with a release function, that is called with
 * (old data, data, release), after the new ones are in place. On a closing stream nothing is taken over. */
KUTIL_API void estream_set_data(estream *es, void *data, estream_release_cb release);
KUTIL_API void *estream_get_data(const estream *es);

/* estream_set_state and estream_get_state: a number of the owner. */
KUTIL_API void estream_set_state(estream *es, int state);
KUTIL_API int estream_get_state(const estream *es);

/* _estream_set_func sets the stream callback (NULL: input is dropped as if taken). `site` is kept by address.
 */
KUTIL_API void _estream_set_func(estream *es, estream_cb callback, const event_debug_info *site);

/* _estream_set_urgent_func sets who is called instead of the stream callback for input that arrives with an
 * urgent mark (NULL: the stream callback). */
KUTIL_API void _estream_set_urgent_func(estream *es, estream_cb callback, const event_debug_info *site);

/* estream_set_half_close sets who is called, once, when the input of a stream with ESTREAM_HALF_CLOSE ended
 * and its request is aborted. A result other than 0 closes the stream. */
KUTIL_API void estream_set_half_close(estream *es, estream_half_close_cb callback);

/* estream_set_timeout sets an inactivity time-out of `ms` milliseconds (0 or less: none) and who is told: the
 * callback is called with (stream, NULL, 0), and the time-out starts again. Without a callback the stream
 * closes, a pending connect failing first. It runs while connecting, and later while there is a request or
 * unsent output; each transfer starts it again, parts of a line do not. From 5000 ms on it may be up to 1000
 * ms early, since traffic within a second does not set the timer again. */
KUTIL_API void estream_set_timeout(estream *es, int ms, estream_cb callback);

/* estream_set_read_notify sets a hook that sees every input record before the callback; its result, clipped
 * to 0..length, is the length that the callback gets, and 0 skips it. How much input is removed does not
 * change. estream_set_write_notify sets one that sees every commit of output, also one of 0 bytes (whose
 * buffer is NULL while the stream has none); its result, clipped to the room, is how much is committed.
 * Writes to the stream from inside that hook do nothing and return -1. A hook that is replaced by another
 * (release, data) is released after the new one is in place. */
KUTIL_API void estream_set_read_notify(estream *es, estream_hook func, estream_hook_release_cb release,
                                       void *data);
KUTIL_API void estream_set_write_notify(estream *es, estream_hook func, estream_hook_release_cb release,
                                        void *data);

/* estream_push saves owner data, its release function, state, stream callback and its site, and clears data
 * and state: another owner borrows the stream. Returns 0, or -1 without memory (an err report) or on a
 * closing stream. */
KUTIL_API int estream_push(estream *es);

/* estream_pop restores what the last estream_push saved, then releases the borrower's data. Returns 0, or -1
 * on a closing stream and without a push: "estream_pop: empty stack - estream unchanged" at err. */
KUTIL_API int estream_pop(estream *es);

/* ---- Looking ---- */

/* estream_get_errno returns errno of the last read or write that moved no byte, else 0. */
KUTIL_API int estream_get_errno(const estream *es);
/* estream_is_connected returns 1 once the connection is up, else 0. */
KUTIL_API int estream_is_connected(const estream *es);
/* estream_is_closing returns 1 once closing has begun; 1 for NULL. */
KUTIL_API int estream_is_closing(const estream *es);
/* estream_fd_get returns the descriptor, -1 when there is none or the stream is closing. */
KUTIL_API int estream_fd_get(const estream *es);

/* The addresses and ports of the connection, once it is up. A peer that is no TCP socket has no address
 * (family 0) and port 0; with ESTREAM_PLAIN the ports are 65535. */
KUTIL_API iaddr estream_peer_addr_get(const estream *es);
KUTIL_API iaddr estream_local_addr_get(const estream *es);
KUTIL_API uint16_t estream_peer_port_get(const estream *es);
KUTIL_API uint16_t estream_local_port_get(const estream *es);

/* estream_peer_ip_get and estream_local_ip_get return the IPv4 address, first octet on top. Any other
 * address: 0, after the err report "FUNCTION:LINE: Wrong address family is used". */
KUTIL_API uint32_t estream_peer_ip_get(const estream *es);
KUTIL_API uint32_t estream_local_ip_get(const estream *es);

/* estream_copy_peer_local_addr_port copies both addresses and ports from `from` to `to`. */
KUTIL_API void estream_copy_peer_local_addr_port(estream *to, const estream *from);

/* estream_is_local returns 1 when the peer is on this host: a loopback address, or the local one. */
KUTIL_API int estream_is_local(const estream *es);

/* estream_set_sockopt is setsockopt of POSIX on the stream's descriptor. */
KUTIL_API int estream_set_sockopt(estream *es, int level, int name, const void *value, socklen_t len);

/* estream_set_tcp_keepalive turns keep-alive probes on: after `idle_s` seconds of silence, every `interval_s`
 * seconds, dead after `count`. A number of 0 or less leaves the system's. Returns 0, or -1 with errno. */
KUTIL_API int estream_set_tcp_keepalive(estream *es, int idle_s, int interval_s, int count);

/* ---- Null streams: output that is collected ---- */

/* estream_null makes a stream without a descriptor. Output collects in it, and each commit calls the stream
 * callback with (NULL, 0) from a 0 ms timer. It works without a loop too, and then calls nobody. */
KUTIL_API estream *estream_null(void);

/* estream_null_output_get returns the collected output, not ended by a NUL, valid until the next write;
 * estream_null_output_len_get returns its length. NULL and 0 for a stream with a descriptor. */
KUTIL_API char *estream_null_output_get(const estream *es);
KUTIL_API int estream_null_output_len_get(const estream *es);

/* estream_null_output_ack removes `n` bytes from the front and returns how many are left. More than there are
 * removes all, after the warn report "estream null len was acked more then its len". */
KUTIL_API int estream_null_output_ack(estream *es, int n);

/* ---- Relays: two streams joined ---- */

/* estream_throttle joins two streams: what arrives on one is written to the other, and reading pauses while
 * the other's unsent output exceeds its high-water mark. Options may be NULL (all 0); they are copied. Both
 * streams are borrowed: pushed, with data, callback and half-close callback of the relay's own; a request
 * that a stream has is replaced unless ESTREAM_THROTTLE_MANUAL is set, and what it has buffered goes first.
 * When one closes, what the other still sends is dropped, its output is sent, and it is closed or given back
 * too. The end of input of a stream with ESTREAM_HALF_CLOSE ends the other's output when both carry that
 * flag, are up, without TLS, and neither is to be given back; otherwise it is like a close. A null stream
 * only collects: nothing waits for its output. A stream given back has no read request, unless its owner
 * issued it. A stream that is closing already counts as closed at once; the same stream twice is an err
 * report. Returns -1 always. Running out of memory for the relay ends the process. */
KUTIL_API int estream_throttle(estream *a, const estream_throttle_opt *a_options, estream *b,
                               const estream_throttle_opt *b_options);

/* estream_throttle_finish ends the relay of `es` once the other stream's output is sent.
 * estream_throttle_finish_now ends it at once, and unsent output is lost unless the stream is given back. A
 * stream that is in no relay: nothing happens. Both return 0. */
KUTIL_API int estream_throttle_finish(estream *es);
KUTIL_API int estream_throttle_finish_now(estream *es);

/* The call-site forms; see event.h. */
#define estream_set_func(es, callback) _estream_set_func(es, callback, KUTIL_EVENT_SITE(#callback))
#define estream_set_urgent_func(es, callback)                                                                \
    _estream_set_urgent_func(es, callback, KUTIL_EVENT_SITE(#callback))

KUTIL_END_DECLS

#endif
