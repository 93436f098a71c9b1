#include "iaddr.h"

#include "internal/big_endian.h"
#include "internal/iaddr_bytes.h"
#include "internal/number.h"
#include "internal/text.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <netdb.h>

using namespace kutil;

// Records that callers and the wire share.
static_assert(sizeof(ip_addr) == 16 && offsetof(iaddr, addr) == 0 && offsetof(iaddr, family) == 16);
static_assert(offsetof(subnet, addr) == 0 && offsetof(subnet, prefix_len) == sizeof(iaddr));
static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_in6) == 28);

namespace
{

constexpr ip_addr kAnyBytes = {};
constexpr ip_addr kLoopback4 = {.bytes = {127, 0, 0, 1}};
constexpr ip_addr kLoopback6 = {.bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
constexpr iaddr kAny4 = {kAnyBytes, AF_INET};
constexpr iaddr kAny6 = {kAnyBytes, AF_INET6};
constexpr iaddr kNoAddress = {kAnyBytes, AF_UNSPEC};

const iaddr &value_of(const iaddr *a) { return a ? *a : kNoAddress; }

// The comparison within one family. Deliberate: IPv4 gives the wrapped difference, not a three-way result.
int compare_bytes(uint16_t family, const void *a, const void *b)
{
    if (family == AF_INET)
        return static_cast<int32_t>(load_be32(octets(a)) - load_be32(octets(b)));
    return memcmp(octets(a), octets(b), sizeof(ip_addr));
}

// ---- Socket addresses ----

// Where a socket address keeps its port and its address bytes; 0 in `size` for other families. Socket
// addresses are read and written as bytes: callers keep them in storage of any type.
struct SockLayout {
    size_t size;
    size_t port;
    size_t bytes;
};

SockLayout layout_of(uint16_t family)
{
    if (family == AF_INET)
        return {sizeof(sockaddr_in), offsetof(sockaddr_in, sin_port), offsetof(sockaddr_in, sin_addr)};
    if (family == AF_INET6)
        return {sizeof(sockaddr_in6), offsetof(sockaddr_in6, sin6_port), offsetof(sockaddr_in6, sin6_addr)};
    return {0, 0, 0};
}

uint16_t family_of(const sockaddr *sa)
{
    sa_family_t family = AF_UNSPEC;
    if (sa)
        memcpy(&family, octets(sa) + offsetof(sockaddr, sa_family), sizeof(family));
    return family;
}

uint16_t read_port(const sockaddr *sa, const SockLayout &layout)
{
    uint16_t port = 0;
    memcpy(&port, octets(sa) + layout.port, sizeof(port));
    return ntohs(port);
}

void write_port(sockaddr *sa, const SockLayout &layout, uint16_t port)
{
    const uint16_t wire = htons(port);
    memcpy(reinterpret_cast<uint8_t *>(sa) + layout.port, &wire, sizeof(wire));
}

// ---- Text ----

struct FreeAddrinfo {
    void operator()(addrinfo *list) const noexcept { freeaddrinfo(list); }
};

// One to four numbers, decimal, hexadecimal or octal: each but the last is an octet, the last is all the
// rest. Not left to the C library, since one of 32 bits takes a number that is too large for the largest.
bool parse_parts(const char *text, uint32_t &out)
{
    uint32_t high = 0;
    for (int octets_left = 4; octets_left > 0 && is_digit(*text); octets_left--) {
        const char *end = nullptr;
        const uint64_t number = parse_u64(text, &end, 0);
        if (*end == '\0' && number >> (8 * octets_left) == 0) {
            out = static_cast<uint32_t>(uint64_t{high} << (8 * octets_left) | number);
            return true;
        }
        if (*end != '.' || number > 255)
            return false;
        high = high << 8 | static_cast<uint32_t>(number);
        text = end + 1;
    }
    return false;
}

// The plain forms, by far the most frequent, need no resolver; it sees addresses with a zone.
bool parse_numeric(const char *text, iaddr &out)
{
    out = {};
    for (const uint16_t family : {uint16_t{AF_INET}, uint16_t{AF_INET6}}) {
        if (inet_pton(family, text, out.addr.bytes) == 1) {
            out.family = family;
            return true;
        }
    }
    out = {};
    uint32_t ip = 0;
    if (parse_parts(text, ip)) {
        ip2iaddr(&out, ip);
        return true;
    }
    if (!strchr(text, ':'))
        return false;
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo *list = nullptr;
    if (getaddrinfo(text, nullptr, &hints, &list) != 0 || !list)
        return false;
    const std::unique_ptr<addrinfo, FreeAddrinfo> owner(list);
    return sockaddr2iaddr(&out, nullptr, list->ai_addr) == 0;
}

constexpr size_t kAddressText = INET6_ADDRSTRLEN; // 46, the longest text and its NUL

char *print_quad(char *to, const uint8_t *bytes)
{
    return to + sprintf(to, "%u.%u.%u.%u", unsigned{bytes[0]}, unsigned{bytes[1]}, unsigned{bytes[2]},
                        unsigned{bytes[3]});
}

// The longest run of at least two zero words, the first of equal ones, is "::"; behind 80 bits of zeros
// stands a quad where the address is an IPv4 one.
void print_words(char *to, const uint8_t *bytes)
{
    constexpr int kWords = 8;
    unsigned words[kWords];
    int run_start = 0;
    int run_length = 1;
    for (int i = 0, zeros = 0; i < kWords; i++) {
        words[i] = static_cast<unsigned>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
        zeros = words[i] == 0 ? zeros + 1 : 0;
        if (zeros > run_length) {
            run_length = zeros;
            run_start = i + 1 - zeros;
        }
    }
    if (run_length < 2)
        run_length = 0;
    const bool has_quad = run_start == 0 && (run_length == 6 || (run_length == 5 && words[5] == 0xffff));
    for (int i = 0; i < kWords; i++) {
        if (i == run_start && run_length > 0) {
            *to++ = ':';
            i += run_length - 1;
            if (i == kWords - 1)
                *to++ = ':';
            continue;
        }
        if (i > 0)
            *to++ = ':';
        if (i == 6 && has_quad) {
            to = print_quad(to, bytes + 12);
            break;
        }
        to += sprintf(to, "%x", words[i]);
    }
    *to = '\0';
}

// As the GNU C library's inet_ntop does, on every machine: others shorten other zeros, and what is stored is
// compared as text.
void print_address(char (&out)[kAddressText], uint16_t family, const void *a)
{
    out[0] = '\0';
    if (a && family == AF_INET)
        print_quad(out, octets(a));
    else if (a && family == AF_INET6)
        print_words(out, octets(a));
}

char address_text[kAddressText];

} // namespace

// ---- Making and converting ----

iaddr *ip2iaddr(iaddr *out, uint32_t ip)
{
    if (out) {
        out->family = AF_INET;
        store_be32(out->addr.bytes, ip);
    }
    return out;
}

iaddr *in_addr2iaddr(iaddr *out, in_addr a) { return iaddr_from_ip_addr(AF_INET, out, &a); }

iaddr *in6_addr2iaddr(iaddr *out, in6_addr a) { return iaddr_from_ip_addr(AF_INET6, out, &a); }

iaddr *iaddr_from_ip_addr(uint16_t family, iaddr *out, const void *src)
{
    if (out) {
        ip_addr_cpy(family, &out->addr, src);
        out->family = family;
    }
    return out;
}

iaddr addr2iaddr(uint16_t family, const void *src)
{
    iaddr result = {};
    iaddr_from_ip_addr(family, &result, src);
    return result;
}

ip_addr *iaddr2ip_addr(ip_addr *out, const iaddr *a)
{
    const iaddr &from = value_of(a);
    return ip_addr_cpy(from.family, out, &from.addr);
}

ip_addr *ip_addr_cpy(uint16_t family, ip_addr *dst, const void *src)
{
    if (dst)
        memmove(dst, octets(src), address_size(family));
    return dst;
}

void ip6_zero(ip_addr *a)
{
    if (a)
        *a = {};
}

int iaddr2in_addr(const iaddr *a, uint32_t *out)
{
    const iaddr &from = value_of(a);
    const bool is_ipv4 = from.family == AF_INET;
    if (!is_ipv4 && !iaddr_is_ipv4_mapped(&from))
        return -1;
    if (out)
        *out = load_be32(from.addr.bytes + (is_ipv4 ? 0 : 12));
    return 0;
}

int iaddr2sockaddr(sockaddr *out, const iaddr *a, uint16_t port, socklen_t *len_out)
{
    const iaddr from = value_of(a);
    const SockLayout layout = layout_of(from.family);
    if (layout.size == 0)
        return -1;
    if (len_out)
        *len_out = static_cast<socklen_t>(layout.size);
    if (!out)
        return 0;
    auto *bytes = reinterpret_cast<uint8_t *>(out);
    memset(bytes, 0, layout.size);
    memcpy(bytes + layout.bytes, &from.addr, address_size(from.family));
    write_port(out, layout, port);
    const sa_family_t family = from.family;
    memcpy(bytes + offsetof(sockaddr, sa_family), &family, sizeof(family));
    return 0;
}

int sockaddr2ip_addr(uint16_t *family_out, ip_addr *out, uint16_t *port_out, const sockaddr *sa)
{
    const uint16_t family = family_of(sa);
    const SockLayout layout = layout_of(family);
    if (layout.size == 0)
        return -1;
    ip_addr bytes = {};
    memcpy(&bytes, octets(sa) + layout.bytes, address_size(family));
    const uint16_t port = read_port(sa, layout);
    if (family_out)
        *family_out = family;
    if (out)
        *out = bytes;
    if (port_out)
        *port_out = port;
    return 0;
}

int sockaddr2iaddr(iaddr *out, uint16_t *port_out, const sockaddr *sa)
{
    return sockaddr2ip_addr(out ? &out->family : nullptr, out ? &out->addr : nullptr, port_out, sa);
}

int sockaddr_set_port(sockaddr *sa, uint16_t port)
{
    const SockLayout layout = layout_of(family_of(sa));
    if (layout.size == 0)
        return -1;
    write_port(sa, layout, port);
    return 0;
}

int sockaddr_get_port(const sockaddr *sa, uint16_t *port)
{
    const SockLayout layout = layout_of(family_of(sa));
    if (layout.size == 0 || !port)
        return -1;
    *port = read_port(sa, layout);
    return 0;
}

// ---- Text ----

int str2ip_addr(uint16_t *family_out, ip_addr *out, const char *text)
{
    if (!text || !out)
        return -1;
    iaddr parsed;
    const bool ok = parse_numeric(text, parsed);
    if (!ok)
        parsed = kNoAddress;
    *out = parsed.addr;
    if (family_out)
        *family_out = parsed.family;
    return ok ? 0 : -1;
}

int str2iaddr(iaddr *out, const char *text) { return out ? str2ip_addr(&out->family, &out->addr, text) : -1; }

char *ip_addr2str(uint16_t family, const void *a)
{
    print_address(address_text, family, a);
    return address_text;
}

char *iaddr2str(const iaddr *a)
{
    const iaddr &from = value_of(a);
    return ip_addr2str(from.family, &from.addr);
}

int str2subnet(subnet *out, const char *text)
{
    constexpr size_t kMaxText = 49;
    if (!out || !text || strnlen(text, kMaxText + 1) > kMaxText)
        return -1;
    const char *slash = strchr(text, '/');
    if (!slash)
        return -1;
    char address[kMaxText + 1];
    *put(address, View(text, static_cast<size_t>(slash - text))) = '\0';
    subnet result = {};
    if (str2iaddr(&result.addr, address) != 0 || !iaddr_is_valid(&result.addr))
        return -1;
    const char *end = nullptr;
    const int32_t len = parse_i32(slash + 1, &end);
    if (end == slash + 1 || len < 0 || len > address_bits(result.addr.family))
        return -1;
    result.prefix_len = static_cast<uint32_t>(len);
    *out = result;
    return 0;
}

char *subnet2str(const subnet *s)
{
    static char text[kAddressText + sizeof("/4294967295")];
    text[0] = '\0';
    if (s && iaddr_is_valid(&s->addr)) {
        char address[kAddressText];
        print_address(address, s->addr.family, &s->addr.addr);
        snprintf(text, sizeof(text), "%s/%u", address, static_cast<unsigned>(s->prefix_len));
    }
    return text;
}

char *inet_ntoa_t(uint32_t ip)
{
    in_addr a = {};
    store_be32(&a, ip);
    return inet_ntoa(a);
}

// ---- Constants ----

const ip_addr *ip_addr_loopback(uint16_t family) { return family == AF_INET ? &kLoopback4 : &kLoopback6; }

const ip_addr *ip_addr_any() { return &kAnyBytes; }

const iaddr *iaddr_any(uint16_t family) { return family == AF_INET6 ? &kAny6 : &kAny4; }

// ---- Comparing and classifying ----

int iaddr_cmp(const iaddr *a, const iaddr *b)
{
    const iaddr &left = value_of(a);
    const iaddr &right = value_of(b);
    if (left.family == AF_INET && right.family == AF_INET6)
        return -1;
    if (left.family == AF_INET6 && right.family == AF_INET)
        return 1;
    return compare_bytes(left.family, &left.addr, &right.addr);
}

int ip_addr_is_in_range(uint16_t family, const void *a, const void *lo, const void *hi)
{
    return compare_bytes(family, lo, a) <= 0 && compare_bytes(family, a, hi) <= 0;
}

int iaddr_is_any(const iaddr *a) { return iaddr_cmp(iaddr_any(value_of(a).family), a) == 0; }

int iaddr_is_loopback(const iaddr *a)
{
    const iaddr &address = value_of(a);
    return compare_bytes(address.family, &address.addr, ip_addr_loopback(address.family)) == 0;
}

int iaddr_is_valid(const iaddr *a) { return address_bits(value_of(a).family) != 0; }

int iaddr_is_ipv4_mapped(const iaddr *a)
{
    static constexpr uint8_t kPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    return memcmp(value_of(a).addr.bytes, kPrefix, sizeof(kPrefix)) == 0;
}

iaddr_type iaddr_get_type(const iaddr *a)
{
    const iaddr &address = value_of(a);
    if (address.family == AF_INET)
        return IADDR_TYPE_IPV4;
    if (address.family != AF_INET6)
        return IADDR_TYPE_OTHER;
    const uint8_t *bytes = address.addr.bytes;
    if (inet_is_addr_global(bytes))
        return IADDR_TYPE_GLOBAL;
    if (inet_is_addr_ula(bytes))
        return IADDR_TYPE_ULA;
    if (inet_is_addr_lla(bytes))
        return IADDR_TYPE_LINK_LOCAL;
    return iaddr_is_ipv4_mapped(&address) ? IADDR_TYPE_IPV4_MAPPED : IADDR_TYPE_OTHER;
}

int iaddr_is_in_subnet(const iaddr *a, const subnet *s)
{
    // Deliberate: a subnet of length 0 contains nothing.
    if (!a || !s || s->prefix_len == 0 || a->family != s->addr.family)
        return 0;
    const int len = s->prefix_len > 128 ? 128 : static_cast<int>(s->prefix_len);
    const iaddr network = iaddr_prefix_len_and(s->addr, len);
    const iaddr masked = iaddr_prefix_len_and(*a, len);
    return iaddr_cmp(&masked, &network) == 0;
}

void iaddr_dec(iaddr *a)
{
    // IPv4 as a number and IPv6 byte by byte are the same borrow over different widths.
    if (!iaddr_is_valid(a))
        return;
    for (size_t i = address_size(a->family); i-- > 0;) {
        if (a->addr.bytes[i]-- != 0)
            return;
    }
}

int inet_is_addr_ula(const void *a) { return (octets(a)[0] & 0xfe) == 0xfc; }

int inet_is_addr_global(const void *a) { return (octets(a)[0] & 0xe0) == 0x20; }

int inet_is_addr_mc(const void *a) { return octets(a)[0] == 0xff; }

// Deliberate: fe80::/9 and ff80::/9 pass, not only fe80::/10.
int inet_is_addr_lla(const void *a) { return (octets(a)[0] & 0xfe) == 0xfe && (octets(a)[1] & 0x80) != 0; }

int inet_addr_mc_scope(const void *a) { return octets(a)[1] & 0x0f; }
