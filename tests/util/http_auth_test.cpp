#include "util/base64.h"
#include "util/hex.h"
#include "util/internal/http_auth.h"
#include "util/sys.h"

#include "support.h"

#include <array>
#include <map>
#include <random>
#include <regex>

using namespace kutil;

// The random bytes of nonce secrets; http_auth.cmake wraps the library's calls.
static bool random_works = true;

extern "C" int __wrap_RAND_bytes(unsigned char *bytes, int count)
{
    for (int i = 0; i < count; i++)
        bytes[i] = static_cast<unsigned char>(i + 1);
    return random_works;
}

namespace
{

// The realm of RFC 2617, section 3.5, and its user, who is the only one with a Digest login.
constexpr const char *kUser = "Mufasa";
constexpr const char *kTheRealm = "testrealm@host.com";
constexpr const char *kPassword = "Circle Of Life";
const std::string kRfcNonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";

const std::map<std::string, std::string> kPasswords = {
    {kUser, kPassword}, {"user", "secret"}, {"empty", ""}, {"colon", "a:b"}};

char *password_of(void *data, const char *user)
{
    if (data)
        *static_cast<std::string *>(data) = user;
    const auto row = kPasswords.find(user);
    return row == kPasswords.end() ? nullptr : strdup(row->second.c_str());
}

int check(const std::string &header, const char *url = "/dir/index.html", const char *method = "GET")
{
    http_auth_request req = {method, url, header.c_str()};
    return http_check_auth(&req, password_of, nullptr);
}

// A login field by field; an empty one is left out.
using Fields = std::array<std::string, kDigestFields>;

std::string fresh_nonce(int age_s = 0)
{
    return make_nonce(static_cast<uint32_t>(utc_time(nullptr)) - static_cast<uint32_t>(age_s), 0xBEEF);
}

Fields good_login()
{
    return {kUser, kTheRealm, fresh_nonce(), "", "", "0a4f113b", "", "00000001", "/dir/index.html", "auth"};
}

std::string header_of(const Fields &fields)
{
    std::string text = "Digest ";
    for (size_t i = 0; i < fields.size(); i++)
        text += fields[i].empty() ? "" : std::string(digest_names[i]) + "=\"" + fields[i] + "\", ";
    return text;
}

std::string response_of(const Fields &login, const char *method = "GET", const char *password = kPassword)
{
    DigestFields fields;
    EXPECT_EQ(parse_digest(header_of(login).c_str() + strlen("Digest "), &fields), 0);
    DigestText response;
    digest_response(fields, method, password, response);
    return response;
}

Fields with(Fields login, std::initializer_list<std::pair<DigestField, std::string>> changes)
{
    for (const auto &[field, value] : changes)
        login[field] = value;
    return login;
}

// Collects what is written.
struct Output {
    estream *s = estream_null();
    ~Output() { estream_close(s); }
    std::string text() const
    {
        const auto length = static_cast<size_t>(estream_null_output_len_get(s));
        return length ? std::string(estream_null_output_get(s), length) : "";
    }
};

std::string answer(const std::string &challenge, const char *user, const char *password, int expected = 0)
{
    const Output output;
    http_auth_request req = {"GET", "/dir/index.html", challenge.c_str()};
    EXPECT_EQ(http_send_auth_header(output.s, user, password, &req), expected) << challenge;
    return output.text();
}

std::string hex_of(const uint8_t *digest)
{
    char text[2 * kMd5Size + 1];
    return bin_2_hex(digest, kMd5Size, text);
}

} // namespace

// First, while no secret is drawn.
TEST(Nonce, NeedsRandomness)
{
    random_works = false;
    expect_fatal("RAND_bytes", [] { make_nonce(1, 2); });
    random_works = true;
}

