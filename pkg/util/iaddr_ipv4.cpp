// IPv4 addresses and masks as numbers, first octet on top, and their strict dotted text.

#include "iaddr.h"

#include "internal/chars.h"
#include "internal/text.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

using namespace kutil;

namespace
{

constexpr uint32_t kHostMask = 0xffffffff;

struct Network {
    uint32_t address;
    int prefix_len;
    constexpr bool contains(uint32_t ip) const { return ((ip ^ address) >> (32 - prefix_len)) == 0; }
};

constexpr Network kLoopbackNet = {0x7f000000, 8};
constexpr Network kRfc1918[] = {{0x0a000000, 8}, {0xac100000, 12}, {0xc0a80000, 16}};
// Deliberate: the documentation range 192.0.2.0/24 counts as private, as the link-local range does.
constexpr Network kAlsoPrivate[] = {{0xa9fe0000, 16}, {0xc0000200, 24}};

template <size_t N>
bool any_contains(const Network (&networks)[N], uint32_t ip)
{
    return std::any_of(networks, networks + N, [ip](const Network &network) { return network.contains(ip); });
}

struct State {
    subnet *private_list;
    matching_src_ip_cb matching_src_ip;
};
constinit State state = {};

enum class Trailing { kNone, kOneBlank };

// Exactly four numbers of one to three digits, below 256 each. A blank may end the text where the caller
// allows it.
bool parse_quad(const char *text, Trailing trailing, uint32_t *out)
{
    if (!text)
        return false;
    uint32_t ip = 0;
    for (int octet = 0; octet < 4; octet++) {
        if (octet > 0 && *text == '.')
            text++;
        if (!is_digit(*text))
            return false;
        uint32_t number = 0;
        for (int digits = 0; is_digit(*text); digits++) {
            if (digits == 3)
                return false;
            number = number * 10 + static_cast<uint32_t>(*text++ - '0');
        }
        if (number > 255)
            return false;
        ip = ip << 8 | number;
    }
    const bool blank = *text == ' ' || *text == '\t' || *text == '\r' || *text == '\n';
    if (*text && !(blank && trailing == Trailing::kOneBlank))
        return false;
    if (out)
        *out = ip;
    return true;
}

} // namespace

// ---- Text ----

int zel_inet_atonz(const char *text, uint32_t *out) { return parse_quad(text, Trailing::kNone, out); }

int zel_inet_aton(const char *text, uint32_t *out)
{
    if (out)
        *out = 0;
    return parse_quad(text, Trailing::kOneBlank, out);
}

int is_ip_format(const char *text) { return parse_quad(text, Trailing::kNone, nullptr); }

int zel_is_valid_netmask(const char *text)
{
    uint32_t mask = 0;
    return parse_quad(text, Trailing::kNone, &mask) && is_netmask_valid(mask);
}

// Another spelling of the same mask, such as with leading zeros, is none.
int zel_is_valid_host_netmask(const char *text) { return view(text) == "255.255.255.255"; }

int zel_is_valid_net_netmask(const char *text)
{
    return zel_is_valid_netmask(text) && !zel_is_valid_host_netmask(text);
}

// ---- Masks ----

int netmask_to_bitcount(uint32_t mask) { return std::countl_one(mask); }

uint32_t bitcount_to_netmask(int n)
{
    if (n <= 0)
        return 0;
    return n >= 32 ? kHostMask : kHostMask << (32 - n);
}

// The zeros below the ones of a good mask, plus 1, are a power of two or 0.
int is_netmask_valid(uint32_t mask) { return (~mask & (~mask + 1)) == 0; }

uint32_t ip_class_netmask(uint32_t ip)
{
    const int leading_ones = std::countl_one(ip >> 29 << 29);
    return leading_ones == 3 ? 0 : bitcount_to_netmask(8 * (leading_ones + 1));
}

// ---- Relations ----

int subnet_compare(uint32_t ip_a, uint32_t mask_a, uint32_t ip_b, uint32_t mask_b)
{
    if (((ip_a ^ ip_b) & mask_a & mask_b) != 0)
        return -1;
    if (mask_a == mask_b)
        return 0;
    return mask_b < mask_a ? 2 : 1;
}

int is_ip_in_range(uint32_t ip, uint32_t lo, uint32_t hi) { return lo <= ip && ip <= hi; }

// Deliberate: the mask 0 matches nothing.
int is_ip_in_subnet(uint32_t ip, uint32_t mask, uint32_t net) { return mask != 0 && (ip & mask) == net; }

int ip_netmask_verify(uint32_t ip, uint32_t mask)
{
    if ((ip & ~mask) == 0)
        return 1;
    if ((ip | mask) == kHostMask)
        return 2;
    if ((ip & mask) == 0)
        return 3;
    return (ip & mask) == mask ? 4 : 0;
}

int is_ip_subnet(uint32_t ip, uint32_t mask) { return ip_netmask_verify(ip, mask) == 1; }

int is_ip_broadcast(uint32_t ip, uint32_t mask) { return ip_netmask_verify(ip, mask) == 2; }

int is_loopback_ip(uint32_t ip) { return kLoopbackNet.contains(ip); }

int inet_is_ip_private_rfc1918(uint32_t ip) { return any_contains(kRfc1918, ip); }

int is_non_routable_lan_device_ip(uint32_t ip) { return inet_is_ip_private_rfc1918(ip); }

// ---- Process-wide settings ----

void inet_set_private_ip_list(subnet *list)
{
    if (list == state.private_list)
        return;
    free(state.private_list);
    state.private_list = list;
}

int inet_is_ip_private(uint32_t ip)
{
    if (!state.private_list)
        return inet_is_ip_private_rfc1918(ip) || any_contains(kAlsoPrivate, ip);
    iaddr address = {};
    ip2iaddr(&address, ip);
    for (const subnet *entry = state.private_list; !iaddr_is_any(&entry->addr); entry++) {
        const iaddr masked =
            iaddr_prefix_len_and(address, static_cast<int>(std::min(entry->prefix_len, 128U)));
        if (iaddr_cmp(&masked, &entry->addr) == 0)
            return 1;
    }
    return 0;
}

void set_matching_src_ip_cb(matching_src_ip_cb cb) { state.matching_src_ip = cb; }

uint32_t get_matching_src_ip(uint32_t dst, const char *ifname, uint32_t mark)
{
    return state.matching_src_ip ? state.matching_src_ip(dst, ifname, mark) : 0;
}
