#include "site_check.h"

#include "util/set_value.h"

#include <algorithm>

namespace mgmtd
{

using kutil::equal_ignoring_case;
using kutil::is_digit;
using kutil::starts_with;
using kutil::sub;

namespace
{

// Cuts a port off; false when what stands there is none.
bool cut_port(View *host)
{
    size_t end = host->size();
    if (starts_with(*host, "[")) {
        end = host->find(']');
        if (end == View::npos)
            return false;
        end++;
    } else {
        end = std::min(host->find(':'), host->size());
    }
    const View port = sub(*host, end);
    *host = sub(*host, 0, end);
    return port.empty() ||
           (port[0] == ':' && port.size() <= 6 && std::ranges::all_of(sub(port, 1), is_digit));
}

bool is_literal(View host, const iaddr &local)
{
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = sub(host, 1, host.size() - 2);
    else if (host.find(':') != View::npos || std::ranges::count(host, '.') != 3)
        return false; // short forms of IPv4 addresses are no literals of a URL
    char text[64];
    if (host.size() >= sizeof(text))
        return false;
    *kutil::put(text, host) = '\0';
    iaddr address;
    return str2iaddr(&address, text) == 0 && address.family == local.family &&
           iaddr_cmp(&address, &local) == 0;
}

} // namespace

bool is_own_host(View host, const iaddr &local, set **tree)
{
    if (!cut_port(&host) || host.empty())
        return false;
    if (is_literal(host, local) || equal_ignoring_case(host, "localhost"))
        return true;
    const View name = set_get_path_strz(tree, "system/hostname");
    const View domain = set_get_path_strz(tree, "system/domain");
    if (name.empty() || !equal_ignoring_case(sub(host, 0, name.size()), name))
        return false;
    const View rest = sub(host, name.size());
    return rest.empty() || (!domain.empty() && rest[0] == '.' && equal_ignoring_case(sub(rest, 1), domain));
}

bool is_safe(Method method) { return method == Method::get || method == Method::head; }

bool is_own_site(const Request &request)
{
    if (is_safe(request.method))
        return true;
    if (request.has_fetch_site && request.fetch_site != "same-origin" && request.fetch_site != "none")
        return false;
    if (!request.has_origin)
        return true;
    View origin = request.origin;
    for (const View scheme : {View("http://"), View("https://")}) {
        if (starts_with(origin, scheme))
            return equal_ignoring_case(sub(origin, scheme.size()), request.host);
    }
    return false;
}

} // namespace mgmtd
