#include "util/http_auth.h"
#include "util/zel_error.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

// What is reported reaches nobody.
[[maybe_unused]] const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);

char *password_of(void *, const char *) { return strdup("a password of middling length"); }

std::string taken(estream *s)
{
    const int length = estream_null_output_len_get(s);
    std::string text(estream_null_output_get(s), static_cast<size_t>(length));
    estream_null_output_ack(s, length);
    return text;
}

std::string value_of(const std::string &line) { return line.substr(line.find(": ") + 2); }

// The answer to a challenge of these schemes, as a client sends it.
std::string login(int schemes)
{
    estream *s = estream_null();
    http_send_challenge(s, schemes, "gateway", 0);
    const std::string challenge = value_of(taken(s));
    http_auth_request req = {"GET", "/status", challenge.c_str()};
    char *password = password_of(nullptr, nullptr);
    http_send_auth_header(s, "admin", password, &req);
    free(password);
    const std::string value = value_of(taken(s));
    estream_close(s);
    return value;
}

void check(benchmark::State &state, int schemes)
{
    const std::string value = login(schemes);
    for (auto _ : state) {
        http_auth_request req = {"GET", "/status", value.c_str()};
        if (http_check_auth(&req, password_of, nullptr) != HTTP_AUTH_OK)
            state.SkipWithError("not logged in");
    }
}
BENCHMARK_CAPTURE(check, basic, HTTP_AUTH_BASIC);
BENCHMARK_CAPTURE(check, digest, HTTP_AUTH_DIGEST);

void BM_challenge(benchmark::State &state)
{
    estream *s = estream_null();
    for (auto _ : state) {
        http_send_challenge(s, HTTP_AUTH_DIGEST | HTTP_AUTH_BASIC, "gateway", 0);
        estream_null_output_ack(s, estream_null_output_len_get(s));
    }
    estream_close(s);
}
BENCHMARK(BM_challenge);

void BM_answer(benchmark::State &state)
{
    estream *s = estream_null();
    for (auto _ : state) {
        http_auth_request req = {"GET", "/status", "Digest realm=\"gateway\", qop=\"auth\", nonce=\"1f\""};
        http_send_auth_header(s, "admin", "secret", &req);
        estream_null_output_ack(s, estream_null_output_len_get(s));
    }
    estream_close(s);
}
BENCHMARK(BM_answer);

// A hostile header: parameters that nobody knows.
void BM_unknown_parameters(benchmark::State &state)
{
    std::string value = "Digest ";
    for (int64_t i = 0; i < state.range(0); i++)
        value += "name=\"value\", realm=r, ";
    for (auto _ : state) {
        http_auth_request req = {"GET", "/", value.c_str()};
        benchmark::DoNotOptimize(http_check_auth(&req, password_of, nullptr));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_unknown_parameters)->Arg(1000)->Arg(2000)->Arg(4000)->Complexity();

void BM_hmac_md5(benchmark::State &state)
{
    const std::vector<uint8_t> data(static_cast<size_t>(state.range(0)));
    uint8_t digest[16];
    for (auto _ : state) {
        hmac_md5(data.data(), static_cast<int>(data.size()), data.data(), 16, digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_hmac_md5)->Arg(64)->Arg(65536);

} // namespace
