// Header lines and queries of any bytes, under all flags; what was read comes back from what is written.

#include "util/attrib_text.h"
#include "util/lines.h"
#include "util/str.h"
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

bool same(const attrib *a, const attrib *b)
{
    for (; a && b; a = a->next, b = b->next) {
        if (strcmp(a->name, b->name) != 0 || a->len != b->len ||
            memcmp(a->value, b->value, a->len < 0 ? strlen(a->value) + 1 : static_cast<size_t>(a->len)) != 0)
            return false;
    }
    return a == b;
}

void fuzz_query(const char *text)
{
    attrib *list = nullptr;
    attrib *again = nullptr;
    char *query = nullptr;
    str_http_to_attrib(&list, text);
    attrib_to_str_http(&query, &list);
    str_http_to_attrib(&again, query);
    bool ambiguous = false; // a text whose name reads as a mark for bytes
    for (const attrib *entry = list; entry; entry = entry->next)
        ambiguous = ambiguous || (entry->len < 0 && strncmp(entry->name, "_HEX_", 5) == 0);
    require(ambiguous || same(list, again));
    str_escape_url_query(&query, &list);
    attrib_free(&list);
    attrib_free(&again);
    str_free(&query);
}

void fuzz_header(const char *text, uint32_t flags)
{
    char **lines = nullptr;
    lines_str_split_nl(&lines, text);
    attrib_file *file = attrib_file_alloc("f", lines, flags);
    char **written = attrib_to_lines(&file->attribs, flags);
    attrib *again = attrib_hdr_lines_to_attrib("f", written, flags);
    size_t entries = 0, entries_again = 0;
    for (const attrib *entry = file->attribs; entry; entry = entry->next)
        entries++;
    for (const attrib *entry = again; entry; entry = entry->next)
        entries_again++;
    require(entries == entries_again);
    attrib_free(&again);
    lines_free(&written);
    attrib_file_free(file);
    lines_free(&lines);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
    if (!initialized || size == 0)
        return 0;
    const std::string text(std::string(reinterpret_cast<const char *>(data + 1), size - 1).c_str());
    fuzz_query(text.c_str());
    fuzz_header(text.c_str(), data[0] | ATTRIB_F_LENIENT);
    return 0;
}
