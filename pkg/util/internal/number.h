#ifndef KUTIL_INTERNAL_NUMBER_H
#define KUTIL_INTERNAL_NUMBER_H

// Text to number with the results of the 32-bit target on every host: what the C library's strtol, strtoul
// and strtoull give there, saturation included.

#include <cstdint>

namespace kutil
{

// As strtol(text, end, base) with a 32-bit long: saturates at INT32_MIN and INT32_MAX.
int32_t parse_i32(const char *text, const char **end = nullptr, int base = 10);

// As strtoul(text, end, base) with a 32-bit unsigned long: saturates at UINT32_MAX; a minus sign negates
// modulo 2^32.
uint32_t parse_u32(const char *text, const char **end = nullptr, int base = 10);

// As strtoull(text, end, base): saturates at UINT64_MAX; a minus sign negates modulo 2^64.
uint64_t parse_u64(const char *text, const char **end = nullptr, int base = 10);

// The number when the text is nothing but it, with leading white space and a sign, and it fits 32 bits; else
// false, and *value stays. "-1" as unsigned is 4294967295.
bool whole_i32(const char *text, int32_t *value);
bool whole_u32(const char *text, uint32_t *value);

} // namespace kutil

#endif
