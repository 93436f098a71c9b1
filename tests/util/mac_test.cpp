#include "util/mac.h"

#include "support.h"

#include <cstring>
#include <regex>
#include <string>

namespace
{

std::string read_with(uint8_t *(*reader)(const char *), const char *text)
{
    const uint8_t *mac = reader(text);
    return mac ? mactoa(mac) : "refused";
}

TEST(Mac, ReadingFollowsScanfAndTheStrictFormAddsOnlyTheLength)
{
    const struct {
        const char *text, *loose, *strict;
    } rows[] = {{"00:11:22:aa:Bb:CC", "00:11:22:aa:bb:cc", "00:11:22:aa:bb:cc"},
                {"0:1:2:3:4:5", "00:01:02:03:04:05", "refused"},
                {" 00: 1:2:\n3:4:5", "00:01:02:03:04:05", "refused"},
                {"0:1:2:3:4:      5", "00:01:02:03:04:05", "00:01:02:03:04:05"}, // 17 characters
                {"00:11:22:33:44:55x", "00:11:22:33:44:55", "refused"},
                {"00:11:22:33:44:556", "00:11:22:33:44:55", "refused"},
                {"00:11:22:33:44", "refused", "refused"},
                {"00-11-22-33-44-55", "refused", "refused"},
                {"001:1:2:3:4:5", "refused", "refused"},
                {"00:11:22:33:44:gg", "refused", "refused"},
                {"", "refused", "refused"},
                {nullptr, "refused", "refused"}};
    for (const auto &row : rows) {
        EXPECT_EQ(read_with(atomac, row.text), row.loose) << row.text;
        EXPECT_EQ(read_with(atomacz, row.text), row.strict) << row.text;
        uint8_t copy[6] = {9, 9, 9, 9, 9, 9};
        const bool ok = strcmp(row.loose, "refused") != 0;
        EXPECT_EQ(atomac_cpy(row.text, copy), ok ? 0 : 1) << row.text;
        EXPECT_STREQ(mactoa(copy), ok ? row.loose : "09:09:09:09:09:09") << row.text;
    }
    const uint8_t *kept = atomac("00:11:22:33:44:55");
    EXPECT_EQ(atomac("66:77:88:99:aa"), nullptr);
    EXPECT_STREQ(mactoa(kept), "00:11:22:33:44:55") << "a refused text does not touch the last result";
}

TEST(Mac, ValidityDependsOnWhatIsAllowed)
{
    // One digit per call: allow_zero * 4 + allow_mask * 2 + reject_group, counted from 0; 1 is accepted.
    const char *rows[][2] = {{"00:11:22:33:44:55", "11111111"}, {"00:00:00:00:00:00", "00001111"},
                             {"01:00:5e:00:00:01", "10111011"}, // allowing masks lets group addresses through
                             {"ff:ff:ff:00:00:00", "00110011"}, {"ff:ff:ff:ff:ff:ff", "00110011"},
                             {"80:00:00:00:00:00", "00110011"}, {"00:11:22:33:44:5", "00000000"}};
    for (const auto &row : rows) {
        for (int flags = 0; flags < 8; flags++)
            EXPECT_EQ(atomac_valid(row[0], flags & 4, flags & 2, flags & 1) != nullptr, row[1][flags] == '1')
                << row[0] << " " << flags;
    }
    EXPECT_EQ(atomac_valid(nullptr, 1, 1, 0), nullptr);
}

TEST(Mac, NoColonsTakesAnyTwelveCharacters)
{
    const char *rows[][2] = {
        {"00:11:22:aa:Bb:CC", "001122aaBbCC"}, {"xy:::: 1:22:33:44 more", "xy:: 1223344"},

        {"00:11:22:aa:bb-cc", nullptr},        {"xy:z!:  ::::55:66tail", "xyz!  ::5566"},
        {"00:11:22:aa:bb:c", nullptr},         {nullptr, nullptr}};
    for (const auto &row : rows)
        EXPECT_STREQ(mac_no_colons(row[0]), row[1]) << row[0];
}

TEST(Mac, MasksAndComparisons)
{
    // Every run of leading ones is a mask; one more one bit anywhere behind the first zero is not.
    for (int ones = 0; ones <= 48; ones++) {
        for (int extra = ones; extra <= 48; extra++) {
            uint8_t mac[6] = {};
            const auto set = [&mac](int bit) {
                mac[bit / 8] = static_cast<uint8_t>(mac[bit / 8] | 0x80 >> bit % 8);
            };
            for (int bit = 0; bit < ones; bit++)
                set(bit);
            const bool contiguous = extra == 48 || extra == ones;
            const int length = ones + (extra < 48 && extra == ones);
            if (extra < 48)
                set(extra);
            const int expected = length == 0 || !contiguous ? 0 : length == 48 ? 7 : 1;
            EXPECT_EQ(is_valid_netmask_mac(mac, 7), expected) << mactoa(mac);
        }
    }
    EXPECT_EQ(is_valid_netmask_mac(nullptr, 1), 0);
    EXPECT_EQ(is_valid_netmask_mac(bcast_mac, 0), 0);
    EXPECT_TRUE(is_bcast_mac(bcast_mac));
    EXPECT_FALSE(is_bcast_mac(atomac("ff:ff:ff:ff:ff:fe")));
    EXPECT_TRUE(is_mac_zero(atomac("0:0:0:0:0:0")));
    EXPECT_FALSE(is_mac_zero(atomac("0:0:0:0:0:1")));

    const masked_mac vendor = {{0, 0x11, 0x22, 9, 9, 9}, {0xff, 0xff, 0xfe, 0, 0, 0}};
    EXPECT_EQ(masked_mac_cmp(&vendor, atomac("00:11:23:44:55:66")), 0);
    EXPECT_LT(masked_mac_cmp(&vendor, atomac("00:11:24:00:00:00")), 0);
    EXPECT_GT(masked_mac_cmp(&vendor, nullptr), 0);
}

TEST(Mac, IncrementStaysInTheVendorsRange)
{
    ReportLog reports;
    uint8_t mac[6] = {0, 0x11, 0x22, 0xff, 0xfe, 0xff};
    EXPECT_EQ(mac_increment(mac), 0);
    EXPECT_STREQ(mactoa(mac), "00:11:22:ff:ff:00");
    memset(mac + 3, 0xff, 3);
    EXPECT_EQ(reports.take(), "");
    EXPECT_EQ(mac_increment(mac), -1);
    EXPECT_STREQ(mactoa(mac), "00:11:22:00:00:00");
    EXPECT_TRUE(std::regex_match(
        reports.take(),
        std::regex("4: mac_increment:[0-9]+: Network interface controller numbers exhausted\n")));
    EXPECT_EQ(mac_subtract(bcast_mac, mac), 0xffffffffffff - 0x1122000000);
    EXPECT_EQ(mac_subtract(nullptr, bcast_mac), -0xffffffffffff);
}

TEST(Mac, List)
{
    mac_list *head = nullptr;
    EXPECT_EQ(mac_list_add(nullptr, bcast_mac), nullptr);
    const mac_list *first = mac_list_add(&head, bcast_mac);
    EXPECT_EQ(mac_list_add(&head, head->mac), head); // a copy of what the list holds
    EXPECT_EQ(head->next, first);
    EXPECT_TRUE(is_bcast_mac(head->mac));
    EXPECT_EQ(first->next, nullptr);
    mac_list_free(&head);
    EXPECT_EQ(head, nullptr);
    mac_list_free(&head);
    mac_list_free(nullptr);
}

TEST(Mac, InterfaceTypes)
{
    const int rows[][2] = {{-1, 1},   {0, 1},     {1, 6},     {2, 1},    {6, 1},     {7, 35},
                           {8, 1},    {255, 1},   {256, 28},  {259, 28}, {260, 1},   {512, 23},
                           {767, 1},  {768, 131}, {769, 131}, {770, 1},  {772, 24},  {773, 42},
                           {774, 15}, {775, 1},   {776, 131}, {777, 1},  {778, 131}, {65535, 1}};
    for (const auto &row : rows)
        EXPECT_EQ(iana_if_type_get(row[0]), row[1]) << row[0];
    EXPECT_EQ(if_speed_guess(9), 4000000U);
    EXPECT_EQ(if_speed_guess(6), 10000000U);
}

} // namespace
