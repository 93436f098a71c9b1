#ifndef MGMTD_THROTTLE_H
#define MGMTD_THROTTLE_H

#include "util/iaddr.h"

#include <cstddef>

namespace mgmtd
{

// Failed logins by address. Times are milliseconds of a clock that only goes forward.
class Throttle
{
public:
    static constexpr int kFailures = 5;
    static constexpr double kWindowMs = 60 * 1000;
    static constexpr int kMaxWaiting = 64;
    static constexpr double kWaitMs = 1000;

    void failed(const iaddr &address, double now_ms);
    // The address had kFailures or more failures within the last minute.
    bool is_slow(const iaddr &address, double now_ms) const;

    // Answers that wait: enter() is false when there are too many.
    bool enter() { return waiting_ < kMaxWaiting && ++waiting_ > 0; }
    void leave() { waiting_--; }
    bool is_full() const { return waiting_ >= kMaxWaiting; }

private:
    // The last failures of an address; the table forgets the address that failed longest ago.
    struct Entry {
        iaddr address;
        double at_ms[kFailures];
        int next;
        int count;
    };
    static constexpr size_t kEntries = 256;

    const Entry *find(const iaddr &address) const;
    Entry entries_[kEntries] = {};
    int waiting_ = 0;
};

} // namespace mgmtd

#endif
