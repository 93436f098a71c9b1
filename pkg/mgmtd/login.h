#ifndef MGMTD_LOGIN_H
#define MGMTD_LOGIN_H

#include "http_scan.h"
#include "util/set_node.h"

namespace mgmtd
{

enum class Login {
    ok,
    missing,  // ask for it
    stale,    // right but for its nonce: ask for it again
    denied,   // wrong
    malformed // or a Digest whose uri is not the request's target
};

// Checks the login of a request with the passwords of the tree; *user gets the name that was tried, or stays.
Login check_login(const Request &request, set **tree, HeapText *user);

} // namespace mgmtd

#endif
