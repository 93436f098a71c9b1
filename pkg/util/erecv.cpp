#include "erecv.h"

#include "event.h"
#include "internal/event.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "sock.h"
#include "sys.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>

#ifndef SO_LOCK_FILTER
#define SO_LOCK_FILTER 44
#endif

using namespace kutil;

static_assert(sizeof(erecv_pktinfo) == sizeof(in6_pktinfo) && sizeof(erecv_pktinfo) == 20 &&
              offsetof(erecv_pktinfo, ifindex) == 16);
static_assert(sizeof(sockaddr_storage) == 128);

struct erecv {
    char *name;
    int fd;
    bool owns_fd;
    int buffer_size;
    erecv_cb callback;
    void *data;
    uint8_t *buffer; // one byte longer, for a NUL
    sockaddr_storage source;
    socklen_t source_length;
    alignas(cmsghdr) unsigned char control[ERECV_CONTROL_SIZE];
};

namespace
{

constexpr int kDefaultBufferSize = 2048;

// How the gateway's kernel tells the interface that a datagram came in by.
constexpr int kInterfaceLevel = 263;
constexpr int kInterfaceType = 19;

void free_receiver(erecv *receiver)
{
    free(receiver->buffer);
    free(receiver->name);
    free(receiver);
}

void read_ready(int, void *data)
{
    erecv *receiver = static_cast<erecv *>(data);
    memset(receiver->control, 0, sizeof(receiver->control));
    iovec part = {receiver->buffer, static_cast<size_t>(receiver->buffer_size)};
    msghdr message = {};
    message.msg_name = &receiver->source;
    message.msg_namelen = sizeof(receiver->source);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = receiver->control;
    message.msg_controllen = sizeof(receiver->control);
    const ssize_t length = recvmsg(receiver->fd, &message, MSG_DONTWAIT);
    if (length < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            zel_error_full(kEntity, errno == ECONNREFUSED ? kDebug : kErr, "%s:%d: erecv_read_et(%s %d): %s",
                           __func__, __LINE__, text_or_empty(receiver->name), receiver->fd, strerror(errno));
        }
        return;
    }
    receiver->source_length = message.msg_namelen;
    if (message.msg_namelen == 0) // a nameless sender is not the one before
        receiver->source = {};
    receiver->buffer[length] = '\0';
    if (receiver->callback) // which may close the receiver
        receiver->callback(receiver->data, receiver->buffer, static_cast<int>(length));
}

// What the library looks for among control messages; pointers into them, NULL when absent.
struct ControlData {
    const unsigned char *pktinfo;
    const unsigned char *hop_limit;
    const unsigned char *ifindex;
    const unsigned char *timestamp;
};

ControlData find_control_data(const void *control)
{
    ControlData found = {};
    const auto *bytes = static_cast<const unsigned char *>(control);
    for (size_t pos = 0; pos + CMSG_LEN(0) <= ERECV_CONTROL_SIZE;) {
        cmsghdr header;
        memcpy(&header, bytes + pos, sizeof(header));
        const size_t length = header.cmsg_len;
        const int level = header.cmsg_level;
        const int type = header.cmsg_type;
        if (length < CMSG_LEN(0) || length > ERECV_CONTROL_SIZE - pos)
            break;
        const unsigned char *body = bytes + pos + CMSG_LEN(0);
        const auto is = [&](int wanted_level, int wanted_type) {
            return level == wanted_level && type == wanted_type;
        };
        const auto holds = [&](size_t size) { return length == CMSG_LEN(size); };
        if (is(IPPROTO_IPV6, IPV6_PKTINFO)) {
            uint32_t ifindex = 0;
            if (holds(sizeof(erecv_pktinfo)))
                memcpy(&ifindex, body + offsetof(erecv_pktinfo, ifindex), sizeof(ifindex));
            if (ifindex != 0)
                found.pktinfo = body;
            else
                zel_error_full(kEntity, kErr, "Wrong IPV6_PKTINFO from the kernel");
        } else if (is(IPPROTO_IPV6, IPV6_HOPLIMIT) && holds(sizeof(int))) {
            found.hop_limit = body;
        } else if (is(kInterfaceLevel, kInterfaceType) && holds(sizeof(uint32_t))) {
            found.ifindex = body;
        } else if (is(SOL_SOCKET, SO_TIMESTAMP) && holds(sizeof(timeval))) {
            found.timestamp = body;
        }
        pos += CMSG_SPACE(length - CMSG_LEN(0));
    }
    return found;
}

// Copies what was found, zeros when nothing was. `out` may be NULL.
template <class T>
void store(T *out, const unsigned char *found)
{
    if (!out)
        return;
    *out = {};
    if (found)
        memcpy(out, found, sizeof(*out));
}

} // namespace

erecv *erecv_open_fd(int fd, int buffer_size, erecv_cb callback, void *data)
{
    if (sock_valid(fd) != 0 || sys_sock_set_nonblocking(fd) != 0)
        return nullptr;
    erecv *receiver = static_cast<erecv *>(zalloc_log(kErr, sizeof(erecv)));
    if (!receiver)
        return nullptr;
    receiver->buffer_size = buffer_size > 0 ? buffer_size : kDefaultBufferSize;
    receiver->buffer =
        static_cast<uint8_t *>(zalloc_log(kErr, add_sizes(static_cast<size_t>(receiver->buffer_size), 1)));
    if (!receiver->buffer) {
        free_receiver(receiver);
        return nullptr;
    }
    receiver->fd = fd;
    receiver->callback = callback;
    receiver->data = data;
    static constexpr event_debug_info site = {"read_ready", "erecv_open_fd", __FILE__, __LINE__};
    event_fd_set_library(fd, EVENT_READ, read_ready, receiver, &site);
    return receiver;
}

