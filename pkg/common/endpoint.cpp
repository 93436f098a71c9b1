#include "endpoint.h"

#include "util/internal/heap.h"

#include <algorithm>
#include <cstdio>

namespace kutil::common
{

namespace
{

constexpr size_t kMostPortDigits = 5;
constexpr unsigned kMostPort = 65535;

bool read_port(View text, uint16_t *port)
{
    if (text.empty() || text.size() > kMostPortDigits || !std::ranges::all_of(text, is_digit))
        return false;
    unsigned number = 0;
    for (const char c : text)
        number = number * 10 + static_cast<unsigned>(c - '0');
    *port = static_cast<uint16_t>(number);
    return number <= kMostPort;
}

} // namespace

bool read_endpoint(const char *text, Endpoint *endpoint)
{
    const View whole = view(text);
    const size_t colon = whole.rfind(':');
    if (colon == View::npos)
        return false;
    View address = sub(whole, 0, colon);
    if (address.size() >= 2 && address.front() == '[' && address.back() == ']')
        address = sub(address, 1, address.size() - 2);
    else if (address.find(':') != View::npos)
        return false;
    if (address.find('%') != View::npos) // an endpoint holds no zone
        return false;
    const HeapText literal(copy_text(address));
    Endpoint read;
    if (!read_port(sub(whole, colon + 1), &read.port) || str2iaddr(&read.address, literal.get()) != 0)
        return false;
    *endpoint = read;
    return true;
}

EndpointText::EndpointText(const Endpoint &endpoint)
{
    const bool brackets = endpoint.address.family == AF_INET6;
    snprintf(text_, sizeof(text_), brackets ? "[%s]:%d" : "%s:%d", iaddr2str(&endpoint.address),
             endpoint.port);
}

} // namespace kutil::common
