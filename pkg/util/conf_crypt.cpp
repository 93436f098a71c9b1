#include "conf_crypt.h"

#include "alloc.h"
#include "hex.h"
#include "internal/crypto.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <climits>
#include <cstdint>
#include <openssl/crypto.h>

using namespace kutil;

namespace
{

constexpr int kBlockSize = 16;
constexpr size_t kKeyDigits = 2 * CONF_KEY_SIZE;
constexpr int kKeyTypes = 3;
constexpr const char *kBuiltInKey = "3D275835AC49BE4441E11D6B91C1A7F3031BAFC3338BEC2CBA995986A6100FDD";

// Stored data depends on these constants: they never change.
constexpr uint32_t kSeed[4] = {0x63D305EF, 0x5DBA58DF, 0x5C426BCB, 0x7ED2C755};
constexpr uint32_t kSalt[2] = {0xC5CB664E, 0x14219DC5};

struct KeyTable {
    char *entries[kKeyTypes]; // NULL is clear; the built-in text is not in here
    bool built_in_current;    // entry 0 still is the built-in text
    int current;
    int remembered;
};
constinit KeyTable keys = {.built_in_current = true};

// Owns the bytes of a key, which are clear when it ends. The memory is malloc's.
class Key
{
public:
    explicit Key(unsigned char *bytes) : bytes_(bytes) {}
    ~Key()
    {
        if (bytes_)
            OPENSSL_cleanse(bytes_, CONF_KEY_SIZE);
        free(bytes_);
    }
    Key(const Key &) = delete;
    Key &operator=(const Key &) = delete;
    const unsigned char *get() const { return bytes_; }

private:
    unsigned char *bytes_;
};

bool is_type(int type) { return type >= 0 && type < kKeyTypes; }

const char *entry_text(int type)
{
    return type == CONF_KEY_DEFAULT && keys.built_in_current ? kBuiltInKey : keys.entries[type];
}

void replace_entry(int type, char *text)
{
    if (!is_type(type))
        return;
    char *old = keys.entries[type];
    keys.entries[type] = text;
    if (type == CONF_KEY_DEFAULT)
        keys.built_in_current = false;
    if (old)
        OPENSSL_cleanse(old, strlen(old));
    free(old);
}

// Runs AES-256-CBC over whole blocks in place. The vector of zeros is part of the stored form.
bool run_cipher(unsigned char *bytes, int len, const unsigned char *key, bool encrypt)
{
    const unsigned char vector[kBlockSize] = {};
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    int done = 0;
    const bool ok = context &&
                    EVP_CipherInit_ex2(context, aes256_cbc_algorithm(), key, vector, encrypt, nullptr) == 1 &&
                    EVP_CIPHER_CTX_set_padding(context, 0) == 1 &&
                    EVP_CipherUpdate(context, bytes, &done, bytes, len) == 1 && done == len;
    EVP_CIPHER_CTX_free(context);
    return ok;
}

// The constants as bytes, first byte on top on every host.
template <size_t Words>
void to_bytes(const uint32_t (&words)[Words], unsigned char *bytes)
{
    for (const uint32_t word : words) {
        for (int shift = 24; shift >= 0; shift -= 8)
            *bytes++ = static_cast<unsigned char>(word >> shift);
    }
}

// A keystream whose every block is the digest of the block before it.
class Keystream
{
public:
    Keystream() { to_bytes(kSeed, state_); }
    unsigned char next()
    {
        if (position_ % kMd5Size == 0 &&
            EVP_Digest(state_, kMd5Size, state_, nullptr, md5_algorithm(), nullptr) != 1)
            zel_error_full(kEntity, kFatal, "MD5 failed");
        return state_[position_++ % kMd5Size];
    }

private:
    unsigned char state_[kMd5Size];
    unsigned position_ = 0;
};

char *shift_text(char *text, bool obscure)
{
    Keystream stream;
    for (char *at = text; at && *at; at++) {
        const int k = stream.next();
        const int a = static_cast<unsigned char>(*at);
        // Modulo 255 over 1..255, so that no byte becomes the end of the text.
        const int sum = obscure ? (a + k < 256 ? a + k : a + k - 255) : (a - k > 0 ? a - k : a - k + 255);
        *at = static_cast<char>(sum);
    }
    return text;
}

} // namespace

