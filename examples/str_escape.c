/* One text from outside, made safe for the places where a gateway puts it. */
#include "util/str_escape.h"
#include "util/str.h"

#include <stdio.h>

static void show(const char *place, char **text)
{
    printf("%-10s %s\n", place, *text);
    str_free(text);
}

int main(int argc, char **argv)
{
    const char *name = argc > 1 ? argv[1] : "Tom & Ann's \"box\", 50%";
    char *s = NULL;

    str_cpy(&s, name);
    show("shell", str_escape_shell(&s));
    str_cpy(&s, name);
    show("HTML", str_escape_html_field(&s));
    str_cpy(&s, name);
    show("XML", str_escape_xml(&s));
    str_cpy(&s, name);
    show("CSV", str_escape_csv(&s));
    str_cpy(&s, name);
    show("SQL", str_escape_sql(&s, 0));
    str_cpy(&s, name);
    show("LIKE", str_escape_sql(&s, STR_SQL_LIKE));
    str_cpy(&s, name);
    show("query", str_escape_url_query_field(&s));
    return 0;
}
