#ifndef KUTIL_INTERNAL_IADDR_BYTES_H
#define KUTIL_INTERNAL_IADDR_BYTES_H

#include <cstddef>
#include <cstdint>
#include <sys/socket.h>

namespace kutil
{

// The bytes that the ip_addr_ functions touch: a family that is no address counts as IPv6.
constexpr size_t address_size(uint16_t family) { return family == AF_INET ? 4 : 16; }

// The width of an address in bits, 0 for a family that is none.
constexpr int address_bits(uint16_t family) { return family == AF_INET ? 32 : family == AF_INET6 ? 128 : 0; }

// The bytes of an address of any family; NULL reads as zeros.
inline constexpr uint8_t kZeroOctets[16] = {};
inline const uint8_t *octets(const void *a) { return a ? static_cast<const uint8_t *>(a) : kZeroOctets; }

} // namespace kutil

#endif
