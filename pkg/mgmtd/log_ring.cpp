#include "log_ring.h"

#include "common/tree_line.h"
#include "util/date.h"

namespace mgmtd
{

LogRing::~LogRing()
{
    for (const Report &report : reports_)
        free(report.message);
}

void LogRing::add(time_t when, int, unsigned level, const char *message)
{
    // A report that finds no memory is left out: it must not end the process.
    char *copy = kutil::try_copy(kutil::view(message));
    if (!copy)
        return;
    Report &report = reports_[next_];
    free(report.message);
    report = {when, level, copy};
    next_ = (next_ + 1) % kReports;
    count_ += count_ < kReports ? 1 : 0;
}

void append_report(TextBuilder *out, time_t when, unsigned level, const char *message)
{
    const char *name = level <= 8 ? zel_error_level_str[level] : nullptr;
    out->append(kutil::view(date_itoa_fmt(when, "%Y-%m-%d %H:%M:%S", 1)));
    out->append(' ');
    out->append(name ? View(name) : View("none"));
    out->append(' ');
    kutil::common::append_printable(out, message);
    out->append('\n');
}

void LogRing::write(TextBuilder *out) const
{
    const size_t first = (next_ + kReports - count_) % kReports;
    for (size_t i = 0; i < count_; i++) {
        const Report &report = reports_[(first + i) % kReports];
        append_report(out, report.when, report.level, report.message);
    }
}

} // namespace mgmtd
