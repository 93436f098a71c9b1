#include "event.h"

#include "internal/event.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <bit>
#include <unistd.h>
#include <utility>

// The table of descriptors, their watchers, and the queue of events that are not yet dispatched. A callback
// may grow table and queue or remove any watcher: what is held across one is an index or a copy, never a
// pointer.

using namespace kutil;

namespace
{

constexpr int kDescriptorLimit = 1048576;
constexpr uint32_t kSingleTypes[] = {EVENT_READ, EVENT_WRITE, EVENT_EXCEPT};
constexpr FdEntry kFreshEntry = {0, 0, nullptr, {-1, -1, -1}, 0, 0, false};

FdEntry *entry_of(int fd) { return fd >= 0 && fd < loop.fd_table.used ? &loop.fds[fd] : nullptr; }

int queue_count() { return loop.queue_desc.used; }

int pending_slot(uint32_t type)
{
    if (type == EVENT_READ)
        return 0;
    return type == EVENT_WRITE ? 1 : 2;
}

// Makes the queue entry at `index` one that dispatches nothing.
void cancel(int index)
{
    QueuedEvent *event = &loop.queue[index];
    if (event->type == 0)
        return;
    FdEntry *entry = entry_of(event->fd);
    if (entry) {
        int *pending = &entry->pending[pending_slot(event->type)];
        if (*pending == index)
            *pending = -1;
        if (entry->queued > 0)
            entry->queued--;
    }
    event->type = 0;
}

void cancel_pending(int fd, uint32_t type)
{
    FdEntry *entry = entry_of(fd);
    const int index = entry ? std::exchange(entry->pending[pending_slot(type)], -1) : -1;
    if (index >= 0 && index < queue_count() && loop.queue[index].fd == fd)
        cancel(index);
}

void mark_dirty(int fd)
{
    FdEntry *entry = &loop.fds[fd];
    if (entry->dirty)
        return;
    entry->dirty = true;
    entry->next_dirty = std::exchange(loop.first_dirty, fd + 1);
}

FdEntry *grow_table_for(int fd)
{
    // New slots may hold what the table held before it shrank.
    if (fd >= loop.fd_table.used) {
        for (int i = array_grow(&loop.fd_table, fd + 1); i <= fd; i++)
            loop.fds[i] = kFreshEntry;
    }
    return &loop.fds[fd];
}

// The link to the watcher of `type`, or to where it belongs.
Watcher **watcher_link(FdEntry *entry, uint32_t type)
{
    Watcher **link = &entry->watchers;
    while (*link && (*link)->type < type)
        link = &(*link)->next;
    return link;
}

Watcher *find_watcher(int fd, uint32_t type)
{
    FdEntry *entry = entry_of(fd);
    Watcher *watcher = entry ? *watcher_link(entry, type) : nullptr;
    return watcher && watcher->type == type ? watcher : nullptr;
}

bool is_same(const Watcher *watcher, event_fd_cb callback, const void *data)
{
    return watcher->callback == callback && watcher->data == data;
}

void report_watcher(const char *what, int fd, uint32_t type, event_fd_cb callback, void *data)
{
    zel_error_full(kEntity, kErr, "%s fd %d type %d func %p data %p", what, fd, static_cast<int>(type),
                   reinterpret_cast<void *>(callback), data);
}

void set_watcher(int fd, uint32_t type, event_fd_cb callback, void *data, const event_debug_info *site,
                 bool library)
{
    if (!loop_is_up_for("event_fd_set"))
        return;
    if (fd < 0 || fd >= kDescriptorLimit || !std::has_single_bit(type) || !(type & kEventTypes)) {
        report_watcher("event_fd_set with bad", fd, type, callback, data);
        return;
    }
    Watcher *existing = find_watcher(fd, type);
    if (existing && is_same(existing, callback, data)) {
        report_watcher("event already exist:", fd, type, callback, data);
        if (site) {
            zel_error_full(kEntity, kErr, "debug info: %s:%d func:%s cb:%s", text_or_empty(site->file),
                           site->line, text_or_empty(site->func_name), text_or_empty(site->cb_name));
        }
        return;
    }
    if (existing) {
        existing->callback = callback;
        existing->data = data;
        existing->library = library;
        return;
    }
    FdEntry *entry = grow_table_for(fd);
    Watcher **link = watcher_link(entry, type);
    auto *watcher = new_record<Watcher>();
    *watcher = {*link, type, library, ++loop.last_serial, callback, data};
    *link = watcher;
    entry->wanted |= type;
    // Deliberate: what is queued stays queued, and can no longer be cancelled by removing a watcher.
    for (int &index : entry->pending)
        index = -1;
    mark_dirty(fd);
}

void set_watchers(int fd, uint32_t types, event_fd_cb callback, void *data, const event_debug_info *site,
                  bool library)
{
    for (const uint32_t type : kSingleTypes) {
        if (types & type)
            set_watcher(fd, type, callback, data, site, library);
    }
}

void clear_watcher(int fd, uint32_t type, event_fd_cb callback, void *data)
{
    if (fd < 0) {
        report_watcher("event_fd_clr with bad", fd, type, callback, data);
        return;
    }
    FdEntry *entry = entry_of(fd);
    Watcher **link = entry ? watcher_link(entry, type) : nullptr;
    if (!link || !*link || (*link)->type != type || !is_same(*link, callback, data))
        return;
    const Heap<Watcher> watcher(*link);
    *link = watcher->next;
    entry->wanted &= ~type;
    cancel_pending(fd, type);
    mark_dirty(fd);
}

void cancel_all_of(int fd)
{
    FdEntry *entry = entry_of(fd);
    // Events are almost never without an index and a count, so that the queue is not searched for every
    // descriptor.
    for (int i = queue_count() - 1; i >= 0 && (loop.strays || (entry && entry->queued > 0)); i--) {
        if (loop.queue[i].fd == fd)
            cancel(i);
    }
}

// Whether `watcher` sorts behind the one that was served. That one itself, with another callback now, does
// not.
bool comes_after(const Watcher *watcher, const Watcher *served)
{
    if (watcher->type != served->type)
        return watcher->type > served->type;
    if (watcher->serial == served->serial)
        return false;
    const auto key = [](const Watcher *w) {
        return std::pair(reinterpret_cast<uintptr_t>(w->callback), reinterpret_cast<uintptr_t>(w->data));
    };
    return key(watcher) > key(served);
}

// The first watcher of `fd` that shares a bit with `types` and comes after `served`, when one was served.
const Watcher *watcher_to_serve(int fd, uint32_t types, const Watcher *served)
{
    const FdEntry *entry = entry_of(fd);
    for (const Watcher *watcher = entry ? entry->watchers : nullptr; watcher; watcher = watcher->next) {
        if ((watcher->type & types) && (!served || comes_after(watcher, served)))
            return watcher;
    }
    return nullptr;
}

// Returns false when the event stays as it is: the quit flag is set, or the loop is gone.
bool serve_watchers(int index)
{
    const uint32_t generation = loop.generation;
    const int fd = loop.queue[index].fd;
    const Watcher *watcher = watcher_to_serve(fd, loop.queue[index].type, nullptr);
    while (watcher) {
        const Watcher served = *watcher;
        if (served.callback)
            served.callback(fd, served.data);
        if (!same_loop(generation))
            return false;
        if (event_loop_quit) {
            // Deliberate: an application's event stays, and is dispatched again until its watcher is removed.
            if (served.library)
                cancel(index);
            return false;
        }
        watcher = watcher_to_serve(fd, loop.queue[index].type, &served);
    }
    return true;
}

void flush(int fd)
{
    FdEntry *entry = &loop.fds[fd];
    entry->dirty = false;
    const uint32_t applied = entry->applied;
    const uint32_t wanted = entry->wanted;
    const bool split = loop.be->needs_split(fd) != 0;
    if (!split && wanted == applied)
        return;
    loop.active += std::popcount(wanted) - std::popcount(applied);
    entry->applied = wanted;
    if (!split) {
        loop.be->update(fd, applied, wanted);
        return;
    }
    if (applied)
        loop.be->update(fd, applied, 0);
    if (wanted)
        loop.be->update(fd, 0, wanted);
}

} // namespace

