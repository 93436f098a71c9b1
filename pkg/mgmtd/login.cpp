#include "login.h"

#include "digest_uri.h"
#include "privacy.h"
#include "util/http_auth.h"

namespace mgmtd
{

namespace
{

struct Probe {
    set **tree;
    HeapText *user;
};

char *look_up(void *data, const char *user)
{
    const Probe *probe = static_cast<Probe *>(data);
    probe->user->reset(kutil::copy_text(kutil::view(user)));
    return read_password(probe->tree, kutil::text_or_empty(user));
}

} // namespace

Login check_login(const Request &request, set **tree, HeapText *user)
{
    if (!request.has_authorization)
        return Login::missing;
    View uri;
    if (digest_uri(request.authorization, &uri) && uri != request.target)
        return Login::malformed;
    const HeapText method(kutil::copy_text(method_name(request.method)));
    const HeapText target(kutil::copy_text(request.target));
    const HeapText header(kutil::copy_text(request.authorization));
    http_auth_request call = {method.get(), target.get(), header.get()};
    Probe probe = {tree, user};
    const int result = http_check_auth(&call, look_up, &probe);
    explicit_bzero(header.get(), request.authorization.size());
    switch (result) {
    case HTTP_AUTH_OK:
        return Login::ok;
    case HTTP_AUTH_DENIED:
        return Login::denied;
    case HTTP_AUTH_STALE:
        return Login::stale;
    case HTTP_AUTH_NONE:
        return Login::missing;
    default:
        return Login::malformed;
    }
}

} // namespace mgmtd
