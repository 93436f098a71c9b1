#include "digest_uri.h"

namespace mgmtd
{

using kutil::equal_ignoring_case;
using kutil::is_space;
using kutil::sub;

bool digest_uri(View authorization, View *uri)
{
    // In the order of the library's table, which decides for names that begin alike.
    constexpr View kNames[] = {"username", "realm",  "nonce", "response", "algorithm",
                               "cnonce",   "opaque", "nc",    "uri",      "qop"};
    View rest = kutil::trim_left(authorization);
    if (!equal_ignoring_case(sub(rest, 0, 6), "Digest"))
        return false;
    rest = kutil::trim_left(sub(rest, 6));
    bool found = false;
    while (!rest.empty()) {
        View known;
        for (const View name : kNames) {
            if (known.empty() && equal_ignoring_case(sub(rest, 0, name.size()), name))
                known = name;
        }
        rest = known.empty() ? sub(rest, rest.find('=')) : sub(rest, known.size());
        rest = kutil::trim_left(rest);
        if (rest.empty() || rest.front() != '=')
            return found;
        rest = kutil::trim_left(sub(rest, 1));
        View value;
        if (!rest.empty() && rest.front() == '"') {
            const size_t quote = rest.find('"', 1);
            if (quote == View::npos)
                return found;
            value = sub(rest, 1, quote - 1);
            rest = sub(rest, quote + 1);
        } else {
            size_t end = 0;
            while (end < rest.size() && rest[end] != ',' && !is_space(rest[end]))
                end++;
            value = sub(rest, 0, end);
            rest = sub(rest, end);
        }
        if (known == "uri") {
            *uri = value;
            found = true;
        }
        rest = kutil::trim_left(rest);
        if (!rest.empty() && rest.front() == ',')
            rest = kutil::trim_left(sub(rest, 1));
    }
    return found;
}

} // namespace mgmtd
