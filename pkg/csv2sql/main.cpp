// csv2sql: reads a table from a delimited text file and writes it normalised, in another form, or as SQL.

#include "job.h"
#include "util/zel_error.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace
{

constexpr int kMostReports = 10;

// What the library says of the file: its message is the program's, so many times.
int print_report(void *, const char *message, uint32_t)
{
    static constinit int count = 0;
    if (csv2sql::reports_muted || count == kMostReports)
        return 0;
    fprintf(stderr, "csv2sql: %s\n", message);
    if (++count == kMostReports)
        fputs("csv2sql: more of this is not shown\n", stderr);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    zel_error_init_nodefault();
    zel_error_set_mt_id();
    zel_error_register_level(0, ERR_F_ALWAYS | 5, print_report, nullptr);
    // Only running out of memory is fatal.
    zel_error_exit_func_set([] { _exit(csv2sql::kUnwritten); });

    csv2sql::Settings settings;
    bool done;
    csv2sql::Exit result = csv2sql::read_options(argc, argv, &settings, &done);
    if (!done)
        result = csv2sql::Job(settings).run();
    if (fflush(stdout) == 0 && !ferror(stdout))
        return result;
    return csv2sql::complain(csv2sql::kUnwritten, "standard output: %s", strerror(errno));
}
