#include "http_connection.h"

#include "daemon.h"
#include "http_scan.h"
#include "login.h"
#include "site_check.h"
#include "util/http_auth.h"

#include <algorithm>
#include <memory>
#include <sys/socket.h>

namespace mgmtd
{

using kutil::sub;

namespace
{

constexpr int kReadBuffer = 2048;   // all that an idle connection holds for reading
constexpr size_t kPiece = 2 * 1024; // of a long body, so that no large buffer for writing stays
constexpr size_t kMaxDropped = kMaxBody;
constexpr double kIdleMs = 60 * 1000;
constexpr double kHeadMs = 10 * 1000;
constexpr double kBodyMs = 60 * 1000;
constexpr double kAnswerMs = 60 * 1000;
constexpr double kDropMs = 2 * 1000;

class HttpConnection : public Connection
{
public:
    HttpConnection(Daemon *daemon, estream *stream) : Connection(daemon, stream) {}

    void begin()
    {
        arm(kIdleMs);
        estream_read_forever(stream_, kReadBuffer);
    }
    void input(const char *bytes, int length);
    void drained();
    void input_ended();
    void deadline();
    bool is_idle() const
    {
        return phase_ == Phase::reading && !scanner_.begun() && estream_pending_write(stream_) == 0;
    }

private:
    enum class Phase {
        reading,   // a request
        waiting,   // a failed login waits for its answer
        answering, // the rest of a body is to be written
        ending,    // the last answer is on its way out
        dropping   // what still arrives is dropped, so that the answer is not lost
    };

    bool may_read() const
    {
        return phase_ == Phase::reading && !closed() && estream_pending_write(stream_) < kMaxPending;
    }
    size_t take(View input);
    void head_read();
    void request_read();
    bool check_head(Reply *reply);
    bool check_user(Reply *reply);
    bool login_failed(Reply *reply);
    void refuse(Reply &reply);
    void send(Reply &reply);
    void wait_with(Reply &reply);
    void write_more();
    void answered();
    void resume();
    void drop();

