// The parts of mgmtd that need no socket.

#include "common/strict_load.h"
#include "common/tree_list.h"
#include "mgmtd/choices.h"
#include "mgmtd/digest_uri.h"
#include "mgmtd/html.h"
#include "mgmtd/http_path.h"
#include "mgmtd/json.h"
#include "mgmtd/line_proto.h"
#include "mgmtd/site_check.h"
#include "mgmtd/throttle.h"
#include "util/conf_crypt.h"
#include "util/set_text.h"
#include "util/set_value.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

using namespace mgmtd;

namespace
{

std::string text(const TextBuilder &builder) { return std::string(builder.text()); }

// --- The scanner.

// What comes out of the bytes when they arrive in pieces of `step`: a line for each request or refusal.
std::string scan(const std::string &bytes, size_t step)
{
    HttpScanner scanner;
    std::string seen;
    for (size_t at = 0; at < bytes.size(); at += step) {
        View piece = kutil::sub(bytes, at, step);
        for (;;) {
            size_t used;
            const auto state = scanner.feed(piece, &used);
            piece = kutil::sub(piece, used);
            if (state == HttpScanner::State::refused)
                return seen + std::to_string(scanner.status()) + "\n";
            if (state == HttpScanner::State::more)
                break;
            if (state == HttpScanner::State::head)
                continue;
            const Request &r = scanner.request();
            seen += std::string(method_name(r.method)) + " " + std::string(r.path) + "?" +
                    std::string(r.query) + " @" + std::string(r.host) + " [" + std::string(r.body) + "]" +
                    (r.keep_alive ? "" : " close") + (r.expects_continue ? " expects" : "") + "\n";
            scanner.next();
        }
    }
    return scanner.begun() ? seen + "...\n" : seen;
}

std::string lines(size_t count) // of a head
{
    std::string all;
    for (size_t i = 0; i < count; i++)
        all += "A: b\r\n";
    return all;
}

} // namespace

