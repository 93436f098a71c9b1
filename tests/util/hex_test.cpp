#include "util/hex.h"

#include <cstring>
#include <gtest/gtest.h>

TEST(Hex, Numbers)
{
    struct {
        const char *text;
        int number;
    } const rows[] = {{"1f", 31},        {"0x1F", 31},     {" \t1fg", 31},
                      {"-1", -1},        {"ffffffff", -1}, {"80000000", INT32_MIN},
                      {"100000000", -1}, {"g", 0},         {"", 0},
                      {"0x", 0},         {nullptr, 0},     {"-fffffffffff", -1}};
    for (const auto &row : rows)
        EXPECT_EQ(hex2int(row.text), row.number) << (row.text ? row.text : "NULL");
    for (const int n : {0, 1, 255, INT32_MAX, INT32_MIN, -1})
        EXPECT_EQ(hex2int(int2hex(n)), n);
    EXPECT_STREQ(int2hex(-1), "ffffffff");
    EXPECT_STREQ(int2hex(0), "0");
}

TEST(Hex, Bytes)
{
    unsigned char bytes[256], back[256];
    char text[513];
    for (int i = 0; i < 256; i++)
        bytes[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(bin_2_hex(bytes, sizeof(bytes), text), text);
    EXPECT_EQ(strncmp(text, "000102", 6), 0);
    EXPECT_STREQ(text + 500, "fafbfcfdfeff");
    EXPECT_EQ(hex_2_bin(text, back), 256U);
    EXPECT_EQ(memcmp(bytes, back, 256), 0);
    EXPECT_EQ(hex_2_bin(text, text), 256U);
    EXPECT_EQ(memcmp(bytes, text, 256), 0) << "over its own text";
    EXPECT_EQ(hex_2_bin("aBC1", back), 2U);
    EXPECT_EQ(memcmp(back, "\xab\xc1", 2), 0);
    back[0] = 'x';
    for (const char *bad : {"abc", "0g", "00g0", "+1", " 1", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(hex_2_bin(bad, back), 0U);
    EXPECT_EQ(back[0], 'x') << "a bad text writes nothing";
    EXPECT_EQ(hex_2_bin("ab", nullptr), 0U);
    EXPECT_EQ(bin_2_hex(bytes, 1, nullptr), nullptr);
    EXPECT_STREQ(bin_2_hex(nullptr, 5, text), "");
}
