// Every reverse form on any bytes, and every pair of forms that is an identity.

#include "util/str_escape.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

using Escaper = char **(*)(char **);

void require(bool holds)
{
    if (!holds)
        abort();
}

std::string result(Escaper escaper, const std::string &text)
{
    char *s = strdup(text.c_str());
    escaper(&s);
    std::string after = s;
    free(s);
    return after;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(std::string(reinterpret_cast<const char *>(data), size).c_str());

    require(result(str_unescape_c, result(str_escape_c, text)) == text);
    require(result(str_unescape_uri, result(str_escape_uri, text)) == text);
    require(result(str_unescape_http, result(str_escape_http, text)) == text);
    require(result(str_unescape_http, result(str_escape_url_query_field, text)) == text);
    for (Escaper reader : {str_unescape_c, str_unescape_uri, str_unescape_http})
        require(result(reader, text).size() <= text.size());
    require(result(str_escape_shell, text).find('\n') == std::string::npos);
    require(result(str_escape_xml, text).size() == str_buf_escape_xml(nullptr, text.c_str()));

    char *copy = str_escape_apostrophe(text.c_str());
    require(strlen(copy) <= 2 * text.size());
    free(copy);
    return 0;
}
