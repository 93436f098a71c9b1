// Running command lines: sys_exec, the capturing forms, their settings.

#include "sys.h"

#include "alloc.h"
#include "file.h"
#include "internal/errno_scope.h"
#include "internal/error_state.h"
#include "internal/fd.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "internal/signal_block.h"
#include "internal/text_builder.h"
#include "lines.h"
#include "str.h"
#include "str_escape.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <utility>

using namespace kutil;

int ended_on_timeout;

namespace
{

constexpr int kShellSignalBase = 128; // a shell's exit status is this plus the number of the signal
constexpr const char *kBash = "/bin/bash";

struct Settings {
    int timeout_s;
    int own_group;
    int bash_always;
    uint32_t verbose;
    int expect;
    uint32_t expect_level;
};
constinit Settings settings = {.bash_always = 1, .verbose = kDebug, .expect_level = kFatal};

// The command that sys_exec waits for, for the handler; 0 between commands.
constinit volatile pid_t running;

const char *shell()
{
    const char *named = settings.bash_always ? nullptr : getenv("SHELL");
    return named ? named : kBash;
}

char *format_command(const char *format, va_list ap)
{
    char *command = nullptr;
    str_vprintf(&command, format, ap);
    return command;
}

void check_expectation(const char *command, int result)
{
    const int wanted = settings.expect;
    const int got = result == 0 ? SYS_EXPECT_ZERO : result > 0 ? SYS_EXPECT_POSITIVE : SYS_EXPECT_NEGATIVE;
    if (wanted != 0 && !(wanted & got))
        zel_error_full(kEntity, settings.expect_level, "sys_expect failed: exec(%s) returned %d", command,
                       result);
}

// The slow way, for when the fast one failed: a child of its own memory can report why.
pid_t fork_shell(char *const argv[], bool own_group)
{
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        zel_error_full(kEntity, kFatal, "Cannot fork");
    if (pid != 0)
        return pid;
    end_fatal_reports_at_once();
    if (own_group && setpgid(0, 0) != 0)
        zel_error_full(kEntity, kFatal, "Cannot setpgid");
    execvp(argv[0], argv);
    zel_error_full(kEntity, kFatal, "Internal error, execve returned (%s)", strerror(errno));
    _exit(1);
}

// Starts the shell with the command. posix_spawn shares the caller's memory until the shell runs, with all
// signals blocked, so that the size of the caller does not matter.
pid_t start_shell(const char *command, bool own_group)
{
    char *const argv[] = {const_cast<char *>(shell()), const_cast<char *>("-c"), const_cast<char *>(command),
                          nullptr};
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (own_group) {
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attributes, 0);
    }
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, argv[0], nullptr, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    return failure ? fork_shell(argv, own_group) : pid;
}

void kill_running(int)
{
    const ErrnoScope keep_errno;
    const pid_t pid = running;
    if (pid <= 0)
        return;
    kill(pid, SIGKILL);
    ended_on_timeout = 1;
}

// SIGALRM kills the command while this lives.
class AlarmHandler
{
public:
    AlarmHandler()
    {
        struct sigaction action = {};
        action.sa_handler = kill_running;
        sigemptyset(&action.sa_mask);
        sigaction(SIGALRM, &action, &previous_);
    }
    ~AlarmHandler() { sigaction(SIGALRM, &previous_, nullptr); }
    AlarmHandler(const AlarmHandler &) = delete;
    AlarmHandler &operator=(const AlarmHandler &) = delete;

private:
    struct sigaction previous_;
};

// The wait status, or -1 when there is no such child (somebody else waited for it).
int wait_for(pid_t pid)
{
    int status = 0;
    pid_t waited = 0;
    do
        waited = waitpid(pid, &status, 0);
    while (waited < 0 && errno == EINTR);
    return waited == pid ? status : -1;
}

int result_of(int status)
{
    if (status == -1)
        return -1;
    if (WIFSIGNALED(status))
        return -WTERMSIG(status);
    const int code = WEXITSTATUS(status);
    return code > kShellSignalBase ? kShellSignalBase - code : code;
}

int run_and_wait(const char *command)
{
    zel_error_full(kEntity, settings.verbose, "sys_exec(%s)", command);
    ended_on_timeout = 0;
    const bool own_group = settings.own_group != 0;
    const pid_t pid = start_shell(command, own_group);
    int status = 0;
    {
        const AlarmHandler handler;
        running = pid;
        // Deliberate: nobody cancels the alarm, and a time-out of 0 cancels one that somebody else set.
        alarm(static_cast<unsigned>(std::max(settings.timeout_s, 0)));
        status = wait_for(pid);
        running = 0;
        if (own_group)
            kill(-pid, SIGKILL);
    }
    int result = result_of(status);
    if (ended_on_timeout) {
        zel_error_full(kEntity, kInfo, "Executing <%s> ended on timeout (%d)", command, settings.timeout_s);
        result = -1;
    }
    check_expectation(command, result);
    return result;
}

