/* Prints each datagram that arrives on a UDP port and answers it. Call it as `erecv PORT`; Ctrl-C ends it. */

#include "util/erecv.h"
#include "util/event.h"
#include "util/zel_error.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

static erecv *receiver;

static void on_datagram(void *data, uint8_t *buffer, int length)
{
    struct sockaddr_storage from;
    socklen_t from_length;

    (void)data;
    printf("%d bytes from %s: %s\n", length, inet_ntoa_t(erecv_get_ip(receiver)), (char *)buffer);
    erecv_get_addr(receiver, &from, &from_length);
    if (esendto(erecv_get_fd(receiver), "thanks\n", 7, 0, (struct sockaddr *)&from, from_length) < 0)
        zel_error_full(1, 5, "no answer sent: %d", erecv_get_port(receiver));
}

static void on_stop(int signo, void *data)
{
    (void)signo;
    (void)data;
    event_loop_quit = 1;
}

int main(int argc, char **argv)
{
    zel_error_init_default(6);
    zel_error_set_mt_id();
    event_loop_init();
    receiver = erecv_open_ip_port(0, (uint16_t)(argc > 1 ? atoi(argv[1]) : 7000), 0, on_datagram, NULL);
    if (!receiver)
        return 1; /* the reason was reported */
    event_signal_set(SIGINT, on_stop, NULL);
    event_loop();
    erecv_close(receiver);
    event_loop_uninit();
    return 0;
}
