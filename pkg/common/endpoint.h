#ifndef KUTIL_COMMON_ENDPOINT_H
#define KUTIL_COMMON_ENDPOINT_H

#include "util/iaddr.h"

namespace kutil::common
{

// An address and a port.
struct Endpoint {
    iaddr address;
    uint16_t port;
};

// Reads "ADDRESS:PORT" or "[ADDRESS]:PORT", both numeric. False, with nothing stored, for anything else, an
// IPv6 zone too.
bool read_endpoint(const char *text, Endpoint *endpoint);

// An endpoint in the form that read_endpoint takes.
class EndpointText
{
public:
    explicit EndpointText(const Endpoint &endpoint);
    const char *text() const { return text_; }

private:
    char text_[64];
};

} // namespace kutil::common

#endif