TEST(MgmtdScanner, OneStreamHasOneReadingHoweverItArrives)
{
    const std::string h = "Host: h\r\n";
    const std::string chunked = "Transfer-Encoding: chunked\r\n\r\n";
    const struct {
        std::string bytes;
        const char *seen;
    } rows[] = {
        {"GET / HTTP/1.1\r\n" + h + "\r\n", "GET /? @h []\n"},
        {"GET /a?b=c HTTP/1.0\r\n" + h + "\r\n", "GET /a?b=c @h [] close\n"},
        {"GET / HTTP/1.0\r\nConnection: x, Keep-Alive\r\n" + h + "\r\n", "GET /? @h []\n"},
        {"GET / HTTP/1.1\r\nconnection: close\r\n" + h + "\r\n", "GET /? @h [] close\n"},
        {"GET http://o:1/p?q HTTP/1.1\r\n" + h + "\r\n", "GET /p?q @o:1 []\n"},
        {"\r\n\r\nGET / HTTP/1.1\r\n" + h + "\r\nHEAD /b HTTP/1.1\r\n" + h + "\r\n",
         "GET /? @h []\nHEAD /b? @h []\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Content-Length: 3\r\n\r\nabcDELETE /d HTTP/1.1\r\n" + h + "\r\n",
         "PUT /? @h [abc]\nDELETE /d? @h []\n"},
        {"POST / HTTP/1.1\r\n" + h + "Expect: 100-Continue\r\nContent-Length: 1\r\n\r\nx",
         "POST /? @h [x] expects\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "2;e=\"q\"\r\nab\r\nA\r\n0123456789\r\n0\r\nT: x\r\n\r\n",
         "PUT /? @h [ab0123456789]\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "000\r\n\r\n", "PUT /? @h []\n"},
        {"GET / HTTP/1.1\r\n" + lines(99) + h + "\r\n", "GET /? @h []\n"},
        {"GET / HTTP/1.1\r\n" + lines(100) + h + "\r\n", "431\n"},
        {"GET / HTTP/1.1\r\nHost: h\r\nA: " + std::string(kMaxHead, 'b') + "\r\n\r\n", "431\n"},
        {"GET /" + std::string(kMaxHead, 'b') + " HTTP/1.1\r\n" + h + "\r\n", "414\n"},
        {"GET / HTTP/1.1\r\n" + h, "...\n"},
        {"GET / HTTP/1.1\r\n\r\n", "400\n"},
        {"GET / HTTP/1.1\n" + h + "\r\n", "400\n"},
        {"GET  / HTTP/1.1\r\n" + h + "\r\n", "400\n"},
        {"GET / HTTP/1.1\r\n " + h + "\r\n", "400\n"},
        {"GET / HTTP/1.1\r\n" + h + "A: b\r\n c\r\n\r\n", "400\n"},
        {"GET / HTTP/1.1\r\n" + h + "A : b\r\n\r\n", "400\n"},
        {"GET / HTTP/1.1\r\n" + h + ": b\r\n\r\n", "400\n"},
        {"GET / HTTP/1.1\r\n" + h + "A: b\rc\r\n\r\n", "400\n"},
        {"GET / HTTP/1.1\r\n" + h + std::string("A: \0\r\n\r\n", 8), "400\n"},
        {"GET / HTTP/1.1\r\n" + h + "Authorization: a\r\nAuthorization: b\r\n\r\n", "400\n"},
        {"GET /\xC3\xA9 HTTP/1.1\r\n" + h + "\r\n", "400\n"},
        {"GET /#x HTTP/1.1\r\n" + h + "\r\n", "400\n"},
        {"GET http://o HTTP/1.1\r\n" + h + "\r\n", "400\n"},
        {"GET * HTTP/1.1\r\n" + h + "\r\n", "400\n"},
        {"get / HTTP/1.1\r\n" + h + "\r\n", "501\n"},
        {"G(T / HTTP/1.1\r\n" + h + "\r\n", "400\n"},
        {"GET / HTTP/1.2\r\n" + h + "\r\n", "505\n"},
        {"GET / HTTP/11\r\n" + h + "\r\n", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Content-Length: 1\r\nContent-Length: 1\r\n\r\nx", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Content-Length: 0x1\r\n\r\nx", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Content-Length: 99999999999999999999999\r\n\r\n", "413\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Content-Length: 1\r\n" + chunked, "400\n"},
        {"PUT / HTTP/1.0\r\n" + h + chunked, "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Transfer-Encoding: gzip\r\n\r\n", "501\n"},
        {"PUT / HTTP/1.1\r\n" + h + "Expect: x\r\n\r\n", "417\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "2\r\nabc\r\n", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "2\nab\r\n", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + " 2\r\nab\r\n", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "\r\n", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "100001\r\n", "413\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "0;" + std::string(kMaxChunkLine, 'x') + "\r\n\r\n", "400\n"},
        {"PUT / HTTP/1.1\r\n" + h + chunked + "0\r\nno colon\r\n\r\n", "400\n"},
    };
    for (const auto &row : rows) {
        for (const size_t step : {size_t{1}, size_t{7}, row.bytes.size()})
            EXPECT_EQ(scan(row.bytes, step), row.seen) << row.bytes.substr(0, 200) << " by " << step;
    }
}

// --- Names.

TEST(MgmtdPath, APieceIsOneName)
{
    const struct {
        const char *path;
        const char *tree; // NULL: refused
    } rows[] = {
        {"/", ""},
        {"/a", "a"},
        {"/a/b/", "a/b"},
        {"/a%2Fb/c", "a\\/b/c"},
        {"/a%5cb", "a\\\\b"},
        {"/%61", "a"},
        {"/a+b", "a+b"},
        {"/%C3%A9", "\xC3\xA9"},
        {"//a", nullptr},
        {"/a//b", nullptr},
        {"/a/./b", nullptr},
        {"/%2e%2E", nullptr},
        {"/...", "..."},
        {"/%00", nullptr},
        {"/%0", nullptr},
        {"/%", nullptr},
        {"/%g0", nullptr},
    };
    for (const auto &row : rows) {
        PathPieces pieces;
        const char *fault = pieces.read(row.path);
        EXPECT_EQ(fault == nullptr, row.tree != nullptr) << row.path;
        if (row.tree) {
            EXPECT_STREQ(HeapText(pieces.tree_path(0)).get(), row.tree) << row.path;
        }
    }
    std::string deep;
    for (size_t i = 0; i <= kMaxLevels; i++)
        deep += "/a";
    PathPieces pieces;
    EXPECT_NE(pieces.read(deep), nullptr);
    EXPECT_EQ(pieces.read(deep.substr(2)), nullptr);
}

TEST(MgmtdPath, NormalPathsAndBack)
{
    const struct {
        const char *path;
        const char *normal;
        const char *url;
    } rows[] = {
        {"//a///b/", "a/b", "a/b"},
        {"\\a/b\\/c", "a/b\\/c", "a/b%2Fc"},
        {"a\\\\b", "a\\\\b", "a%5Cb"},
        {"a b&\"", "a b&\"", "a%20b%26%22"},
        {"", "", ""},
        {"a\\", nullptr, nullptr},
    };
    for (const auto &row : rows) {
        const HeapText normal(normal_path(row.path));
        ASSERT_STREQ(normal.get(), row.normal) << row.path;
        if (!row.normal)
            continue;
        TextBuilder url;
        append_url_path(&url, normal.get());
        EXPECT_EQ(text(url), row.url);
        PathPieces pieces;
        ASSERT_EQ(pieces.read("/" + text(url)), nullptr);
        EXPECT_STREQ(HeapText(pieces.tree_path(0)).get(), row.normal);
    }
    EXPECT_TRUE(is_at_or_below("a/b", "a") && is_at_or_below("a", "a") && is_at_or_below("a", ""));
    EXPECT_FALSE(is_at_or_below("ab", "a") || is_at_or_below("a", "a/b"));
}

TEST(MgmtdForm, Fields)
{
    Form form;
    ASSERT_EQ(form.read("a=1&b&&c=x%3D%26+y&%2Fd=&a=2"), nullptr);
    ASSERT_EQ(form.count(), 5U);
    EXPECT_STREQ(form.find("a"), "1");
    EXPECT_STREQ(form.find("b"), "");
    EXPECT_STREQ(form.find("c"), "x=& y");
    EXPECT_STREQ(form.find("/d"), "");
    EXPECT_EQ(form.find("e"), nullptr);
    for (const char *bad : {"a=%00", "%0", "a=%x1"})
        EXPECT_NE(form.read(bad), nullptr) << bad;
    EXPECT_EQ(form.read(""), nullptr);
    EXPECT_EQ(form.count(), 0U);
}

// --- What is written.

TEST(MgmtdJson, Trees)
{
    const struct {
        const char *tree;
        const char *json;
    } rows[] = {
        {"(a(1))", "\"1\""},
        {"(a)", "{}"},
        {"(a(b(1))(c))", R"({"b":"1","c":{}})"},
        {"(a(x(1))(y(2))(x(3))(x(z(4))(z(5))))", R"({"x":["1","3",{"z":["4","5"]}],"y":"2"})"},
        {"(a(b(&22;&5c;&0a;<)))", R"({"b":"\"\\\u000a\u003c"})"},
        {"(a(b(&c3;&a9;&e2;&82;&ac;&f0;&9f;&98;&80;)))", "{\"b\":\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"}"},
        // cut, too long, a surrogate, beyond the last character, a lone tail
        {"(a(b(&c3;))(c(&c0;&80;))(d(&ed;&a0;&80;)))",
         "{\"b\":\"\xEF\xBF\xBD\",\"c\":\"\xEF\xBF\xBD\xEF\xBF\xBD\",\"d\":"
         "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"}"},
        {"(a(b(&f4;&90;&80;&80;x))(c(&80;)))",
         "{\"b\":\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDx\",\"c\":\"\xEF\xBF\xBD\"}"},
    };
    for (const auto &row : rows) {
        set *tree = set_read(row.tree);
        TextBuilder out;
        write_json(tree, &out);
        EXPECT_EQ(text(out), row.json) << row.tree;
        set_free(&tree);
    }
}

TEST(MgmtdHtml, TextStaysText)
{
    TextBuilder out;
    append_html(&out, View("<a href='\"&\x1b\xff\xC3\xA9\n\0", 17));
    EXPECT_EQ(text(out), "&lt;a href=&#39;&quot;&amp;\xEF\xBF\xBD\xEF\xBF\xBD\xC3\xA9\n\xEF\xBF\xBD");
    EXPECT_TRUE(fits_field("a\n\t\xC3\xA9"));
    EXPECT_FALSE(fits_field("\r") || fits_field("\xff") || fits_field("\x01"));
}

TEST(MgmtdLog, KeepsTheLastReportsAndOneLineForEach)
{
    LogRing ring;
    for (int i = 0; i < 600; i++)
        ring.add(1, 30, 5, ("report " + std::to_string(i) + "\n\x1b").c_str());
    TextBuilder out;
    ring.write(&out);
    const std::string all = text(out);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 500);
    EXPECT_NE(all.find(" warn report 100&0a;&1b;\n"), std::string::npos);
    EXPECT_EQ(all.find("report 99&"), std::string::npos);
    EXPECT_EQ(all.find('\x1b'), std::string::npos);
}

