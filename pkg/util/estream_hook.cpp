#include "internal/estream.h"
#include "internal/heap.h"
#include "internal/report.h"

#include <utility>

// The owner of a stream, the owners it was borrowed from, and the hooks. Release functions are called when
// the stream has its new state: they may do anything with it.

using namespace kutil;

namespace
{

template <class Function>
event_any_cb any(Function function)
{
    return reinterpret_cast<event_any_cb>(function);
}

void release(const StreamOwner &old, const StreamOwner &current)
{
    if (old.release && old.data)
        old.release(old.data, current.data, any(current.release));
}

void replace_hook(estream *es, StreamHook *hook, const StreamHook &fresh)
{
    if (!is_open(es))
        return;
    es->changed = true;
    const StreamHook old = std::exchange(*hook, fresh);
    if (old.func && old.release && (old.release != fresh.release || old.data != fresh.data))
        old.release(old.data, any(fresh.func), any(fresh.release), fresh.data);
}

void release_hook(StreamHook *hook)
{
    const StreamHook old = std::exchange(*hook, {});
    if (old.release)
        old.release(old.data, nullptr, nullptr, nullptr);
}

bool take_frame(estream *es, StreamOwner *saved)
{
    const Heap<StreamFrame> frame(es->frames);
    if (!frame)
        return false;
    es->frames = frame->next;
    *saved = frame->saved;
    return true;
}

} // namespace

namespace kutil
{

void stream_release_owner(estream *es)
{
    do
        release(std::exchange(es->owner, {}), {});
    while (take_frame(es, &es->owner));
}

void stream_release_hooks(estream *es)
{
    release_hook(&es->read_hook);
    release_hook(&es->write_hook);
}

} // namespace kutil

void estream_set_data(estream *es, void *data, estream_release_cb release_data)
{
    if (!is_open(es))
        return;
    es->changed = true;
    const StreamOwner old = es->owner;
    es->owner.data = data;
    es->owner.release = release_data;
    release(old, StreamOwner(es->owner));
}

void _estream_set_func(estream *es, estream_cb callback, const event_debug_info *site)
{
    if (!is_open(es))
        return;
    es->changed = true;
    es->owner.callback = callback;
    es->owner.site = site;
}

void _estream_set_urgent_func(estream *es, estream_cb callback, const event_debug_info *site)
{
    if (!is_open(es))
        return;
    es->changed = true;
    es->urgent = callback;
    es->urgent_site = site;
}

void estream_set_half_close(estream *es, estream_half_close_cb callback)
{
    if (!is_open(es))
        return;
    es->changed = true;
    es->half_close = callback;
}

void estream_set_read_notify(estream *es, estream_hook func, estream_hook_release_cb release_data, void *data)
{
    replace_hook(es, es ? &es->read_hook : nullptr, {func, release_data, data});
}

void estream_set_write_notify(estream *es, estream_hook func, estream_hook_release_cb release_data,
                              void *data)
{
    replace_hook(es, es ? &es->write_hook : nullptr, {func, release_data, data});
}

int estream_push(estream *es)
{
    if (!is_open(es))
        return -1;
    auto *frame = static_cast<StreamFrame *>(zalloc_log(kErr, sizeof(StreamFrame)));
    if (!frame)
        return -1;
    *frame = {es->frames, es->owner};
    es->frames = frame;
    es->owner.data = nullptr;
    es->owner.release = nullptr;
    es->owner.state = 0;
    es->changed = true;
    return 0;
}

int estream_pop(estream *es)
{
    if (!is_open(es))
        return -1;
    const StreamOwner old = es->owner;
    if (!take_frame(es, &es->owner))
        return zel_error_full(kEntity, kErr, "estream_pop: empty stack - estream unchanged");
    es->changed = true;
    release(old, StreamOwner(es->owner));
    return 0;
}
