#include "str.h"

#include <charconv>
#include <cstdio>

namespace
{

template <class Number, size_t Size>
char *decimal(char (&buffer)[Size], Number n)
{
    *std::to_chars(buffer, buffer + Size - 1, n).ptr = '\0';
    return buffer;
}

} // namespace

char *itoa(int n)
{
    static char buffer[16];
    return decimal(buffer, n);
}

char *utoa(uint32_t n)
{
    static char buffer[16];
    return decimal(buffer, n);
}

char *ulltoa(uint64_t n)
{
    static char buffer[21];
    return decimal(buffer, n);
}

char *u32toa(uint32_t n)
{
    static char buffer[16];
    return decimal(buffer, n);
}

char *u64toa(uint64_t n)
{
    static char buffer[21];
    return decimal(buffer, n);
}

// Deliberate: a number of more digits is cut; 77 characters hold every number that is an address, a rate or a
// time.
char *ftoa(double n)
{
    static char buffer[80];
    snprintf(buffer, 78, "%f", n);
    return buffer;
}
