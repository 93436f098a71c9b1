// Any header value at a server and at a client, with what must hold whatever it is.

#include "util/http_auth.h"
#include "util/zel_error.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

char *password_of(void *asked, const char *user)
{
    *static_cast<bool *>(asked) = true;
    return strlen(user) % 2 ? strdup("secret") : nullptr;
}

// Every value in a block of its own, so that nothing reads behind it unnoticed.
void fuzz_server(const char *value)
{
    bool asked = false;
    http_auth_request req = {"GET", "/", value};
    const int result = http_check_auth(&req, password_of, &asked);
    require(result == -1 || result == HTTP_AUTH_OK || result == HTTP_AUTH_DENIED ||
            result == HTTP_AUTH_STALE || result == HTTP_AUTH_NONE);
    require(req.header >= value && req.header <= value + strlen(value));
    require((result == HTTP_AUTH_NONE) == (req.header == value));
    require(asked || (result != HTTP_AUTH_OK && result != HTTP_AUTH_STALE));
}

// What is written is one header line, or nothing.
void fuzz_client(const char *value, const char *user)
{
    estream *s = estream_null();
    http_auth_request req = {"GET", "/", value};
    const int result = http_send_auth_header(s, user, "secret", &req);
    const std::string line(result == 0 ? estream_null_output_get(s) : "",
                           result == 0 ? static_cast<size_t>(estream_null_output_len_get(s)) : 0);
    require(result == 0 || (result == -1 && estream_null_output_len_get(s) == 0));
    require(result != 0 ||
            (line.starts_with("Authorization: ") && line.find_first_of("\r\n") == line.size() - 2));
    estream_close(s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
    (void)initialized;
    const std::string text(reinterpret_cast<const char *>(data), size);
    char *value = strdup(text.c_str());
    fuzz_server(value);
    fuzz_client(value, value + strlen(value) / 2);
    free(value);
    return 0;
}
