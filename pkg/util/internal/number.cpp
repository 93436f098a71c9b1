#include "number.h"

#include "errno_scope.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace kutil
{

int32_t parse_i32(const char *text, const char **end, int base)
{
    const ErrnoScope keep_errno;
    char *stop = nullptr;
    const long long value = strtoll(text ? text : "", &stop, base);
    if (end)
        *end = text ? stop : nullptr;
    if (value > std::numeric_limits<int32_t>::max())
        return std::numeric_limits<int32_t>::max();
    if (value < std::numeric_limits<int32_t>::min())
        return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

uint32_t parse_u32(const char *text, const char **end, int base)
{
    const ErrnoScope keep_errno;
    char *stop = nullptr;
    errno = 0;
    const long long value = strtoll(text ? text : "", &stop, base);
    const bool overflow = errno == ERANGE;
    if (end)
        *end = text ? stop : nullptr;
    // The magnitude saturates before the sign is applied, as in the C library: -4294967296 is out of range.
    constexpr long long kMax = std::numeric_limits<uint32_t>::max();
    if (overflow || value > kMax || value < -kMax)
        return std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(value);
}

uint64_t parse_u64(const char *text, const char **end, int base)
{
    const ErrnoScope keep_errno;
    char *stop = nullptr;
    const unsigned long long value = strtoull(text ? text : "", &stop, base);
    if (end)
        *end = text ? stop : nullptr;
    return value;
}

// The number of a text that is nothing else, when it is from `min` to `max`.
static bool whole_number(const char *text, long long min, long long max, long long *value)
{
    const ErrnoScope keep_errno;
    if (!text)
        return false;
    char *stop = nullptr;
    errno = 0;
    const long long number = strtoll(text, &stop, 10);
    if (stop == text || *stop || errno == ERANGE || number < min || number > max)
        return false;
    *value = number;
    return true;
}

bool whole_i32(const char *text, int32_t *value)
{
    long long number = 0;
    if (!whole_number(text, INT32_MIN, INT32_MAX, &number))
        return false;
    *value = static_cast<int32_t>(number);
    return true;
}

bool whole_u32(const char *text, uint32_t *value)
{
    constexpr long long kMax = UINT32_MAX;
    long long number = 0;
    if (!whole_number(text, -kMax, kMax, &number))
        return false;
    *value = static_cast<uint32_t>(number);
    return true;
}

} // namespace kutil
