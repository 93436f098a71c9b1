// Masks and prefix lengths.

#include "iaddr.h"

#include "internal/big_endian.h"
#include "internal/iaddr_bytes.h"
#include "internal/report.h"

#include <algorithm>
#include <bit>
#include <cstring>

using namespace kutil;

namespace
{

// A constant of all ones in the bytes that its family uses; the rest is 0.
constexpr ip_addr kFullBytes = {
    .bytes = {255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255}};
constexpr iaddr kFull4 = {{.bytes = {255, 255, 255, 255}}, AF_INET};
constexpr iaddr kFull6 = {kFullBytes, AF_INET6};

using Operation = uint8_t (*)(uint8_t, uint8_t);

uint8_t and_bytes(uint8_t a, uint8_t b) { return a & b; }
uint8_t or_bytes(uint8_t a, uint8_t b) { return a | b; }

// Byte by byte, so that the operands need no alignment and the result may be one of them.
void combine(uint16_t family, uint8_t *out, const uint8_t *a, const uint8_t *b, Operation operation)
{
    for (size_t i = 0; i < address_size(family); i++)
        out[i] = operation(a[i], b[i]);
}

void report_families(const char *function, int line)
{
    zel_error_full(kEntity, kErr, "%s:%d: Cannot mask to different address families", function, line);
}

// The bits of a word from `first` up to but not including `last`, 0 the top one, `last` at most 32.
constexpr uint32_t word_bits(unsigned first, unsigned last)
{
    const uint32_t from_first = first == 0 ? ~uint32_t{0} : ~uint32_t{0} >> first;
    return last == 32 ? from_first : from_first & ~(~uint32_t{0} >> last);
}

} // namespace

const ip_addr *ip_addr_mask_full() { return &kFullBytes; }

const iaddr *iaddr_mask_full(uint16_t family) { return family == AF_INET6 ? &kFull6 : &kFull4; }

ip_addr *ip_addr_prefix_len2mask(ip_addr *out, int len)
{
    if (!out)
        return out;
    int left = std::clamp(len, 0, 128);
    for (size_t i = 0; i < sizeof(out->bytes); i += 4) {
        store_be32(out->bytes + i, bitcount_to_netmask(left));
        left -= std::min(left, 32);
    }
    return out;
}

iaddr iaddr_prefix_len2mask(uint16_t family, int len)
{
    iaddr mask = {};
    mask.family = family;
    ip_addr_prefix_len2mask(&mask.addr, len);
    return mask;
}

int ip_addr_mask2prefix_len(uint16_t family, const void *mask)
{
    const uint8_t *bytes = octets(mask);
    const uint8_t *end = bytes + address_size(family);
    const uint8_t *partial = std::find_if(bytes, end, [](uint8_t byte) { return byte != 0xff; });
    const int full_bits = static_cast<int>(partial - bytes) * 8;
    return partial == end ? full_bits : full_bits + std::countl_one(*partial);
}

int iaddr_mask2prefix_len(iaddr mask) { return ip_addr_mask2prefix_len(mask.family, &mask.addr); }

ip_addr *ip_addr_mask_and(uint16_t family, ip_addr *out, const void *a, const void *b)
{
    if (out)
        combine(family, out->bytes, octets(a), octets(b), and_bytes);
    return out;
}

iaddr iaddr_mask_and(iaddr a, iaddr b)
{
    if (a.family != b.family)
        report_families(__func__, __LINE__);
    else
        combine(a.family, a.addr.bytes, a.addr.bytes, b.addr.bytes, and_bytes);
    return a;
}

iaddr iaddr_mask_or(iaddr a, iaddr b)
{
    if (a.family != b.family)
        report_families(__func__, __LINE__);
    else
        combine(a.family, a.addr.bytes, a.addr.bytes, b.addr.bytes, or_bytes);
    return a;
}

iaddr iaddr_mask_not(iaddr a)
{
    for (size_t i = 0; i < address_size(a.family); i++)
        a.addr.bytes[i] = static_cast<uint8_t>(~a.addr.bytes[i]);
    return a;
}

iaddr iaddr_prefix_len_and(iaddr a, int len)
{
    return iaddr_mask_and(a, iaddr_prefix_len2mask(a.family, len));
}

int bitcmp(const uint32_t *a, const uint32_t *b, int start, int count)
{
    if (!a || !b || start < 0 || count <= 0)
        return 0;
    const uint64_t begin = static_cast<uint64_t>(start);
    const uint64_t end = begin + static_cast<uint64_t>(count);
    const size_t first = static_cast<size_t>(begin / 32);
    const unsigned lead = static_cast<unsigned>(begin % 32);
    if (first == (end - 1) / 32)
        return static_cast<int>((a[first] ^ b[first]) &
                                word_bits(lead, static_cast<unsigned>((end - 1) % 32) + 1));

    const size_t last = static_cast<size_t>(end / 32);
    const unsigned tail = static_cast<unsigned>(end % 32);
    if (lead != 0 && ((a[first] ^ b[first]) & word_bits(lead, 32)) != 0)
        return 1;
    if (tail != 0 && ((a[last] ^ b[last]) & word_bits(0, tail)) != 0)
        return 1;
    // Deliberate: the first word takes part whole, with its bits before `start`. The words compare as
    // numbers, so the sign is the same on every host.
    const auto [left, right] = std::mismatch(a + first, a + last, b + first);
    if (left == a + last)
        return 0;
    return *left < *right ? -1 : 1;
}
