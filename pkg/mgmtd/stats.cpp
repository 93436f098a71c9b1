#include "stats.h"

#include "staged.h"
#include "util/internal/fd.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <fcntl.h>

namespace mgmtd
{

double monotonic_ms()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

size_t resident_kb()
{
    char text[128];
    const kutil::Fd fd(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    const ssize_t length = fd.valid() ? read(fd.get(), text, sizeof(text) - 1) : -1;
    if (length <= 0)
        return 0;
    text[length] = '\0';
    unsigned long size = 0;
    unsigned long resident = 0;
    if (sscanf(text, "%lu %lu", &size, &resident) != 2)
        return 0;
    return resident * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) / 1024;
}

void write_stats(const Stats &stats, const Staged &staged, TextBuilder *out)
{
    const auto line = [&](const char *name, double value, int digits) {
        char text[96];
        snprintf(text, sizeof(text), "%s=%.*f\n", name, digits, value);
        out->append(text);
    };
    const auto count = [&](const char *name, uint64_t value) { line(name, static_cast<double>(value), 0); };
    line("uptime_s", (monotonic_ms() - stats.started_ms) / 1000, 1);
    count("connections_open", stats.open);
    count("connections", stats.connections);
    count("connections_refused", stats.refused_connections);
    count("requests", stats.requests);
    count("answers_4xx", stats.client_errors);
    count("answers_5xx", stats.server_errors);
    count("logins_failed", stats.logins_failed);
    count("line_commands", stats.line_commands);
    count("commits", staged.commits());
    line("last_save_ms", staged.last_save_ms(), 3);
    line("longest_save_ms", staged.longest_save_ms(), 3);
    count("loop_callbacks", stats.callbacks);
    line("loop_busy_ms", stats.callback_ms, 3);
    line("loop_longest_ms", stats.longest_callback_ms, 3);
    count("memory_kb", resident_kb());
}

} // namespace mgmtd
