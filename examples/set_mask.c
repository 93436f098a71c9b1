/* Factory settings and a user's changes as two layers of one tree, and an index list. */
#include "util/set.h"

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    const uint32_t factory = set_layer_register(); /* 1, which is also the layer of the default masks */
    const uint32_t user = set_layer_register();

    set *conf = set_alloc("conf");
    set_set_path_str(&conf, "wan/mtu", "1500");
    set_set_path_str(&conf, "wan/mode", "dhcp");

    set_mask_push(factory | user, user); /* read both, write the user's */
    set_set_path_str(&conf, "wan/mtu", "1492");
    printf("mtu %d of %s\n", set_get_path_int(&conf, "wan/mtu"), set_get_path_strz(&conf, "wan/mode"));
    set_free(&conf); /* drops the user's layer and nothing else */
    set_mask_pop();
    printf("mtu %d\n", set_get_path_int(&conf, "wan/mtu"));

    static const char *const kServers[] = {"9.9.9.9", "149.112.112.112", "1.1.1.1"};
    set **dns = set_set(&conf, "dns");
    for (int i = 0; i < 3; i++)
        set_set_path_str(set_index_add(dns, 0), "ip", kServers[i]); /* each in front of the others */
    set ***sorted = set_sort(dns, "ip");
    for (int i = 0; i < set_get_nsons(dns); i++)
        printf("%s: %s\n", set_get_value(sorted[i]), set_get_path_strz(sorted[i], "ip"));
    free(sorted);

    set_free(&conf);
    return 0;
}
