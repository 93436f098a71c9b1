#include "mac.h"

#include "internal/heap.h"
#include "internal/report.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>

using namespace kutil;

static_assert(offsetof(masked_mac, mac) == 0 && offsetof(masked_mac, mask) == 6 && sizeof(masked_mac) == 12);
static_assert(offsetof(mac_list, next) == 0 && offsetof(mac_list, mac) == sizeof(void *));

constexpr uint8_t bcast_mac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

namespace
{

constexpr size_t kMacSize = 6;
constexpr size_t kMacText = 17;
constexpr uint8_t kZeroMac[kMacSize] = {};

const uint8_t *octets_of(const uint8_t *mac) { return mac ? mac : kZeroMac; }

bool has_mac_length(const char *text) { return text && strnlen(text, kMacText + 1) == kMacText; }

int64_t number_of(const uint8_t *mac)
{
    int64_t number = 0;
    for (size_t i = 0; i < kMacSize; i++)
        number = number * 256 + mac[i];
    return number;
}

// Hardware types of Linux from 256 up that have an interface type of their own. Below 256 the answer is 1,
// "other", but for Ethernet and the ARCnet of old.
struct IfType {
    int first, last;
    int type;
};
constexpr IfType kIfTypes[] = {
    {1, 1, 6},       // Ethernet: ethernetCsmacd
    {7, 7, 35},      // ARCnet: arcnet
    {256, 259, 28},  // SLIP and compressed SLIP: slip
    {512, 512, 23},  // PPP: ppp
    {768, 769, 131}, // IP in IP, IPv6 in IPv6: tunnel
    {772, 772, 24},  // loopback: softwareLoopback
    {773, 773, 42},  // LocalTalk: localTalk
    {774, 774, 15},  // FDDI: fddi
    {776, 776, 131}, // IPv6 in IPv4: tunnel
    {778, 778, 131}, // GRE: tunnel
};

} // namespace

uint8_t *atomac(const char *text)
{
    static uint8_t mac[kMacSize];
    unsigned n[kMacSize];
    if (!text || sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x", &n[0], &n[1], &n[2], &n[3], &n[4], &n[5]) != 6)
        return nullptr;
    std::transform(n, n + kMacSize, mac, [](unsigned number) { return static_cast<uint8_t>(number); });
    return mac;
}

uint8_t *atomacz(const char *text) { return has_mac_length(text) ? atomac(text) : nullptr; }

uint8_t *atomac_valid(const char *text, int allow_zero, int allow_mask, int reject_group)
{
    uint8_t *mac = atomacz(text);
    if (!mac || (!allow_zero && is_mac_zero(mac)))
        return nullptr;
    // Deliberate: where masks are allowed group addresses are too, since a mask's first byte has the group
    // bit.
    if (allow_mask)
        return mac;
    if (is_valid_netmask_mac(mac, 1) || (reject_group && (mac[0] & 1)))
        return nullptr;
    return mac;
}

int atomac_cpy(const char *text, uint8_t out[6])
{
    const uint8_t *mac = out ? atomac(text) : nullptr;
    if (!mac)
        return 1;
    memcpy(out, mac, kMacSize);
    return 0;
}

char *mactoa(const uint8_t *mac)
{
    static char text[kMacText + 1];
    const uint8_t *m = octets_of(mac);
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return text;
}

char *mac_no_colons(const char *text)
{
    static char plain[2 * kMacSize + 1];
    if (!text || strnlen(text, kMacText) != kMacText)
        return nullptr;
    for (size_t colon = 2; colon < kMacText; colon += 3) {
        if (text[colon] != ':')
            return nullptr;
    }
    for (size_t i = 0; i < kMacSize; i++)
        memcpy(plain + 2 * i, text + 3 * i, 2);
    plain[2 * kMacSize] = '\0';
    return plain;
}

int is_mac_zero(const uint8_t *mac) { return memcmp(octets_of(mac), kZeroMac, kMacSize) == 0; }

int is_bcast_mac(const uint8_t *mac) { return memcmp(octets_of(mac), bcast_mac, kMacSize) == 0; }

int masked_mac_cmp(const masked_mac *m, const uint8_t *mac)
{
    if (!m)
        return 0;
    const uint8_t *other = octets_of(mac);
    uint8_t left[kMacSize], right[kMacSize];
    for (size_t i = 0; i < kMacSize; i++) {
        left[i] = m->mac[i] & m->mask[i];
        right[i] = other[i] & m->mask[i];
    }
    return memcmp(left, right, kMacSize);
}

int is_valid_netmask_mac(const uint8_t *mac, int allow_full)
{
    if (!mac || !(mac[0] & 0x80))
        return 0;
    const uint8_t *end = mac + kMacSize;
    const uint8_t *partial = std::find_if(mac, end, [](uint8_t byte) { return byte != 0xff; });
    if (partial == end)
        return allow_full;
    const auto after_ones = static_cast<uint8_t>(*partial << std::countl_one(*partial));
    return after_ones == 0 && std::all_of(partial + 1, end, [](uint8_t byte) { return byte == 0; });
}

int mac_increment(uint8_t mac[6])
{
    if (!mac)
        return 0;
    for (size_t i = kMacSize; i-- > 3;) {
        if (++mac[i] != 0)
            return 0;
    }
    return zel_error_full(kEntity, kErr, "%s:%d: Network interface controller numbers exhausted", __func__,
                          __LINE__);
}

int64_t mac_subtract(const uint8_t *a, const uint8_t *b)
{
    return number_of(octets_of(a)) - number_of(octets_of(b));
}

mac_list *mac_list_add(mac_list **head, const uint8_t *mac)
{
    if (!head)
        return nullptr;
    auto *node = new_record<mac_list>();
    node->next = *head;
    memcpy(node->mac, octets_of(mac), kMacSize);
    *head = node;
    return node;
}

void mac_list_free(mac_list **head)
{
    if (!head)
        return;
    while (mac_list *node = *head) {
        *head = node->next;
        free(node);
    }
}

int iana_if_type_get(int arphrd)
{
    for (const IfType &row : kIfTypes) {
        if (row.first <= arphrd && arphrd <= row.last)
            return row.type;
    }
    return 1;
}

uint32_t if_speed_guess(int type) { return type == 9 ? 4000000 : 10000000; }
