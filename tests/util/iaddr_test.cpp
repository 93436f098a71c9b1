#include "util/iaddr.h"

#include "support.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace
{

iaddr addr(const char *text)
{
    iaddr a = {};
    EXPECT_EQ(str2iaddr(&a, text), 0) << text;
    return a;
}

std::string str(const iaddr &a) { return iaddr2str(&a); }

uint32_t ip(const char *text)
{
    uint32_t number = 0;
    EXPECT_EQ(zel_inet_atonz(text, &number), 1) << text;
    return number;
}

subnet net(const char *text)
{
    subnet s = {};
    EXPECT_EQ(str2subnet(&s, text), 0) << text;
    return s;
}

// ---- Text ----

TEST(IaddrText, NumericFormsAndNothingElse)
{
    // getaddrinfo's short and other-base IPv4 forms among them.
    const char *rows[][2] = {{"192.168.1.1", "192.168.1.1"},
                             {"0.0.0.0", "0.0.0.0"},
                             {"255.255.255.255", "255.255.255.255"},
                             {"10.1", "10.0.0.1"},
                             {"0x7f.1", "127.0.0.1"},
                             {"010.0.0.1", "8.0.0.1"},
                             {"0xffffffff", "255.255.255.255"},
                             {"1.2.65535", "1.2.255.255"},
                             {"fe80::1", "fe80::1"},
                             {"FE80:0:0:0:0:0:0:1", "fe80::1"},
                             {"::", "::"},
                             {"::ffff:10.0.0.1", "::ffff:10.0.0.1"},
                             {"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8"}};
    iaddr a;
    for (const auto &row : rows) {
        memset(&a, 0x5a, sizeof(a));
        EXPECT_EQ(str2iaddr(&a, row[0]), 0) << row[0];
        EXPECT_EQ(a.family, strchr(row[0], ':') ? AF_INET6 : AF_INET) << row[0];
        EXPECT_STREQ(iaddr2str(&a), row[1]) << row[0];
        EXPECT_TRUE(a.family == AF_INET6 || memcmp(a.addr.bytes + 4, ip_addr_any(), 12) == 0) << row[0];
    }
    for (const char *text : {"localhost", "", "1.2.3.4.5", "1.2.3.256", "[::1]", ":::1", "1:2:3:4:5:6:7:8:9",
                             "1.2.3.4/24", "4294967296", "99999999999", "18446744073709551617", "1.2.65536",
                             "1.2.", "256.1", "08.1", "-1", "0x", "1.2.3.4 "}) {
        memset(&a, 0x5a, sizeof(a));
        EXPECT_EQ(str2iaddr(&a, text), -1) << text;
        EXPECT_EQ(a.family, 0) << text;
        EXPECT_EQ(memcmp(&a.addr, ip_addr_any(), 16), 0) << text;
    }
    iaddr kept = addr("1.2.3.4");
    EXPECT_EQ(str2iaddr(&kept, nullptr), -1);
    EXPECT_EQ(str(kept), "1.2.3.4");
    EXPECT_EQ(str2iaddr(nullptr, "1.2.3.4"), -1);
    EXPECT_EQ(str2iaddr(&kept, std::string(100000, '1').c_str()), -1);
}

// The text is stored, so it is the same on every machine, whatever the C library's is.
TEST(IaddrText, ZerosAreShortenedTheSameWayEverywhere)
{
    const char *rows[][2] = {{"0:0:1:0:0:2:3:4", "::1:0:0:2:3:4"},
                             {"1:0:0:2:0:0:0:3", "1:0:0:2::3"},
                             {"1:0:2:3:4:5:6:7", "1:0:2:3:4:5:6:7"},
                             {"0:1:2:3:4:5:6:7", "0:1:2:3:4:5:6:7"},
                             {"1:2:3:4:5:6:0:0", "1:2:3:4:5:6::"},
                             {"::102:304", "::1.2.3.4"},
                             {"::ffff:1:2", "::ffff:0.1.0.2"},
                             {"::ffff:0:0", "::ffff:0.0.0.0"},
                             {"::1:0:0", "::1:0:0"},
                             {"::1:0", "::0.1.0.0"},
                             {"::1:1:2", "::1:1:2"},
                             {"::1", "::1"}};
    for (const auto &row : rows)
        EXPECT_EQ(str(addr(row[0])), row[1]) << row[0];
#ifdef __GLIBC__
    std::mt19937 random(7);
    for (int i = 0; i < 20000; i++) {
        ip_addr bytes = {};
        char expected[INET6_ADDRSTRLEN];
        for (uint8_t &byte : bytes.bytes)
            byte = static_cast<uint8_t>(random() % 3 ? 0 : random() % 2 ? 255 : random());
        for (const uint16_t family : {uint16_t{AF_INET}, uint16_t{AF_INET6}})
            ASSERT_STREQ(ip_addr2str(family, &bytes), inet_ntop(family, &bytes, expected, sizeof(expected)));
    }
#endif
}

TEST(IaddrText, ResultsOfDifferentFunctionsDoNotShareABuffer)
{
    const iaddr a = addr("10.0.0.1");
    const subnet s = net("fe80::/10");
    const char *address = iaddr2str(&a), *network = subnet2str(&s), *dotted = inet_ntoa_t(0x01020304);
    EXPECT_STREQ(address, "10.0.0.1");
    EXPECT_STREQ(network, "fe80::/10");
    EXPECT_STREQ(dotted, "1.2.3.4");
    EXPECT_EQ(ip_addr2str(AF_INET6, ip_addr_loopback(0)), address);
    EXPECT_STREQ(address, "::1");
    EXPECT_STREQ(ip_addr2str(0, "0123456789abcdef"), "");
    EXPECT_STREQ(iaddr2str(nullptr), "");
    EXPECT_STREQ(subnet2str(nullptr), "");
    const subnet widest = {addr("1111:2222:3333:4444:5555:6666:7777:8888"), 4294967295U};
    EXPECT_STREQ(subnet2str(&widest), "1111:2222:3333:4444:5555:6666:7777:8888/4294967295");
}

TEST(IaddrText, Subnets)
{
    const std::string widest = "1111:2222:3333:4444:5555:6666:7777:8888/128";
    // Kept as written, not masked; text behind the number is ignored.
    const std::string rows[][2] = {{"10.0.0.0/8", "10.0.0.0/8"},         {"10.0.0.1/24x", "10.0.0.1/24"},
                                   {"10.0.0.1/ +24", "10.0.0.1/24"},     {"10.0.0.1/24/25", "10.0.0.1/24"},
                                   {"0.0.0.0/0", "0.0.0.0/0"},           {"10.0.0.1/32", "10.0.0.1/32"},
                                   {"2001:db8::/128", "2001:db8::/128"}, {widest + "  xxxx", widest}};
    for (const auto &row : rows) {
        const subnet s = net(row[0].c_str());
        EXPECT_EQ(subnet2str(&s), row[1]);
    }
    subnet kept = net("9.9.9.9/9");
    for (const std::string &text :
         {widest + "  xxxxx", std::string("10.0.0.1/33"), std::string("2001:db8::/129"),
          std::string("10.0.0.1"), std::string("10.0.0.1/"), std::string("10.0.0.1/x"),
          std::string("10.0.0.1/-1"), std::string("10.0.0.1/4294967304"), std::string("/8"), std::string()})
        EXPECT_EQ(str2subnet(&kept, text.c_str()), -1) << text;
    EXPECT_EQ(str2subnet(&kept, nullptr), -1);
    EXPECT_STREQ(subnet2str(&kept), "9.9.9.9/9");
}

TEST(IaddrText, StrictDottedQuad)
{
    // A blank ends the loose form; numbers are decimal with leading zeros too, unlike in inet_aton.
    enum { kNone, kLoose, kStrict };
    const struct {
        const char *text;
        int form;
        uint32_t value;
    } rows[] = {{"10.0.0.1", kStrict, 0x0a000001},
                {"001.002.003.004", kStrict, 0x01020304},
                {"255.255.255.255", kStrict, 0xffffffff},
                {"10.0.0.1 ", kLoose, 0x0a000001},
                {"10.0.0.1\t", kLoose, 0x0a000001},
                {"10.0.0.1\r\n", kLoose, 0x0a000001},
                {"10.0.0.1\nmore", kLoose, 0x0a000001},
                {"10.0.0.1\v", kNone, 0},
                {" 10.0.0.1", kNone, 0},
                {"10.0.0.1.", kNone, 0},
                {"1.2.3", kNone, 0},
                {"1.2.3.", kNone, 0},
                {"1.2.3.4.5", kNone, 0},
                {"1.2.3.256", kNone, 0},
                {"1.2.3.0001", kNone, 0},
                {"1..2.3", kNone, 0},
                {"1.2.3.-4", kNone, 0},
                {"1.2.3.4x", kNone, 0},
                {"", kNone, 0},
                {nullptr, kNone, 0}};
    for (const auto &row : rows) {
        uint32_t strict = 77, loose = 77;
        EXPECT_EQ(zel_inet_atonz(row.text, &strict), row.form == kStrict) << row.text;
        EXPECT_EQ(strict, row.form == kStrict ? row.value : 77) << row.text;
        EXPECT_EQ(zel_inet_aton(row.text, &loose), row.form != kNone) << row.text;
        EXPECT_EQ(loose, row.value) << row.text;
        EXPECT_EQ(is_ip_format(row.text), row.form == kStrict) << row.text;
    }
    const struct {
        const char *text;
        bool mask, net, host;
    } masks[] = {
        {"255.255.255.0", true, true, false},    {"0.0.0.0", true, true, false},
        {"255.255.255.255", true, false, true},  {"255.0.255.0", false, false, false},
        {"255.255.255.0 ", false, false, false}, {nullptr, false, false, false},
    };
    for (const auto &row : masks) {
        EXPECT_EQ(zel_is_valid_netmask(row.text), row.mask) << row.text;
        EXPECT_EQ(zel_is_valid_net_netmask(row.text), row.net) << row.text;
        EXPECT_EQ(zel_is_valid_host_netmask(row.text), row.host) << row.text;
    }
}

// ---- Conversions ----

TEST(IaddrConvert, NumbersHaveTheFirstOctetOnTopAndBytesAreInNetworkOrder)
{
    iaddr a = {};
    memset(a.addr.bytes, 0xee, 16);
    EXPECT_EQ(ip2iaddr(&a, 0xc0a80102), &a);
    EXPECT_EQ(str(a), "192.168.1.2");
    EXPECT_EQ(a.addr.in.s_addr, htonl(0xc0a80102));
    EXPECT_EQ(a.addr.bytes[4], 0xee) << "the rest is not touched";
    uint32_t number = 5;
    EXPECT_EQ(iaddr2in_addr(&a, &number), 0);
    EXPECT_EQ(number, 0xc0a80102);

    in_addr plain;
    plain.s_addr = htonl(0x01020304);
    EXPECT_EQ(str(*in_addr2iaddr(&a, plain)), "1.2.3.4");
    EXPECT_EQ(str(*in6_addr2iaddr(&a, in6addr_loopback)), "::1");
    EXPECT_EQ(iaddr2in_addr(&a, &number), -1);
    EXPECT_EQ(number, 0xc0a80102);
    a = addr("::ffff:1.2.3.4");
    a.family = 99; // mapped bytes count whatever the family
    EXPECT_EQ(iaddr2in_addr(&a, &number), 0);
    EXPECT_EQ(number, 0x01020304);
    EXPECT_EQ(iaddr2in_addr(nullptr, &number), -1);

    const uint8_t unaligned[] = {0, 10, 20, 30, 40, 50};
    EXPECT_EQ(str(addr2iaddr(AF_INET, unaligned + 1)), "10.20.30.40");
    ip_addr bytes;
    memset(&bytes, 0xaa, sizeof(bytes));
    EXPECT_EQ(ip_addr_cpy(AF_INET, &bytes, unaligned + 2), &bytes);
    EXPECT_EQ(bytes.bytes[3], 50);
    EXPECT_EQ(bytes.bytes[4], 0xaa);
    a = addr("fe80::1");
    EXPECT_STREQ(ip_addr2str(AF_INET6, iaddr2ip_addr(&bytes, &a)), "fe80::1");
    ip6_zero(&bytes);
    EXPECT_EQ(memcmp(&bytes, ip_addr_any(), 16), 0);
}

TEST(IaddrConvert, SocketAddresses)
{
    sockaddr_storage storage;
    auto *sa = reinterpret_cast<sockaddr *>(&storage);
    for (const char *text : {"10.1.2.3", "2001:db8::7"}) {
        memset(&storage, 0xff, sizeof(storage));
        iaddr a = addr(text), back = {};
        socklen_t len = 0;
        uint16_t port = 0;
        ASSERT_EQ(iaddr2sockaddr(sa, &a, 8080, &len), 0);
        if (a.family == AF_INET) {
            EXPECT_EQ(len, 16U);
            const auto *in = reinterpret_cast<sockaddr_in *>(&storage);
            EXPECT_EQ(in->sin_port, htons(8080));
            EXPECT_EQ(in->sin_addr.s_addr, htonl(0x0a010203));
        } else {
            EXPECT_EQ(len, 28U);
            const auto *in6 = reinterpret_cast<sockaddr_in6 *>(&storage);
            EXPECT_EQ(in6->sin6_port, htons(8080));
            EXPECT_EQ(in6->sin6_flowinfo + in6->sin6_scope_id, 0U);
            EXPECT_EQ(memcmp(&in6->sin6_addr, &a.addr, 16), 0);
        }
        EXPECT_EQ(storage.ss_family, a.family);
        EXPECT_EQ(sockaddr2iaddr(&back, &port, sa), 0);
        EXPECT_EQ(str(back), text);
        EXPECT_EQ(port, 8080);
        EXPECT_EQ(sockaddr_set_port(sa, 443), 0);
        EXPECT_EQ(sockaddr_get_port(sa, &port), 0);
        EXPECT_EQ(port, 443);
        EXPECT_EQ(sockaddr_get_port(sa, nullptr), -1);
        EXPECT_EQ(sockaddr2iaddr(&back, nullptr, sa), 0);
    }
    iaddr a = addr("1.2.3.4");
    socklen_t len = 7;
    uint16_t port = 9;
    storage.ss_family = AF_UNIX;
    EXPECT_EQ(sockaddr2iaddr(&a, &port, sa), -1);
    EXPECT_EQ(sockaddr_set_port(sa, 1), -1);
    EXPECT_EQ(sockaddr_get_port(sa, &port), -1);
    EXPECT_EQ(sockaddr2iaddr(&a, &port, nullptr), -1);
    EXPECT_EQ(str(a), "1.2.3.4");
    a.family = 3;
    EXPECT_EQ(iaddr2sockaddr(sa, &a, 1, &len), -1);
    EXPECT_EQ(storage.ss_family, AF_UNIX);
    EXPECT_EQ(len, 7U);
    EXPECT_EQ(port, 9);
}

// ---- Masks ----

// Each length against a mask built bit by bit.
TEST(IaddrMask, EveryPrefixLength)
{
    for (int len = -2; len <= 130; len++) {
        uint8_t expected[16] = {};
        for (int bit = 0; bit < len && bit < 128; bit++)
            expected[bit / 8] = static_cast<uint8_t>(expected[bit / 8] | 0x80 >> (bit % 8));
        const int clipped = len < 0 ? 0 : len > 128 ? 128 : len;
        ip_addr mask;
        memset(&mask, 0x33, sizeof(mask));
        EXPECT_EQ(ip_addr_prefix_len2mask(&mask, len), &mask);
        EXPECT_EQ(memcmp(&mask, expected, 16), 0) << len;
        EXPECT_EQ(ip_addr_mask2prefix_len(AF_INET6, &mask), clipped);
        EXPECT_EQ(ip_addr_mask2prefix_len(AF_INET, &mask), clipped > 32 ? 32 : clipped);
        const iaddr wide = iaddr_prefix_len2mask(AF_INET, len); // deliberately not clamped to 32
        EXPECT_EQ(memcmp(&wide.addr, expected, 16), 0) << len;
        EXPECT_EQ(iaddr_mask2prefix_len(iaddr_prefix_len2mask(AF_INET6, len)), clipped);
    }
    EXPECT_EQ(iaddr_mask2prefix_len(addr("255.255.254.0")), 23);
    EXPECT_EQ(iaddr_mask2prefix_len(addr("255.0.255.0")), 8); // the leading run
    EXPECT_EQ(iaddr_mask2prefix_len(addr("ffff:fffe:8000::")), 31);
    EXPECT_EQ(ip_addr_mask2prefix_len(AF_INET6, ip_addr_mask_full()), 128);
    EXPECT_EQ(str(*iaddr_mask_full(AF_INET)), "255.255.255.255");
    EXPECT_EQ(iaddr_mask2prefix_len(*iaddr_mask_full(AF_INET6)), 128);
}

TEST(IaddrMask, AndOrNot)
{
    EXPECT_EQ(str(iaddr_mask_and(addr("192.168.77.5"), addr("255.255.240.0"))), "192.168.64.0");
    EXPECT_EQ(str(iaddr_mask_or(addr("192.168.77.5"), addr("0.0.0.250"))), "192.168.77.255");
    EXPECT_EQ(str(iaddr_mask_not(addr("255.255.240.0"))), "0.0.15.255");
    EXPECT_EQ(str(iaddr_mask_and(addr("2001:db8:1:2:3:4:5:6"), addr("ffff::ff00"))), "2001::");
    EXPECT_EQ(str(iaddr_mask_not(addr("::ffff"))), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:0");
    EXPECT_EQ(str(iaddr_prefix_len_and(addr("2001:db8:1:2:3:4:5:6"), 45)), "2001:db8::");
    EXPECT_EQ(str(iaddr_prefix_len_and(addr("10.255.1.2"), 9)), "10.128.0.0");
    ip_addr bytes = addr("10.1.2.3").addr;
    EXPECT_EQ(ip_addr_mask_and(AF_INET, &bytes, &bytes, "\xff\xff\0\0"), &bytes);
    EXPECT_STREQ(ip_addr2str(AF_INET, &bytes), "10.1.0.0");
    EXPECT_STREQ(ip_addr2str(AF_INET, ip_addr_mask_and(AF_INET, &bytes, &bytes, nullptr)), "0.0.0.0");

    ReportLog reports;
    EXPECT_EQ(str(iaddr_mask_and(addr("1.2.3.4"), addr("::1"))), "1.2.3.4");
    EXPECT_TRUE(std::regex_match(
        reports.take(), std::regex("4: iaddr_mask_and:[0-9]+: Cannot mask to different address families\n")));
    EXPECT_EQ(str(iaddr_mask_or(addr("::1"), addr("1.2.3.4"))), "::1");
    EXPECT_TRUE(std::regex_match(
        reports.take(), std::regex("4: iaddr_mask_or:[0-9]+: Cannot mask to different address families\n")));
}

// Ranges of three words that differ in one bit: the range decides, and across words also the bits of the
// first word before it. The words end where the range ends, for the sanitizer to see a read behind it.
TEST(IaddrMask, Bitcmp)
{
    for (const int start : {0, 1, 8, 31, 32, 33, 63, 64, 95}) {
        for (int count = 1; start + count <= 96; count++) {
            const size_t words = static_cast<size_t>((start + count + 31) / 32);
            for (int differing = 0; differing < static_cast<int>(words) * 32; differing++) {
                std::vector<uint32_t> a(words, 0xa5a5a5a5), b = a;
                b[static_cast<size_t>(differing / 32)] ^= 0x80000000U >> (differing % 32);
                const bool spans = start / 32 != (start + count - 1) / 32;
                const int from = spans ? start / 32 * 32 : start;
                ASSERT_EQ(bitcmp(a.data(), b.data(), start, count) != 0,
                          differing >= from && differing < start + count)
                    << start << " " << count << " " << differing;
            }
        }
    }
    const uint32_t a[] = {1, 0x01000002, 3}, b[] = {1, 0x02000001, 3};
    EXPECT_LT(bitcmp(a, b, 0, 64), 0) << "words compare as numbers";
    EXPECT_GT(bitcmp(b, a, 0, 96), 0);
    EXPECT_EQ(bitcmp(a, b, 0, 0), 0);
    EXPECT_EQ(bitcmp(a, b, 0, -5), 0);
    EXPECT_EQ(bitcmp(a, b, -5, 96), 0);
}

// ---- Comparing and classifying ----

TEST(IaddrCompare, OrderAndItsWrap)
{
    // The last two are more than 2^31 apart: the wrapped difference.
    const struct {
        const char *a, *b;
        int sign;
    } rows[] = {{"10.0.0.1", "10.0.0.1", 0},   {"10.0.0.1", "10.0.0.2", -1}, {"10.0.1.0", "10.0.0.255", 1},
                {"255.255.255.255", "::", -1}, {"::", "0.0.0.0", 1},         {"2001::", "fe80::", -1},
                {"::ff", "::1:0", -1},         {"::8000", "::7fff", 1},      {"240.0.0.0", "10.0.0.0", -1},
                {"10.0.0.0", "240.0.0.0", 1}};
    for (const auto &row : rows) {
        const iaddr a = addr(row.a), b = addr(row.b);
        const int result = iaddr_cmp(&a, &b);
        EXPECT_EQ((result > 0) - (result < 0), row.sign) << row.a << " " << row.b;
    }
    const iaddr v4 = addr("1.2.3.4");
    EXPECT_NE(iaddr_cmp(&v4, nullptr), 0);
    EXPECT_EQ(iaddr_cmp(nullptr, nullptr), 0);

    const auto in_range = [](const char *a, const char *lo, const char *hi) {
        const iaddr x = addr(a), from = addr(lo), to = addr(hi);
        return ip_addr_is_in_range(x.family, &x.addr, &from.addr, &to.addr);
    };
    EXPECT_TRUE(in_range("10.0.0.5", "10.0.0.5", "10.0.0.5"));
    EXPECT_FALSE(in_range("10.0.0.4", "10.0.0.5", "10.0.0.9"));
    EXPECT_FALSE(in_range("10.0.0.10", "10.0.0.5", "10.0.0.9"));
    EXPECT_FALSE(in_range("20.0.0.0", "10.0.0.0", "250.0.0.0")) << "wrapped";
    EXPECT_TRUE(in_range("2001::5", "::", "fe80::"));
}

TEST(IaddrCompare, Classes)
{
    const struct {
        iaddr_type type;
        std::vector<const char *> texts;
    } rows[] = {
        {IADDR_TYPE_IPV4, {"1.2.3.4", "0.0.0.0", "127.0.0.1", "127.0.0.2", "255.255.255.255"}},
        {IADDR_TYPE_GLOBAL, {"2000::", "2001:db8::1", "3fff:ffff::"}},
        {IADDR_TYPE_ULA, {"fc00::1", "fd00::1", "fdff::"}},
        {IADDR_TYPE_LINK_LOCAL, {"fe80::1", "fec0::1", "ff80::1"}}, // the loose test
        {IADDR_TYPE_IPV4_MAPPED, {"::ffff:10.0.0.1"}},
        {IADDR_TYPE_OTHER,
         {"::", "::1", "::fffe:10.0.0.1", "1::ffff:10.0.0.1", "1fff::", "4000::", "fe7f::1", "ff02::1"}},
    };
    for (const auto &row : rows) {
        for (const std::string text : row.texts) {
            const iaddr a = addr(text.c_str());
            EXPECT_EQ(iaddr_get_type(&a), row.type) << text;
            EXPECT_EQ(iaddr_is_any(&a), text == "0.0.0.0" || text == "::") << text;
            EXPECT_EQ(iaddr_is_loopback(&a), text == "127.0.0.1" || text == "::1") << text;
            EXPECT_EQ(iaddr_is_ipv4_mapped(&a), text == "::ffff:10.0.0.1") << text;
            EXPECT_TRUE(iaddr_is_valid(&a));
        }
    }
    const iaddr none = {};
    EXPECT_FALSE(iaddr_is_valid(&none));
    EXPECT_FALSE(iaddr_is_valid(nullptr));
    EXPECT_EQ(iaddr_get_type(&none), IADDR_TYPE_OTHER);
    EXPECT_EQ(str(*iaddr_any(AF_INET6)), "::");
    EXPECT_EQ(str(*iaddr_any(77)), "0.0.0.0");
    const ip_addr site = addr("ff05::2").addr;
    EXPECT_TRUE(inet_is_addr_mc(&site));
    EXPECT_FALSE(inet_is_addr_mc(ip_addr_any()));
    EXPECT_EQ(inet_addr_mc_scope(&site), 5);
}

TEST(IaddrCompare, SubnetMembership)
{
    // The network's address need not be masked; a /0 contains nothing.
    const struct {
        const char *address, *network;
        bool inside;
    } rows[] = {{"10.1.2.3", "10.1.2.99/24", true},          {"10.1.3.3", "10.1.2.0/24", false},
                {"10.1.3.3", "10.1.2.0/23", true},           {"10.1.2.3", "10.1.2.3/32", true},
                {"10.1.2.3", "10.1.2.3/0", false},           {"2001:db8:8000::", "2001:db8::/32", true},
                {"2001:db8:8000::", "2001:db8::/33", false}, {"::ffff:10.1.2.3", "10.1.2.0/24", false}};
    for (const auto &row : rows) {
        const iaddr a = addr(row.address);
        const subnet s = net(row.network);
        EXPECT_EQ(iaddr_is_in_subnet(&a, &s), row.inside) << row.address << " " << row.network;
    }
    const iaddr a = addr("10.1.2.3");
    const subnet beyond = {a, 4294967295U};
    EXPECT_TRUE(iaddr_is_in_subnet(&a, &beyond));
    EXPECT_FALSE(iaddr_is_in_subnet(&a, nullptr));
}

TEST(IaddrCompare, Decrement)
{
    const char *rows[][2] = {
        {"10.0.0.1", "10.0.0.0"},
        {"10.0.0.0", "9.255.255.255"},
        {"0.0.0.0", "255.255.255.255"},
        {"fe80::1:0:0", "fe80::ffff:ffff"},
        {"::2", "::1"},
        {"::", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    };
    for (const auto &row : rows) {
        iaddr a = addr(row[0]);
        iaddr_dec(&a);
        EXPECT_EQ(str(a), row[1]) << row[0];
    }
    iaddr none = {};
    iaddr_dec(&none);
    EXPECT_TRUE(iaddr_is_any(&none));
}

// ---- IPv4 numbers ----

TEST(IaddrIpv4, Masks)
{
    for (int n = 0; n <= 32; n++) {
        const auto mask = static_cast<uint32_t>(~(0xffffffffULL >> n));
        EXPECT_EQ(bitcount_to_netmask(n), mask);
        EXPECT_EQ(netmask_to_bitcount(mask), n);
        EXPECT_TRUE(is_netmask_valid(mask)) << n;
        EXPECT_EQ(is_netmask_valid(mask | 1), n == 32 || n == 31) << n;
    }
    EXPECT_EQ(bitcount_to_netmask(-1), 0U);
    EXPECT_EQ(bitcount_to_netmask(99), 0xffffffff);
    EXPECT_EQ(netmask_to_bitcount(ip("255.0.255.0")), 8);
    EXPECT_FALSE(is_netmask_valid(ip("255.0.255.0")));
    const char *classes[][2] = {{"0.0.0.1", "255.0.0.0"},       {"127.9.9.9", "255.0.0.0"},
                                {"128.0.0.0", "255.255.0.0"},   {"191.255.0.1", "255.255.0.0"},
                                {"192.0.0.0", "255.255.255.0"}, {"223.9.9.9", "255.255.255.0"},
                                {"224.0.0.1", "0.0.0.0"},       {"255.255.255.255", "0.0.0.0"}};
    for (const auto &row : classes)
        EXPECT_STREQ(inet_ntoa_t(ip_class_netmask(ip(row[0]))), row[1]) << row[0];
}

TEST(IaddrIpv4, Relations)
{
    const uint32_t m8 = 0xff000000, m16 = 0xffff0000, m24 = 0xffffff00;
    EXPECT_EQ(subnet_compare(ip("10.1.0.0"), m16, ip("10.2.0.0"), m16), -1);
    EXPECT_EQ(subnet_compare(ip("10.1.0.0"), m16, ip("10.9.0.0"), m8), 2);
    EXPECT_EQ(subnet_compare(ip("10.1.0.0"), m8, ip("10.9.0.0"), m16), 1);
    EXPECT_EQ(subnet_compare(ip("10.1.0.1"), m16, ip("10.1.0.2"), m16), 0);
    EXPECT_TRUE(is_ip_in_range(ip("200.0.0.1"), ip("1.0.0.0"), ip("200.0.0.1")));
    EXPECT_FALSE(is_ip_in_range(ip("200.0.0.2"), ip("1.0.0.0"), ip("200.0.0.1")));
    EXPECT_TRUE(is_ip_in_subnet(ip("10.1.2.3"), m16, ip("10.1.0.0")));
    EXPECT_FALSE(is_ip_in_subnet(ip("10.1.2.3"), m16, ip("10.1.2.0"))) << "the network must be masked";
    EXPECT_FALSE(is_ip_in_subnet(0, 0, 0)) << "mask 0 matches nothing";

    const struct {
        const char *ip;
        uint32_t mask;
        int verdict;
    } rows[] = {
        {"192.168.1.0", m24, 1},   {"192.168.1.255", m24, 2}, {"0.0.0.7", m24, 3},
        {"255.255.255.7", m24, 4}, {"192.168.1.7", m24, 0},   {"0.0.0.0", m24, 1},
        {"1.2.3.4", ~0U, 1},       {"1.2.3.4", 0, 3},         {"255.255.255.255", 0, 2},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ip_netmask_verify(ip(row.ip), row.mask), row.verdict) << row.ip;
        EXPECT_EQ(is_ip_subnet(ip(row.ip), row.mask), row.verdict == 1) << row.ip;
        EXPECT_EQ(is_ip_broadcast(ip(row.ip), row.mask), row.verdict == 2) << row.ip;
    }
}

TEST(IaddrIpv4, PrivateRanges)
{
    const struct {
        const char *ip;
        bool rfc1918, is_private;
    } rows[] = {
        {"9.255.255.255", false, false},  {"10.0.0.0", true, true},         {"10.255.255.255", true, true},
        {"11.0.0.0", false, false},       {"172.15.255.255", false, false}, {"172.16.0.0", true, true},
        {"172.31.255.255", true, true},   {"172.32.0.0", false, false},     {"192.167.255.255", false, false},
        {"192.168.0.0", true, true},      {"192.168.255.255", true, true},  {"192.169.0.0", false, false},
        {"169.254.255.255", false, true}, {"169.255.0.0", false, false},    {"192.0.2.5", false, true},
        {"192.0.3.0", false, false},      {"8.8.8.8", false, false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(inet_is_ip_private_rfc1918(ip(row.ip)), row.rfc1918) << row.ip;
        EXPECT_EQ(is_non_routable_lan_device_ip(ip(row.ip)), row.rfc1918) << row.ip;
        EXPECT_EQ(inet_is_ip_private(ip(row.ip)), row.is_private) << row.ip;
    }
    EXPECT_TRUE(is_loopback_ip(ip("127.255.0.1")));
    EXPECT_FALSE(is_loopback_ip(ip("128.0.0.1")));

    auto *list = static_cast<subnet *>(calloc(4, sizeof(subnet)));
    list[0] = net("2001:db8::/32");
    list[1] = net("100.64.0.0/10");
    list[2] = net("8.8.8.8/32");
    inet_set_private_ip_list(list);
    inet_set_private_ip_list(list); // the same list again stays
    EXPECT_TRUE(inet_is_ip_private(ip("100.127.255.255")));
    EXPECT_TRUE(inet_is_ip_private(ip("8.8.8.8")));
    EXPECT_FALSE(inet_is_ip_private(ip("100.128.0.0")));
    EXPECT_FALSE(inet_is_ip_private(ip("10.0.0.1"))) << "the list replaces the built-in ranges";
    inet_set_private_ip_list(nullptr);
    EXPECT_TRUE(inet_is_ip_private(ip("10.0.0.1")));
}

uint32_t source_of(uint32_t dst, const char *ifname, uint32_t mark)
{
    return dst + mark + static_cast<uint8_t>(*ifname);
}

TEST(IaddrIpv4, SourceAddressCallback)
{
    EXPECT_EQ(get_matching_src_ip(1, "a", 2), 0U);
    set_matching_src_ip_cb(source_of);
    EXPECT_EQ(get_matching_src_ip(0x0a000000, "a", 2), 0x0a000000U + 2 + 'a');
    set_matching_src_ip_cb(nullptr);
    EXPECT_EQ(get_matching_src_ip(1, "a", 2), 0U);
}

} // namespace
