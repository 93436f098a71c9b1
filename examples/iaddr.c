/* Which of the addresses given on the command line lie in the subnet given first, and what they are.
 *
 *     example_iaddr 10.0.0.0/8 10.1.2.3 192.168.1.1 fe80::1 */

#include "util/iaddr.h"

#include <stdio.h>

static const char *type_name(iaddr_type type)
{
    static const char *const names[] = {"link-local IPv6", "other IPv6",  "IPv4 mapped into IPv6",
                                        "unique-local",    "global IPv6", "IPv4"};
    return names[type];
}

int main(int argc, char **argv)
{
    subnet net;
    if (argc < 2 || str2subnet(&net, argv[1]) != 0) {
        fprintf(stderr, "usage: %s ADDRESS/LENGTH [ADDRESS ...]\n", argv[0]);
        return 1;
    }
    iaddr first = iaddr_prefix_len_and(net.addr, (int)net.prefix_len);
    printf("%s starts at %s\n", subnet2str(&net), iaddr2str(&first));

    for (int i = 2; i < argc; i++) {
        iaddr a;
        if (str2iaddr(&a, argv[i]) != 0) {
            printf("%s: no address\n", argv[i]);
            continue;
        }
        printf("%s: %s, %s\n", iaddr2str(&a), type_name(iaddr_get_type(&a)),
               iaddr_is_in_subnet(&a, &net) ? "inside" : "outside");
    }
    return 0;
}
