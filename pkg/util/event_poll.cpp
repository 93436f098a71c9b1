#include "event.h"

#include "internal/event.h"
#include "internal/report.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <utility>

// The back-ends of the loop: the one over poll, which takes a dense array of descriptors, and the choice
// among them.

using namespace kutil;

namespace
{

constexpr short kReadEvents = POLLIN | POLLHUP;
constexpr short kExceptEvents = POLLPRI | POLLERR | POLLNVAL;
constexpr short kTroubleEvents = POLLERR | POLLHUP | POLLNVAL;

struct PollState {
    pollfd *slots;
    array_desc slot_desc; // used is the number of slots
    int *index;           // of a descriptor's slot, -1 for none
    array_desc index_desc;
};
constinit PollState state = {};
constinit const event_be *chosen = nullptr;

short poll_events(uint32_t types)
{
    short events = 0;
    if (types & EVENT_READ)
        events |= kReadEvents;
    if (types & EVENT_WRITE)
        events |= POLLOUT;
    if (types & EVENT_EXCEPT)
        events |= kExceptEvents;
    return events;
}

int slot_of(int fd)
{
    if (fd >= state.index_desc.used) {
        for (int i = array_grow(&state.index_desc, fd + 1); i <= fd; i++)
            state.index[i] = -1;
    }
    return state.index[fd];
}

void remove_slot(int fd, int slot)
{
    const int last = --state.slot_desc.used;
    state.slots[slot] = state.slots[last];
    state.index[state.slots[slot].fd] = slot;
    state.index[fd] = -1;
}

void poll_update(int fd, uint32_t, uint32_t types)
{
    int slot = slot_of(fd);
    if (types == 0) {
        if (slot >= 0)
            remove_slot(fd, slot);
        return;
    }
    if (slot < 0) {
        slot = array_grow(&state.slot_desc, state.slot_desc.used + 1);
        state.index[fd] = slot;
    }
    state.slots[slot] = {fd, poll_events(types), 0};
}

void feed(const pollfd &slot)
{
    const int happened = slot.revents & slot.events;
    const bool trouble = (slot.revents & kTroubleEvents) != 0;
    const bool read = (happened & kReadEvents) != 0;
    // A writer learns of a failed connection.
    const bool write = (happened & POLLOUT) || ((slot.events & POLLOUT) && trouble);
    const bool except = (happened & kExceptEvents) != 0;
    if (read)
        event_feed(EVENT_READ, slot.fd);
    if (happened & POLLOUT)
        event_feed(EVENT_WRITE, slot.fd);
    if (except)
        event_feed(EVENT_EXCEPT, slot.fd);
    if (write && !(happened & POLLOUT))
        event_feed(EVENT_WRITE, slot.fd);
    // poll tells of trouble that nobody asked for. Unless somebody hears of it, the loop would spin.
    if (trouble && !read && !write && !except)
        event_feed(slot.events & POLLIN ? EVENT_READ : EVENT_EXCEPT, slot.fd);
}

int poll_wait(int, int has_timeout, double timeout_ms)
{
    const int timeout = has_timeout ? static_cast<int>(std::clamp(timeout_ms, 0.0, double{INT_MAX})) : -1;
    const int ready = poll(state.slots, static_cast<nfds_t>(state.slot_desc.used), timeout);
    for (int slot = 0, left = ready; left > 0 && slot < state.slot_desc.used; slot++) {
        if (state.slots[slot].revents == 0)
            continue;
        left--;
        feed(state.slots[slot]);
    }
    return ready;
}

int poll_init()
{
    _array_init(&state.slot_desc, sizeof(pollfd), &state.slots, ARRAY_F_DOUBLE);
    _array_init(&state.index_desc, sizeof(int), &state.index, ARRAY_F_DOUBLE);
    return 0;
}

int poll_uninit()
{
    array_free(&state.slot_desc);
    array_free(&state.index_desc);
    return poll_init();
}

void poll_closing(int) {}

int poll_needs_split(int) { return 0; }

} // namespace

namespace kutil
{

constinit const event_be kPollBackEnd = {poll_wait,   poll_update,  poll_init,
                                         poll_uninit, poll_closing, poll_needs_split};

const event_be *chosen_back_end() { return chosen ? chosen : &kPollBackEnd; }

} // namespace kutil

const event_be *event_be_set(const event_be *be)
{
    if (be && (!be->wait || !be->update || !be->init || !be->uninit || !be->closing || !be->needs_split)) {
        zel_error_full(kEntity, kErr, "event_be_set: back-end %p is incomplete",
                       static_cast<const void *>(be));
        return chosen;
    }
    return std::exchange(chosen, be);
}
