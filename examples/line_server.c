/* A server for lines of text: answers each line with its length, "quit" with a farewell.
 * Call it as `line_server PORT` and talk to it with any line client; SIGTERM ends it. */

#include "util/eserver.h"
#include "util/zel_error.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Called with each line, without its end, and with NULL once everything written has been sent. */
static int on_line(estream *client, char *line, int length)
{
    if (!line)
        return estream_get_state(client); /* 1 after "quit": any result but 0 closes the stream */
    if (strcmp(line, "quit") == 0) {
        estream_set_state(client, 1);
        estream_read_abort(client); /* further lines are not wanted */
        return estream_write_str(client, "goodbye\r\n");
    }
    return estream_printf(client, "%d\r\n", length);
}

/* Called when a connection is up. A client that is silent for a minute is closed. */
static int on_client(estream *client, int ok)
{
    if (!ok)
        return -1;
    estream_set_func(client, on_line);
    estream_set_timeout(client, 60000, NULL);
    return estream_read_line(client);
}

static void on_stop(int signo, void *data)
{
    (void)signo;
    eserver_close(data); /* closes its clients too: then nothing is left to wait for */
    event_loop_quit = 1;
}

int main(int argc, char **argv)
{
    /* Reports of warnings and worse, and notices, go to standard error. */
    zel_error_init_default(6);
    zel_error_set_mt_id();
    event_loop_init();
    eserver *server = eserver_open_port((uint16_t)(argc > 1 ? atoi(argv[1]) : 7000), 0, on_client, NULL);
    if (!server)
        return 1; /* the reason was reported */
    event_signal_set(SIGTERM, on_stop, server);
    event_loop();
    event_loop_uninit();
    return 0;
}
