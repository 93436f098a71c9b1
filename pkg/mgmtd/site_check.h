#ifndef MGMTD_SITE_CHECK_H
#define MGMTD_SITE_CHECK_H

// Whether a request may come from a page of another site: its Host must be a name of this daemon (a page
// whose name leads here sends its own), and one that changes something must not come from elsewhere.

#include "http_scan.h"
#include "util/iaddr.h"
#include "util/set_node.h"

namespace mgmtd
{

// `host` of a Host line is an address literal equal to `local` (where the connection arrived), "localhost",
// or the gateway's own name: "system/hostname", alone or with "system/domain".
bool is_own_host(View host, const iaddr &local, set **tree);

// The request changes nothing, or comes from a page of its own host or from no page.
bool is_own_site(const Request &request);

// The method changes nothing.
bool is_safe(Method method);

} // namespace mgmtd

#endif