unsigned char *encrypt_str(const char *text, int *len_out, const unsigned char *key)
{
    if (!text || !key)
        return nullptr;
    const size_t length = strlen(text);
    if (length > INT_MAX - 2 * kBlockSize)
        return nullptr;
    // Deliberate: strictly more than text and NUL, so a text that fills its blocks gets one more.
    const size_t size = ((length + 1) / kBlockSize + 1) * kBlockSize;
    Heap<unsigned char> bytes(static_cast<unsigned char *>(zalloc_e(size)));
    memcpy(bytes.get(), text, length);
    if (!run_cipher(bytes.get(), static_cast<int>(size), key, true)) {
        OPENSSL_cleanse(bytes.get(), size);
        return nullptr;
    }
    if (len_out)
        *len_out = static_cast<int>(size);
    return bytes.release();
}

char *decrypt_str(const void *buf, int len, const unsigned char *key)
{
    if (len <= 0)
        return copy_text("");
    if (!buf || !key || len % kBlockSize != 0)
        return nullptr;
    const auto size = static_cast<size_t>(len);
    HeapText text(new_text(size));
    memcpy(text.get(), buf, size);
    text.get()[size] = '\0';
    if (!run_cipher(reinterpret_cast<unsigned char *>(text.get()), len, key, false)) {
        OPENSSL_cleanse(text.get(), size);
        return nullptr;
    }
    return text.release();
}

unsigned char *obscure_str(const char *text, int *len_out)
{
    const Key key(zel_conf_crypt_key_get());
    return encrypt_str(text, len_out, key.get());
}

char *unobscure_str(const void *buf, int len)
{
    const Key key(zel_conf_crypt_key_get());
    return decrypt_str(buf, len, key.get());
}

unsigned char *aes_password_to_key(const char *password)
{
    constexpr int kRounds = 10;
    const View text = view(password);
    unsigned char salt[sizeof(kSalt)];
    unsigned char vector[EVP_MAX_IV_LENGTH];
    to_bytes(kSalt, salt);
    auto *key = static_cast<unsigned char *>(zalloc_e(CONF_KEY_SIZE));
    const int used = text.size() > INT_MAX ? INT_MAX : static_cast<int>(text.size());
    EVP_BytesToKey(aes256_cbc_algorithm(), sha1_algorithm(), salt,
                   reinterpret_cast<const unsigned char *>(text.data()), used, kRounds, key, vector);
    OPENSSL_cleanse(vector, sizeof(vector));
    return key;
}

char *md5_obscure_str(char *text) { return shift_text(text, true); }

char *md5_unobscure_str(char *text) { return shift_text(text, false); }

void obscure_bin(void *buf, int len)
{
    Keystream stream;
    auto *bytes = static_cast<unsigned char *>(buf);
    for (int i = 0; bytes && i < len; i++)
        bytes[i] ^= stream.next();
}

void unobscure_bin(void *buf, int len) { obscure_bin(buf, len); }

unsigned char *zel_conf_crypt_key_get(void)
{
    const char *entry = entry_text(keys.current);
    if (!entry)
        return nullptr;
    char digits[kKeyDigits + 1];
    *put(digits, sub(entry, 0, kKeyDigits)) = '\0';
    unsigned char bytes[CONF_KEY_SIZE] = {};
    const size_t count = hex_2_bin(digits, bytes);
    auto *key = count > 0 ? static_cast<unsigned char *>(memdup_e(bytes, sizeof(bytes))) : nullptr;
    OPENSSL_cleanse(bytes, sizeof(bytes));
    OPENSSL_cleanse(digits, sizeof(digits));
    return key;
}

void zel_conf_crypt_key_set(int type, const char *hex)
{
    if (is_type(type))
        replace_entry(type, hex ? copy_text(hex) : nullptr);
}

void zel_conf_crypt_key_clear(int type) { replace_entry(type, nullptr); }

void zel_conf_crypt_key_change(int type)
{
    if (is_type(type) && entry_text(type))
        keys.current = type;
}

int zel_conf_crypt_key_get_curr_type(void) { return keys.current; }

void zel_conf_crypt_key_select(int type)
{
    keys.remembered = keys.current;
    zel_conf_crypt_key_change(type);
}

void zel_conf_crypt_key_deselect(void) { zel_conf_crypt_key_change(keys.remembered); }

void zel_conf_crypt_key_factory_select(void) { zel_conf_crypt_key_select(CONF_KEY_FACTORY); }

void zel_conf_crypt_key_factory_deselect(void) { zel_conf_crypt_key_deselect(); }
