#ifndef RELAY_OPTIONS_H
#define RELAY_OPTIONS_H

#include "common/endpoint.h"

namespace relay
{

using kutil::common::Endpoint;
using kutil::common::EndpointText;

enum Exit : int {
    kDone = 0,
    kCut = 1, // connections were closed at the end of the drain time
    kMisuse = 2,
    kFailed = 3 // it could not listen, or the loop failed
};

struct Options {
    char **words = nullptr; // LISTEN CONNECT ..., all of them endpoints
    int word_count = 0;
    int high_water = 65536;
    int idle_s = 0; // 0: for ever
    int max = 0;    // 0: as many as there are descriptors for
    int drain_s = 10;
};

// Reads the command line. *done is set when the process ends with the result.
Exit read_options(int argc, char **argv, Options *options, bool *done);

} // namespace relay

#endif
