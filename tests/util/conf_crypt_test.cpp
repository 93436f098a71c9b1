#include "util/conf_crypt.h"
#include "util/hex.h"

#include "support.h"

#include <cstring>

namespace
{

std::string hex_of(const unsigned char *bytes, int len)
{
    std::string text(static_cast<size_t>(len) * 2 + 1, '\0');
    bin_2_hex(bytes, static_cast<size_t>(len), text.data());
    text.pop_back();
    return text;
}

std::string obscured(const char *text)
{
    int len = -1;
    unsigned char *bytes = obscure_str(text, &len);
    const std::string hex = bytes ? hex_of(bytes, len) : "NULL";
    free(bytes);
    return hex;
}

std::string current_key()
{
    unsigned char *key = zel_conf_crypt_key_get();
    const std::string hex = key ? hex_of(key, CONF_KEY_SIZE) : "NULL";
    free(key);
    return hex;
}

const std::string kZeros(64, '0');

} // namespace

TEST(Obscure, KnownValuesAndSizes)
{
    EXPECT_EQ(obscured(""), "d87262453b74189e3c029f0535ddeecb");
    EXPECT_EQ(obscured("secret"), "261ca62d54f41b4cf9ff82243c488460");
    EXPECT_EQ(obscured(std::string(14, 'a').c_str()), "86bd3806b4b605cc3f1393a203e0d5cb");
    EXPECT_EQ(obscured(nullptr), "NULL");
    unsigned char *key = aes_password_to_key("password");
    for (const auto &[length, size] :
         {std::pair{0, 16}, {14, 16}, {15, 32}, {16, 32}, {31, 48}, {1000, 1008}}) {
        const std::string text(static_cast<size_t>(length), '\xE9');
        int len = 0;
        unsigned char *bytes = encrypt_str(text.c_str(), &len, key);
        EXPECT_EQ(len, size) << length;
        char *back = decrypt_str(bytes, len, key);
        EXPECT_EQ(text, back);
        free(back);
        free(bytes);
    }
    free(key);
}

TEST(Obscure, RefusesWhatCannotBe)
{
    unsigned char bytes[48] = {}, key[CONF_KEY_SIZE] = {};
    for (const int len : {1, 15, 17, 47})
        EXPECT_EQ(decrypt_str(bytes, len, key), nullptr) << len;
    EXPECT_EQ(decrypt_str(bytes, 16, nullptr), nullptr);
    EXPECT_EQ(decrypt_str(nullptr, 16, key), nullptr);
    EXPECT_EQ(encrypt_str("x", nullptr, nullptr), nullptr);
    for (const int len : {0, -16}) {
        char *text = decrypt_str(bytes, len, nullptr);
        EXPECT_STREQ(text, "");
        free(text);
    }
    char *garbage = decrypt_str(bytes, 48, key); // whatever it is, it ends
    EXPECT_LE(strlen(garbage), 48U);
    free(garbage);
}

TEST(Keystream, ConstantsNeverChange)
{
    // Stored data depends on these bytes. The first sixteen are the digest of the seed.
    unsigned char zeros[20] = {};
    obscure_bin(zeros, sizeof(zeros));
    EXPECT_EQ(hex_of(zeros, sizeof(zeros)), "03bc66a38108fd8d6659587ec9bb60c816deeaa2");
    unsigned char *key = aes_password_to_key("password");
    EXPECT_EQ(hex_of(key, CONF_KEY_SIZE), "50160bb1fb2b55c90acf8aaa340d9f0b1752e6cc8612d27797bd34889cccae2d");
    free(key);
}

TEST(Keystream, RoundTripsWithoutNul)
{
    std::string all;
    for (int round = 0; round < 5; round++) {
        for (int c = 1; c < 256; c++)
            all += static_cast<char>(c);
    }
    std::string text = all;
    EXPECT_EQ(md5_obscure_str(text.data()), text.data());
    EXPECT_EQ(strlen(text.c_str()), all.size());
    EXPECT_NE(text, all);
    md5_unobscure_str(text.data());
    EXPECT_EQ(text, all);
    obscure_bin(text.data(), static_cast<int>(text.size()));
    EXPECT_NE(text, all);
    unobscure_bin(text.data(), static_cast<int>(text.size()));
    EXPECT_EQ(text, all);
    EXPECT_EQ(md5_obscure_str(nullptr), nullptr);
    obscure_bin(nullptr, 3);
    obscure_bin(text.data(), -3);
    EXPECT_EQ(text, all);
}

TEST(KeyTable, CurrentSelectedAndCleared)
{
    const std::string built_in = current_key();
    EXPECT_EQ(built_in.substr(0, 8), "3d275835");
    for (const int type : {CONF_KEY_DEVICE, CONF_KEY_FACTORY, 3, -1}) {
        zel_conf_crypt_key_change(type);
        EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_DEFAULT) << "an empty entry is not taken";
    }
    struct Row {
        std::string text;
        std::string key;
    };
    const Row rows[] = {
        {"0102", "0102" + kZeros.substr(4)},
        {std::string(64, 'A') + "zz", std::string(64, 'a')}, // digits behind the 64th are not used
        {"012", "NULL"},
        {"xy", "NULL"},
        {"", "NULL"},
    };
    for (const Row &row : rows) {
        zel_conf_crypt_key_set(CONF_KEY_DEVICE, row.text.c_str());
        zel_conf_crypt_key_change(CONF_KEY_DEVICE);
        EXPECT_EQ(current_key(), row.key) << row.text;
    }
    zel_conf_crypt_key_set(CONF_KEY_FACTORY, std::string(64, 'F').c_str());
    zel_conf_crypt_key_set(7, "00");
    zel_conf_crypt_key_factory_select();
    EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_FACTORY);
    zel_conf_crypt_key_factory_deselect();
    EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_DEVICE);
    zel_conf_crypt_key_select(CONF_KEY_DEFAULT);
    zel_conf_crypt_key_select(CONF_KEY_FACTORY); // one level only: the device key is forgotten
    zel_conf_crypt_key_deselect();
    EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_DEFAULT);
    EXPECT_EQ(current_key(), built_in);
    zel_conf_crypt_key_clear(CONF_KEY_DEFAULT);
    EXPECT_EQ(current_key(), "NULL");
    EXPECT_EQ(obscured("x"), "NULL");
    EXPECT_EQ(unobscure_str("0123456789abcdef", 16), nullptr);
    zel_conf_crypt_key_set(CONF_KEY_DEFAULT, built_in.c_str());
    EXPECT_EQ(obscured(""), "d87262453b74189e3c029f0535ddeecb");
}