erecv *erecv_open_ip_port_full(iaddr address, uint16_t port, const char *ifname, uint32_t mark, uint32_t tos,
                               uint32_t flags, int buffer_size, erecv_cb callback, void *data)
{
    const int fd = sock_socket_full(SOCK_DGRAM, address, port, ifname, mark, tos, flags);
    if (fd < 0)
        return nullptr;
    erecv *receiver = erecv_open_fd(fd, buffer_size, callback, data);
    if (!receiver) {
        socket_close(fd);
        return nullptr;
    }
    receiver->owns_fd = true;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_LOCK_FILTER, &on, sizeof(on));
    if (address.family == AF_INET6 && setsockopt(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof(on)) < 0)
        zel_error_full(kEntity, kErr, "Failed to set IPV6_RECVPKTINFO socket option");
    return receiver;
}

erecv *erecv_open_ip_port(uint32_t address, uint16_t port, int buffer_size, erecv_cb callback, void *data)
{
    iaddr bound = {};
    return erecv_open_ip_port_full(*ip2iaddr(&bound, address), port, nullptr, 0, 0, 0, buffer_size, callback,
                                   data);
}

void erecv_close(erecv *receiver)
{
    if (!receiver)
        return;
    event_fd_clr(receiver->fd, EVENT_READ, read_ready, receiver);
    if (receiver->owns_fd)
        socket_close(receiver->fd);
    free_receiver(receiver);
}

void erecv_set_name(erecv *receiver, const char *name)
{
    if (receiver)
        replace_text(&receiver->name, strdup_n(name));
}

int erecv_get_fd(const erecv *receiver) { return receiver ? receiver->fd : -1; }

uint32_t erecv_get_ip(const erecv *receiver)
{
    iaddr source = {};
    uint32_t ip = 0;
    if (receiver &&
        sockaddr2iaddr(&source, nullptr, reinterpret_cast<const sockaddr *>(&receiver->source)) == 0)
        iaddr2in_addr(&source, &ip);
    return ip;
}

uint16_t erecv_get_family(const erecv *receiver) { return receiver ? receiver->source.ss_family : 0; }

uint16_t erecv_get_port(const erecv *receiver)
{
    uint16_t port = 0;
    if (receiver)
        sockaddr_get_port(reinterpret_cast<const sockaddr *>(&receiver->source), &port);
    return port;
}

void erecv_get_addr(const erecv *receiver, struct sockaddr_storage *out, socklen_t *out_length)
{
    if (out)
        *out = receiver ? receiver->source : sockaddr_storage{};
    if (out_length)
        *out_length = receiver ? receiver->source_length : 0;
}

uint8_t *erecv_get_buf(erecv *receiver) { return receiver ? receiver->buffer : nullptr; }

void *erecv_get_control(erecv *receiver) { return receiver ? receiver->control : nullptr; }

int erecv_parse_control(const void *control, uint32_t *ifindex_out, erecv_pktinfo *destination_out)
{
    const ControlData found = control ? find_control_data(control) : ControlData{};
    store(ifindex_out, found.ifindex);
    store(destination_out, found.pktinfo);
    return control ? 0 : -1;
}

int erecv_ipv6_get_hop_limit(const void *control)
{
    if (!control)
        return -1;
    int hop_limit;
    store(&hop_limit, find_control_data(control).hop_limit);
    return hop_limit;
}

struct timeval *erecv_get_timestamp(void *control)
{
    const unsigned char *found = control ? find_control_data(control).timestamp : nullptr;
    if (!found)
        return nullptr;
    // Through void: the time is only promised to be there, not to be aligned.
    void *place = static_cast<unsigned char *>(control) + (found - static_cast<unsigned char *>(control));
    return static_cast<timeval *>(place);
}

int erecv_ipv6_send(int fd, const void *buffer, int length, const struct sockaddr *destination,
                    socklen_t destination_length, const erecv_pktinfo *source)
{
    if (length < 0)
        return zel_error_full(kEntity, kErr, "Failed to send message");
    iovec part = {const_cast<void *>(buffer), static_cast<size_t>(length)};
    msghdr message = {};
    message.msg_name = const_cast<sockaddr *>(destination);
    message.msg_namelen = destination ? destination_length : 0;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(erecv_pktinfo))] = {};
    if (source) {
        cmsghdr header = {};
        header.cmsg_len = CMSG_LEN(sizeof(*source));
        header.cmsg_level = IPPROTO_IPV6;
        header.cmsg_type = IPV6_PKTINFO;
        memcpy(control, &header, sizeof(header));
        memcpy(control + CMSG_LEN(0), source, sizeof(*source));
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
    }
    ssize_t sent = -1;
    do
        sent = sendmsg(fd, &message, 0);
    while (sent < 0 && errno == EINTR);
    if (sent < length)
        return zel_error_full(kEntity, kErr, "Failed to send message");
    return 0;
}

ssize_t esend(int fd, const void *buffer, size_t length, int flags)
{
    return send(fd, buffer, length, flags);
}

ssize_t esendto(int fd, const void *buffer, size_t length, int flags, const struct sockaddr *destination,
                socklen_t destination_length)
{
    return sendto(fd, buffer, length, flags, destination, destination_length);
}

ssize_t esendmsg(int fd, const struct msghdr *message, int flags) { return sendmsg(fd, message, flags); }
