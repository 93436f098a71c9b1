/* The MAC addresses of a device with N interfaces, from the one given.
 *
 *     example_mac 00:11:22:33:44:fe 4 */

#include "util/mac.h"
#include "util/zel_error.h"

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv)
{
    zel_error_init_default(6);
    zel_error_set_mt_id();
    uint8_t mac[6];
    const uint8_t *first = argc > 2 ? atomac_valid(argv[1], 0, 0, 1) : NULL;
    if (!first || atomac_cpy(argv[1], mac) != 0) {
        fprintf(stderr, "usage: %s MAC COUNT\n", argv[0]);
        return 1;
    }
    mac_list *list = NULL;
    for (int i = 0; i < atoi(argv[2]); i++) {
        mac_list_add(&list, mac);
        if (mac_increment(mac) != 0)
            break; /* the vendor's range is used up */
    }
    for (const mac_list *node = list; node; node = node->next)
        printf("%s\n", mactoa(node->mac)); /* the last one first */
    mac_list_free(&list);
    return 0;
}