TEST(MgmtdChoices, OfferWhatTheSampleHolds)
{
    for (const char *none : {"wifi/radio/band", "wifi/radio/0/band/x", "wan/0/mtu", ""})
        EXPECT_FALSE(choices_of(none).any()) << none;
    EXPECT_TRUE(choices_of("enabled").flag);

    struct Seen {
        View value;
        bool listed;
        int keys;
    } seen = {};
    const auto line = [](void *context, const char *text, size_t length) {
        Seen *self = static_cast<Seen *>(context);
        const View whole(text, length);
        const View path = whole.substr(0, whole.find('='));
        self->value = whole.substr(path.size() + 1);
        self->listed = false;
        const Choices choices = choices_of(path);
        choices.for_each(
            [](void *to, View word) {
                Seen *sought = static_cast<Seen *>(to);
                sought->listed = sought->listed || word == sought->value;
            },
            self);
        EXPECT_EQ(self->listed, choices.any()) << whole;
        self->keys += choices.any();
    };
    kutil::common::Problem problem;
    kutil::common::FileText text;
    set *tree = nullptr;
    ASSERT_EQ(strict_load(KUTIL_SOURCE_DIR "/share/gateway.conf", &tree, &text, &problem),
              kutil::common::Load::done);
    kutil::common::tree_list(&tree, line, &seen);
    EXPECT_GT(seen.keys, 400);
    set_free(&tree);
}