TEST(HmacMd5, Rfc2202AndTheBlockSize)
{
    const std::string aa(80, '\xAA'), larger = "Test Using Larger Than Block-Size Key";
    std::string counted;
    for (char c = 1; c <= 25; c++)
        counted += c;
    const std::string rows[][3] = {
        {std::string(16, '\x0B'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d"},
        {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {aa.substr(0, 16), std::string(50, '\xDD'), "56be34521d144c88dbb8c733f0e8b3f6"},
        {counted, std::string(50, '\xCD'), "697eaf0aca3a3aea3a75164746ffaa79"},
        {std::string(16, '\x0C'), "Test With Truncation", "56461ef2342edc00f9bab995690efd4c"},
        {aa, larger + " - Hash Key First", "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
        {aa, larger + " and Larger Than One Block-Size Data", "6f630fad67cda0ee1fb1f562db3aa53e"},
        {aa.substr(0, 64), "x", "5008d796c91c4cc94e59c724e664a7f2"},
        {aa.substr(0, 65), "x", "ab8da3acc8c5b66b5f954251a22bd32c"},
        {"", "", "74e6f7298a9c2d168935f58c001bad88"},
    };
    uint8_t digest[16];
    for (const auto &[key, data, expected] : rows) {
        const auto bytes = [](const std::string &text) {
            return reinterpret_cast<const uint8_t *>(text.data());
        };
        hmac_md5(bytes(data), static_cast<int>(data.size()), bytes(key), static_cast<int>(key.size()),
                 digest);
        EXPECT_EQ(hex_of(digest), expected) << data;
    }
    hmac_md5(nullptr, 7, digest, -7, digest);
    EXPECT_EQ(hex_of(digest), "74e6f7298a9c2d168935f58c001bad88");
    hmac_md5(nullptr, 0, nullptr, 0, nullptr);
}

TEST(Digest, KnownResponses)
{
    const Fields base = with(good_login(), {{kNonce, kRfcNonce}});
    EXPECT_EQ(response_of(base), "6629fae49393a05397450978507c4ef1");
    EXPECT_EQ(response_of(with(base, {{kQop, ""}})), "670fd8c2df070c60b045671b8b24ff02");
    EXPECT_EQ(response_of(with(base, {{kAlgorithm, "MD5-Sess"}})), "68c13aa36c0e5ab2e1e1e684dacc873b");
    EXPECT_EQ(response_of(with(base, {{kAlgorithm, "md5-sess"}, {kQop, ""}})),
              "88fae39d33971329599849ad5060bbdf");
    EXPECT_EQ(response_of(with(base, {{kQop, "auth-int"}}), "POST"), "a8f2c2b442a16beec4b0e2a0cc166f7c");
    for (size_t i = 0; i < kDigestFields; i++)
        EXPECT_EQ(strlen(digest_names[i]), static_cast<size_t>(digest_name_len[i]));
}

TEST(Digest, Parameters)
{
    const std::string failed = "5: Failed to parse Authorization header ";
    const struct {
        const char *text, *fields; // "field=value|", in table order
        std::string report;
    } rows[] = {
        {"nonce=n", "nonce=n|", ""},
        {" \t NONCE \t=\r\n \"a, b=c\\\" \v,\f realm=x y=z", "realm=x|nonce=a, b=c\\|", ""},
        {"nc=1,nonce=n,nc=2", "nonce=n|nc=2|", ""},
        {"realm=,nonce=\"\"", "realm=|nonce=|", ""},
        {"realm=\"a\"nonce=\"b\"", "realm=a|nonce=b|", ""},
        {"stale=true, foo, bar = \"x, uri=y\", uri=/,nonce=n", "nonce=n|uri=/|", ""},
        {"=v,nonce=n", "nonce=n|", ""},
        {"nonce=n,", "nonce=n|", ""},
        {"noncense=n", "", failed + "nse=n\n"},
        {"nonce=n, uri", "nonce=n|", failed + "\n"},
        {"nonce=n, what", "nonce=n|", failed + "\n"},
        {"nonce=n,,realm=r", "nonce=n|", ""},
        {"realm=\"ab%n, nonce=n", "", failed + "\"ab%n, nonce=n\n"},
        {"nonce=\"", "", failed + "\"\n"},
        {"realm=r", "realm=r|", failed + "realm=r\n"},
        {"", "", failed + "\n"},
    };
    ReportLog log;
    for (const auto &row : rows) {
        DigestFields fields;
        EXPECT_EQ(parse_digest(row.text, &fields), row.report.empty() ? 0 : -1) << row.text;
        std::string found;
        for (int i = 0; i < kDigestFields; i++) {
            const auto field = static_cast<DigestField>(i);
            if (fields.has(field))
                found += std::string(digest_names[i]) + "=" + fields.text(field) + "|";
        }
        EXPECT_EQ(found, row.fields) << row.text;
        EXPECT_EQ(log.take(), row.report) << row.text;
    }
    std::string thousand;
    for (int i = 0; i < 1000; i++)
        thousand += "x" + std::to_string(i) + "=\"y\",realm=r" + std::to_string(i) + ",";
    DigestFields fields;
    EXPECT_EQ(parse_digest((thousand + "nonce=n").c_str(), &fields), 0);
    EXPECT_STREQ(fields.text(kRealm), "r999");
}

TEST(Nonce, FormAndWhatIsReadBack)
{
    EXPECT_STREQ(make_nonce(1, 2), "05ce30a924b4901c01dbf2e324bcdbad:1:2"); // zero bytes behind 1 and 2
    EXPECT_STREQ(make_nonce(0xFFFFFFFF, 0xFFFFFFFF), "8aa6eec06bebdcacf5db32563f933722:ffffffff:ffffffff");
    const struct {
        const char *nonce;
        uint32_t time, random;
    } rows[] = {{"h:5f:a0", 0x5F, 0xA0},    {"h", 0, 0},
                {"h:5f", 0x5F, 0},          {"::a0", 0, 0xA0},
                {"h:5f:a0:77", 0x5F, 0xA0}, {"h:fffffffff:123456789", UINT32_MAX, UINT32_MAX},
                {"h:x:-1", 0, UINT32_MAX}};
    for (const auto &row : rows) {
        DigestFields fields;
        parse_digest((std::string("nonce=") + row.nonce).c_str(), &fields);
        EXPECT_EQ(fields.nonce_time, row.time) << row.nonce;
        EXPECT_EQ(fields.nonce_random, row.random) << row.nonce;
    }
    EXPECT_FALSE(nonce_expired(1000, 1060));
    EXPECT_TRUE(nonce_expired(1000, 1061));
    EXPECT_TRUE(nonce_expired(0, 1000));
    EXPECT_FALSE(nonce_expired(0x80000000U - 30, INT32_MIN + 30)) << "across the wrap of 2038";
    EXPECT_TRUE(nonce_expired(0x80000000U - 30, INT32_MIN + 31));
}

TEST(CheckBasic, EveryAnswer)
{
    const auto basic = [](const std::string &pair) {
        char encoded[64];
        base64_enc(encoded, pair.data(), static_cast<int>(pair.size()));
        return std::string("Basic ") + encoded;
    };
    const struct {
        int expected;
        std::initializer_list<std::string> headers;
    } rows[] = {
        {HTTP_AUTH_NONE, {"", "Bas", " Basic dXNlcjpzZWNyZXQ=", "Bearer dXNlcjpzZWNyZXQ="}},
        {-1, {"Basic", "Basic !dXNlcjpzZWNyZXQ=", "Basic d"}},
        {HTTP_AUTH_OK, {"bASIC \t\r\n dXNlcjpz ZWNyZXQ=", "BasicdXNlcjpzZWNyZXQ="}},
        {HTTP_AUTH_OK, {basic("empty:"), basic("colon:a:b")}},
        {HTTP_AUTH_DENIED, {"Basically dXNlcjpzZWNyZXQ="}}, // Basic, but "ally" belongs to the text
        {HTTP_AUTH_DENIED, {basic("user"), basic("user:"), basic("user:secre"), basic("user:secrets")}},
        {HTTP_AUTH_DENIED, {basic("user:Secret"), basic(std::string("user:secret\0x", 13))}},
        {HTTP_AUTH_DENIED, {basic("nobody:secret"), basic(":"), basic("empty:x")}},
    };
    ReportLog log;
    for (const auto &row : rows) {
        for (const std::string &header : row.headers)
            EXPECT_EQ(check(header), row.expected) << header;
    }
    EXPECT_EQ(log.take(), "") << "Basic logins are not reported";
    EXPECT_EQ(http_check_auth(nullptr, password_of, nullptr), HTTP_AUTH_NONE);
    http_auth_request req = {nullptr, nullptr, "BASIC  \t dXNlcjpzZWNyZXQ="};
    const char *text = strchr(req.header, 'd');
    std::string asked;
    EXPECT_EQ(http_check_auth(&req, password_of, &asked), HTTP_AUTH_OK);
    EXPECT_EQ(asked, "user");
    EXPECT_EQ(req.header, text) << "moved behind the scheme";
    EXPECT_EQ(http_check_auth(&req, password_of, nullptr), HTTP_AUTH_NONE);
    EXPECT_EQ(req.header, text) << "and stays where no scheme is";
    req = {nullptr, nullptr, "Basic dXNlcjpzZWNyZXQ="};
    EXPECT_EQ(http_check_auth(&req, nullptr, nullptr), HTTP_AUTH_DENIED);
}

TEST(CheckDigest, EveryAnswer)
{
    const std::string bad = "5: Bad login attempt for user Mufasa\n",
                      missing = "5: Missing digest authorization field ";
    std::string altered = fresh_nonce();
    altered[0] = altered[0] == 'f' ? 'e' : 'f';
    const struct {
        std::initializer_list<std::pair<DigestField, std::string>> changes;
        int expected;
        std::string report;
    } rows[] = {
        {{}, HTTP_AUTH_OK, ""},
        {{{kQop, "AUTH"}, {kAlgorithm, "SHA-512"}, {kOpaque, "0"}}, HTTP_AUTH_OK, ""},
        {{{kQop, ""}, {kCnonce, ""}, {kNc, ""}}, HTTP_AUTH_OK, ""},
        {{{kAlgorithm, "MD5-sess"}}, HTTP_AUTH_OK, ""},
        {{{kUri, "/%s%n"}},
         HTTP_AUTH_OK,
         "5: Digest URL /%s%n does not match requested URL /dir/index.html\n"},
        {{{kNonce, fresh_nonce(55)}}, HTTP_AUTH_OK, ""},
        {{{kNonce, fresh_nonce(-3600)}}, HTTP_AUTH_OK, ""},
        {{{kNonce, fresh_nonce(61)}}, HTTP_AUTH_STALE, ""},
        {{{kNonce, altered}}, HTTP_AUTH_STALE, ""},
        {{{kNonce, fresh_nonce() + ":0"}}, HTTP_AUTH_STALE, ""},
        {{{kNonce, kRfcNonce}}, HTTP_AUTH_STALE, ""},
        {{{kNonce, "x:7fffffff:1"}}, HTTP_AUTH_STALE, ""},
        {{{kNonce, kRfcNonce}, {kResponse, std::string(32, '0')}}, HTTP_AUTH_DENIED, bad},
        {{{kResponse, std::string(32, '0')}}, HTTP_AUTH_DENIED, bad},
        {{{kResponse, "-"}}, HTTP_AUTH_DENIED, bad}, // "-": left out
        {{{kQop, "auth-int"}}, HTTP_AUTH_DENIED, "5: DIGEST auth=auth-int not supported\n"},
        {{{kQop, "auth,auth-int"}}, HTTP_AUTH_DENIED, "5: DIGEST auth=auth,auth-int not supported\n"},
        {{{kUsername, "nobody"}}, HTTP_AUTH_DENIED, ""},
        {{{kRealm, "other"}, {kResponse, response_of(good_login())}}, HTTP_AUTH_DENIED, bad},
        {{{kUsername, ""}}, -1, missing + "username\n"},
        {{{kRealm, ""}, {kUri, ""}}, -1, missing + "realm\n"},
        {{{kCnonce, ""}, {kNc, ""}}, -1, missing + "cnonce\n"},
        {{{kNc, ""}}, -1, missing + "nc\n"},
        {{{kQop, ""}, {kNc, ""}, {kAlgorithm, "MD5-SESS"}}, -1, missing + "nc\n"},
        {{{kUri, ""}, {kResponse, "-"}}, -1, missing + "uri\n"},
    };
    ReportLog log;
    for (const auto &row : rows) {
        Fields login = with(good_login(), row.changes);
        if (login[kResponse].empty())
            login[kResponse] = response_of(login);
        else if (login[kResponse] == "-")
            login[kResponse].clear();
        const std::string header = header_of(login);
        EXPECT_EQ(check(header), row.expected) << header;
        EXPECT_EQ(log.take(), row.report) << header;
        EXPECT_EQ(check(header), row.expected) << "the same again: counts are not kept";
        log.take();
    }
    EXPECT_EQ(check("Digest realm=r"), -1);
    Fields login = good_login();
    login[kResponse] = response_of(login, "POST");
    EXPECT_EQ(check(header_of(login)), HTTP_AUTH_DENIED) << "of another method";
    login[kResponse] = response_of(login, "GET", "circle Of Life");
    EXPECT_EQ(check(header_of(login)), HTTP_AUTH_DENIED);
}

TEST(CheckAuth, AnyBytes)
{
    std::mt19937 random(20);
    static constexpr char kBytes[] = "=\",: \t\n\x80\xFF%nab0nonce=realm=uri=username=qop=auth";
    const ReportLog log;
    for (size_t length = 0; length < 2000; length++) {
        std::string text = length % 2 ? "Digest " : "Basic ";
        for (size_t i = 0; i < length % 300; i++)
            text +=
                length % 3 ? kBytes[random() % (sizeof(kBytes) - 1)] : static_cast<char>(random() % 255 + 1);
        const HeapText exact(strdup(text.c_str()));
        http_auth_request req = {"GET", "/", exact.get()};
        const int result = http_check_auth(&req, password_of, nullptr);
        EXPECT_TRUE(result == -1 || result == HTTP_AUTH_DENIED) << text;
    }
}

TEST(Challenge, Lines)
{
    const std::string digest = "-Authenticate: Digest realm=\"r\", qop=\"auth\", ",
                      nonce = "nonce=\"N\", opaque=\"0\"\r\n",
                      basic = "-Authenticate: Basic realm=\"r\", \r\n";
    const struct {
        int flags, stale;
        std::string lines;
    } rows[] = {
        {0, 1, ""},
        {HTTP_AUTH_DIGEST, 0, "WWW" + digest + nonce},
        {HTTP_AUTH_DIGEST | HTTP_AUTH_PROXY, -1, "Proxy" + digest + "stale=\"true\", " + nonce},
        {HTTP_AUTH_BASIC, 1, "WWW" + basic},
        {HTTP_AUTH_BASIC | HTTP_AUTH_DIGEST, 0, "WWW" + digest + nonce + "WWW" + basic},
        {7, 1, "Proxy" + digest + "stale=\"true\", " + nonce + "Proxy" + basic},
    };
    for (const auto &row : rows) {
        const Output output;
        EXPECT_EQ(http_send_challenge(output.s, row.flags, "r", row.stale), 0);
        const std::regex form("\"[0-9a-f]{32}:[0-9a-f]{8}:[0-9a-f]{1,8}\"");
        EXPECT_EQ(std::regex_replace(output.text(), form, "\"N\""), row.lines);
    }
    const Output output;
    for (const char *realm : {"a\rb", "a\n", "\r\n"})
        EXPECT_EQ(http_send_challenge(output.s, HTTP_AUTH_DIGEST, realm, 0), -1);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(http_send_challenge(output.s, HTTP_AUTH_BASIC, nullptr, 0), 0);
    EXPECT_EQ(output.text(), "WWW-Authenticate: Basic realm=\"\", \r\n");
    EXPECT_EQ(http_send_challenge(nullptr, HTTP_AUTH_BASIC, "r", 0), -1);
    EXPECT_EQ(http_send_challenge(nullptr, HTTP_AUTH_DIGEST, "r", 0), 0) << "of Digest alone nothing is told";
}

TEST(Answer, Lines)
{
    EXPECT_EQ(answer("basic realm=\"x\"", "user", "secret"), "Authorization: Basic dXNlcjpzZWNyZXQ=\r\n");
    EXPECT_EQ(answer("Basic", nullptr, nullptr), "Authorization: Basic Og==\r\n");
    EXPECT_EQ(answer("Basic", "a\r\n", ""), "Authorization: Basic YQ0KOg==\r\n");
    const std::string nonce = "nonce=\"" + kRfcNonce + "\", ", realm = "realm=\"testrealm@host.com\", ";
    EXPECT_EQ(answer("Digest " + nonce + realm + "opaque=o,stale=true,algorithm=MD5", kUser, kPassword),
              "Authorization: Digest username=\"Mufasa\", " + realm + nonce +
                  "algorithm=\"MD5\", opaque=\"o\", uri=\"/dir/index.html\", "
                  "response=\"670fd8c2df070c60b045671b8b24ff02\"\r\n");
    // What the challenge should not hold is echoed, or replaced; nc goes with a qop only.
    EXPECT_EQ(answer("Digest " + nonce + "nc=7, uri=/other, response=x", kUser, nullptr)
                  .find("response=\"x\", uri=\"/dir/index.html\", response=\""),
              std::string("Authorization: Digest username=\"Mufasa\", ").size() + nonce.size());
    const std::regex counted(
        ".*uri=\"/dir/index.html\", qop=\"auth\", nc=00000001, response=\"[0-9a-f]{32}\"\r\n");
    const std::string line = answer("Digest " + nonce + realm + "qop=\"auth,auth-int\"", kUser, kPassword);
    EXPECT_TRUE(std::regex_match(line, counted)) << line;
    EXPECT_TRUE(std::regex_search(line, std::regex(", cnonce=\"[0-9]+\", "))) << line;
}

TEST(Answer, IsWhatTheServerAccepts)
{
    for (const int stale : {0, 1}) {
        const Output output;
        http_send_challenge(output.s, HTTP_AUTH_DIGEST, kTheRealm, stale);
        const std::string challenge = output.text().substr(strlen("WWW-Authenticate: "));
        const std::string value = answer(challenge, kUser, kPassword).substr(strlen("Authorization: "));
        EXPECT_EQ(check(value), HTTP_AUTH_OK) << value;
        EXPECT_EQ(check(answer(challenge, kUser, "x").substr(strlen("Authorization: "))), HTTP_AUTH_DENIED);
    }
}

TEST(Answer, Refused)
{
    const ReportLog log;
    for (const char *challenge : {"Bearer x", "", "Digest realm=r", "Digest nonce=\"n",
                                  "Digest nonce=\"n\r\n\"", "Digest nonce=n, opaque=\"\rX-Injected: 1\""})
        EXPECT_EQ(answer(challenge, "user", "secret", -1), "") << challenge;
    EXPECT_EQ(answer("Digest nonce=n", "us\ner", "secret", -1), "");
    EXPECT_EQ(http_send_auth_header(nullptr, "u", "p", nullptr), -1);
    for (const char *challenge : {"Basic", "Digest nonce=n"}) {
        http_auth_request req = {"GET", "/", challenge};
        EXPECT_EQ(http_send_auth_header(nullptr, "u", "p", &req), -1) << "a stream that cannot be written";
    }
}
