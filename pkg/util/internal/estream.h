#ifndef KUTIL_INTERNAL_ESTREAM_H
#define KUTIL_INTERNAL_ESTREAM_H

// The record of a stream, shared by its sources, and what streams offer to a TLS layer.
//
// While a callback of a stream runs (depth above 0) nothing else of it is served, the blocks that its buffers
// give up are kept, and input is removed by moving an offset: so what a callback was given stays as it was
// until it returns. Leaving the outermost level catches up: kept blocks go, the watches and timers are set
// from the state as it is then, and a record that was closed meanwhile is freed.

#include "../estream.h"
#include "event.h"

#include <cstdint>

namespace kutil
{

inline constexpr int kLeastCapacity = 1460;

// A heap block, its bytes behind it.
struct StreamBlock {
    StreamBlock *next_kept;
    int capacity;
};

// The bytes from `start` to `end` count.
struct StreamBuffer {
    StreamBlock *block;
    int start;
    int end;

    int count() const { return end - start; }
    int capacity() const { return block ? block->capacity : 0; }
    int room() const { return capacity() - end; }
    char *bytes() const { return block ? reinterpret_cast<char *>(block + 1) : nullptr; }
    char *first() const { return block ? bytes() + start : nullptr; }
    char *behind() const { return block ? bytes() + end : nullptr; }
};

enum class ReadType : uint8_t {
    None = 0,
    Bytes = 1,
    Line = 2,
    Partial = 4,
    Forever = 8,
    Text = 16 // ended by a NUL
};

// What estream_push saves.
struct StreamOwner {
    void *data;
    estream_release_cb release;
    int state;
    estream_cb callback;
    const event_debug_info *site;
};

struct StreamFrame {
    StreamFrame *next;
    StreamOwner saved;
};

struct StreamHook {
    estream_hook func;
    estream_hook_release_cb release;
    void *data;
};

// What carries a stream over TLS; every field is set. read and write are those of POSIX.
struct StreamTls {
    int (*read)(estream *, char *, int);
    int (*write)(estream *, const char *, int);
    int (*pending)(estream *);  // input that no descriptor event will announce
    void (*connect)(estream *); // ends with stream_connected or stream_abort_connect
    void (*close)(estream *);
};

} // namespace kutil

struct estream {
    int fd;
    uint32_t flags;
    bool closing;
    int depth;
    uint32_t loop_generation; // of the loop that the registrations below are in
    kutil::StreamBlock *kept;

    kutil::StreamOwner owner;
    kutil::StreamFrame *frames; // newest first
    int error;
    estream_cb urgent;
    const event_debug_info *urgent_site;
    estream_half_close_cb half_close;
    bool half_closed; // and told
    kutil::StreamHook read_hook;
    kutil::StreamHook write_hook;
    bool in_write_hook;

    // Connecting.
    estream_connect_cb connect_cb; // never NULL
    bool connecting;               // until connect_cb has been told of a failure
    bool awaiting_connect;         // the descriptor's events tell that the connection is up
    bool completion_due;           // its timer found the stream busy
    bool connected;
    iaddr peer_addr;
    iaddr local_addr;
    uint16_t peer_port;
    uint16_t local_port;

    // Reading.
    kutil::StreamBuffer in;
    kutil::ReadType type;
    int request; // 0: none
    int limit;   // of a buffer that grows
    int scanned; // bytes in front that hold no terminator
    int shown;   // bytes in front that the callback has seen and left
    bool shrink_due;
    bool in_dispatch; // the last run ended inside a line: such arrivals do not delay the time-out
    bool changed;     // by its owner: what is left of the input waits for the next run

    // Writing.
    kutil::StreamBuffer out;
    bool out_pinned;  // a write takes its bytes from `out`
    bool in_notice;   // the callback is being told that all is written
    bool plain_write; // the descriptor is no socket
    bool notice_due;  // of a null stream

    // Registered with the loop.
    event_fd_cb watches[3]; // read, write, except; NULL for none
    bool immediate_read;
    int timeout_ms;
    estream_cb timeout_cb;
    double deadline; // ms; 0: no timer, kConnectDeadline: the timer of the connect

    const kutil::StreamTls *tls;
};

namespace kutil
{

inline constexpr double kConnectDeadline = 1.0;
inline constexpr uint32_t kReadEvents = EVENT_READ | EVENT_EXCEPT;

inline bool is_open(const estream *es) { return es && !es->closing; }

inline bool is_null_stream(const estream *es) { return (es->flags & ESTREAM_NULL_STREAM) != 0; }

inline const char *how_refused(int result) { return result < 0 ? "failed" : "closed connection"; }

// --- For a TLS layer, from its open function on ---

// Sets what carries the stream; the table is kept by address.
void stream_set_tls(estream *es, const StreamTls *operations);

// Tells the owner that the connection is up.
void stream_connected(estream *es);

// Tells the owner that a pending connection failed, and closes.
void stream_abort_connect(estream *es);

// --- Between the sources of streams ---

// estream.cpp
estream *stream_new(int fd, uint32_t flags);

// Holds a stream while its callbacks run. The record may be gone when the scope ends.
class Nesting
{
public:
    explicit Nesting(estream *es) : es_(es) { es_->depth++; }
    ~Nesting();
    Nesting(const Nesting &) = delete;
    Nesting &operator=(const Nesting &) = delete;

private:
    estream *es_;
};

// Gives `buffer` a block of `capacity`, at least what it holds, with its bytes in front. Returns false, with
// nothing changed, when there is no memory.
bool stream_replace_block(estream *es, StreamBuffer *buffer, int capacity);

// Moves the bytes to the front of the block.
void stream_compact(StreamBuffer *buffer);

void stream_free_record(void *data);
void stream_free_buffers(estream *es);

// estream_watch.cpp
void stream_watch(estream *es, uint32_t types, event_fd_cb callback);
void stream_unwatch(estream *es, uint32_t types);
// Brings watches and timers in line with the state.
void stream_reregister(estream *es);
void stream_delete_timers(estream *es);

// estream_read.cpp
void stream_on_readable(int fd, void *data);
void stream_on_urgent(int fd, void *data);
void stream_on_immediate_read(void *data);
bool stream_is_ready(const estream *es);   // a run of the engine would deliver or search
bool stream_is_stalled(const estream *es); // no room until the owner acts

// estream_write.cpp
void stream_on_writable(int fd, void *data);
int stream_notify_written(estream *es);

// estream_connect.cpp
void stream_on_connected(int fd, void *data);
void stream_on_connect_failed(int fd, void *data);
void stream_on_completion_timer(void *data);

// estream_null.cpp
void stream_on_null_notice(void *data);

// estream_hook.cpp
void stream_release_owner(estream *es);
void stream_release_hooks(estream *es);

} // namespace kutil

#endif
