#include "http_scan.h"

#include "util/internal/chars.h"

#include <algorithm>

namespace mgmtd
{

using kutil::equal_ignoring_case;
using kutil::is_digit;
using kutil::starts_with;
using kutil::sub;

namespace
{

struct MethodName {
    View name;
    Method method;
};
constexpr MethodName kMethods[] = {
    {"GET", Method::get},   {"HEAD", Method::head},  {"PUT", Method::put},
    {"POST", Method::post}, {"DELETE", Method::del},
};

constexpr bool is_token_char(char c)
{
    return kutil::is_alnum(c) || View("!#$%&'*+-.^_`|~").find(c) != View::npos;
}

bool is_token(View text) { return !text.empty() && std::ranges::all_of(text, is_token_char); }

View trim_blanks(View text)
{
    while (!text.empty() && kutil::is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && kutil::is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Calls use(piece) for each piece of a list with commas.
template <class Use>
void for_each_piece(View list, Use use)
{
    for (;;) {
        const size_t comma = list.find(',');
        use(trim_blanks(sub(list, 0, comma)));
        if (comma == View::npos)
            return;
        list = sub(list, comma + 1);
    }
}

} // namespace

View method_name(Method method)
{
    for (const MethodName &row : kMethods) {
        if (row.method == method)
            return row.name;
    }
    return "";
}

bool HttpScanner::refuse(int status, const char *reason)
{
    step_ = Step::refused;
    status_ = status;
    reason_ = reason;
    return false;
}

void HttpScanner::next()
{
    std::destroy_at(this);
    std::construct_at(this);
}

HttpScanner::State HttpScanner::feed(View input, size_t *used)
{
    *used = 0;
    for (;;) {
        const Step step = step_;
        switch (step) {
        case Step::refused:
            return State::refused;
        case Step::complete:
            return State::complete;
        case Step::head:
            take_head(input, used);
            break;
        case Step::announce:
            begin_body();
            continue;
        case Step::length:
        case Step::chunk:
            take_body(input, used);
            break;
        case Step::chunk_size:
            take_chunk_size(input, used);
            break;
        case Step::chunk_end:
            take_chunk_end(input, used);
            break;
        case Step::trailer:
            take_trailer(input, used);
            break;
        }
        if (step_ == Step::announce)
            return State::head;
        if (step_ == step && *used == input.size() && step_ != Step::refused)
            return State::more;
    }
}

// --- The head.

bool HttpScanner::take_head(View input, size_t *used)
{
    while (*used < input.size()) {
        const char c = input[(*used)++];
        begun_ = true;
        if (!take_head_byte(c))
            return false;
        if (step_ != Step::head)
            return true;
    }
    return true;
}

bool HttpScanner::take_head_byte(char c)
{
    if (head_.size() >= kMaxHead)
        return line_start_ == 0 ? refuse(414, "the request line is longer than 16 kB")
                                : refuse(431, "the head is longer than 16 kB");
    const bool behind_cr = !head_.empty() && head_.text().back() == '\r';
    if (behind_cr != (c == '\n'))
        return refuse(400, behind_cr ? "a CR without its LF" : "a line that ends without CR");
    if ((static_cast<unsigned char>(c) < 32 && c != '\t' && c != '\r' && c != '\n') || c == 127)
        return refuse(400, "a control character in the head");
    head_.append(c);
    return c != '\n' || end_head_line();
}

bool HttpScanner::end_head_line()
{
    const size_t length = head_.size() - line_start_ - 2;
    if (length == 0 && line_start_ == 0) {
        head_.clear(); // an empty line before a request, as some clients send behind a body
        return true;
    }
    if (length == 0)
        return parse_head();
    if (line_start_ != 0 && ++headers_ > kMaxHeaders)
        return refuse(431, "more than 100 header lines");
    line_start_ = head_.size();
    return true;
}

bool HttpScanner::parse_head()
{
    View rest = head_.text();
    for (bool first = true; !starts_with(rest, "\r\n"); first = false) {
        const size_t end = rest.find("\r\n");
        const View line = sub(rest, 0, end);
        if (!(first ? parse_request_line(line) : parse_header(line)))
            return false;
        rest = sub(rest, end + 2);
    }
    return check_head();
}

bool HttpScanner::parse_request_line(View line)
{
    const size_t method_end = line.find(' ');
    const size_t target_end = line.rfind(' ');
    if (method_end == View::npos || method_end == target_end || !is_token(sub(line, 0, method_end)))
        return refuse(400, "the first line is no request");
    const View version = sub(line, target_end + 1);
    if (version.size() != 8 || !starts_with(version, "HTTP/") || !is_digit(version[5]) || version[6] != '.' ||
        !is_digit(version[7]))
        return refuse(400, "the first line names no HTTP version");
    if (version[5] != '1' || version[7] > '1')
        return refuse(505, "the HTTP version is neither 1.0 nor 1.1");
    version_10_ = version[7] == '0';
    const auto *row = std::ranges::find(kMethods, sub(line, 0, method_end), &MethodName::name);
    if (row == std::end(kMethods))
        return refuse(501, "the method is none of GET, HEAD, PUT, POST, DELETE");
    request_.method = row->method;
    return parse_target(sub(line, method_end + 1, target_end - method_end - 1));
}

bool HttpScanner::parse_target(View target)
{
    if (target.empty() || !std::ranges::all_of(target, [](char c) { return c > 32 && c < 127; }))
        return refuse(400, "the request target has a byte that must be percent-encoded");
    request_.target = target;
    View path = target;
    if (starts_with(target, "http://")) {
        path = sub(target, 7);
        const size_t slash = std::min(path.find_first_of("/?#"), path.size());
        request_.host = sub(path, 0, slash);
        path = sub(path, slash);
        absolute_ = true;
        if (path.empty() || path.front() == '?')
            return refuse(400, "the request target has no path");
    }
    if (path.front() != '/')
        return refuse(400, "the request target is no path");
    if (path.find('#') != View::npos)
        return refuse(400, "the request target has a fragment");
    const size_t question = path.find('?');
    request_.path = sub(path, 0, question);
    request_.query = question == View::npos ? View() : sub(path, question + 1);
    return true;
}

bool HttpScanner::parse_header(View line)
{
    const size_t colon = line.find(':');
    if (colon == View::npos || !is_token(sub(line, 0, colon)))
        return refuse(400, "a header line without a name"); // a folded line, too
    const View name = sub(line, 0, colon);
    const View value = trim_blanks(sub(line, colon + 1));
    const auto is = [&](View known) { return equal_ignoring_case(name, known); };
    const auto once = [&](bool *seen, View *slot) {
        if (*seen)
            return refuse(400, "a header line that must be single is repeated");
        *seen = true;
        *slot = value;
        return true;
    };
    View ignored;
    if (is("Host"))
        return once(&has_host_, absolute_ ? &ignored : &request_.host);
    if (is("Authorization"))
        return once(&request_.has_authorization, &request_.authorization);
    if (is("Origin"))
        return once(&request_.has_origin, &request_.origin);
    if (is("Sec-Fetch-Site"))
        return once(&request_.has_fetch_site, &request_.fetch_site);
    if (is("Content-Length"))
        return once(&has_length_, &ignored) && parse_length(value);
    if (is("Transfer-Encoding")) {
        if (!once(&has_encoding_, &ignored))
            return false;
        return equal_ignoring_case(value, "chunked") || refuse(501, "the transfer encoding is not chunked");
    }
    if (is("Connection")) {
        for_each_piece(value, [&](View word) {
            wants_close_ = wants_close_ || equal_ignoring_case(word, "close");
            wants_keep_alive_ = wants_keep_alive_ || equal_ignoring_case(word, "keep-alive");
        });
    }
    if (is("Expect")) {
        if (!equal_ignoring_case(value, "100-continue"))
            return refuse(417, "the expectation is not 100-continue");
        request_.expects_continue = true;
    }
    return true;
}

bool HttpScanner::parse_length(View value)
{
    if (value.empty() || !std::ranges::all_of(value, is_digit))
        return refuse(400, "Content-Length is no number");
    size_t length = 0;
    for (const char c : value)
        length = std::min(length * 10 + static_cast<size_t>(c - '0'), kMaxBody + 1);
    length_ = length;
    return true;
}

bool HttpScanner::check_head()
{
    if (!has_host_)
        return refuse(400, "no Host line");
    if (has_encoding_ && (has_length_ || version_10_))
        return refuse(400, "Transfer-Encoding beside Content-Length or in HTTP/1.0");
    if (length_ > kMaxBody)
        return refuse(413, "the body is longer than 1 MB");
    request_.keep_alive = !wants_close_ && (!version_10_ || wants_keep_alive_);
    request_.has_body = has_encoding_ || length_ > 0;
    request_.expects_continue = request_.expects_continue && request_.has_body && !version_10_;
    step_ = Step::announce;
    return true;
}

// --- The body.

void HttpScanner::begin_body()
{
    left_ = length_;
    step_ = has_encoding_ ? Step::chunk_size : Step::length;
    if (step_ == Step::length && left_ == 0)
        finish();
}

bool HttpScanner::take_body(View input, size_t *used)
{
    const View piece = sub(input, *used, left_);
    body_.append(piece);
    *used += piece.size();
    left_ -= piece.size();
    if (left_ > 0)
        return true;
    if (step_ == Step::chunk)
        step_ = Step::chunk_end;
    else
        finish();
    return true;
}

bool HttpScanner::take_chunk_size(View input, size_t *used)
{
    while (*used < input.size()) {
        const char c = input[(*used)++];
        const bool behind_cr = !line_.empty() && line_.text().back() == '\r';
        if (behind_cr != (c == '\n') || line_.size() > kMaxChunkLine)
            return refuse(400, "a chunk whose size line is bad");
        line_.append(c);
        if (c == '\n')
            return parse_chunk_size(sub(line_.text(), 0, line_.size() - 2));
    }
    return true;
}

bool HttpScanner::parse_chunk_size(View line)
{
    size_t digits = 0;
    size_t size = 0;
    for (; digits < line.size() && kutil::is_xdigit(line[digits]); digits++)
        size = size * 16 + static_cast<size_t>(kutil::xdigit_value(line[digits]));
    const View extension = sub(line, digits);
    // Eight digits would fit as well; a size that needs more than six is beyond every limit here.
    if (digits == 0 || (!extension.empty() && extension.front() != ';') ||
        std::ranges::any_of(extension, [](char c) { return c < 32 || c == 127; }))
        return refuse(400, "a chunk whose size line is bad");
    if (digits > 6 || size > kMaxBody - body_.size())
        return refuse(413, "the body is longer than 1 MB");
    line_.clear();
    left_ = size;
    step_ = size > 0 ? Step::chunk : Step::trailer;
    return true;
}

bool HttpScanner::take_chunk_end(View input, size_t *used)
{
    while (*used < input.size()) {
        if (input[(*used)++] != "\r\n"[chunk_end_seen_])
            return refuse(400, "a chunk that is longer than its size");
        if (++chunk_end_seen_ == 2) {
            chunk_end_seen_ = 0;
            step_ = Step::chunk_size;
            return true;
        }
    }
    return true;
}

// Lines behind the last chunk are checked and dropped.
bool HttpScanner::take_trailer(View input, size_t *used)
{
    while (*used < input.size()) {
        const char c = input[(*used)++];
        const bool behind_cr = !line_.empty() && line_.text().back() == '\r';
        if (behind_cr != (c == '\n') || (c >= 0 && c < 32 && c != '\t' && c != '\r' && c != '\n'))
            return refuse(400, "a trailer line that is bad");
        if (++trailer_size_ > kMaxHead)
            return refuse(431, "the trailer is longer than 16 kB");
        line_.append(c);
        if (c != '\n')
            continue;
        const View line = sub(line_.text(), 0, line_.size() - 2);
        if (line.empty()) {
            finish();
            return true;
        }
        if (!is_token(sub(line, 0, line.find(':'))) || line.find(':') == View::npos)
            return refuse(400, "a trailer line that is bad");
        line_.clear();
    }
    return true;
}

void HttpScanner::finish()
{
    request_.body = body_.text();
    step_ = Step::complete;
}

} // namespace mgmtd
