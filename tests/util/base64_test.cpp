#include "util/base64.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace
{

std::string encode(const std::string &bytes)
{
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '#');
    const int length = base64_enc(text.data(), bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(text[static_cast<size_t>(length)], '\0');
    text.resize(static_cast<size_t>(length));
    return text;
}

// What the text decodes to, in a buffer of the promised size; "-1" when it is refused.
std::string decode(const char *text)
{
    char *buffer = static_cast<char *>(malloc(3 * (strlen(text) / 4) + 2));
    const int length = base64_dec(buffer, text);
    const std::string bytes =
        length < 0 ? std::to_string(length) : std::string(buffer, static_cast<size_t>(length));
    free(buffer);
    return bytes;
}

} // namespace

TEST(Base64, TheVectorsOfTheStandard) // RFC 4648, section 10
{
    const struct {
        const char *bytes, *text;
    } rows[] = {{"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
                {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
    for (const auto &row : rows) {
        EXPECT_EQ(encode(row.bytes), row.text);
        EXPECT_EQ(decode(row.text), row.bytes);
    }
    EXPECT_EQ(encode(""), "");
    EXPECT_EQ(encode("\xfb\xef\xff"), "++//");
}

TEST(Base64, EveryByteAtEveryPlaceComesBack)
{
    std::string bytes;
    for (int i = 0; i < 800; i++)
        bytes += static_cast<char>(i * 37);
    for (size_t start = 0; start < 260; start++) {
        const std::string part = bytes.substr(start, start + 1);
        const std::string text = encode(part);
        ASSERT_EQ(decode(text.c_str()), part);
        std::string in_place = text;
        ASSERT_EQ(base64_dec(in_place.data(), in_place.c_str()), static_cast<int>(part.size()));
        ASSERT_EQ(in_place.compare(0, part.size(), part), 0);
    }
}

TEST(Base64, ForeignTextIsPassedOverOrEndsTheInput)
{
    const struct {
        const char *text, *bytes;
    } rows[] = {
        {" Z m\t9\r\nv\v\f", "foo"},
        {"Zm9v=Zm9v", "foo"},
        {"Zm9v-Zm9v", "foo"},
        {"Zm9v\xff", "foo"},
        {"Zm9vZ", "foo"},
        {"Zm9vZm", "foof"},
        {"Zh", "f"}, // left-over bits
        {"", "-1"},
        {"Z", "-1"},
        {"====", "-1"},
        {"-Zm9v", "-1"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(decode(row.text), row.bytes) << row.text;
}

TEST(Base64, NullAndImpossibleLengths)
{
    char text[8] = "keep";
    EXPECT_EQ(base64_enc(nullptr, "a", 1), 0);
    EXPECT_EQ(base64_enc(text, "a", INT_MAX), -1);
    EXPECT_STREQ(text, "keep");
    EXPECT_EQ(base64_dec(text, nullptr), -1);
    EXPECT_EQ(base64_dec(nullptr, "Zm9v"), -1);
    EXPECT_EQ(base64_enc(text, "a", -1), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(base64_enc(strcpy(text, "keep"), nullptr, 5), 0);
    EXPECT_STREQ(text, "");
}