    Phase phase_ = Phase::reading;
    HttpScanner scanner_;
    HeapText user_;
    HeapText body_; // what is left to write of an answer
    size_t body_length_ = 0;
    size_t body_written_ = 0;
    size_t dropped_ = 0;
    Reply *waiting_ = nullptr;
    bool in_request_ = false; // its first byte set the deadline of the head
    bool is_public_ = false;
    bool is_head_ = false;
    bool keep_alive_ = true;
    bool close_after_ = false;
    bool stalled_ = false; // input is buffered that was not taken
    bool ended_ = false;   // the peer sends no more

public:
    ~HttpConnection()
    {
        if (!waiting_)
            return;
        daemon_->throttle()->leave();
        std::destroy_at(waiting_);
        free(waiting_);
    }
};

void HttpConnection::input(const char *bytes, int length)
{
    if (phase_ == Phase::dropping || phase_ == Phase::ending) {
        dropped_ += static_cast<size_t>(length);
        estream_read_ack(stream_, length);
        if (dropped_ > kMaxDropped)
            close();
        return;
    }
    size_t used = take(View(bytes, static_cast<size_t>(length)));
    if (closed())
        return;
    if (phase_ == Phase::ending)
        used = static_cast<size_t>(length);
    stalled_ = used < static_cast<size_t>(length);
    if (used > 0)
        estream_read_ack(stream_, static_cast<int>(used));
    if (ended_ && !stalled_ && phase_ == Phase::reading && estream_pending_write(stream_) == 0)
        close();
}

size_t HttpConnection::take(View input)
{
    size_t at = 0;
    while (may_read()) {
        size_t used;
        const HttpScanner::State state = scanner_.feed(sub(input, at), &used);
        at += used;
        if (scanner_.begun() && !in_request_) {
            in_request_ = true;
            arm(kHeadMs);
        }
        switch (state) {
        case HttpScanner::State::more:
            return at;
        case HttpScanner::State::head:
            head_read();
            break;
        case HttpScanner::State::complete:
            request_read();
            break;
        case HttpScanner::State::refused:
            Reply reply;
            reply.outcome.fail(scanner_.status(), "%s", scanner_.reason());
            refuse(reply);
        }
    }
    return at;
}

// --- Checks.

// Everything that can be said before the body is there, so that nobody without a login makes us hold one.
void HttpConnection::head_read()
{
    const Request &request = scanner_.request();
    is_head_ = request.method == Method::head;
    keep_alive_ = request.keep_alive;
    daemon_->stats()->requests++;
    Reply reply;
    if (!check_head(&reply)) {
        if (request.has_body)
            return phase_ == Phase::waiting ? wait_with(reply) : refuse(reply);
        size_t used;
        scanner_.feed("", &used); // the request is over
        return phase_ == Phase::waiting ? wait_with(reply) : send(reply);
    }
    if (!request.has_body)
        return;
    arm(kBodyMs);
    if (request.expects_continue)
        estream_write_str(stream_, "HTTP/1.1 100 Continue\r\n\r\n");
}

bool HttpConnection::check_head(Reply *reply)
{
    const Request &request = scanner_.request();
    if (daemon_->stopping())
        return reply->outcome.fail(503, "the daemon is ending");
    if (!is_own_host(request.host, estream_local_addr_get(stream_), daemon_->staged()->running()))
        return reply->outcome.fail(421, "the Host is no name of this gateway");
    if (!is_own_site(request))
        return reply->outcome.fail(403, "the request comes from another site");
    is_public_ = is_public(request);
    return is_public_ || check_user(reply);
}

bool HttpConnection::check_user(Reply *reply)
{
    Throttle *throttle = daemon_->throttle();
    if (scanner_.request().has_authorization && throttle->is_full() &&
        throttle->is_slow(peer_, monotonic_ms()))
        return reply->outcome.fail(429, "too many failed logins");
    user_.reset();
    switch (check_login(scanner_.request(), daemon_->staged()->running(), &user_)) {
    case Login::ok:
        return true;
    case Login::malformed:
        return reply->outcome.fail(400, "the Authorization line is malformed, or for another request");
    case Login::stale:
        reply->stale = true;
        break;
    case Login::missing:
        break;
    case Login::denied:
        return login_failed(reply);
    }
    reply->challenge = true;
    return reply->outcome.fail(401, "log in");
}

bool HttpConnection::login_failed(Reply *reply)
{
    const double now = monotonic_ms();
    daemon_->stats()->logins_failed++;
    zel_error_full(kEntity, kWarn, "login failed: user %.100s from %s", user_ ? user_.get() : "(none)",
                   peer_text_.get());
    const bool slow = daemon_->throttle()->is_slow(peer_, now);
    daemon_->throttle()->failed(peer_, now);
    if (slow && !daemon_->throttle()->enter())
        return reply->outcome.fail(429, "too many failed logins");
    if (slow)
        phase_ = Phase::waiting;
    reply->challenge = true;
    return reply->outcome.fail(401, "wrong user or password");
}

// --- Answers.

void HttpConnection::request_read()
{
    const Request &request = scanner_.request();
    Rights rights;
    if (!is_public_)
        read_rights(daemon_->staged()->running(), user_.get(), &rights);
    const Who who = {kutil::text_or_empty(user_.get()), peer_text_.get(), &rights};
    Reply reply;
    respond(daemon_->context(), request, who, &reply);
    send(reply);
}

// The answer to what cannot be read on: the connection ends with it.
void HttpConnection::refuse(Reply &reply)
{
    reply.close = true;
    send(reply);
}

void HttpConnection::wait_with(Reply &reply)
{
    waiting_ = std::construct_at(kutil::new_record<Reply>());
    waiting_->outcome.status = reply.outcome.status;
    waiting_->outcome.text.append(reply.outcome.text.text());
    waiting_->challenge = reply.challenge;
    waiting_->close = scanner_.request().has_body;
    arm(Throttle::kWaitMs);
}

void HttpConnection::send(Reply &reply)
{
    const int status = reply.outcome.status;
    daemon_->stats()->client_errors += status >= 400 && status < 500;
    daemon_->stats()->server_errors += status >= 500;
    close_after_ = reply.close || !keep_alive_ || daemon_->stopping();
    TextBuilder head;
    append_head(&head, reply, close_after_);
    estream_write(stream_, head.text().data(), static_cast<int>(head.size()));
    if (reply.challenge)
        http_send_challenge(stream_, HTTP_AUTH_DIGEST | HTTP_AUTH_BASIC,
                            read_realm(daemon_->staged()->running()), reply.stale);
    estream_write_str(stream_, "\r\n");
    scanner_.next();
    in_request_ = false;
    const bool head_only = std::exchange(is_head_, false);
    body_length_ = head_only ? 0 : reply.outcome.text.size();
    body_written_ = 0;
    body_.reset(body_length_ > 0 ? reply.outcome.text.release() : nullptr);
    phase_ = Phase::answering;
    arm(kAnswerMs);
    write_more();
}

void HttpConnection::write_more()
{
    while (!closed() && body_written_ < body_length_ &&
           estream_pending_write(stream_) < static_cast<int>(kPiece)) {
        const View piece = sub(View(body_.get(), body_length_), body_written_, kPiece);
        body_written_ += piece.size();
        estream_write(stream_, piece.data(), static_cast<int>(piece.size()));
    }
    if (!closed() && body_written_ == body_length_)
        answered();
}

void HttpConnection::answered()
{
    body_.reset();
    body_length_ = body_written_ = 0;
    phase_ = close_after_ ? Phase::ending : Phase::reading;
    if (phase_ == Phase::reading)
        arm(kIdleMs);
}

// --- What happens to the stream.

void HttpConnection::drained()
{
    if (phase_ == Phase::answering)
        write_more();
    if (closed() || estream_pending_write(stream_) > 0)
        return;
    if (phase_ == Phase::ending)
        return drop();
    if (phase_ != Phase::reading)
        return;
    if (daemon_->stopping() || (ended_ && !stalled_))
        return close();
    if (stalled_)
        resume();
}

// Has what is buffered delivered again.
void HttpConnection::resume() { estream_read_forever(stream_, kReadBuffer); }

// The answer is out. Closing with unread input would reset the connection, and could take the answer along.
void HttpConnection::drop()
{
    if (ended_)
        return close();
    phase_ = Phase::dropping;
    shutdown(estream_fd_get(stream_), SHUT_WR);
    arm(kDropMs);
    resume();
}

void HttpConnection::input_ended()
{
    ended_ = true;
    const bool owes = phase_ == Phase::waiting || phase_ == Phase::answering || phase_ == Phase::ending ||
                      (phase_ == Phase::reading && (stalled_ || estream_pending_write(stream_) > 0));
    if (!owes)
        close();
}

void HttpConnection::deadline()
{
    if (phase_ == Phase::waiting) {
        Reply *reply = std::exchange(waiting_, nullptr);
        daemon_->throttle()->leave();
        send(*reply);
        std::destroy_at(reply);
        free(reply);
        if (!closed() && phase_ == Phase::reading && stalled_)
            resume();
        return;
    }
    if (phase_ == Phase::reading && in_request_) {
        Reply reply;
        reply.outcome.fail(408, "the request did not arrive in time");
        return refuse(reply);
    }
    close();
}

HttpConnection *self(Connection *connection) { return static_cast<HttpConnection *>(connection); }

constexpr Connection::Kind kHttp = {
    [](Connection *c, char *bytes, int length) { self(c)->input(bytes, length); },
    [](Connection *c) { self(c)->drained(); },
    [](Connection *c) { self(c)->input_ended(); },
    [](Connection *c) { self(c)->deadline(); },
    [](const Connection *c) { return static_cast<const HttpConnection *>(c)->is_idle(); },
    [](Connection *c) {
        std::destroy_at(self(c));
        free(c);
    },
};

} // namespace

int accept_http(estream *stream, int ok)
{
    Daemon *daemon =
        static_cast<Daemon *>(eserver_get_data(static_cast<eserver *>(estream_get_data(stream))));
    if (!ok || daemon->stopping())
        return -1;
    auto *connection = static_cast<HttpConnection *>(malloc_e(sizeof(HttpConnection)));
    std::construct_at(connection, daemon, stream);
    if (!connection->start(&kHttp)) {
        estream_close(stream);
        return 0;
    }
    connection->begin();
    return 0;
}

} // namespace mgmtd
