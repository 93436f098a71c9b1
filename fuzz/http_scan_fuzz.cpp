// Any bytes as what a client of mgmtd sends: they mean the same in whatever pieces they arrive, and what is
// accepted means the same when it is written again in the plainest way. Names and fields go there and back.

#include "mgmtd/http_path.h"
#include "mgmtd/http_scan.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace mgmtd;

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

std::string word(View view) { return std::string(view); }

bool is_plain(View view)
{
    for (const char c : view) {
        if ((static_cast<unsigned char>(c) < 32 && c != '\t') || c == 127)
            return false;
    }
    return true;
}

void check_names(View path)
{
    PathPieces pieces;
    if (pieces.read(path))
        return;
    const HeapText tree(pieces.tree_path(0));
    const HeapText normal(normal_path(tree.get()));
    require(normal && strcmp(normal.get(), tree.get()) == 0);
    TextBuilder url;
    url.append('/');
    append_url_path(&url, normal.get());
    PathPieces again;
    require(!again.read(url.text()) && again.count() == pieces.count());
    for (size_t i = 0; i < pieces.count(); i++) {
        const View piece = pieces.piece(i);
        require(piece == again.piece(i) && !piece.empty() && piece.find('\0') == View::npos);
        require(piece != "." && piece != "..");
    }
}

void check_form(View encoded)
{
    Form form;
    if (form.read(encoded))
        return;
    TextBuilder written;
    for (size_t i = 0; i < form.count(); i++) {
        append_url_text(&written, form.name(i));
        written.append('=');
        append_url_text(&written, form.value(i));
        written.append('&');
        require(form.find(form.name(i)) != nullptr);
    }
    Form again;
    if (again.read(written.text())) { // one more separator may be one field too many
        require(form.count() + 1 > kMaxFields);
        return;
    }
    require(again.count() == form.count());
    for (size_t i = 0; i < form.count(); i++)
        require(!strcmp(form.name(i), again.name(i)) && !strcmp(form.value(i), again.value(i)));
}

std::string describe(const Request &r)
{
    std::string all = word(method_name(r.method));
    for (const View view :
         {r.target, r.path, r.query, r.host, r.authorization, r.origin, r.fetch_site, r.body})
        all += "\n" + std::to_string(view.size()) + ":" + word(view);
    for (const bool flag :
         {r.has_authorization, r.has_origin, r.has_fetch_site, r.keep_alive, r.expects_continue, r.has_body})
        all += flag ? "1" : "0";
    return all;
}

void check_request(const Request &r)
{
    require(!r.path.empty() && r.path.front() == '/' && r.body.size() <= kMaxBody);
    for (const View view : {r.target, r.host, r.authorization, r.origin, r.fetch_site})
        require(is_plain(view));
    check_names(r.path);
    check_form(r.query);
    check_form(r.body);
}

// The request in the plainest form.
std::string rewrite(const Request &r)
{
    std::string all =
        word(method_name(r.method)) + " " + word(r.target) + " HTTP/1.1\r\nHost: " + word(r.host) + "\r\n";
    const auto line = [&](bool has, const char *name, View value) {
        if (has)
            all += name + word(value) + "\r\n";
    };
    line(r.has_authorization, "Authorization: ", r.authorization);
    line(r.has_origin, "Origin: ", r.origin);
    line(r.has_fetch_site, "Sec-Fetch-Site: ", r.fetch_site);
    line(!r.keep_alive, "Connection: ", "close");
    line(r.expects_continue, "Expect: ", "100-continue");
    if (r.has_body && r.body.empty())
        return all + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n";
    line(r.has_body, "Content-Length: ", std::to_string(r.body.size()));
    return all + "\r\n" + word(r.body);
}

// What the bytes mean when they arrive in pieces of 1 to `most`; and what is accepted of them, written again.
std::vector<std::string> scan(View bytes, size_t most, std::string *rewritten)
{
    std::vector<std::string> seen;
    HttpScanner scanner;
    bool head = false;
    for (size_t at = 0, turn = 0; at < bytes.size(); turn++) {
        const size_t length = std::min(1 + (turn * 7 + turn / 3) % most, bytes.size() - at);
        // An exact block: nothing may read behind its end.
        auto *block = static_cast<char *>(malloc(length));
        memcpy(block, bytes.data() + at, length);
        View piece(block, length);
        at += length;
        for (bool more = false; !more;) {
            size_t used;
            const auto state = scanner.feed(piece, &used);
            require(used <= piece.size());
            piece = kutil::sub(piece, used);
            switch (state) {
            case HttpScanner::State::refused:
                require(scanner.status() >= 400 && scanner.status() <= 505 && *scanner.reason());
                seen.push_back(std::to_string(scanner.status()) + scanner.reason());
                free(block);
                return seen;
            case HttpScanner::State::more:
                require(piece.empty());
                more = true;
                break;
            case HttpScanner::State::head:
                require(!std::exchange(head, true) && scanner.request().body.empty());
                break;
            case HttpScanner::State::complete:
                require(std::exchange(head, false) && scanner.begun());
                check_request(scanner.request());
                seen.push_back(describe(scanner.request()));
                if (rewritten)
                    *rewritten += rewrite(scanner.request());
                scanner.next();
                require(!scanner.begun());
            }
        }
        free(block);
    }
    seen.push_back(scanner.begun() ? "more" : "");
    return seen;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const View bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    std::string rewritten;
    const std::vector<std::string> whole = scan(bytes, SIZE_MAX / 16, &rewritten);
    require(scan(bytes, 1, nullptr) == whole);
    require(scan(bytes, 2 + data[0], nullptr) == whole);
    if (size < kMaxHead / 2) { // written again a head may be longer, and too long
        std::vector<std::string> plain = whole;
        plain.back() = ""; // what was refused or cut is not written
        require(scan(rewritten, 64, nullptr) == plain);
    }
    check_names(bytes);
    check_form(bytes);
    return 0;
}
