#include "event.h"

#include "internal/event.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <csignal>
#include <utility>

using namespace kutil;

namespace
{

struct ExitHandler {
    ExitHandler *next;
    event_exit_cb callback;
    void *data;
};

struct ExitState {
    ExitHandler *handlers; // newest first
    int pushed;            // ever, in this process
    bool exiting;
    bool signal_registered;
};
constinit ExitState state = {};

void on_hangup(int, void *) { event_exit(); }

} // namespace

namespace kutil
{

void exit_init()
{
    state.exiting = false;
    register_exit_signal();
}

void register_exit_signal()
{
    if (state.pushed == 0 || state.signal_registered || !event_loop_is_up())
        return;
    state.signal_registered = true;
    event_signal_set(SIGHUP, on_hangup, nullptr);
}

} // namespace kutil

int event_atexit(event_exit_cb callback, void *data)
{
    if (state.exiting)
        zel_error_full(kEntity, kFatal, "event_atexit: called after started exiting");
    auto *handler = new_record<ExitHandler>();
    *handler = {state.handlers, callback, data};
    state.handlers = handler;
    state.pushed++;
    register_exit_signal();
    return state.pushed;
}

void event_exit(void)
{
    state.exiting = true;
    event_signal_del(SIGHUP);
    while (state.handlers) {
        const Heap<ExitHandler> handler(std::exchange(state.handlers, state.handlers->next));
        if (handler->callback)
            handler->callback(handler->data);
    }
}
