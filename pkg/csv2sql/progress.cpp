#include "progress.h"

#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace csv2sql
{

namespace
{

// In kilobytes. What the kernel counts for the process itself; getrusage's number begins with its parent's.
long peak_memory()
{
    long peak = -1;
    if (FILE *status = fopen("/proc/self/status", "r")) {
        char line[256];
        while (peak < 0 && fgets(line, sizeof(line), status))
            sscanf(line, "VmHWM: %ld", &peak);
        fclose(status);
    }
    struct rusage usage;
    if (peak < 0 && getrusage(RUSAGE_SELF, &usage) == 0)
        peak = usage.ru_maxrss;
    return peak;
}

} // namespace

Progress::Progress() : is_terminal_(isatty(2) != 0) { clock_gettime(CLOCK_MONOTONIC, &start_); }

double Progress::seconds() const
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - start_.tv_sec) +
           static_cast<double>(now.tv_nsec - start_.tv_nsec) / 1e9;
}

void Progress::show()
{
    const double now = seconds();
    if (now < next_)
        return;
    next_ = now + 0.25;
    shown_ = true;
    fprintf(stderr, "\rcsv2sql: %zu lines read, %zu written\033[K", read_, written_);
}

void Progress::finish()
{
    if (shown_)
        fputs("\r\033[K", stderr);
    shown_ = false;
}

void Progress::print_stats() const
{
    fprintf(stderr, "csv2sql: %zu lines read, %zu written, %.2f s, %ld KB of memory at most\n", read_,
            written_, seconds(), peak_memory());
}

} // namespace csv2sql
