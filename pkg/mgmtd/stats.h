#ifndef MGMTD_STATS_H
#define MGMTD_STATS_H

#include "base.h"

namespace mgmtd
{

class Staged;

// Counters of the process, all from zero.
struct Stats {
    uint64_t connections = 0;
    uint64_t refused_connections = 0;
    uint64_t requests = 0;
    uint64_t client_errors = 0;
    uint64_t server_errors = 0;
    uint64_t logins_failed = 0;
    uint64_t line_commands = 0;
    uint64_t callbacks = 0;         // of the event loop
    double callback_ms = 0;         // in all of them
    double longest_callback_ms = 0; // in one
    unsigned open = 0;              // connections now
    double started_ms = 0;          // by monotonic_ms
};

// A clock that only goes forward, in milliseconds.
double monotonic_ms();

// The memory that the process holds, in kB; 0 when the system does not tell.
size_t resident_kb();

// Appends NAME=VALUE lines.
void write_stats(const Stats &stats, const Staged &staged, TextBuilder *out);

} // namespace mgmtd

#endif
