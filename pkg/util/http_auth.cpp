#include "http_auth.h"

#include "base64.h"
#include "internal/http_auth.h"
#include "sys.h"

// The server's side of a login: the check of an Authorization value.

using namespace kutil;

namespace
{

// Owns bytes that are cleared before they are freed, and that may hold NULs.
class SecretBytes
{
public:
    explicit SecretBytes(size_t size) : bytes_(new_text(size)), size_(size) {}
    ~SecretBytes()
    {
        OPENSSL_cleanse(bytes_, size_);
        free(bytes_);
    }
    SecretBytes(const SecretBytes &) = delete;
    SecretBytes &operator=(const SecretBytes &) = delete;
    char *get() const { return bytes_; }

private:
    char *bytes_;
    size_t size_;
};

char *look_up(http_auth_password_cb get_password, void *data, const char *user)
{
    return get_password ? get_password(data, user) : nullptr;
}

int check_basic(const char *encoded, http_auth_password_cb get_password, void *data)
{
    const SecretBytes decoded(strlen(encoded));
    const int length = base64_dec(decoded.get(), encoded);
    if (length < 1)
        return -1;
    decoded.get()[length] = '\0';
    char *colon = strchr(decoded.get(), ':');
    if (!colon)
        return HTTP_AUTH_DENIED;
    *colon = '\0';
    // To the end and not to the first NUL: a password is never cut.
    const View given(colon + 1, static_cast<size_t>(decoded.get() + length - colon - 1));
    const SecretText password(look_up(get_password, data, decoded.get()));
    return password.get() && equals_secret(given, password.get()) ? HTTP_AUTH_OK : HTTP_AUTH_DENIED;
}

// Deliberate: response, algorithm and opaque may be missing; without a response the login only fails.
int require_fields(const DigestFields &fields)
{
    const bool session = fields.has(kQop) || fields.is(kAlgorithm, "md5-sess");
    for (const DigestField field : {kUsername, kRealm, kNonce, kCnonce, kNc, kUri}) {
        const bool needed = session || (field != kCnonce && field != kNc);
        if (needed && !fields.has(field))
            return zel_error_full(kEntity, kWarn, "Missing digest authorization field %s",
                                  digest_names[field]);
    }
    return 0;
}

// Deliberate: a nonce that is not ours counts as stale. The client then logs in again with a good one.
bool is_stale(const DigestFields &fields)
{
    return nonce_expired(fields.nonce_time, utc_time(nullptr)) ||
           !equals_secret(fields.value(kNonce), make_nonce(fields.nonce_time, fields.nonce_random));
}

int check_digest(const http_auth_request &req, http_auth_password_cb get_password, void *data)
{
    DigestFields fields;
    if (parse_digest(req.header, &fields) != 0 || require_fields(fields) != 0)
        return -1;
    if (fields.has(kQop) && !fields.is(kQop, "auth")) {
        zel_error_full(kEntity, kWarn, "DIGEST auth=%s not supported", fields.text(kQop));
        return HTTP_AUTH_DENIED;
    }
    // Deliberate: only reported. Clients behind proxies send other forms of the same URL.
    if (fields.value(kUri) != view(req.url))
        zel_error_full(kEntity, kWarn, "Digest URL %s does not match requested URL %s", fields.text(kUri),
                       text_or_empty(req.url));
    const bool stale = is_stale(fields);
    const SecretText password(look_up(get_password, data, fields.text(kUsername)));
    if (!password.get())
        return HTTP_AUTH_DENIED;
    DigestText expected;
    digest_response(fields, view(req.method), password.get(), expected);
    if (!equals_secret(fields.value(kResponse), expected)) {
        zel_error_full(kEntity, kWarn, "Bad login attempt for user %s", fields.text(kUsername));
        return HTTP_AUTH_DENIED;
    }
    return stale ? HTTP_AUTH_STALE : HTTP_AUTH_OK;
}

} // namespace

int http_check_auth(http_auth_request *req, http_auth_password_cb get_password, void *data)
{
    switch (take_scheme(req)) {
    case AuthScheme::kBasic:
        return check_basic(req->header, get_password, data);
    case AuthScheme::kDigest:
        return check_digest(*req, get_password, data);
    case AuthScheme::kNone:
        break;
    }
    return HTTP_AUTH_NONE;
}
