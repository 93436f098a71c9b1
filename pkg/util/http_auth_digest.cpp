#include "http_auth.h"

#include "hex.h"
#include "internal/http_auth.h"
#include "internal/number.h"

#include <algorithm>
#include <cstdio>
#include <openssl/rand.h>

// The Digest scheme: its parameters, nonces and responses; and HMAC-MD5.

using namespace kutil;

const char *const digest_names[10] = {"username", "realm",  "nonce", "response", "algorithm",
                                      "cnonce",   "opaque", "nc",    "uri",      "qop"};
const int digest_name_len[10] = {8, 5, 5, 8, 9, 6, 6, 2, 3, 3};

namespace
{

// Digits of the 32-bit numbers in a nonce, and of the secret in its hash.
constexpr int kNonceDigits = 8;

struct NonceState {
    char secret[kNonceDigits + 1]; // "" until the first use
    char text[kDigestDigits + 2 * (kNonceDigits + 1) + 1];
};
constinit NonceState nonces = {};

const char *nonce_secret()
{
    if (!*nonces.secret) {
        unsigned char bytes[kNonceDigits / 2];
        if (RAND_bytes(bytes, sizeof(bytes)) != 1)
            zel_error_full(kEntity, kFatal, "http_auth: RAND_bytes failed");
        bin_2_hex(bytes, sizeof(bytes), nonces.secret);
    }
    return nonces.secret;
}

// Whether `text` begins with the word, in any case. Deliberate: what follows the word is not looked at.
bool begins_with_word(const char *text, View word)
{
    return equal_ignoring_case(View(text, strnlen(text, word.size())), word);
}

// The first parameter whose name `text` begins with, or kDigestFields.
int match_name(const char *text)
{
    int field = 0;
    while (field < kDigestFields &&
           !begins_with_word(text, View(digest_names[field], static_cast<size_t>(digest_name_len[field]))))
        field++;
    return field;
}

// Reads one parameter and what separates it from the next. Returns the place behind, or NULL with *failed_at
// set to what cannot be read.
const char *parse_parameter(const char *at, DigestFields *fields, const char **failed_at)
{
    const int field = match_name(at);
    at += field < kDigestFields ? static_cast<size_t>(digest_name_len[field]) : strcspn(at, "=");
    at = skip_space(at);
    *failed_at = at;
    if (*at != '=')
        return nullptr;
    at = skip_space(at + 1);
    *failed_at = at;
    const bool quoted = *at == '"';
    at += quoted;
    const View value(at, strcspn(at, quoted ? "\"" : ", \t\n\v\f\r"));
    at += value.size();
    if (quoted && !*at)
        return nullptr;
    if (field < kDigestFields)
        fields->set(static_cast<DigestField>(field), value);
    at = skip_space(at + quoted);
    return skip_space(at + (*at == ','));
}

// TIME:RANDOM behind the nonce's hash.
void read_nonce(const char *nonce, DigestFields *fields)
{
    const char *time = strchr(nonce, ':');
    if (!time)
        return;
    fields->nonce_time = parse_u32(time + 1, nullptr, 16);
    const char *random = strchr(time + 1, ':');
    if (random)
        fields->nonce_random = parse_u32(random + 1, nullptr, 16);
}

View bytes_of(const unsigned char *bytes, size_t count)
{
    return View(reinterpret_cast<const char *>(bytes), count);
}

// The raw bytes of the user's digest become its text, for "md5-sess" by way of the session's.
void user_digest(Md5 &md5, const DigestFields &fields, View password, DigestText text)
{
    unsigned char raw[kMd5Size];
    md5.add(fields.value(kUsername)).add(":").add(fields.value(kRealm)).add(":").add(password).finish(raw);
    if (fields.is(kAlgorithm, "md5-sess")) {
        md5.add(bytes_of(raw, sizeof(raw))).add(":").add(fields.value(kNonce));
        md5.add(":").add(fields.value(kCnonce)).finish(raw);
    }
    bin_2_hex(raw, sizeof(raw), text);
    OPENSSL_cleanse(raw, sizeof(raw));
}

} // namespace

