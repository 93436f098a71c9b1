// A small HTTP server and proxy that asks for a login, for http_auth_host_test.py. It prints its port, then a
// line "PATH RESULT" for every check, and ends after two minutes at the latest.
//
// /basic, /digest and /both offer these schemes; /old offers Digest with a nonce of yesterday first. A
// request with a whole URL is one to a proxy. The user is "user", the password "pass word:1".

#include "util/eserver.h"
#include "util/internal/http_auth.h"
#include "util/sys.h"

#include <cstdio>
#include <string>
#include <strings.h>
#include <unistd.h>

namespace
{

struct Request {
    std::string method, url, authorization, proxy_authorization;
    bool done = false;
};

char *password_of(void *, const char *user)
{
    return strcmp(user, "user") == 0 ? strdup("pass word:1") : nullptr;
}

void challenge(estream *es, const std::string &path, bool is_proxy, int result)
{
    if (path == "/old" && result != HTTP_AUTH_STALE) {
        const auto yesterday = static_cast<uint32_t>(utc_time(nullptr)) - 86400;
        estream_printf(es, "WWW-Authenticate: Digest realm=\"The realm\", qop=\"auth\", nonce=\"%s\"\r\n",
                       kutil::make_nonce(yesterday, 7));
        return;
    }
    int flags = is_proxy ? HTTP_AUTH_PROXY : 0;
    flags |= path != "/digest" && path != "/old" ? HTTP_AUTH_BASIC : 0;
    flags |= path != "/basic" ? HTTP_AUTH_DIGEST : 0;
    http_send_challenge(es, flags, "The realm", result == HTTP_AUTH_STALE);
}

void answer(estream *es, const Request &request)
{
    const bool is_proxy = request.url.starts_with("http://");
    const size_t slash = request.url.find('/', is_proxy ? 7 : 0);
    const std::string path = slash == std::string::npos ? "/" : request.url.substr(slash);
    const std::string &header = is_proxy ? request.proxy_authorization : request.authorization;
    http_auth_request auth = {request.method.c_str(), request.url.c_str(),
                              header.empty() ? nullptr : header.c_str()};
    const int result = http_check_auth(&auth, password_of, nullptr);
    printf("%s %d\n", path.c_str(), result);
    fflush(stdout);
    if (result == HTTP_AUTH_OK) {
        estream_write_str(es, "HTTP/1.0 200 OK\r\n");
    } else {
        estream_write_str(es, is_proxy ? "HTTP/1.0 407 Proxy\r\n" : "HTTP/1.0 401 Unauthorized\r\n");
        challenge(es, path, is_proxy, result);
    }
    estream_write_str(es, "Content-Length: 3\r\nConnection: close\r\n\r\nok\n");
}

void take_line(Request &request, const std::string &line)
{
    const size_t blank = line.find(' ');
    if (request.method.empty() && blank != std::string::npos) {
        request.method = line.substr(0, blank);
        request.url = line.substr(blank + 1, line.rfind(' ') - blank - 1);
    } else if (strncasecmp(line.c_str(), "Authorization: ", 15) == 0) {
        request.authorization = line.substr(15);
    } else if (strncasecmp(line.c_str(), "Proxy-Authorization: ", 21) == 0) {
        request.proxy_authorization = line.substr(21);
    }
}

int on_stream(estream *es, char *line, int length)
{
    auto *request = static_cast<Request *>(estream_get_data(es));
    if (!line)
        return request->done; // all is written
    if (length > 0) {
        take_line(*request, line);
    } else {
        request->done = true;
        answer(es, *request);
    }
    return 0;
}

int on_accept(estream *es, int)
{
    estream_set_data(es, new Request,
                     [](void *old, void *, event_any_cb) { delete static_cast<Request *>(old); });
    estream_set_func(es, on_stream);
    return estream_read_line(es);
}

} // namespace

int main()
{
    alarm(120);
    event_loop_init();
    iaddr loopback;
    str2iaddr(&loopback, "127.0.0.1");
    eserver *server = eserver_open_addr(loopback, 0, 0, on_accept, nullptr);
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    if (!server || getsockname(eserver_fd_get(server, 0), reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return 1;
    printf("%d\n", ntohs(address.sin_port));
    fflush(stdout);
    return event_loop();
}
