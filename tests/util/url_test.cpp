#include "util/url.h"

#include "support.h"

#include <climits>
#include <cstring>
#include <string>

namespace
{

std::string shown(const char *text) { return text ? text : "-"; }

// "scheme|user|password|host|port|given|path|query", "-" for NULL, or what was reported.
std::string parsed(const char *url)
{
    ReportLog reports;
    parsed_url u;
    memset(&u, 0x5a, sizeof(u));
    const int result = parse_url(url, &u);
    std::string text = reports.take();
    if (result == 0) {
        EXPECT_EQ(text, "") << url;
        text = std::to_string(u.scheme) + "|" + shown(u.user) + "|" + shown(u.password) + "|" +
               shown(u.host) + "|" + std::to_string(u.port) + "|" + std::to_string(u.port_given) + "|" +
               shown(u.path) + "|" + shown(u.query);
    }
    parsed_url_uninit(&u);
    const parsed_url clear = {};
    EXPECT_EQ(memcmp(&u, &clear, sizeof(u)), 0) << url;
    return text;
}

TEST(Url, Parts)
{
    const char *rows[][2] = {
        {"http://u:p@[fe80::1]:8080/a/b?x=1", "2|u|p|fe80::1|8080|1|a/b|x=1"},
        {"https://example.com", "3|-|-|example.com|443|0|-|-"},
        {"HTTP://h/", "2|-|-|h|80|0||-"},
        {"ftp://h/dir/file?x", "1|-|-|h|21|0|dir/file?x|-"}, // no query but in HTTP
        {"tFtP://h:6969//f", "4|-|-|h|6969|1|/f|-"},
        {"http://user@h", "2|user|-|h|80|0|-|-"},
        {"http://user:@h", "2|user||h|80|0|-|-"},
        {"http://a@b:c:d@h/p@q", "2|a@b|c:d|h|80|0|p@q|-"}, // last @ of the authority, first : of the login
        {"http://h?a/b@c:1?d", "2|-|-|h|80|0|-|a/b@c:1?d"},
        {"http://h?", "2|-|-|h|80|0|-|"},
        {"http://", "2|-|-||80|0|-|-"},
        {"http://:81/", "2|-|-||81|1||-"},
        {"http://h:/x", "2|-|-|h|0|1|x|-"},
        {"http://h: 12x:9/x", "2|-|-|h|12|1|x|-"},
        {"http://h:99999999999?", "2|-|-|h|2147483647|1|-|"},
        {"http://h:-1", "2|-|-|h|-1|1|-|-"},
        {"http://[::1]", "2|-|-|::1|80|0|-|-"},
        {"http://[::1]x:5", "2|-|-|::1|5|1|-|-"},
        {"http://[]/", "2|-|-||80|0||-"},
        {"http://x[::1]/", "2|-|-|x[|0|1||-"},
        {"ftp://h", "4: The URL path must not be empty for FTP/TFTP\n"},
        {"tftp://u@h?a", "4: The URL path must not be empty for FTP/TFTP\n"},
        {"http://[::1/x]", "4: Host IPv6 address needs to be inside [ ]\n"},
        {"http://u@[::1?]", "4: Host IPv6 address needs to be inside [ ]\n"},
        {"gopher://h/", "4: Not a HTTP, HTTPS, FTP or TFTP url: gopher://h/\n"},
        {"http:/h/%s%n", "4: Not a HTTP, HTTPS, FTP or TFTP url: http:/h/%s%n\n"},
        {"", "4: Not a HTTP, HTTPS, FTP or TFTP url: \n"},
        {nullptr, "4: Not a HTTP, HTTPS, FTP or TFTP url: \n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(parsed(row[0]), row[1]) << row[0];
    EXPECT_EQ(parse_url("http://h", nullptr), -1);
    parsed_url_uninit(nullptr);

    for (const char *text : {"http://", "HTTPS://x", "ftp://x", "TFTP://x"})
        EXPECT_TRUE(url_has_transport(text)) << text;
    for (const char *text : {"http:/", "httpx://", " http://x", "ttp://", ""})
        EXPECT_FALSE(url_has_transport(text)) << text;
    EXPECT_FALSE(url_has_transport(nullptr));
}

TEST(Url, SplitHostPort)
{
    const struct {
        const char *text, *host, *port;
    } rows[] = {
        {"h:80", "h", "80"},
        {"h", "h", nullptr},
        {"h:", "h", ""},
        {":80", "", "80"},
        {"", "", nullptr},
        {"a:b:c", "a", "b:c"},
        {"[fe80::1]:80", "fe80::1", "80"},
        {"[fe80::1]", "fe80::1", nullptr},
        {"[fe80::1]x:80", "fe80::1", nullptr},
        {"[]:", "", ""},
        {"[a]]:1", "a", nullptr},
        {"[fe80::1", nullptr, nullptr},
    };
    for (const auto &row : rows) {
        std::string text = row.text;
        char unset[] = "unset", *host = unset, *port = unset;
        EXPECT_EQ(split_host_port(text.data(), &host, &port), row.host ? 0 : -1) << row.text;
        EXPECT_STREQ(host, row.host) << row.text;
        EXPECT_STREQ(port, row.port) << row.text;
    }
    char *host = nullptr, *port = nullptr;
    EXPECT_EQ(split_host_port(nullptr, &host, &port), -1);
}

// Each row also in front of text that an `end` cuts off; `end` points into a buffer that ends there.
void expect_valid(int (*validator)(const char *, const char *), const std::string &text, bool valid)
{
    EXPECT_EQ(validator(text.c_str(), nullptr), valid) << text;
    const std::string longer = text + "!more";
    EXPECT_EQ(validator(longer.data(), longer.data() + text.size()), valid) << text << " with an end";
}

std::string of(size_t count, char c = 'a') { return std::string(count, c); }

TEST(UrlNames, DomainAndHost)
{
    const std::string label63 = of(63), label31 = of(31) + ".";
    const std::string longest = label63 + "." + label63 + "." + label63 + "." + label63; // 255 characters
    const struct {
        bool domain, host;
        std::vector<std::string> texts;
    } rows[] = {
        {true, true, {"ab.cd", "a", "a1.2b.c3", "x_y.a-b", "a.b1", label63, of(61) + ".b"}},
        {true, false, {label63 + ".b", longest}},
        // The last label of a domain begins with a letter, and none is empty.
        {false, true, {"1", "a.1b", "a.-b", "a-.b", "a..b", "a.b."}},
        {false, false, {"", ".", "-a.b", "a.b-", "a--", ".a", "a b", "a/b", "caf\xc3\xa9", label63 + "a"}},
        {false,
         false,
         {of(62) + "-", label31 + label63 + "." + label63 + "." + label63 + "." + label31 + "a"}},
    };
    for (const auto &row : rows) {
        for (const std::string &text : row.texts) {
            expect_valid(is_valid_domain_name, text, row.domain);
            expect_valid(is_valid_host_name, text, row.host);
        }
    }
    const char address[] = "a@b";
    for (auto *validator :
         {is_valid_domain_name, is_valid_host_name, is_valid_email, is_valid_domain_or_ip}) {
        EXPECT_FALSE(validator(nullptr, nullptr));
        EXPECT_FALSE(validator(address + 2, address)) << "an end before the start";
    }
    const char with_nul[] = "a\0b";
    EXPECT_FALSE(is_valid_host_name(with_nul, with_nul + 3));
}

TEST(UrlNames, Email)
{
    // What stands before @ is only counted.
    for (const auto &text : {std::string("a@b"), std::string("first.last+tag@mail.example.com"),
                             std::string("a!#$%&'*/=?^`{|}~ \"@b.c"), of(64) + "@b"})
        expect_valid(is_valid_email, text, true);
    for (const auto *text : {"", "@b", "a@", "ab", "a@b@c", "a@b.1", "\xc3\xa9@b", "a@[10.0.0.1]"})
        expect_valid(is_valid_email, text, false);
    expect_valid(is_valid_email, of(65) + "@b", false);
    const char with_nul[] = "a\0@b";
    EXPECT_FALSE(is_valid_email(with_nul, with_nul + 4));

    const std::string longest =
        of(64, 'x') + "@" + of(63) + "." + of(63) + "." + of(63) + "." + of(63); // 320
    EXPECT_TRUE(is_valid_email(longest.c_str(), nullptr));
    EXPECT_FALSE(is_valid_email(longest.c_str(), longest.c_str() + 320)) << "counted as 321";
    EXPECT_TRUE(is_valid_email(longest.c_str() + 1, longest.c_str() + 320));
    EXPECT_FALSE(is_valid_email(("x" + longest).c_str(), nullptr));
}

TEST(UrlNames, DomainOrIp)
{
    for (const auto *text : {"10.0.0.1", "255.255.255.255", "001.2.3.4", "example.com", "a", "beef", "1a.b"})
        expect_valid(is_valid_domain_or_ip, text, true);
    for (const auto *text : {"0.0.0.0", "000.0.0.0", "::1", "fe80::1", "10.1", "0x7f.1", "0x7f000001", "1",
                             "1.2.3.4.5", "1.2.3.256", "a.1", ""})
        expect_valid(is_valid_domain_or_ip, text, false);
    expect_valid(is_valid_domain_or_ip, of(63) + "." + of(63), true);
    expect_valid(is_valid_domain_or_ip, of(256), false);
    expect_valid(is_valid_domain_or_ip, of(400, '1'), false);
    const char with_nul[] = "1.2.3.4\0x";
    EXPECT_FALSE(is_valid_domain_or_ip(with_nul, with_nul + 9));
}

TEST(UrlNames, Ip)
{
    // Blanks and signs as sscanf reads them.
    for (const auto *text :
         {"1.2.3.4", "255.255.255.255", "0.0.0.0", "0001.2.3.4", "1. 2.+3.\n4", "1.2.3.-0", "1.2.3.4 \t"})
        EXPECT_TRUE(is_valid_ip(text)) << text;
    for (const auto *text :
         {"1.2.3.4x", "1.2.3.4 x", "256.1.1.1", "1.2.3.-4", "1.2.3.4294967297", "1.2.3.18446744073709551617",
          " 1.2.3.4", "+1.2.3.4", "1.2.3", "1.2.3.", "1 .2.3.4", "1.2.3.4.", ""})
        EXPECT_FALSE(is_valid_ip(text)) << text;
    EXPECT_FALSE(is_valid_ip(nullptr));
}

} // namespace
