/* What an idle process keeps for itself: one with a loop, a listener and ten timers, on the shared library or
 * the archive, or without the library (IDLE_BARE) for comparison. Prints, for the libraries that encrypt and
 * for all the rest, the bytes of its private pages; what merely is in the page cache does not count. */
#ifndef IDLE_BARE
#include "util/kutil.h"
#endif

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#ifndef IDLE_BARE
static void ignore_timer(void *data) { (void)data; }

static int ignore_client(estream *stream, int port)
{
    (void)stream;
    return port < 0;
}

static void live_on_the_library(void)
{
    event_loop_init();
    eserver_open_port(0, 0, ignore_client, NULL);
    for (intptr_t i = 0; i < 10; i++)
        event_timer_set(1e9, ignore_timer, (void *)i);
}
#endif

int main(void)
{
    static char line[512], stream[4096];
    unsigned long kilobytes, crypto = 0, rest = 0, address;
    int crypto_now = 0;
#ifndef IDLE_BARE
    live_on_the_library();
#endif
    FILE *file = fopen("/proc/self/smaps", "r");
    if (!file || setvbuf(file, stream, _IOFBF, sizeof(stream)) != 0)
        return 1;
    while (fgets(line, sizeof(line), file)) {
        if (sscanf(line, "%lx-%lx ", &address, &kilobytes) == 2)
            crypto_now = strstr(line, "/libcrypto.") || strstr(line, "/libssl.");
        else if (sscanf(line, "Anonymous: %lu kB", &kilobytes) == 1)
            *(crypto_now ? &crypto : &rest) += kilobytes * 1024;
    }
    printf("%lu\t%lu\n", crypto, rest);
    return fclose(file);
}
