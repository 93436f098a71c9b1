#include "eserver.h"

#include "event.h"
#include "internal/event.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "sock.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

using namespace kutil;

namespace
{

constexpr uint32_t kOwnsSocket = 1;
constexpr unsigned kV6OnlyShift = 15;
static_assert(ESTREAM_V6ONLY >> kV6OnlyShift == SOCK_F_V6ONLY);
constexpr int kBacklog = 5;
constexpr double kRestMs = 250;

// Where the server listens. The id names the socket for as long as the server has it, through every re-bind.
struct Entry {
    int fd;
    uint32_t id;
    iaddr addr;
    uint16_t port;
    uint32_t flags;
    char *ifname;
    bool resting; // not watched until the rest is over
};

// One accepted stream. It is the stream's owner data, in the frame that the server pushed.
struct Link {
    Link *next;
    Link **place; // what points here; NULL once the server has let go of the stream
    eserver *server;
    estream *stream;
    uint32_t entry_id;
    uint64_t serial;
};

// The entries of a server, with their texts.
class Entries
{
public:
    Entries() = default;
    explicit Entries(size_t count) : count_(count)
    {
        if (count > 0)
            list_.reset(static_cast<Entry *>(zalloc_e(mul_sizes(count, sizeof(Entry)))));
        for (Entry &entry : *this)
            entry.fd = -1;
    }
    Entries(const Entries &) = delete;
    Entries &operator=(const Entries &) = delete;
    ~Entries()
    {
        for (Entry &entry : *this)
            free(entry.ifname);
    }
    void swap(Entries &other)
    {
        list_.swap(other.list_);
        std::swap(count_, other.count_);
    }
    size_t count() const { return count_; }
    Entry *begin() const { return list_.get(); }
    Entry *end() const { return begin() + count_; }
    Entry &operator[](size_t i) const { return list_.get()[i]; }

private:
    Heap<Entry> list_;
    size_t count_ = 0;
};

class Walk;

} // namespace

struct eserver {
    Entries entries;
    uint32_t generation; // of `entries`, so that a callback's re-bind shows
    bool closing;
    bool release_due; // the free timer came while somebody was inside
    int users;        // functions that are inside and call callbacks
    void *data;
    estream_connect_cb accept_cb;
    int receive_buffer;
    int send_buffer;
    Link *links; // the newest first
    Walk *walks;
    uint32_t last_id;
    uint64_t last_serial;
};

namespace
{

void accept_ready(int fd, void *data);

// A descriptor held back, so that a connection can be taken and closed when the process has none left. One
// for all servers.
struct Reserve {
    int fd;
    int servers;

