#ifndef MGMTD_HTTP_CONNECTION_H
#define MGMTD_HTTP_CONNECTION_H

#include "util/estream.h"

namespace mgmtd
{

// The accept callback of the HTTP servers, whose data is the Daemon.
int accept_http(estream *stream, int ok);

} // namespace mgmtd

#endif
