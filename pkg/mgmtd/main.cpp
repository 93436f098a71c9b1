// mgmtd: the gateway's management daemon. It serves the configuration to browsers, to programs that speak
// HTTP, and by a line protocol.

#include "common/tree_line.h"
#include "options.h"
#include "util/event.h"
#include "util/internal/fd.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace mgmtd
{

namespace
{

using kutil::Fd;
using kutil::common::Problem;

constexpr int kLibraryEntity = 10;

// The one daemon of the process, for reports and profiling hooks, which have no data of their own.
struct Process {
    Daemon *daemon = nullptr;
    bool to_stderr = true;
    double call_began_ms = 0;
};
constinit Process process;

// --- Reports.

// Reports go to the log that pages show, to syslog, and in the foreground to standard error.
int take_report(void *, const char *message, int entity, uint32_t flags)
{
    const unsigned level = flags & ERR_LEVEL_MASK;
    // The library tells at info of every connection that is closed, and at debug of everything.
    if (level == 0 || level > kInfo || (level > kNotice && entity == kLibraryEntity))
        return 0;
    const time_t now = time(nullptr);
    if (process.daemon)
        process.daemon->log()->add(now, entity, level, message);
    TextBuilder line;
    append_report(&line, now, level, message);
    if (process.to_stderr)
        fwrite(line.text().data(), 1, line.size(), stderr);
    line.clear();
    kutil::common::append_printable(&line, message);
    syslog(LOG_DAEMON | static_cast<int>(level - 1), "%s", line.c_str());
    return 0;
}

void begin_reports()
{
    zel_error_set_mt_id();
    openlog("mgmtd", LOG_PID, LOG_DAEMON);
}

void before_callback(event_any_cb, const event_debug_info *) { process.call_began_ms = monotonic_ms(); }

void after_callback(event_any_cb, const event_debug_info *)
{
    Stats *stats = process.daemon->stats();
    const double took_ms = monotonic_ms() - process.call_began_ms;
    stats->callbacks++;
    stats->callback_ms += took_ms;
    stats->longest_callback_ms = took_ms > stats->longest_callback_ms ? took_ms : stats->longest_callback_ms;
}

// --- Signals.

void on_reload(int, void *data) { static_cast<Daemon *>(data)->reload(); }
void on_stop(int, void *data) { static_cast<Daemon *>(data)->stop(); }
void on_exit_request(void *data) { static_cast<Daemon *>(data)->stop(); }

// --- Becoming a daemon.

// In the parent: waits until the child is ready or has failed, and ends with what it says.
[[noreturn]] void wait_for_child(int fd)
{
    char result = static_cast<char>(kFailed);
    ssize_t got;
    do
        got = read(fd, &result, 1);
    while (got < 0 && errno == EINTR);
    _exit(got == 1 ? int{result} : int{kFailed});
}

// Forks. In the child *ready is what to write the result to. The working folder stays until the options'
// files are open.
bool detach(Fd *ready, Problem *problem)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return problem->set_errno("mgmtd", "pipe");
    const pid_t child = fork();
    if (child < 0)
        return problem->set_errno("mgmtd", "fork");
    if (child > 0) {
        close(ends[1]);
        wait_for_child(ends[0]);
    }
    close(ends[0]);
    ready->reset(ends[1]);
    setsid();
    begin_reports();
    return true;
}

// Standard error is needed until here.
void leave_terminal(const Fd &ready)
{
    const Fd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (null.valid()) {
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            dup2(null.get(), fd);
    }
    if (chdir("/") != 0) {
        // The folder that it was started in stays busy, and nothing else.
    }
    process.to_stderr = false;
    const char done = static_cast<char>(kDone);
    if (write(ready.get(), &done, 1) != 1) {
        // The parent is gone; nobody asks.
    }
}

bool write_pid(int fd)
{
    char text[24];
    const int length = snprintf(text, sizeof(text), "%ld\n", static_cast<long>(getpid()));
    return ftruncate(fd, 0) == 0 && write(fd, text, static_cast<size_t>(length)) == length;
}

// --- Running.

bool read_password_line(HeapText *password)
{
    char *line = nullptr;
    size_t room = 0;
    const ssize_t length = getline(&line, &room, stdin);
    password->reset(line);
    if (length < 0)
        return false;
    line[strcspn(line, "\n")] = '\0';
    return true;
}

bool set_password(Daemon *daemon, const Options &options, Problem *problem)
{
    HeapText password;
    if (!read_password_line(&password))
        return problem->set("no password on standard input");
    const bool set =
        daemon->open(problem) && daemon->set_password(options.password_user, password.get(), problem);
    explicit_bzero(password.get(), strlen(password.get()));
    return set;
}

void say_ready(const Daemon &daemon)
{
    TextBuilder text;
    text.append("ready\n");
    daemon.write_addresses(&text);
    fwrite(text.text().data(), 1, text.size(), stdout);
    fflush(stdout);
}

bool set_signals(Daemon *daemon)
{
    // Nobody sets an alarm here, and its default action would end the process.
    signal(SIGALRM, SIG_IGN);
    event_atexit(on_exit_request, daemon); // takes SIGHUP, so it comes before the reload
    return event_signal_set(SIGHUP, on_reload, daemon) == 0 &&
           event_signal_set(SIGINT, on_stop, daemon) == 0 && event_signal_set(SIGTERM, on_stop, daemon) == 0;
}

bool serve(Daemon *daemon, const Options &options, const Fd &ready, Problem *problem)
{
    const Fd pid_file(
        options.pid_file ? open(options.pid_file, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644) : -1);
    if (options.pid_file && !pid_file.valid())
        return problem->set_errno(options.pid_file, "cannot be written");
    const HeapText pid_path(options.pid_file ? realpath(options.pid_file, nullptr) : nullptr);
    if (!daemon->open(problem))
        return false;
    event_loop_init();
    event_prof_set(before_callback, after_callback);
    bool good = set_signals(daemon) || problem->set_errno("mgmtd", "signals");
    good = good && daemon->listen(problem);
    if (good && pid_file.valid() && !write_pid(pid_file.get()))
        good = problem->set_errno(options.pid_file, "cannot be written");
    if (good) {
        if (options.foreground)
            say_ready(*daemon);
        else
            leave_terminal(ready);
        zel_error_full(kEntity, kNotice, "ready: %s", options.file);
        good = event_loop() >= 0 || problem->set_errno("mgmtd", "event loop");
    }
    daemon->close();
    event_prof_set(nullptr, nullptr);
    event_loop_uninit();
    if (pid_path)
        unlink(pid_path.get());
    return good;
}

Exit run(const Options &options)
{
    Problem problem;
    Fd ready;
    Daemon *daemon = static_cast<Daemon *>(malloc_e(sizeof(Daemon)));
    std::construct_at(daemon, options);
    process.daemon = daemon;
    bool good;
    if (options.password_user)
        good = set_password(daemon, options, &problem);
    else
        good = (options.foreground || detach(&ready, &problem)) && serve(daemon, options, ready, &problem);
    if (!good)
        zel_error_full(kEntity, kErr, "%s", problem.text());
    process.daemon = nullptr;
    std::destroy_at(daemon);
    free(daemon);
    return good ? kDone : kFailed;
}

} // namespace

} // namespace mgmtd

int main(int argc, char **argv)
{
    mgmtd::Options options;
    bool done;
    const mgmtd::Exit read = mgmtd::read_options(argc, argv, &options, &done);
    if (done)
        return read;
    zel_error_init(0, 0, 0, "mgmtd", nullptr, nullptr);
    mgmtd::begin_reports();
    zel_error_register(0, mgmtd::take_report, nullptr);
    srand(static_cast<unsigned>(time(nullptr)) ^ static_cast<unsigned>(getpid()));
    return mgmtd::run(options);
}
