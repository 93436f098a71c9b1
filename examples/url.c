/* The parts of the URLs given on the command line.
 *
 *     example_url 'http://user:secret@[fe80::1]:8080/a/b?x=1' */

#include "util/url.h"
#include "util/zel_error.h"

#include <stdio.h>

static void show(const char *name, const char *text)
{
    if (text)
        printf("  %-8s  %s\n", name, text);
}

int main(int argc, char **argv)
{
    zel_error_init_default(6);
    zel_error_set_mt_id();
    for (int i = 1; i < argc; i++) {
        parsed_url url;
        if (parse_url(argv[i], &url) != 0)
            continue; /* the reason was reported */
        printf("%s\n", argv[i]);
        show("user", url.user);
        show("password", url.password);
        show("host", url.host);
        printf("  port      %d%s\n", url.port, url.port_given ? "" : " (the scheme's)");
        show("path", url.path);
        show("query", url.query);
        if (!is_valid_domain_or_ip(url.host, NULL))
            printf("  the host is no domain name and no IPv4 address\n");
        parsed_url_uninit(&url);
    }
    return 0;
}
