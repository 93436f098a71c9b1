/* A process that lives in the event loop: it ticks, echoes what is typed, waits for a child and ends on
 * Ctrl-C. */

#include "util/event.h"
#include "util/zel_error.h"

#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

static void on_tick(void *data)
{
    int *ticks = data;
    printf("tick %d\n", ++*ticks);
}

static void on_input(int fd, void *data)
{
    char buffer[256];
    ssize_t length = read(fd, buffer, sizeof(buffer));
    (void)data;
    if (length > 0)
        printf("read %zd bytes\n", length);
    else
        event_fd_clr(fd, EVENT_READ, on_input, NULL);
}

static void on_child(int pid, void *data, int status)
{
    (void)data;
    printf("child %d exited with %d\n", pid, WEXITSTATUS(status));
}

static void on_signal(int signo, void *data)
{
    (void)data;
    printf("signal %d\n", signo);
    event_loop_quit = 1;
}

static void on_end(void *data) { event_timer_del(on_tick, data); }

int main(void)
{
    int ticks = 0, pid;

    zel_error_init_default(6);
    zel_error_set_mt_id();
    event_loop_init();
    if ((pid = fork()) == 0)
        _exit(7);
    event_sigchild_set(pid, on_child, NULL);
    event_timer_set_period(100, on_tick, &ticks);
    event_timer_set(1000, on_end, &ticks);
    event_fd_set(STDIN_FILENO, EVENT_READ, on_input, NULL);
    event_signal_set(SIGINT, on_signal, NULL);
    event_signal_set(SIGTERM, on_signal, NULL);
    event_loop();
    event_loop_uninit();
    return 0;
}
