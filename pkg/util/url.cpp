#include "url.h"

#include "iaddr.h"
#include "internal/heap.h"
#include "internal/number.h"
#include "internal/report.h"
#include "internal/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

using namespace kutil;

static_assert(offsetof(parsed_url, user) > offsetof(parsed_url, scheme) &&
              offsetof(parsed_url, password) > offsetof(parsed_url, user) &&
              offsetof(parsed_url, host) > offsetof(parsed_url, password) &&
              offsetof(parsed_url, port) > offsetof(parsed_url, host) &&
              offsetof(parsed_url, port_given) > offsetof(parsed_url, port) &&
              offsetof(parsed_url, path) > offsetof(parsed_url, port_given) &&
              offsetof(parsed_url, query) > offsetof(parsed_url, path));

namespace
{

// ---- URLs ----

struct Scheme {
    View prefix;
    url_scheme scheme;
    int port;
    bool has_query;
    bool needs_path;
};
constexpr Scheme kSchemes[] = {
    {"http://", URL_SCHEME_HTTP, 80, true, false},
    {"https://", URL_SCHEME_HTTPS, 443, true, false},
    {"ftp://", URL_SCHEME_FTP, 21, false, true},
    {"tftp://", URL_SCHEME_TFTP, 69, false, true},
};

const Scheme *scheme_of(View text)
{
    for (const Scheme &scheme : kSchemes) {
        if (equal_ignoring_case(sub(text, 0, scheme.prefix.size()), scheme.prefix))
            return &scheme;
    }
    return nullptr;
}

// A text and whether it is there at all: an empty path is not a missing one.
struct Piece {
    View text;
    bool present = false;
};

// What stands before the character at `at`, and what stands behind it. With `at` npos all is before.
struct Halves {
    View before;
    Piece after;
};

Halves split_at(View text, size_t at)
{
    if (at == View::npos)
        return {text, {}};
    return {sub(text, 0, at), {sub(text, at + 1), true}};
}

// The parts of a URL as views into it.
struct UrlParts {
    Piece user, password, port, path, query;
    View host;
};

// What stands between the scheme and the path: [user[:password]@]host[:port].
int split_authority(View text, UrlParts &parts)
{
    View place = text;
    const size_t at = text.rfind('@');
    if (at != View::npos) {
        place = sub(text, at + 1);
        const Halves login = split_at(sub(text, 0, at), sub(text, 0, at).find(':'));
        parts.user = {login.before, true};
        parts.password = login.after;
    }
    if (!starts_with(place, "[")) {
        const Halves halves = split_at(place, place.find(':'));
        parts.host = halves.before;
        parts.port = halves.after;
        return 0;
    }
    const size_t bracket = place.find(']');
    if (bracket == View::npos)
        return zel_error_full(kEntity, kErr, "Host IPv6 address needs to be inside [ ]");
    parts.host = sub(place, 1, bracket - 1);
    parts.port = split_at(place, place.find(':', bracket)).after;
    return 0;
}

int split_url(View rest, const Scheme &scheme, UrlParts &parts)
{
    if (scheme.has_query) {
        const Halves halves = split_at(rest, rest.find('?'));
        rest = halves.before;
        parts.query = halves.after;
    }
    const Halves halves = split_at(rest, rest.find('/'));
    parts.path = halves.after;
    if (scheme.needs_path && !parts.path.present)
        return zel_error_full(kEntity, kErr, "The URL path must not be empty for FTP/TFTP");
    return split_authority(halves.before, parts);
}

char *copy_piece(const Piece &piece) { return piece.present ? copy_text(piece.text) : nullptr; }

// ---- Names ----

constexpr size_t kMaxLabel = 63;
constexpr size_t kMaxDomain = 255;
constexpr size_t kMaxLocalPart = 64;
constexpr size_t kMaxEmail = 320;

// What the caller asks about. An end before the start is an empty text.
View span_of(const char *text, const char *end)
{
    if (!text || !end)
        return view(text);
    return View(text, end > text ? static_cast<size_t>(end - text) : 0);
}

constexpr bool is_joiner(char c) { return c == '-' || c == '_'; }

// The length of the label that `text` begins with, 0 for none. One "-" or "_" at its end is left to the
// caller, who has no place for it: so no label ends in one.
size_t label_length(View text, bool dots_allowed)
{
    if (text.empty() || !is_alnum(text.front()))
        return 0;
    const size_t limit = std::min(text.size(), kMaxLabel);
    size_t length = 1;
    while (length < limit &&
           (is_alnum(text[length]) || is_joiner(text[length]) || (dots_allowed && text[length] == '.')))
        length++;
    return is_joiner(text[length - 1]) ? length - 1 : length;
}

bool is_domain(View text)
{
    if (text.size() > kMaxDomain)
        return false;
    for (;;) {
        const size_t length = label_length(text, false);
        if (length == 0)
            return false;
        if (length == text.size())
            return is_alpha(text.front());
        if (text[length] != '.')
            return false;
        text.remove_prefix(length + 1);
    }
}

} // namespace