namespace kutil
{

void fd_table_init()
{
    _array_init(&loop.fd_table, sizeof(FdEntry), &loop.fds, ARRAY_F_DOUBLE);
    _array_init(&loop.queue_desc, sizeof(QueuedEvent), &loop.queue, ARRAY_F_DOUBLE);
    loop.strays = 0;
    loop.first_dirty = 0;
    loop.active = 0;
}

void fd_table_free()
{
    for (int fd = 0; fd < loop.fd_table.used; fd++) {
        for (Watcher *watcher = loop.fds[fd].watchers; watcher;)
            free(std::exchange(watcher, watcher->next));
    }
    array_free(&loop.fd_table);
    loop.fd_table.used = 0;
    loop.first_dirty = 0;
}

void queue_free()
{
    array_free(&loop.queue_desc);
    loop.queue_desc.used = 0;
}

void flush_dirty_descriptors()
{
    while (loop.first_dirty != 0) {
        const int fd = loop.first_dirty - 1;
        loop.first_dirty = std::exchange(loop.fds[fd].next_dirty, 0);
        flush(fd);
    }
}

void shrink_fd_table()
{
    int *count = &loop.fd_table.used;
    while (*count > 0 && loop.fds[*count - 1].wanted == 0 && loop.fds[*count - 1].queued == 0)
        --*count;
}

bool drain_queue(int floor, uint32_t generation)
{
    while (queue_count() > floor) {
        const int last = queue_count() - 1;
        if (loop.queue[last].type == 0) {
            loop.queue_desc.used = last;
            continue;
        }
        event_call(last);
        if (!same_loop(generation))
            return false;
    }
    if (queue_count() == 0)
        loop.strays = 0;
    return true;
}

void event_fd_set_library(int fd, uint32_t types, event_fd_cb callback, void *data,
                          const event_debug_info *site)
{
    set_watchers(fd, types, callback, data, site, true);
}

} // namespace kutil

