#ifndef MGMTD_LOG_RING_H
#define MGMTD_LOG_RING_H

#include "base.h"

#include <ctime>

namespace mgmtd
{

// The last reports of the process.
class LogRing
{
public:
    static constexpr size_t kReports = 500;

    LogRing() = default;
    LogRing(const LogRing &) = delete;
    LogRing &operator=(const LogRing &) = delete;
    ~LogRing();

    void add(time_t when, int entity, unsigned level, const char *message);
    size_t count() const { return count_; }
    // Appends "TIME LEVEL MESSAGE" lines, oldest first. What could break a line is escaped as &xx;.
    void write(TextBuilder *out) const;

private:
    struct Report {
        time_t when;
        unsigned level;
        char *message;
    };
    Report reports_[kReports] = {};
    size_t next_ = 0;
    size_t count_ = 0;
};

// Appends one line of the log as write() has it.
void append_report(TextBuilder *out, time_t when, unsigned level, const char *message);

} // namespace mgmtd

#endif
