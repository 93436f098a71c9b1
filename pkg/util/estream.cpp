#include "estream.h"

#include "internal/estream.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <utility>

using namespace kutil;

namespace
{

void free_kept_blocks(estream *es)
{
    while (es->kept)
        free(std::exchange(es->kept, es->kept->next_kept));
}

// Returns false when the stream was closed for want of memory.
bool shrink_input(estream *es)
{
    if (!std::exchange(es->shrink_due, false) || es->in.capacity() <= kLeastCapacity)
        return true;
    if (es->in.count() > kLeastCapacity || es->request > kLeastCapacity)
        return true;
    if (stream_replace_block(es, &es->in, kLeastCapacity))
        return true;
    zel_error_full(kEntity, kErr, "estream: out of memory");
    estream_close(es);
    return false;
}

uint32_t ipv4_or_report(const iaddr *addr, const char *function, int line)
{
    uint32_t ip = 0;
    if (iaddr2in_addr(addr, &ip) < 0)
        zel_error_full(kEntity, kErr, "%s:%d: Wrong address family is used", function, line);
    return ip;
}

} // namespace

namespace kutil
{

estream *stream_new(int fd, uint32_t flags)
{
    auto *es = new_record<estream>();
    es->fd = fd;
    es->flags = flags;
    es->connect_cb = [](estream *, int) { return 0; };
    return es;
}

Nesting::~Nesting()
{
    if (--es_->depth > 0)
        return;
    if (es_->closing) {
        event_free_later(stream_free_record, es_);
        return;
    }
    free_kept_blocks(es_);
    if (shrink_input(es_))
        stream_reregister(es_);
}

bool stream_replace_block(estream *es, StreamBuffer *buffer, int capacity)
{
    auto *block =
        static_cast<StreamBlock *>(try_malloc(add_sizes(sizeof(StreamBlock), static_cast<size_t>(capacity))));
    if (!block)
        return false;
    *block = {nullptr, capacity};
    StreamBuffer fresh = {block, 0, buffer->count()};
    put(fresh.bytes(), View(buffer->first(), static_cast<size_t>(buffer->count())));
    StreamBlock *old = std::exchange(*buffer, fresh).block;
    if (old && es->depth > 0) {
        old->next_kept = es->kept;
        es->kept = old;
    } else {
        free(old);
    }
    return true;
}

void stream_compact(StreamBuffer *buffer)
{
    if (buffer->start == 0)
        return;
    memmove(buffer->bytes(), buffer->first(), static_cast<size_t>(buffer->count()));
    buffer->end = buffer->count();
    buffer->start = 0;
}

void stream_free_buffers(estream *es)
{
    free(std::exchange(es->in, {}).block);
    free(std::exchange(es->out, {}).block);
    free_kept_blocks(es);
}

void stream_free_record(void *data)
{
    auto *es = static_cast<estream *>(data);
    // A callback runs that took the loop down; leaving it comes here again.
    if (es->depth > 0)
        return;
    stream_free_buffers(es);
    free(es);
}

} // namespace kutil

void *estream_get_data(const estream *es) { return es ? es->owner.data : nullptr; }

int estream_get_state(const estream *es) { return es ? es->owner.state : 0; }

void estream_set_state(estream *es, int state)
{
    if (is_open(es))
        es->owner.state = state;
}

int estream_get_errno(const estream *es) { return es ? es->error : 0; }

int estream_is_connected(const estream *es) { return es && es->connected; }

int estream_is_closing(const estream *es) { return !is_open(es); }

int estream_fd_get(const estream *es) { return is_open(es) ? es->fd : -1; }

iaddr estream_peer_addr_get(const estream *es) { return es ? es->peer_addr : iaddr{}; }

iaddr estream_local_addr_get(const estream *es) { return es ? es->local_addr : iaddr{}; }

uint16_t estream_peer_port_get(const estream *es) { return es ? es->peer_port : 0; }

uint16_t estream_local_port_get(const estream *es) { return es ? es->local_port : 0; }

uint32_t estream_peer_ip_get(const estream *es)
{
    return ipv4_or_report(es ? &es->peer_addr : nullptr, __func__, __LINE__);
}

uint32_t estream_local_ip_get(const estream *es)
{
    return ipv4_or_report(es ? &es->local_addr : nullptr, __func__, __LINE__);
}

void estream_copy_peer_local_addr_port(estream *to, const estream *from)
{
    if (!is_open(to) || !from)
        return;
    to->peer_addr = from->peer_addr;
    to->peer_port = from->peer_port;
    to->local_addr = from->local_addr;
    to->local_port = from->local_port;
}

int estream_is_local(const estream *es)
{
    constexpr uint32_t kLoopbackNetwork = 127;
    if (!es || !iaddr_is_valid(&es->peer_addr))
        return 0;
    uint32_t ip = 0;
    if (iaddr2in_addr(&es->peer_addr, &ip) == 0 && ip >> 24 == kLoopbackNetwork)
        return 1;
    return iaddr_is_loopback(&es->peer_addr) || iaddr_cmp(&es->peer_addr, &es->local_addr) == 0;
}

int estream_set_sockopt(estream *es, int level, int name, const void *value, socklen_t len)
{
    return is_open(es) ? setsockopt(es->fd, level, name, value, len) : -1;
}

int estream_set_tcp_keepalive(estream *es, int idle_s, int interval_s, int count)
{
    const struct {
        int level;
        int name;
        int value;
    } options[] = {
        {SOL_SOCKET, SO_KEEPALIVE, 1},
        {IPPROTO_TCP, TCP_KEEPIDLE, idle_s},
        {IPPROTO_TCP, TCP_KEEPINTVL, interval_s},
        {IPPROTO_TCP, TCP_KEEPCNT, count},
    };
    for (const auto &option : options) {
        if (option.value > 0 &&
            estream_set_sockopt(es, option.level, option.name, &option.value, sizeof(option.value)) < 0)
            return -1;
    }
    return 0;
}
