#ifndef KUTIL_INTERNAL_BIG_ENDIAN_H
#define KUTIL_INTERNAL_BIG_ENDIAN_H

// Numbers in network order inside bytes of any alignment.

#include <cstdint>

namespace kutil
{

inline uint32_t load_be32(const void *bytes)
{
    const auto *b = static_cast<const uint8_t *>(bytes);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
}

inline void store_be32(void *bytes, uint32_t value)
{
    auto *b = static_cast<uint8_t *>(bytes);
    for (int i = 0; i < 4; i++)
        b[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

} // namespace kutil

#endif
