#include "internal/csv.h"
#include "internal/report.h"
#include "lines.h"

using namespace kutil;

int csv_merge_line_by_field(csv *dst, const char *key_name, csv *src, csv_line *src_line,
                            char *const *only_fields)
{
    if (!dst || !src)
        return -1;
    const char *key = csv_field_get(src, src_line, key_name);
    if (!*key)
        return zel_error_full(kEntity, kFatal, "%s, field %s does not exist in the line you want to merge.",
                              csv_line_get(src, src_line), text_or_empty(key_name));
    csv_line *line = csv_search(dst, text_or_empty(key_name), key, NULL);
    if (!line)
        return -1;
    for (const csv_cell *field = src->header->cells; field; field = field->next) {
        if (*csv_field_get(dst, line, field->text))
            continue;
        if (only_fields && !lines_casesearch(only_fields, field->text))
            continue;
        csv_field_add(dst, field->text);
        csv_field_set(dst, line, field->text, csv_field_get(src, src_line, field->text));
    }
    return 0;
}