// --- Who may.

TEST(MgmtdThrottle, FiveFailuresInAMinute)
{
    Throttle throttle;
    iaddr a;
    iaddr b;
    str2iaddr(&a, "192.0.2.1");
    str2iaddr(&b, "2001:db8::1");
    for (int i = 0; i < 4; i++)
        throttle.failed(a, 1000.0 * i);
    EXPECT_FALSE(throttle.is_slow(a, 4000));
    throttle.failed(a, 4000);
    EXPECT_TRUE(throttle.is_slow(a, 4000) && throttle.is_slow(a, 59999));
    EXPECT_FALSE(throttle.is_slow(a, 60001) || throttle.is_slow(b, 4000));
    throttle.failed(a, 60001);
    EXPECT_TRUE(throttle.is_slow(a, 60002)); // from 1000 on it is five again
    for (int i = 0; i < 64; i++)
        EXPECT_TRUE(throttle.enter());
    EXPECT_FALSE(throttle.enter());
    throttle.leave();
    EXPECT_TRUE(throttle.enter());
    // A flood of addresses forgets the oldest, not the newest.
    for (int n = 0; n < 1000; n++) {
        iaddr other;
        str2iaddr(&other, ("2001:db8::" + std::to_string(1000 + n)).c_str());
        throttle.failed(other, 70000 + n);
    }
    EXPECT_FALSE(throttle.is_slow(a, 70001));
}

