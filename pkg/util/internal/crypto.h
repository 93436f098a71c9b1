#ifndef KUTIL_INTERNAL_CRYPTO_H
#define KUTIL_INTERNAL_CRYPTO_H

// Algorithms of libcrypto, fetched once for the life of the process. One that the installed library cannot
// give is a fatal report that names it.

#include <cstdlib>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/evp.h>

namespace kutil
{

const EVP_MD *md5_algorithm();
const EVP_MD *sha1_algorithm();
const EVP_CIPHER *aes256_cbc_algorithm();

inline constexpr int kMd5Size = 16;

// Owns a secret text, which is cleared before it is freed.
class SecretText
{
public:
    explicit SecretText(char *text) : text_(text) {}
    ~SecretText()
    {
        if (text_)
            OPENSSL_cleanse(text_, strlen(text_));
        free(text_);
    }
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;
    char *get() const { return text_; }

private:
    char *text_;
};

} // namespace kutil

#endif
