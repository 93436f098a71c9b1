#include "crypto.h"

#include "report.h"

namespace kutil
{

namespace
{

template <class Algorithm>
const Algorithm *fetch_once(Algorithm **kept, Algorithm *(*fetch)(OSSL_LIB_CTX *, const char *, const char *),
                            const char *name)
{
    if (!*kept)
        *kept = fetch(nullptr, name, nullptr);
    if (!*kept)
        zel_error_full(kEntity, kFatal, "the cryptographic library has no %s", name);
    return *kept;
}

} // namespace

const EVP_MD *md5_algorithm()
{
    static EVP_MD *kept;
    return fetch_once(&kept, EVP_MD_fetch, "MD5");
}

const EVP_MD *sha1_algorithm()
{
    static EVP_MD *kept;
    return fetch_once(&kept, EVP_MD_fetch, "SHA1");
}

const EVP_CIPHER *aes256_cbc_algorithm()
{
    static EVP_CIPHER *kept;
    return fetch_once(&kept, EVP_CIPHER_fetch, "AES-256-CBC");
}

} // namespace kutil
