#include "reply.h"

#include "util/code2str.h"
#include "util/date.h"

#include <ctime>

namespace mgmtd
{

namespace
{

// What the library's table does not have.
constexpr code_str kMoreStatus[] = {
    {303, "See Other", nullptr, 0},
    {414, "URI Too Long", nullptr, 0},
    {417, "Expectation Failed", nullptr, 0},
    {421, "Misdirected Request", nullptr, 0},
    {422, "Unprocessable Content", nullptr, 0},
    {429, "Too Many Requests", nullptr, 0},
    {431, "Request Header Fields Too Large", nullptr, 0},
    {505, "HTTP Version Not Supported", nullptr, 0},
    {-1, nullptr, nullptr, 0},
};

// Nothing of a page comes from elsewhere, is kept in a cache, or is shown inside another page.
constexpr View kSafety = "Cache-Control: no-store\r\n"
                         "X-Content-Type-Options: nosniff\r\n"
                         "X-Frame-Options: DENY\r\n"
                         "Referrer-Policy: same-origin\r\n"
                         "Content-Security-Policy: default-src 'self'; base-uri 'none'; form-action 'self'; "
                         "frame-ancestors 'none'\r\n";

} // namespace

const char *status_text(int status)
{
    const char *more = code2str(kMoreStatus, status);
    return more ? more : code2str(http_status_str, status);
}

void append_head(TextBuilder *out, const Reply &reply, bool close)
{
    out->append("HTTP/1.1 ");
    append_number(out, static_cast<uint64_t>(reply.outcome.status));
    out->append(' ');
    out->append(status_text(reply.outcome.status));
    out->append("\r\nDate: ");
    out->append(arpa_date_get(time(nullptr)));
    out->append("\r\nContent-Type: ");
    out->append(reply.type);
    out->append("\r\nContent-Length: ");
    append_number(out, reply.outcome.text.size());
    out->append("\r\n");
    if (reply.location) {
        out->append("Location: ");
        out->append(reply.location.get());
        out->append("\r\n");
    }
    if (reply.allow) {
        out->append("Allow: ");
        out->append(reply.allow);
        out->append("\r\n");
    }
    if (reply.outcome.status == 503 || reply.outcome.status == 429)
        out->append("Retry-After: 2\r\n");
    out->append(kSafety);
    out->append(close ? View("Connection: close\r\n") : View("Connection: keep-alive\r\n"));
}

} // namespace mgmtd
