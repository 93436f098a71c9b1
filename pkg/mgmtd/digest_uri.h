#ifndef MGMTD_DIGEST_URI_H
#define MGMTD_DIGEST_URI_H

#include "base.h"

namespace mgmtd
{

// The `uri` parameter of an Authorization value of the scheme Digest, found as http_check_auth finds it:
// names are compared by their beginning, and the last one counts. Returns false for another scheme and when
// there is none; whether the value is whole is http_check_auth's to say.
bool digest_uri(View authorization, View *uri);

} // namespace mgmtd

#endif
