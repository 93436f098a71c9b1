#include "http_auth.h"

#include "base64.h"
#include "internal/http_auth.h"
#include "internal/size.h"
#include "sys.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

// The header lines: the server's challenge and the client's answer.

using namespace kutil;

namespace
{

constexpr const char *kNext = ", ";
constexpr const char *kLineEnd = "\r\n";

// Keeps the first negative result of a row of writes.
class FirstFailure
{
public:
    void operator()(int result) { value_ = value_ < 0 ? value_ : std::min(result, 0); }
    int value() const { return value_; }

private:
    int value_ = 0;
};

void write_digest_challenge(estream *s, const char *prefix, const char *realm, bool stale)
{
    estream_printf(s, "%s-Authenticate: %s ", prefix, "Digest");
    write_quoted(s, "realm", realm, kNext);
    write_quoted(s, "qop", "auth", kNext);
    if (stale)
        write_quoted(s, "stale", "true", kNext);
    const auto now = static_cast<uint32_t>(utc_time(nullptr));
    write_quoted(s, "nonce", make_nonce(now, static_cast<uint32_t>(rand())), kNext);
    write_quoted(s, "opaque", "0", kLineEnd);
}

int answer_basic(estream *s, View username, View password)
{
    const size_t length = add_sizes(username.size(), 1, password.size());
    const size_t encoded = mul_sizes(4, add_sizes(length, 2) / 3);
    const size_t reserved = add_sizes(std::max(mul_sizes(2, length), encoded), 1);
    if (reserved > INT_MAX)
        return -1;
    const SecretText pair(new_text(length));
    *put(put(put(pair.get(), username), ":"), password) = '\0';
    FirstFailure result;
    result(estream_write_str(s, "Authorization: Basic "));
    const int room = static_cast<int>(reserved);
    if (estream_write_alloc(s, room) != 0 || estream_get_write_buf_len(s) < room)
        return -1;
    result(estream_write0(s, base64_enc(estream_get_write_buf(s), pair.get(), static_cast<int>(length))));
    result(estream_write_str(s, kLineEnd));
    return result.value();
}

int write_digest_answer(estream *s, const DigestFields &fields, const char *response)
{
    FirstFailure result;
    result(estream_write_str(s, "Authorization: Digest "));
    for (int i = 0; i < kDigestFields; i++) {
        const auto field = static_cast<DigestField>(i);
        if (field != kNc && fields.has(field))
            result(write_quoted(s, digest_names[i], fields.text(field), kNext));
    }
    if (fields.has(kQop))
        result(estream_printf(s, "%s=%s, ", digest_names[kNc], fields.text(kNc)));
    result(write_quoted(s, digest_names[kResponse], response, kLineEnd));
    return result.value();
}

int answer_digest(estream *s, View username, View password, const http_auth_request &req)
{
    DigestFields fields;
    if (parse_digest(req.header, &fields) != 0)
        return -1;
    fields.set(kUsername, username);
    fields.set(kUri, view(req.url));
    if (fields.has(kQop)) {
        char cnonce[3 * sizeof(int) + 2];
        snprintf(cnonce, sizeof(cnonce), "%d", rand());
        fields.set(kQop, "auth");
        fields.set(kCnonce, cnonce);
        fields.set(kNc, "00000001"); // no count is kept between requests
    }
    for (int i = 0; i < kDigestFields; i++) {
        if (!fits_line(fields.value(static_cast<DigestField>(i))))
            return -1;
    }
    DigestText response;
    digest_response(fields, view(req.method), password, response);
    return write_digest_answer(s, fields, response);
}

} // namespace

int http_send_challenge(estream *s, int flags, const char *realm, int stale)
{
    const char *prefix = flags & HTTP_AUTH_PROXY ? "Proxy" : "WWW";
    if (!fits_line(view(realm)))
        return -1;
    if (flags & HTTP_AUTH_DIGEST)
        write_digest_challenge(s, prefix, text_or_empty(realm), stale != 0);
    // Deliberate: without Basic the result does not tell of the writes.
    if (!(flags & HTTP_AUTH_BASIC))
        return 0;
    estream_printf(s, "%s-Authenticate: %s ", prefix, "Basic");
    // Deliberate: the line ends with a comma and a blank.
    write_quoted(s, "realm", text_or_empty(realm), kNext);
    return estream_write_str(s, kLineEnd);
}

int http_send_auth_header(estream *s, const char *username, const char *password, http_auth_request *req)
{
    switch (take_scheme(req)) {
    case AuthScheme::kBasic:
        return answer_basic(s, view(username), view(password));
    case AuthScheme::kDigest:
        return answer_digest(s, view(username), view(password), *req);
    case AuthScheme::kNone:
        break;
    }
    return -1;
}