TEST(MgmtdSite, HostsAndOrigins)
{
    set *tree = set_read("(c(system(hostname(gw))(domain(home.example))))");
    iaddr v4;
    iaddr v6;
    str2iaddr(&v4, "127.0.0.1");
    str2iaddr(&v6, "::1");
    const struct {
        const char *host;
        bool on_v4;
        bool on_v6;
    } rows[] = {
        {"127.0.0.1", true, false},
        {"127.0.0.1:8080", true, false},
        {"[::1]", false, true},
        {"[0:0::1]:80", false, true},
        {"localhost", true, true},
        {"LocalHost:1", true, true},
        {"gw", true, true},
        {"GW.home.Example", true, true},
        {"gw.", false, false},
        {"gw.evil.example", false, false},
        {"xgw", false, false},
        {"", false, false},
        {":80", false, false},
        {"localhost:x", false, false},
        {"localhost:123456", false, false},
        {"127.1", false, false},
        {"::1", false, false},
        {"[::1", false, false},
        {"localhost@evil", false, false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(is_own_host(row.host, v4, &tree), row.on_v4) << row.host;
        EXPECT_EQ(is_own_host(row.host, v6, &tree), row.on_v6) << row.host;
    }
    set_free(&tree);
    Request request;
    request.method = Method::post;
    request.host = "gw:8080";
    EXPECT_TRUE(is_own_site(request));
    request.has_origin = true;
    for (const char *own : {"http://gw:8080", "https://GW:8080"}) {
        request.origin = own;
        EXPECT_TRUE(is_own_site(request)) << own;
    }
    for (const char *other :
         {"null", "", "http://gw", "http://gw:80800", "ftp://gw:8080", "http://gw:8080/"}) {
        request.origin = other;
        EXPECT_FALSE(is_own_site(request)) << other;
    }
    request.method = Method::get;
    EXPECT_TRUE(is_own_site(request));
}

TEST(MgmtdLogin, TheUriOfADigest)
{
    const struct {
        const char *header;
        const char *uri; // NULL: none
    } rows[] = {
        {"Digest uri=\"/a\"", "/a"},
        {"digest  realm=\"x, uri=y\", URI = /b , qop=auth", "/b"},
        {"Digest uri=\"/a\", uri=\"/b\"", "/b"}, // the last one counts
        {"Digest uriel=\"/c\"", nullptr},
        {"Digest unknown=x, uri=\"/d\"", "/d"},
        {"Digest uri=\"/e", nullptr},
        {"Digest realm=\"x\"", nullptr},
        {"Basic uri=\"/a\"", nullptr},
        {"", nullptr},
    };
    for (const auto &row : rows) {
        View uri;
        EXPECT_EQ(digest_uri(row.header, &uri), row.uri != nullptr) << row.header;
        EXPECT_EQ(uri, kutil::view(row.uri)) << row.header;
    }
}

// --- Staged editing.

namespace
{

constexpr const char kTree[] = R"((conf
  (wan(0(mtu(1500))(password(plain)))(1(mtu(1400))))
  (lone)
  (encryption(obscured_params(0(name(/wan/0//password))(type(str)))(1(name(wan/0/key))(type(bin)))))
  (manufacturer(zel_conf(key(abcd))))
  (admin(user(0(enabled(1))(username(ann))(role(boss)))(1(enabled(0))(username(bob))(role(boss)))
      (2(enabled(1))(username(cy))(role(guest)))(3(enabled(1))(username(dee))(role(none))))
    (role(boss(read(1))(write(1))(commit(1)))(guest(read(1))(write(1))(hide(wan/1 admin)))))
))";

class MgmtdStaged : public testing::Test
{
protected:
    MgmtdStaged() : staged(save, this)
    {
        set *tree = set_read(kTree);
        set_set_path_obscured(&tree, "wan/0/password", "plain");
        set_set_path_obscured(&tree, "admin/user/0/password", "ann's");
        staged.load(tree, false);
        read_rights(staged.running(), "ann", &ann_rights);
        read_rights(staged.running(), "cy", &cy_rights);
    }
    static bool save(void *context, View text, kutil::common::Problem *problem)
    {
        auto *self = static_cast<MgmtdStaged *>(context);
        if (self->failing)
            return problem->set("the disk is full");
        self->saves++;
        self->saved = std::string(text);
        return true;
    }
    // "STATUS TEXT" of what a call makes of an outcome.
    template <class Call>
    std::string said(Call call)
    {
        Outcome out;
        const bool good = call(&out);
        EXPECT_EQ(good, out.status < 300);
        return std::to_string(out.status) + " " + text(out.text);
    }
    std::string get(const char *path, Format format = Format::text, bool candidate = true)
    {
        return said([&](Outcome *out) { return staged.get(ann, candidate, path, format, out); });
    }
    std::string put(const Who &who, const char *path, const char *value, bool force = false)
    {
        return said([&](Outcome *out) { return staged.set_value(who, path, value, force, out); });
    }
    std::string put_tree(const Who &who, const char *path, const char *tree)
    {
        return said([&](Outcome *out) { return staged.set_tree(who, path, tree, false, out); });
    }
    std::string remove(const Who &who, const char *path)
    {
        return said([&](Outcome *out) { return staged.remove(who, path, false, out); });
    }
    std::string commit(const Who &who, bool force = false)
    {
        return said([&](Outcome *out) { return staged.commit(who, force, out); });
    }
    std::string diff(const Who &who)
    {
        return said([&](Outcome *out) { return staged.diff(who, out); });
    }
    std::string stored(const char *path)
    {
        return kutil::text_or_empty(set_get_path_str(staged.current(), path));
    }

    bool failing = false;
    int saves = 0;
    std::string saved;
    Rights ann_rights;
    Rights cy_rights;
    Who ann = {"ann", "192.0.2.1", &ann_rights};
    Who cy = {"cy", "192.0.2.3", &cy_rights};
    Staged staged;
};

} // namespace

TEST_F(MgmtdStaged, NothingIsSavedBeforeTheCommit)
{
    EXPECT_EQ(put(ann, "wan/0/mtu", "1492"), "200 1 change not committed\n");
    EXPECT_EQ(get("wan/0/mtu"), "200 (mtu(1492))\n");
    EXPECT_EQ(get("wan/0/mtu", Format::value, false), "200 1500");
    EXPECT_EQ(diff(ann), "200 ~ wan/0/mtu=1492\n");
    EXPECT_EQ(remove(ann, "wan/1"), "200 2 changes not committed\n");
    EXPECT_EQ(saves, 0);
    failing = true;
    EXPECT_EQ(commit(ann), "507 not saved: the disk is full\n");
    EXPECT_EQ(get("wan/0/mtu", Format::value, false), "200 1500");
    EXPECT_EQ(staged.changes(), 2U);
    failing = false;
    EXPECT_EQ(commit(ann), "200 committed 2 changes\n");
    EXPECT_EQ(get("wan/0/mtu", Format::value, false), "200 1492");
    EXPECT_NE(saved.find("(mtu(1492))"), std::string::npos);
    EXPECT_EQ(commit(ann), "200 nothing to commit\n");
    EXPECT_EQ(put(ann, "wan/0/mtu", "1492"), "200 0 changes not committed\n");
    EXPECT_EQ(commit(ann), "200 nothing to commit\n");
    EXPECT_EQ(saves, 1);
}

TEST_F(MgmtdStaged, ASecretIsNeitherShownNorLost)
{
    EXPECT_EQ(get("wan/0/password"), "200 (password(********))\n");
    EXPECT_EQ(get("wan/0", Format::json), "200 {\"mtu\":\"1500\",\"password\":\"********\"}\n");
    EXPECT_EQ(get("wan/0", Format::lines), "200 wan/0/mtu=1500\nwan/0/password=********\n");
    EXPECT_EQ(get("manufacturer", Format::lines), "200 manufacturer/zel_conf/key=********\n");
    EXPECT_EQ(get(("wan/0/password/" + stored("wan/0/password")).c_str()).substr(0, 3), "404");
    const std::string before = stored("wan/0/password");
    EXPECT_EQ(put(ann, "wan/0/password", "********"), "200 0 changes not committed\n");
    EXPECT_EQ(put_tree(ann, "wan", "(wan(0(mtu(1500))(password(********)))(1(mtu(1400))))"),
              "200 0 changes not committed\n");
    EXPECT_EQ(stored("wan/0/password"), before);
    EXPECT_EQ(put_tree(ann, "wan/0", "(0(mtu(1500))(password(new)))"), "200 1 change not committed\n");
    EXPECT_EQ(set_path_unobscured_is_equal(staged.current(), "wan/0/password", "new"), 1);
    EXPECT_EQ(diff(ann), "200 ~ wan/0/password=********\n");
    EXPECT_EQ(put(ann, "wan/0/password", "next"), "200 1 change not committed\n");
    EXPECT_EQ(set_path_unobscured_is_equal(staged.current(), "wan/0/password", "next"), 1);
    EXPECT_EQ(put(ann, "wan/0/key", "xyz").substr(0, 3), "422");
    EXPECT_EQ(put(ann, "wan/0/key", "00ff").substr(0, 3), "200");
    uint8_t bytes[2] = {1, 1};
    EXPECT_EQ(set_get_path_bin_buf_unobscured(staged.current(), "wan/0/key", bytes), 2);
    EXPECT_TRUE(bytes[0] == 0 && bytes[1] == 0xFF);
    // What cannot be obscured is not stored, and names below a secret are a part of it.
    for (const char *more : {"(password(a)(b))", "(password(a(b)))", "(password(********)(b))"})
        EXPECT_EQ(put_tree(ann, "wan/0/password", more).substr(0, 3), "422") << more;
    EXPECT_EQ(put_tree(ann, "wan/0", "(0(password(a))(password(b)))").substr(0, 3), "422");
    EXPECT_EQ(put_tree(ann, "wan", "(wan(0)(0(password(a)))(0(password(b))))").substr(0, 3), "422");
    // A file may have them, and repeated names.
    Staged other(save, this);
    other.load(set_read("(conf(encryption(obscured_params(0(name(a=b/c))(type(str)))))"
                        "(a=b(c(secret(x))(y))(d(1)))(a=b(c(more))(d(2))))"),
               false);
    const auto of_other = [&](const Who &who, const char *path) {
        return said([&](Outcome *out) { return other.get(who, true, path, Format::json, out); });
    };
    Rights some = {true, true, true, {}};
    some.hidden.add(kutil::copy_text("a=b/d"));
    some.hidden.add(kutil::copy_text("encryption"));
    EXPECT_EQ(of_other({"x", "", &some}, ""), "200 {\"a=b\":[{\"c\":\"********\"},{\"c\":\"********\"}]}\n");
    EXPECT_EQ(said([&](Outcome *out) { return other.remove(ann, "a=b/c", false, out); }).substr(0, 3), "200");
    EXPECT_EQ(said([&](Outcome *out) { return other.diff(ann, out); }).find("secret"), std::string::npos);
    // The configuration's own keys are kept whatever is put.
    EXPECT_EQ(put(ann, "manufacturer/zel_conf/key", "x").substr(0, 3), "403");
    EXPECT_EQ(remove(ann, "manufacturer").substr(0, 3), "403");
    EXPECT_EQ(put_tree(ann, "manufacturer", "(manufacturer(zel_conf(key(x))))").substr(0, 3), "200");
    EXPECT_EQ(stored("manufacturer/zel_conf/key"), "abcd");
    // A secret whose list entry is taken out of the candidate is still one.
    EXPECT_EQ(remove(ann, "encryption").substr(0, 3), "200");
    EXPECT_EQ(get("wan/0/password"), "200 (password(********))\n");
}

TEST_F(MgmtdStaged, WhatWouldLoseKeysIsRefused)
{
    const struct {
        const char *path;
        const char *value;
        const char *status;
    } rows[] = {
        {"wan/0", "x", "422"}, {"wan/0/mtu/1500", "x", "422"}, {"wan/0/mtu/a/b", "x", "422"},
        {"", "x", "422"},      {"lone", "x", "200"},           {"new/a\\/b", "x", "200"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(put(ann, row.path, row.value).substr(0, 3), row.status) << row.path;
    EXPECT_EQ(put_tree(ann, "lone", "(other)").substr(0, 3), "400");
    EXPECT_EQ(put_tree(ann, "lone", "(lone)(lone)").substr(0, 3), "400");
    EXPECT_EQ(put_tree(ann, "new/a\\/b", "(a/b(c(1)))").substr(0, 3), "200");
    EXPECT_EQ(put_tree(ann, "", "(other)").substr(0, 3), "400");
    std::string long_names = "(lone(" + std::string(20000, 'n');
    for (int i = 0; i < 900; i++)
        long_names += "(" + std::to_string(i) + "(1))";
    EXPECT_EQ(put_tree(ann, "lone", (long_names + "))").c_str()).substr(0, 3), "422");
    EXPECT_EQ(remove(ann, "wan/0/mtu/1500").substr(0, 3), "404");
    const auto add = [&](const char *path) {
        return said([&](Outcome *out) { return staged.add_entry(ann, path, false, out); });
    };
    EXPECT_EQ(add("wan"), "201 wan/2\n");
    EXPECT_EQ(add("fresh"), "201 fresh/0\n");
    EXPECT_EQ(add("wan/0").substr(0, 3), "422");
    EXPECT_EQ(add("wan/0/mtu").substr(0, 3), "422"); // a value, though a number
    EXPECT_EQ(commit(ann).substr(0, 3), "200");
    set *back = set_read(saved.c_str());
    EXPECT_NE(back, nullptr);
    set_free(&back);
}

TEST_F(MgmtdStaged, OneCandidateOfOnePerson)
{
    Who other = {"eve", "192.0.2.9", &ann_rights};
    put(ann, "wan/0/mtu", "1");
    for (const std::string &answer : {put(other, "wan/0/mtu", "2"), commit(other), remove(other, "lone")})
        EXPECT_EQ(answer.substr(0, 53), "409 ann is changing the configuration, from 192.0.2.1") << answer;
    EXPECT_EQ(put(other, "wan/0/mtu", "2", true), "200 1 change not committed\n");
    EXPECT_STREQ(staged.owner_user(), "eve");
    EXPECT_EQ(commit(ann).substr(0, 3), "409");
    EXPECT_EQ(commit(other), "200 committed 1 change\n");
    EXPECT_FALSE(staged.has_candidate());
}

TEST_F(MgmtdStaged, AReloadKeepsTheCandidateAndItsCommitMustBeForced)
{
    put(ann, "wan/0/mtu", "1");
    set *same = set_dup(staged.running());
    staged.load(same, false);
    EXPECT_EQ(commit(ann), "200 committed 1 change\n"); // the same tree again is no change
    put(ann, "wan/0/mtu", "2");
    staged.load(set_read("(conf(wan(0(mtu(9)))))"), false);
    EXPECT_EQ(commit(ann).substr(0, 25), "409 running changed since");
    EXPECT_EQ(commit(ann, true).substr(0, 3), "200");
    EXPECT_EQ(stored("wan/0/mtu"), "2");
}

TEST_F(MgmtdStaged, WhatARoleMayNotItDoesNotSee)
{
    EXPECT_EQ(said([&](Outcome *out) { return staged.get(cy, true, "wan", Format::lines, out); }),
              "200 wan/0/mtu=1500\nwan/0/password=********\n");
    EXPECT_EQ(said([&](Outcome *out) {
                  return staged.get(cy, true, "wan/1/mtu", Format::value, out);
              }).substr(0, 3),
              "404");
    EXPECT_EQ(put(cy, "wan/1/mtu", "1").substr(0, 3), "403");
    EXPECT_EQ(remove(cy, "wan").substr(0, 3), "403"); // it would take wan/1 along
    EXPECT_EQ(put_tree(cy, "", "(conf)").substr(0, 3), "403");
    EXPECT_EQ(put(cy, "wan/0/mtu", "1").substr(0, 3), "200");
    EXPECT_EQ(commit(cy).substr(0, 3), "403");
    put(ann, "wan/1/mtu", "7", true);
    EXPECT_EQ(diff(cy), "200 ~ wan/0/mtu=1\n");
    Rights none;
    read_rights(staged.running(), "dee", &none);
    read_rights(staged.running(), "bob", &none);
    read_rights(staged.running(), "", &none);
    EXPECT_FALSE(none.read || none.write || none.commit);
    EXPECT_EQ(read_password(staged.running(), "cy"), nullptr); // no password is no empty password
    EXPECT_EQ(read_password(staged.running(), "bob"), nullptr);
    EXPECT_STREQ(HeapText(read_password(staged.running(), "ann")).get(), "ann's");
    staged.set_read_only(true);
    EXPECT_EQ(put(ann, "wan/0/mtu", "1", true).substr(0, 3), "403");
}

TEST_F(MgmtdStaged, LinesOfTheLineProtocol)
{
    Stats stats;
    LogRing log;
    const Context context = {&staged, &log, &stats};
    LineSession session;
    session.address.reset(kutil::copy_text("192.0.2.1"));
    const struct {
        const char *line;
        const char *answer;
        LineAnswer then;
    } rows[] = {
        {"auth ann ann's", "ok logged in\n", LineAnswer::done},
        {"get wan/0/mtu", "ok 1500\n", LineAnswer::done},
        {"set  wan/0/mtu  two words ", "ok 1 change not committed\n", LineAnswer::done},
        {"get wan/0/mtu", "ok  two words\n", LineAnswer::done},
        {"get -r wan/0/mtu", "ok 1500\n", LineAnswer::done},
        {"set wan/0/a\\/b x", "ok 2 changes not committed\n", LineAnswer::done},
        {"list wan/0/mtu", "data\n wan/0/mtu= two words \n.\n", LineAnswer::done},
        {"set wan/0/mtu", "ok 2 changes not committed\n", LineAnswer::done},
        {"del none", "error 404 there is no such key\n", LineAnswer::done},
        {"get &zz;", "error 400 a path that cannot be read\n", LineAnswer::done},
        {"diff", "data\n ~ wan/0/mtu=\n + wan/0/a\\/b=x\n.\n", LineAnswer::done},
        {"revert", "ok reverted 2 changes\n", LineAnswer::done},
        {"GET / HTTP/1.1", "error 400 no such command; try help\n", LineAnswer::done},
        {"", "error 400 no such command; try help\n", LineAnswer::done},
        {"quit", "ok bye\n", LineAnswer::close},
    };
    for (const auto &row : rows) {
        TextBuilder out;
        EXPECT_EQ(run_line(context, &session, row.line, &out), row.then) << row.line;
        EXPECT_EQ(text(out), row.answer) << row.line;
    }
    for (const char *line : {"get wan", "POST / HTTP/1.1", "", "authann ann's"}) {
        LineSession stranger;
        stranger.address.reset(kutil::copy_text("192.0.2.1"));
        TextBuilder out;
        EXPECT_EQ(run_line(context, &stranger, line, &out), LineAnswer::close) << line;
        EXPECT_EQ(text(out).substr(0, 9), "error 401") << line;
    }
    LineSession stranger;
    stranger.address.reset(kutil::copy_text("192.0.2.1"));
    TextBuilder out;
    EXPECT_EQ(run_line(context, &stranger, "auth ann x", &out), LineAnswer::failed_login);
    EXPECT_EQ(run_line(context, &stranger, "auth cy ", &out), LineAnswer::failed_login);
    EXPECT_EQ(run_line(context, &stranger, "auth ann", &out), LineAnswer::close);
}