// A standard input that stays silent, for a tool that would give up at its end; nothing when there is a
// terminal.
class SilentInput
{
public:
    SilentInput()
    {
        int ends[2];
        if (isatty(0))
            return;
        // Behind the standard descriptors, should one of those be closed. None when this one is.
        saved_ = Fd(fcntl(0, F_DUPFD_CLOEXEC, kFirstOther));
        if (pipe2(ends, O_CLOEXEC) != 0)
            return;
        const Fd reader(fcntl(ends[0], F_DUPFD_CLOEXEC, kFirstOther));
        writer_ = Fd(fcntl(ends[1], F_DUPFD_CLOEXEC, kFirstOther));
        close(ends[0]);
        close(ends[1]);
        replaced_ = dup2(reader.get(), 0) == 0;
    }
    ~SilentInput()
    {
        if (replaced_ && saved_.valid())
            dup2(saved_.get(), 0);
        else if (replaced_)
            close(0);
    }
    SilentInput(const SilentInput &) = delete;
    SilentInput &operator=(const SilentInput &) = delete;

private:
    static constexpr int kFirstOther = 3;
    Fd writer_;
    Fd saved_;
    bool replaced_ = false;
};

// The command as a part of a text in apostrophes.
char *inside_apostrophes(const char *command)
{
    TextBuilder text;
    for (const char c : view(command)) {
        if (c == '\'')
            text.append("'\\''");
        else
            text.append(c);
    }
    return text.release();
}

} // namespace

int sys_set_timeout(int seconds) { return std::exchange(settings.timeout_s, seconds); }

int sys_setpgid(int on) { return std::exchange(settings.own_group, on); }

int sys_set_shell(int bash_always)
{
    settings.bash_always = bash_always;
    return 0;
}

uint32_t sys_set_verbose(uint32_t flags) { return std::exchange(settings.verbose, flags); }

int sys_set_expect(int mask) { return std::exchange(settings.expect, mask); }

uint32_t sys_set_expect_level(uint32_t flags) { return std::exchange(settings.expect_level, flags); }

int sys_exec(const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    return run_and_wait(command.get());
}

int sys_exec_e(const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    const int result = run_and_wait(command.get());
    if (result != 0)
        zel_error_full(kEntity, kFatal, "%s", command.get());
    return result;
}

int sys_exec_bg(const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    zel_error_full(kEntity, settings.verbose, "sys_exec_bg(%s)", command.get());
    return start_shell(command.get(), false);
}

char *_sys_get_cmd(int *status, const char *command, int *len, const char *mode)
{
    if (status)
        *status = -1;
    if (len)
        *len = 0;
    if (!command || !mode)
        return nullptr;
    zel_error_full(kEntity, settings.verbose, "sys_get_cmd(%s)", command);
    // "e": the pipe is nothing that other children should inherit.
    const char how[] = {*mode, 'e', '\0'};
    FILE *pipe = popen(command, how);
    if (!pipe) {
        zel_error_full(kEntity, kErr, "popen(%s): %s", command, strerror(errno));
        return nullptr;
    }
    char *output = file_read_fp_bin(pipe, len);
    const int raw = pclose(pipe);
    if (status)
        *status = raw;
    check_expectation(command, raw);
    return output;
}

char *sys_get_cmd(int *status, const char *command) { return _sys_get_cmd(status, command, nullptr, "r"); }

char *sys_get_cmd_bin(int *status, const char *command, int *len)
{
    return _sys_get_cmd(status, command, len, "r");
}

char *sys_get(int *status, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    return sys_get_cmd(status, command.get());
}

char *sys_get_bin(int *status, int *len, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    return sys_get_cmd_bin(status, command.get(), len);
}

char **sys_get_lines(int *status, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    const HeapText output(sys_get_cmd(status, command.get()));
    char **lines = nullptr;
    lines_str_split_nl(&lines, output.get());
    return lines;
}

char *sys_term_get_cmd(int *status, const char *command)
{
    if (status)
        *status = -1;
    if (!command)
        return nullptr;
    zel_error_full(kEntity, settings.verbose, "sys_term_get(%s)", command);
    const HeapText log(file_tmp_create("system"));
    if (!log)
        return nullptr;
    const HeapText quoted(inside_apostrophes(command));
    char *line = nullptr;
    str_printf(&line,
               "expect -c 'log_file -noappend %s ;spawn %s ;expect_before timeout ;"
               "interact -timeout -1 \"^C\" ;exit ;'",
               log.get(), quoted.get());
    const HeapText owner(line);
    int result = -1;
    {
        const SilentInput input;
        result = system(line);
    }
    if (status)
        *status = result;
    char *output = file_read_bin(log.get(), nullptr);
    unlink(log.get());
    check_expectation(command, result);
    return output;
}

char **sys_term_get_lines(int *status, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const HeapText command(format_command(format, ap));
    va_end(ap);
    const HeapText output(sys_term_get_cmd(status, command.get()));
    char **lines = nullptr;
    lines_str_split_crlf(&lines, output.get());
    return lines;
}

char *argv_to_shell(char *const *argv)
{
    TextBuilder line;
    for (char *const *argument = argv; argument && *argument; argument++) {
        char *word = copy_text(*argument);
        str_escape_shell(&word);
        const HeapText owner(word);
        if (argument != argv)
            line.append(' ');
        line.append(view(word));
    }
    return line.release();
}
