/* Reads a file that begins with header lines, changes one entry, and shows it as lines and as a query. */
#include "util/attrib_text.h"
#include "util/lines.h"
#include "util/str.h"

#include <stdio.h>

int main(void)
{
    char **lines = NULL;
    char *query = NULL;

    lines_str_split_nl(&lines, "Name: hall lamp\nNote: two\n  lines\n\nfree text\n");
    attrib_file *file = attrib_file_alloc(NULL, lines, ATTRIB_F_LENIENT);
    attrib_set(&file->attribs, "Name", "garden lamp & path");

    attrib_write(stdout, &file->attribs, file->flags);
    lines_print(file->body);

    str_cpy(&query, "/lamp?id=7");
    printf("%s\n", *str_escape_url_query(&query, &file->attribs));
    printf("%s\n", *attrib_to_str_http(&query, &file->attribs));

    str_free(&query);
    attrib_file_free(file);
    lines_free(&lines);
    return 0;
}