namespace kutil
{

Md5::Md5() : context_(EVP_MD_CTX_new())
{
    if (!context_)
        zel_error_full(kEntity, kFatal, "http_auth: no MD5 context");
}

Md5 &Md5::add(View bytes)
{
    const bool ok = (begun_ || EVP_DigestInit_ex(context_, md5_algorithm(), nullptr)) &&
                    EVP_DigestUpdate(context_, bytes.data(), bytes.size());
    begun_ = true;
    if (!ok)
        zel_error_full(kEntity, kFatal, "http_auth: MD5 failed");
    return *this;
}

void Md5::finish(unsigned char *digest)
{
    add("");
    if (!EVP_DigestFinal_ex(context_, digest, nullptr))
        zel_error_full(kEntity, kFatal, "http_auth: MD5 failed");
    begun_ = false;
}

void Md5::finish_text(DigestText text)
{
    unsigned char digest[kMd5Size];
    finish(digest);
    bin_2_hex(digest, sizeof(digest), text);
}

AuthScheme take_scheme(http_auth_request *req)
{
    struct Row {
        View word;
        AuthScheme scheme;
    };
    static constexpr Row kRows[] = {{"Basic", AuthScheme::kBasic}, {"Digest", AuthScheme::kDigest}};
    if (!req || !req->header)
        return AuthScheme::kNone;
    for (const Row &row : kRows) {
        if (begins_with_word(req->header, row.word)) {
            req->header = skip_space(req->header + row.word.size());
            return row.scheme;
        }
    }
    return AuthScheme::kNone;
}

int parse_digest(const char *text, DigestFields *fields)
{
    for (const char *at = skip_space(text); *at;) {
        const char *failed_at = nullptr;
        at = parse_parameter(at, fields, &failed_at);
        if (!at)
            return zel_error_full(kEntity, kWarn, kUnparsable, failed_at);
    }
    if (!fields->has(kNonce))
        return zel_error_full(kEntity, kWarn, kUnparsable, text);
    read_nonce(fields->text(kNonce), fields);
    return 0;
}

void digest_response(const DigestFields &fields, View method, View password, DigestText response)
{
    static constexpr char kNoEntity[kDigestDigits] = {};
    Md5 md5;
    DigestText user, request;
    user_digest(md5, fields, password, user);
    md5.add(method).add(":").add(fields.value(kUri));
    // The body is not known here: its digest counts as zeros, and nobody asks for it.
    if (fields.is(kQop, "auth-int"))
        md5.add(":").add(View(kNoEntity, sizeof(kNoEntity)));
    md5.finish_text(request);
    md5.add(user).add(":").add(fields.value(kNonce)).add(":");
    if (fields.has(kQop)) {
        for (const DigestField field : {kNc, kCnonce, kQop})
            md5.add(fields.value(field)).add(":");
    }
    md5.add(request).finish_text(response);
    OPENSSL_cleanse(user, sizeof(user));
}

const char *make_nonce(uint32_t time_s, uint32_t random)
{
    char time_text[kNonceDigits + 1] = {};
    char random_text[kNonceDigits + 1] = {};
    snprintf(time_text, sizeof(time_text), "%lx", static_cast<unsigned long>(time_s));
    snprintf(random_text, sizeof(random_text), "%x", random);
    Md5 md5;
    DigestText hash;
    // Deliberate: always eight bytes of each text, the zero bytes behind a shorter one among them.
    md5.add(View(time_text, kNonceDigits)).add(":").add(View(random_text, kNonceDigits)).add(":");
    md5.add(nonce_secret()).finish_text(hash);
    snprintf(nonces.text, sizeof(nonces.text), "%s:%s:%s", hash, time_text, random_text);
    return nonces.text;
}

bool nonce_expired(uint32_t time_s, int32_t now_s)
{
    return static_cast<int32_t>(time_s + kNonceLifeSeconds) < now_s;
}

bool equals_secret(View given, View secret)
{
    unsigned difference = given.size() != secret.size();
    for (size_t i = 0; i < given.size(); i++)
        difference |= static_cast<unsigned>(given[i] ^ (i < secret.size() ? secret[i] : 0));
    return difference == 0;
}

} // namespace kutil

void hmac_md5(const uint8_t *data, int data_len, const uint8_t *key, int key_len, uint8_t digest[16])
{
    constexpr size_t kBlock = 64;
    if (!digest)
        return;
    const auto block_view = [](const uint8_t *bytes, int len) {
        return bytes && len > 0 ? bytes_of(bytes, static_cast<size_t>(len)) : View("", 0);
    };
    Md5 md5;
    unsigned char pad[kBlock] = {};
    const View secret = block_view(key, key_len);
    if (secret.size() > kBlock)
        md5.add(secret).finish(pad);
    else
        put(reinterpret_cast<char *>(pad), secret);
    const auto turn = [&pad](unsigned char mask) {
        for (unsigned char &byte : pad)
            byte ^= mask;
    };
    turn(0x36);
    unsigned char inner[kMd5Size];
    md5.add(bytes_of(pad, kBlock)).add(block_view(data, data_len)).finish(inner);
    turn(0x36 ^ 0x5c);
    md5.add(bytes_of(pad, kBlock)).add(bytes_of(inner, sizeof(inner))).finish(digest);
    OPENSSL_cleanse(pad, sizeof(pad));
}
