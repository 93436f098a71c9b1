/* Settings as names and values: defaults, then what a line of text says, then a list of all. */
#include "util/attrib.h"
#include "util/lines.h"

#include <stdio.h>

int main(void)
{
    attrib *settings = NULL;
    attrib *given = NULL;
    char **words = NULL;

    attrib_set_multi(&settings, "Host", "gateway.home", "Port", "80", "Trace", "off", NULL);

    lines_str_split_ws(&words, "port=8080 trace=on, user=ann");
    lines_to_attrib(&given, words, '=', ",");
    attrib_setcpy(&settings, &given);
    attrib_del(&settings, "trace");

    for (attrib *entry = settings; entry; entry = attrib_get_next(entry))
        printf("%s: %s\n", entry->name, entry->value);
    printf("port %d, %s\n", attrib_get_int(&settings, "PORT"),
           attrib_get_default(&settings, "trace", "no trace"));

    lines_free(&words);
    attrib_free(&given);
    attrib_free(&settings);
    return 0;
}
