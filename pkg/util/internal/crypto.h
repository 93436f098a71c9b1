#ifndef KUTIL_INTERNAL_CRYPTO_H
#define KUTIL_INTERNAL_CRYPTO_H

// Algorithms of libcrypto, fetched once for the life of the process. One that the installed library cannot
// give is a fatal report that names it.

#include <openssl/evp.h>

namespace kutil
{

const EVP_MD *md5_algorithm();
const EVP_MD *sha1_algorithm();
const EVP_CIPHER *aes256_cbc_algorithm();

inline constexpr int kMd5Size = 16;

} // namespace kutil

#endif
