#ifndef MGMTD_HTTP_SCAN_H
#define MGMTD_HTTP_SCAN_H

// HTTP/1.1 requests out of bytes that arrive in any pieces (RFC 9112). Strict where leniency lets two readers
// of one stream see different requests: lines end with CR LF, a head has no NUL, no bare CR or LF, no folded
// line, no blank before a colon, one Host, at most one of Content-Length and Transfer-Encoding.

#include "base.h"

namespace mgmtd
{

enum class Method { get, head, put, post, del };

// The word of the method, as in a request line.
View method_name(Method method);

inline constexpr size_t kMaxHead = 16 * 1024;
inline constexpr size_t kMaxHeaders = 100;
inline constexpr size_t kMaxBody = 1024 * 1024;
inline constexpr size_t kMaxChunkLine = 256;

// One request. The views point into the scanner and live until its next().
struct Request {
    Method method = Method::get;
    View target;        // as the request line has it
    View path;          // what of it names the resource, from "/", percent-encoded
    View query;         // what follows "?", without it
    View host;          // of an absolute target, else of the Host line
    View authorization; // "" without one
    View origin;
    View fetch_site; // Sec-Fetch-Site
    View body;       // whole, once the request is complete
    bool has_authorization = false;
    bool has_origin = false;
    bool has_fetch_site = false;
    bool keep_alive = true;
    bool expects_continue = false;
    bool has_body = false; // bytes follow the head
};

class HttpScanner
{
public:
    enum class State {
        more,     // of the head or body is still to come
        head,     // the head is complete: the request but for its body is known. Told once for each request
        complete, // the request is whole; next() begins another one
        refused   // status() and reason() say why; nothing more is taken
    };

    HttpScanner() = default;
    HttpScanner(const HttpScanner &) = delete;
    HttpScanner &operator=(const HttpScanner &) = delete;

    // Takes bytes of `input` and stores in *used how many; stops behind a head and behind a request.
    State feed(View input, size_t *used);
    const Request &request() const { return request_; }
    // Begins a request and gives the memory of the last one back.
    void next();
    // Whether a byte of the current request has been taken.
    bool begun() const { return begun_; }

    int status() const { return status_; }
    const char *reason() const { return reason_; }

private:
    enum class Step { head, announce, length, chunk_size, chunk, chunk_end, trailer, complete, refused };

    bool refuse(int status, const char *reason);
    bool take_head(View input, size_t *used);
    bool take_head_byte(char c);
    bool end_head_line();
    bool parse_head();
    bool parse_request_line(View line);
    bool parse_target(View target);
    bool parse_header(View line);
    bool parse_length(View value);
    bool check_head();
    void begin_body();
    bool take_body(View input, size_t *used);
    bool take_chunk_size(View input, size_t *used);
    bool parse_chunk_size(View line);
    bool take_chunk_end(View input, size_t *used);
    bool take_trailer(View input, size_t *used);
    void finish();

    Step step_ = Step::head;
    TextBuilder head_;
    TextBuilder body_;
    TextBuilder line_; // of a chunk's size, or a trailer
    Request request_;
    size_t line_start_ = 0;   // of the head's current line
    size_t left_ = 0;         // bytes of the body or chunk to come
    size_t trailer_size_ = 0; // all of it
    size_t headers_ = 0;
    size_t length_ = 0;
    size_t chunk_end_seen_ = 0;
    bool begun_ = false;
    bool has_length_ = false;
    bool has_host_ = false;
    bool has_encoding_ = false;
    bool absolute_ = false;
    bool version_10_ = false;
    bool wants_keep_alive_ = false;
    bool wants_close_ = false;
    int status_ = 0;
    const char *reason_ = "";
};

} // namespace mgmtd

#endif
