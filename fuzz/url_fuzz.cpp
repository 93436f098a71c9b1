// Every reader of addresses, URLs and names on any bytes, with what must hold of what it accepts.

#include "util/iaddr.h"
#include "util/mac.h"
#include "util/url.h"
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

void fuzz_addresses(const char *text)
{
    iaddr a;
    if (str2iaddr(&a, text) == 0) {
        iaddr again;
        const std::string printed = iaddr2str(&a);
        require(str2iaddr(&again, printed.c_str()) == 0 && iaddr_cmp(&a, &again) == 0);
    }
    subnet s;
    if (str2subnet(&s, text) == 0) {
        subnet again;
        const std::string printed = subnet2str(&s);
        require(str2subnet(&again, printed.c_str()) == 0 && again.prefix_len == s.prefix_len);
        require(s.prefix_len == 0 || iaddr_is_in_subnet(&s.addr, &again));
    }
    uint32_t ip = 0, loose = 0;
    if (zel_inet_atonz(text, &ip))
        require(zel_inet_aton(text, &loose) && ip == loose && is_valid_ip(text));
    if (const uint8_t *mac = atomacz(text)) {
        uint8_t copy[6];
        memcpy(copy, mac, sizeof(copy));
        require(atomac_cpy(mactoa(copy), copy) == 0);
    }
    mac_no_colons(text);
}

void fuzz_url(const char *text)
{
    parsed_url url;
    if (parse_url(text, &url) == 0)
        require(url_has_transport(text) && url.host && url.scheme >= 1 && url.scheme <= 4);
    parsed_url_uninit(&url);
    std::string copy = text;
    char *host = nullptr, *port = nullptr;
    if (split_host_port(copy.data(), &host, &port) == 0)
        require(strlen(host) + (port ? strlen(port) : 0) <= strlen(text));
}

void fuzz_names(const char *text, size_t size)
{
    // An exact block without a NUL: nothing may read behind the end.
    auto *bytes = static_cast<char *>(malloc(size + 1));
    memcpy(bytes, text, size);
    auto *exact = static_cast<char *>(realloc(bytes, size ? size : 1));
    const bool domain = is_valid_domain_name(exact, exact + size);
    require(!domain || size == strnlen(text, size));
    require(!is_valid_email(exact, exact + size) || size >= 3);
    is_valid_host_name(exact, exact + size);
    is_valid_domain_or_ip(exact, exact + size);
    free(exact);
    require(is_valid_domain_name(text, nullptr) == is_valid_domain_name(text, text + strlen(text)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
    (void)initialized;
    const std::string text(reinterpret_cast<const char *>(data), size);
    fuzz_addresses(text.c_str());
    fuzz_url(text.c_str());
    fuzz_names(text.c_str(), size);
    return 0;
}
