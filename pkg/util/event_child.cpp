#include "event.h"

#include "internal/event.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <utility>

struct event_child {
    event_child *next;
    int pid;
    bool exited;
    int status;
    const event_debug_info *site;
    event_child_cb callback;
    void *data;
};

using namespace kutil;

namespace
{

// Marks the watches of `pid`. Returns false when there is none.
bool note_exit(int pid, int status)
{
    bool found = false;
    for (event_child *child = loop.children; child; child = child->next) {
        if (child->pid != pid || child->exited)
            continue;
        child->exited = true;
        child->status = status;
        found = true;
    }
    return found;
}

// Reaps `pid`, waiting for it; with -1 every child that has exited, without waiting. Returns 0 when `pid` was
// reaped.
int reap(int pid, int *status_out)
{
    for (;;) {
        int status = 0;
        const int reaped = waitpid(pid, &status, pid == -1 ? WNOHANG : 0);
        if (reaped == 0)
            return -1;
        if (reaped < 0) {
            if (errno == EINTR)
                continue;
            if (errno == ECHILD)
                return -1;
            return zel_error_full(kEntity, kErr, "Error waiting on child: %s.", strerror(errno));
        }
        if (!note_exit(reaped, status) && pid == -1)
            zel_error_full(kEntity, kWarn, "Process %d exited. No action was taken", reaped);
        if (reaped != pid)
            continue;
        if (status_out)
            *status_out = status;
        return 0;
    }
}

void on_child_signal(int, void *) { reap(-1, nullptr); }

void mask_child_signal(int how)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    if (sigprocmask(how, &set, nullptr) < 0)
        zel_error_full(kEntity, kFatalEmerg, "Error setting masking for SIGCHLD signal");
}

event_child *take_exited()
{
    event_child **link = &loop.children;
    while (*link && !(*link)->exited)
        link = &(*link)->next;
    event_child *child = *link;
    if (child)
        *link = child->next;
    return child;
}

} // namespace

namespace kutil
{

void children_free()
{
    while (loop.children)
        free(std::exchange(loop.children, loop.children->next));
}

void children_init()
{
    loop.own_registrations = 1;
    _event_signal_set_flags(SIGCHLD, on_child_signal, nullptr, SA_NOCLDSTOP | SA_NODEFER, nullptr);
}

void run_exited_children(uint32_t generation)
{
    while (same_loop(generation)) {
        const Heap<event_child> child(take_exited());
        if (!child)
            return;
        if (child->callback) {
            const ProfiledCall profiled(child->callback, child->site);
            child->callback(child->pid, child->data, child->status);
        }
        if (same_loop(generation))
            loop.registrations--;
    }
}

} // namespace kutil

event_child *_event_sigchild_set(int pid, event_child_cb callback, void *data, const event_debug_info *site)
{
    if (!loop_is_up_for("event_sigchild_set"))
        return nullptr;
    auto *child = new_record<event_child>();
    *child = {loop.children, pid, false, 0, site, callback, data};
    loop.children = child;
    loop.registrations++;
    return child;
}

void event_sigchild_del(int pid, int kill_it)
{
    for (event_child **link = &loop.children; event_loop_is_up() && *link;) {
        if ((*link)->pid != pid) {
            link = &(*link)->next;
            continue;
        }
        free(std::exchange(*link, (*link)->next));
        loop.registrations--;
    }
    // 0 and negative numbers would reach other processes than the one meant.
    if (!kill_it || pid <= 0)
        return;
    event_sigchild_disable();
    kill(pid, SIGKILL);
    reap(pid, nullptr);
    event_sigchild_enable();
}

void event_sigchild_enable(void) { mask_child_signal(SIG_UNBLOCK); }

void event_sigchild_disable(void) { mask_child_signal(SIG_BLOCK); }

int event_wait_for_child(int pid, int *status) { return pid > 0 ? reap(pid, status) : -1; }
