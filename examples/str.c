/* Tidies "name = value" lines from standard input: trimmed, white space inside names joined by "_", terminal
 * colours dropped, and everything joined to one line.
 *
 *     printf ' wan  ip = 10.0.0.1 \n dns = 10.0.0.2\n' | example_str */

#include "util/str.h"

#include <stdio.h>
#include <string.h>

int main(void)
{
    char buffer[1024];
    char *line = NULL, *name = NULL, *all = NULL;
    uint32_t length = 0;

    while (fgets(buffer, sizeof(buffer), stdin)) {
        str_trim(str_strip_ansi(str_cpy(&line, buffer)));
        size_t end = str_cspn(line, "=");
        if (str_isempty(line) || !line[end])
            continue;
        str_replace(str_trim(str_ncpy(&name, line, end)), " ", "_");
        str_ltrim(str_mid(&line, end + 1, strlen(line)));
        /* The old text may be among the values. */
        str_printf(&line, "%s%s='%s'", length ? " " : "", name, line);
        str_catfast(&all, line, &length);
    }
    printf("%s\n%s characters\n", all ? all : "", utoa(length));
    str_free(&line);
    str_free(&name);
    str_free(&all);
    return 0;
}