int parse_url(const char *url, parsed_url *out)
{
    if (!out)
        return -1;
    *out = {};
    const View text = view(url);
    const Scheme *scheme = scheme_of(text);
    if (!scheme)
        return zel_error_full(kEntity, kErr, "Not a HTTP, HTTPS, FTP or TFTP url: %s", text.data());
    UrlParts parts;
    if (split_url(sub(text, scheme->prefix.size()), *scheme, parts) != 0)
        return -1;
    out->scheme = scheme->scheme;
    out->user = copy_piece(parts.user);
    out->password = copy_piece(parts.password);
    out->host = copy_text(parts.host);
    // The number ends by itself: behind the port stands "/", "?" or the end.
    out->port = parts.port.present ? parse_i32(parts.port.text.data()) : scheme->port;
    out->port_given = parts.port.present;
    out->path = copy_piece(parts.path);
    out->query = copy_piece(parts.query);
    return 0;
}

void parsed_url_uninit(parsed_url *out)
{
    if (!out)
        return;
    for (char *text : {out->user, out->password, out->host, out->path, out->query})
        free(text);
    *out = {};
}

int url_has_transport(const char *text) { return scheme_of(view(text)) != nullptr; }

int split_host_port(char *text, char **host, char **port)
{
    char *host_part = nullptr;
    char *port_part = nullptr;
    const bool bracketed = text && *text == '[';
    char *host_end = nullptr; // where the host ends: at "]" or at ":"
    if (bracketed) {
        host_end = strchr(text, ']');
        if (host_end) {
            host_part = text + 1;
            port_part = host_end[1] == ':' ? host_end + 2 : nullptr;
        }
    } else if (text) {
        host_part = text;
        host_end = strchr(text, ':');
        port_part = host_end ? host_end + 1 : nullptr;
    }
    if (host_end)
        *host_end = '\0';
    if (host)
        *host = host_part;
    if (port)
        *port = port_part;
    return host_part ? 0 : -1;
}

int is_valid_domain_name(const char *text, const char *end) { return is_domain(span_of(text, end)); }

int is_valid_host_name(const char *text, const char *end)
{
    const View name = span_of(text, end);
    return !name.empty() && label_length(name, true) == name.size();
}

int is_valid_email(const char *text, const char *end)
{
    const View address = span_of(text, end);
    // Deliberate: with an end the length counts one more than the text has.
    if (address.empty() || address.size() + (end ? 1 : 0) > kMaxEmail)
        return 0;
    const size_t at = address.find('@');
    if (at == View::npos || at == 0 || at > kMaxLocalPart)
        return 0;
    const bool seven_bit = std::all_of(address.begin(), address.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte != 0 && byte < 128;
    });
    return seven_bit && is_domain(sub(address, at + 1));
}

int is_valid_domain_or_ip(const char *text, const char *end)
{
    const View name = span_of(text, end);
    // Nothing longer is a domain name, and a longer number is no dotted quad.
    if (name.empty() || name.size() > kMaxDomain)
        return 0;
    char copy[kMaxDomain + 1];
    *put(copy, name) = '\0';
    iaddr numeric;
    if (str2iaddr(&numeric, copy) == 0) {
        uint32_t ip = 0;
        return strlen(copy) == name.size() && zel_inet_atonz(copy, &ip) && ip != 0;
    }
    return std::any_of(name.begin(), name.end(), is_alpha) && is_domain(name);
}

int is_valid_ip(const char *text)
{
    if (!text || !is_digit(*text))
        return 0;
    const char *cursor = text;
    for (int i = 0; i < 4; i++) {
        if (i > 0 && *cursor++ != '.')
            return 0;
        const char *end = nullptr;
        const int32_t number = parse_i32(cursor, &end);
        if (end == cursor || number < 0 || number > 255)
            return 0;
        cursor = end;
    }
    return trim_left(cursor).empty();
}