void __event_fd_set(int fd, uint32_t type, event_fd_cb callback, void *data, const event_debug_info *site)
{
    set_watcher(fd, type, callback, data, site, false);
}

void _event_fd_set(int fd, uint32_t types, event_fd_cb callback, void *data, const event_debug_info *site)
{
    set_watchers(fd, types, callback, data, site, false);
}

void event_fd_clr(int fd, uint32_t types, event_fd_cb callback, void *data)
{
    if (!event_loop_is_up())
        return;
    for (const uint32_t type : kSingleTypes) {
        if (types & type)
            clear_watcher(fd, type, callback, data);
    }
}

void event_fd_close(int *fd)
{
    if (!fd || *fd < 0)
        return;
    if (event_loop_is_up()) {
        cancel_all_of(*fd);
        loop.be->closing(*fd);
    }
    // Linux closes the descriptor even when close fails with EINTR, so it is never repeated.
    close(*fd);
    *fd = -1;
}

void event_feed(uint32_t type, int fd)
{
    if (!event_loop_is_up())
        return;
    const int index = queue_count();
    array_grow(&loop.queue_desc, index + 1);
    loop.queue[index] = {type, fd};
    if (!(type & kEventTypes)) {
        zel_error_full(kEntity, kFatal, "event of unknown type: %d", static_cast<int>(type));
        return;
    }
    FdEntry *entry = entry_of(fd);
    if (!entry) {
        loop.strays = 1;
        return;
    }
    entry->pending[pending_slot(type)] = index;
    entry->queued++;
}

void event_call(int index)
{
    if (!event_loop_is_up() || index < 0 || index >= queue_count())
        return;
    const QueuedEvent event = loop.queue[index];
    if (event.type == 0)
        return;
    if (!(event.type & kEventTypes)) {
        zel_error_full(kEntity, kFatal, "event of unknown type: %d", static_cast<int>(event.type));
        loop.queue[index].type = 0;
        return;
    }
    if (!serve_watchers(index))
        return;
    cancel_pending(event.fd, event.type);
    cancel(index);
}
