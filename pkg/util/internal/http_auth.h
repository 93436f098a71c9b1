#ifndef KUTIL_INTERNAL_HTTP_AUTH_H
#define KUTIL_INTERNAL_HTTP_AUTH_H

#include "../http_auth.h"
#include "crypto.h"
#include "heap.h"
#include "report.h"
#include "text.h"

namespace kutil
{

// In the order of digest_names.
enum DigestField {
    kUsername,
    kRealm,
    kNonce,
    kResponse,
    kAlgorithm,
    kCnonce,
    kOpaque,
    kNc,
    kUri,
    kQop,
    kDigestFields
};

enum class AuthScheme { kNone, kBasic, kDigest };

inline constexpr int kNonceLifeSeconds = 60;
inline constexpr const char *kUnparsable = "Failed to parse Authorization header %s";

inline constexpr int kDigestDigits = 2 * kMd5Size;
using DigestText = char[kDigestDigits + 1];

// One MD5 after another over what is added; finish ends one, and the next add begins another. What libcrypto
// cannot do ends the process.
class Md5
{
public:
    Md5();
    ~Md5() { EVP_MD_CTX_free(context_); } // clears it
    Md5(const Md5 &) = delete;
    Md5 &operator=(const Md5 &) = delete;

    Md5 &add(View bytes);
    void finish(unsigned char *digest);
    void finish_text(DigestText text);

private:
    EVP_MD_CTX *context_;
    bool begun_ = false;
};

// A digest header's parameters; those absent are NULL.
class DigestFields
{
public:
    bool has(DigestField field) const { return values_[field] != nullptr; }
    const char *text(DigestField field) const { return text_or_empty(values_[field].get()); }
    View value(DigestField field) const { return view(text(field)); }
    void set(DigestField field, View value) { values_[field].reset(copy_text(value)); }
    bool is(DigestField field, View word) const { return equal_ignoring_case(value(field), word); }

    // Read from the nonce, 0 when it has none.
    uint32_t nonce_time = 0;
    uint32_t nonce_random = 0;

private:
    HeapText values_[kDigestFields];
};

// The scheme of the request's header, which is moved behind the word and the white space there.
AuthScheme take_scheme(http_auth_request *req);

// Reads the parameters in `text`. -1 after a report.
int parse_digest(const char *text, DigestFields *fields);

// The response that belongs to the fields, a method and a password.
void digest_response(const DigestFields &fields, View method, View password, DigestText response);

// A nonce of this process, in a static buffer that the next call overwrites.
const char *make_nonce(uint32_t time_s, uint32_t random);

// Whether a nonce of `time_s` is older than nonces live. The 32 bits wrap, as utc_time's do.
bool nonce_expired(uint32_t time_s, int32_t now_s);

// Whether a text from the peer is the secret one, in a time that only the peer's text decides.
bool equals_secret(View given, View secret);

// Whether a text can stand in a header line.
inline bool fits_line(View text) { return text.find_first_of("\r\n") == View::npos; }

// Writes one parameter of a header line and what separates it from the next.
inline int write_quoted(estream *s, const char *name, const char *value, const char *separator)
{
    return estream_printf(s, "%s=\"%s\"%s", name, value, separator);
}

} // namespace kutil

#endif
