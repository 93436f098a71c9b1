#ifndef MGMTD_LINE_CONNECTION_H
#define MGMTD_LINE_CONNECTION_H

#include "util/estream.h"

namespace mgmtd
{

// The accept callback of the line protocol's servers, whose data is the Daemon.
int accept_line(estream *stream, int ok);

} // namespace mgmtd

#endif
