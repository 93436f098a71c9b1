/* A small configuration: made by paths, written as text, read back, changed, and asked what changed. */
#include "util/set.h"

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    set *conf = set_alloc("conf");
    set_set_path_str(&conf, "wan/mtu", "1500");
    set_set_path_str(&conf, "wan/dns/0", "9.9.9.9");
    set_set_path_str(&conf, "wan/dns/1", "149.112.112.112");
    set_set_path_str(&conf, "lan/name", "Home (upstairs)");

    char *text = set_write_alloc(&conf);
    fputs(text, stdout);

    set *copy = set_read(text);
    free(text);
    set_clear_changed(copy);
    set_set_path_str(&copy, "wan/mtu", "1492");
    set_free(set_get(&copy, "wan/dns/0"));
    printf("mtu %d -> %d\n", set_get_path_int(&conf, "wan/mtu"), set_get_path_int(&copy, "wan/mtu"));
    printf("wan changed: %d, lan changed: %d\n", set_comp_changed_path(&conf, &copy, "wan"),
           set_comp_changed_path(&conf, &copy, "lan"));

    for (set **server = set_get_son(set_get(&copy, "wan/dns"), 0); server; server = set_get_next(server)) {
        char *path = set_get_path(server);
        printf("%s = %s\n", path, set_son_get_strz(server));
        free(path);
    }

    set_free(&copy);
    set_free(&conf);
    return 0;
}