    void fill()
    {
        if (fd < 0)
            fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    void empty()
    {
        if (fd >= 0)
            close(std::exchange(fd, -1));
    }
    // Closes one waiting connection. False when that is not possible.
    bool refuse_one(int listen_fd)
    {
        if (fd < 0)
            return false;
        empty();
        const int refused = accept(listen_fd, nullptr, nullptr);
        const bool none_waits = refused < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        if (refused >= 0)
            close(refused);
        fill();
        return refused >= 0 || none_waits;
    }
};
constinit Reserve reserve = {-1, 0};

void free_server(void *data)
{
    eserver *server = static_cast<eserver *>(data);
    if (server->users > 0) {
        server->release_due = true;
        return;
    }
    std::destroy_at(server);
    free(server);
}

// Keeps a server's record while its callbacks run.
class Pin
{
public:
    explicit Pin(eserver *server) : server_(server) { server->users++; }
    ~Pin()
    {
        if (--server_->users == 0 && std::exchange(server_->release_due, false))
            event_free_later(free_server, server_);
    }
    Pin(const Pin &) = delete;
    Pin &operator=(const Pin &) = delete;

private:
    eserver *server_;
};

// Goes through the links, the newest first, while callbacks add and remove any of them. New ones are not met.
class Walk
{
public:
    explicit Walk(eserver *server)
        : pin_(server), server_(server), next_(server->links), outer_(server->walks)
    {
        server->walks = this;
    }
    ~Walk() { server_->walks = outer_; }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    // The next link of the entry; NULL at the end.
    Link *step(uint32_t entry_id)
    {
        do {
            current_ = next_;
            next_ = current_ ? current_->next : nullptr;
        } while (current_ && current_->entry_id != entry_id);
        return current_;
    }
    // What step returned, NULL when it was removed since.
    Link *current() const { return current_; }
    void forget(const Link *link)
    {
        if (next_ == link)
            next_ = link->next;
        if (current_ == link)
            current_ = nullptr;
    }
    Walk *outer() const { return outer_; }

private:
    Pin pin_;
    eserver *server_;
    Link *next_;
    Link *current_ = nullptr;
    Walk *outer_;
};

void unlink(Link *link)
{
    if (!link->place)
        return;
    for (Walk *walk = link->server->walks; walk; walk = walk->outer())
        walk->forget(link);
    *link->place = link->next;
    if (link->next)
        link->next->place = link->place;
    link->place = nullptr;
}

// Releases a link as owner data of its stream.
void release_link(void *data, void *, event_any_cb)
{
    Link *link = static_cast<Link *>(data);
    unlink(link);
    free(link);
}

Link *new_link(eserver *server, estream *stream, uint32_t entry_id)
{
    Link *link = static_cast<Link *>(malloc_log(kErr, sizeof(Link)));
    if (!link)
        return nullptr;
    *link = {server->links, &server->links, server, stream, entry_id, ++server->last_serial};
    if (link->next)
        link->next->place = &link->next;
    server->links = link;
    return link;
}

// An entry as the reports show it.
class Description
{
public:
    explicit Description(const Entry &entry)
    {
        snprintf(text_, sizeof(text_), "socket: %d addr: %s port: %d flags: %x", entry.fd,
                 iaddr2str(&entry.addr), entry.port, static_cast<unsigned>(entry.flags));
    }
    const char *text() const { return text_; }

private:
    char text_[128];
};

void watch(eserver *server, const Entry &entry)
{
    static constexpr event_debug_info site = {"accept_ready", "watch", __FILE__, __LINE__};
    event_fd_set_library(entry.fd, EVENT_READ, accept_ready, server, &site);
}

void end_rest(void *data)
{
    eserver *server = static_cast<eserver *>(data);
    for (Entry &entry : server->entries) {
        if (std::exchange(entry.resting, false))
            watch(server, entry);
    }
}

void rest(eserver *server, Entry &entry)
{
    event_fd_clr(entry.fd, EVENT_READ, accept_ready, server);
    entry.resting = true;
    if (!event_timer_exist(end_rest, server))
        event_timer_set(kRestMs, end_rest, server);
}

Entry *find_entry(const eserver *server, int fd)
{
    for (Entry &entry : server->entries) {
        if (entry.fd == fd)
            return &entry;
    }
    return nullptr;
}

void close_socket(eserver *server, Entry &entry)
{
    if (entry.fd < 0)
        return;
    zel_error_full(kEntity, kDebug, "eserver: closing socket: %s", Description(entry).text());
    event_fd_clr(entry.fd, EVENT_READ, accept_ready, server);
    entry.resting = false;
    const int fd = std::exchange(entry.fd, -1);
    if (entry.flags & kOwnsSocket)
        socket_close(fd);
}

void close_streams(eserver *server, uint32_t entry_id)
{
    Walk walk(server);
    while (Link *link = walk.step(entry_id)) {
        estream *stream = link->stream;
        unlink(link);
        if (!estream_is_closing(stream))
            estream_close(stream);
    }
}

void close_entry(eserver *server, Entry &entry)
{
    if (entry.fd < 0)
        return;
    const uint32_t id = entry.id;
    close_socket(server, entry);
    close_streams(server, id);
}

// What to do about an accept that failed: connections that cannot be taken must not keep the loop busy.
void after_failed_accept(eserver *server, Entry &entry, int error)
{
    switch (error) {
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
        if (!reserve.refuse_one(entry.fd))
            rest(server, entry);
        return;
    case EBADF:
    case EINVAL: // no more a listening socket
    case ENOTSOCK:
    case EOPNOTSUPP:
        rest(server, entry);
        return;
    default: // that connection is gone, the next one may be good
        return;
    }
}

// Makes the server the owner of a new stream, below whatever its user sets.
bool adopt(eserver *server, const Entry &entry, estream *stream)
{
    Link *link = new_link(server, stream, entry.id);
    if (!link)
        return false;
    estream_set_data(stream, link, release_link);
    if (estream_push(stream) != 0)
        return false;
    zel_error_full(kEntity, kDebug, "eserver: %s: new connection (estream with socket %d created)",
                   Description(entry).text(), estream_fd_get(stream));
    estream_set_data(stream, server, nullptr);
    return true;
}

void accept_ready(int fd, void *data)
{
    eserver *server = static_cast<eserver *>(data);
    const Entry *entry = server->closing ? nullptr : find_entry(server, fd);
    if (!entry)
        return;
    const Pin pin(server);
    const uint32_t id = entry->id;
    const Description before(*entry);
    errno = 0;
    estream *stream = estream_accept(fd, entry->flags, server->accept_cb);
    const int error = errno;
    if (!stream)
        zel_error_full(kEntity, kErr, "eserver: %s: failed estream_accept()", before.text());
    // Setting up TLS may have called out.
    Entry *now = server->closing ? nullptr : find_entry(server, fd);
    const bool there = now && now->id == id;
    if (stream && !(there && adopt(server, *now, stream)))
        estream_close(stream);
    else if (!stream && there)
        after_failed_accept(server, *now, error);
}

void set_buffer_size(int fd, int option, int size, const char *which)
{
    if (size != 0 && setsockopt(fd, SOL_SOCKET, option, &size, sizeof(size)) < 0)
        zel_error_full(kEntity, kErr, "Failed to set TCP %s window size limitation", which);
}

int open_entry(eserver *server, Entry &entry)
{
    entry.fd = sock_socket_full(SOCK_STREAM, entry.addr, entry.port, entry.ifname, 0, 0,
                                (entry.flags & ESTREAM_V6ONLY) >> kV6OnlyShift);
    if (entry.fd < 0)
        return -1;
    entry.id = ++server->last_id;
    set_buffer_size(entry.fd, SO_RCVBUF, server->receive_buffer, "read");
    set_buffer_size(entry.fd, SO_SNDBUF, server->send_buffer, "write");
    if (listen(entry.fd, kBacklog) < 0) {
        zel_error_full(kEntity, kErr, "eserver: failed listen() %s:%d - %s", iaddr2str(&entry.addr),
                       entry.port, strerror(errno));
        close_socket(server, entry);
        return -1;
    }
    sock_set_sockopt(entry.fd, 0);
    watch(server, entry);
    reserve.fill();
    zel_error_full(kEntity, kDebug, "eserver: socket opened: %s", Description(entry).text());
    return 0;
}

size_t count_requests(const eserver_req *requests)
{
    size_t count = 0;
    while (requests && requests[count].addr.family != 0)
        count++;
    return count;
}

bool same_name(const char *a, const char *b) { return a && b ? strcmp(a, b) == 0 : a == b; }

bool same_place(const Entry &entry, const Entry &wanted)
{
    return iaddr_cmp(&entry.addr, &wanted.addr) == 0 && entry.port == wanted.port &&
           same_name(entry.ifname, wanted.ifname);
}

// Moves the sockets that stay from the old entries to the new ones.
void keep_sockets(const Entries &from, const Entries &to)
{
    for (Entry &old : from) {
        for (Entry &entry : to) {
            if (old.fd < 0 || entry.fd >= 0 || !same_place(old, entry))
                continue;
            entry.fd = std::exchange(old.fd, -1);
            entry.id = old.id;
            entry.resting = old.resting;
        }
    }
}

// Closes what is left in entries that are no more the server's: all sockets, then the streams, whose owners
// are told and may bind again.
void drop_entries(eserver *server, const Entries &entries)
{
    for (Entry &entry : entries) {
        const bool open = entry.fd >= 0;
        close_socket(server, entry);
        entry.id = open ? entry.id : 0;
    }
    for (const Entry &entry : entries) {
        if (entry.id != 0)
            close_streams(server, entry.id);
    }
}

bool still(const eserver *server, uint32_t generation)
{
    return !server->closing && server->generation == generation;
}

eserver *open_on_ports(iaddr addr, const uint16_t *ports, size_t count, uint32_t flags, const char *ifname,
                       estream_connect_cb accept_cb, void *data)
{
    const Heap<eserver_req> requests(
        static_cast<eserver_req *>(zalloc_e(mul_sizes(count + 1, sizeof(eserver_req)))));
    for (size_t i = 0; i < count; i++)
        requests.get()[i] = {addr, ports[i], flags, ifname};
    return eserver_open_addrs_ports(requests.get(), 0, 0, accept_cb, data);
}

} // namespace

eserver *eserver_open(estream_connect_cb accept_cb, void *data)
{
    eserver *server = static_cast<eserver *>(zalloc_log(kErr, sizeof(eserver)));
    if (!server)
        return nullptr;
    std::construct_at(server);
    server->accept_cb = accept_cb;
    server->data = data;
    reserve.servers++;
    return server;
}

int eserver_bind(eserver *server, const eserver_req *requests)
{
    if (!server || server->closing)
        return -1;
    const Pin pin(server);
    Entries entries(count_requests(requests));
    for (size_t i = 0; i < entries.count(); i++) {
        entries[i].addr = requests[i].addr;
        entries[i].port = requests[i].port;
        entries[i].flags = requests[i].flags | kOwnsSocket;
        entries[i].ifname = requests[i].ifname ? strdup_null_e(requests[i].ifname) : nullptr;
    }
    keep_sockets(server->entries, entries);
    server->entries.swap(entries);
    const uint32_t generation = ++server->generation;
    drop_entries(server, entries);

    for (size_t i = 0; still(server, generation) && i < server->entries.count(); i++) {
        Entry &entry = server->entries[i];
        if (entry.fd >= 0 || open_entry(server, entry) == 0)
            continue;
        while (i-- > 0 && still(server, generation))
            close_entry(server, server->entries[i]);
        return -1;
    }
    return still(server, generation) ? 0 : -1;
}

eserver *eserver_open_addrs_ports(const eserver_req *requests, int receive_buffer, int send_buffer,
                                  estream_connect_cb accept_cb, void *data)
{
    eserver *server = eserver_open(accept_cb, data);
    if (!server) {
        zel_error_full(kEntity, kErr, "eserver: failed eserver_open()");
        return nullptr;
    }
    server->receive_buffer = receive_buffer;
    server->send_buffer = send_buffer;
    eserver_bind(server, requests);
    if (eserver_fd_get(server, 0) >= 0)
        return server;
    eserver_close(server);
    zel_error_full(kEntity, kErr, "eserver: failed eserver_bind()");
    return nullptr;
}

eserver *eserver_open_addr(iaddr addr, uint16_t port, uint32_t flags, estream_connect_cb accept_cb,
                           void *data)
{
    return open_on_ports(addr, &port, 1, flags, nullptr, accept_cb, data);
}

eserver *eserver_open_port(uint16_t port, uint32_t flags, estream_connect_cb accept_cb, void *data)
{
    return eserver_open_addr(*iaddr_any(AF_INET), port, flags, accept_cb, data);
}

eserver *eserver_open_ports(const uint16_t *ports, uint32_t flags, estream_connect_cb accept_cb, void *data)
{
    return eserver_open_ports_ex(*iaddr_any(AF_INET), ports, flags, nullptr, accept_cb, data);
}

eserver *eserver_open_ports_ex(iaddr addr, const uint16_t *ports, uint32_t flags, const char *ifname,
                               estream_connect_cb accept_cb, void *data)
{
    size_t count = 0;
    while (ports && ports[count] != 0)
        count++;
    return open_on_ports(addr, ports, count, flags, ifname, accept_cb, data);
}

void eserver_close(eserver *server)
{
    if (!server || server->closing)
        return;
    server->closing = true;
    {
        const Pin pin(server);
        event_timer_del(end_rest, server);
        // Every entry: sockets that were kept can stand behind one that could not be opened again.
        for (Entry &entry : server->entries)
            close_entry(server, entry);
        Entries().swap(server->entries);
    }
    if (--reserve.servers == 0)
        reserve.empty();
    event_free_later(free_server, server);
}

int eserver_estreams_close(eserver *server, eserver_estream_cb predicate, void *argument)
{
    if (!server || !predicate || server->entries.count() == 0)
        return -1;
    const Pin pin(server);
    const uint64_t last_serial = server->last_serial;
    const size_t count = server->entries.count();
    const Heap<uint32_t> ids(new_array<uint32_t>(count));
    for (size_t i = 0; i < count; i++)
        ids.get()[i] = server->entries[i].id;
    for (size_t i = 0; i < count; i++) {
        Walk walk(server);
        while (const Link *link = walk.step(ids.get()[i])) {
            if (link->serial <= last_serial && predicate(link->stream, argument, 0) != 0 && walk.current())
                estream_close(walk.current()->stream);
        }
    }
    return -1;
}

void *eserver_get_data(const eserver *server) { return server ? server->data : nullptr; }

int eserver_fd_get(const eserver *server, int index)
{
    if (!server || index < 0 || static_cast<size_t>(index) >= server->entries.count())
        return -1;
    return server->entries[static_cast<size_t>(index)].fd;
}
