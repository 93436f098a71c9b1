#include "throttle.h"

namespace mgmtd
{

const Throttle::Entry *Throttle::find(const iaddr &address) const
{
    for (const Entry &entry : entries_) {
        if (entry.count > 0 && entry.address.family == address.family &&
            iaddr_cmp(&entry.address, &address) == 0)
            return &entry;
    }
    return nullptr;
}

void Throttle::failed(const iaddr &address, double now_ms)
{
    Entry *entry = const_cast<Entry *>(find(address));
    if (!entry) {
        entry = entries_;
        const auto last = [](const Entry &e) { return e.at_ms[(e.next + kFailures - 1) % kFailures]; };
        for (Entry &other : entries_) {
            if (entry->count > 0 && (other.count == 0 || last(other) < last(*entry)))
                entry = &other;
        }
        *entry = {};
        entry->address = address;
    }
    entry->at_ms[entry->next] = now_ms;
    entry->next = (entry->next + 1) % kFailures;
    entry->count = entry->count < kFailures ? entry->count + 1 : kFailures;
}

bool Throttle::is_slow(const iaddr &address, double now_ms) const
{
    const Entry *entry = find(address);
    // With all places taken, `next` is the oldest of them.
    return entry && entry->count == kFailures && now_ms - entry->at_ms[entry->next] < kWindowMs;
}

} // namespace mgmtd
