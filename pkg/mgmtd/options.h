#ifndef MGMTD_OPTIONS_H
#define MGMTD_OPTIONS_H

#include "daemon.h"

namespace mgmtd
{

enum Exit : int {
    kDone = 0,
    kFailed = 1, // it could not start, or not save
    kMisuse = 2
};

// Reads the command line. *done is set when the process ends with the result.
Exit read_options(int argc, char **argv, Options *options, bool *done);

} // namespace mgmtd

#endif
