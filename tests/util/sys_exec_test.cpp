#include "util/lines.h"
#include "util/sys.h"

#include "support.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <termios.h>

namespace
{

std::string take(char *text)
{
    const std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

std::string joined(char **lines)
{
    std::string text;
    for (char **line = lines; line && *line; line++)
        text += std::string(*line) + "|";
    lines_free(&lines);
    return text;
}

int wait_for(int pid)
{
    int status = 0;
    return waitpid(pid, &status, 0) == pid ? status : -1;
}

bool is_open(int fd) { return fcntl(fd, F_GETFD) >= 0; }

// What a shell with these descriptors sees: its open descriptors, without the one it looks with.
constexpr char kListFds[] =
    "for f in 0 1 2 3 4 5 6 7 8 9; do [ -e /proc/self/fd/$f ] && printf %s $f >&5; done; true";

} // namespace

TEST(Exec, ResultsOfCommands)
{
    ReportLog log;
    sys_set_verbose(8);
    struct Row {
        const char *command;
        int result;
    };
    const Row rows[] = {{"true", 0},
                        {"exit 3", 3},
                        {"exit 128", 128},
                        {"exit 129", -1},
                        {"exit 143", -15},
                        {"kill -KILL $$", -9},
                        {"bash -c 'kill $$'", -15},
                        {"exit 255", -127},
                        {"", 0},
                        {"nonexistent-command 2>/dev/null", 127}};
    for (const Row &row : rows) {
        EXPECT_EQ(sys_exec("%s", row.command), row.result) << row.command;
        EXPECT_EQ(ended_on_timeout, 0);
    }
    log.take();
    EXPECT_EQ(sys_exec("exit %d # 50%%", 7), 7);
    EXPECT_EQ(log.take(), "8: sys_exec(exit 7 # 50%)\n");
    signal(SIGCHLD, SIG_IGN); // the system waits itself: there is no result
    EXPECT_EQ(sys_exec("exit 3"), -1);
    signal(SIGCHLD, SIG_DFL);
    expect_fatal("crit: exit 3", [] { sys_exec_e("exit %d", 3); });
}

TEST(Exec, TimeOutKillsAndTheAlarmStays)
{
    ReportLog log;
    static volatile sig_atomic_t alarms;
    signal(SIGALRM, [](int) { alarms = alarms + 1; });
    EXPECT_EQ(sys_set_timeout(1), 0);
    const int64_t start = time(nullptr);
    EXPECT_EQ(sys_exec("exec sleep 20"), -1);
    EXPECT_LE(time(nullptr) - start, 10);
    EXPECT_EQ(ended_on_timeout, 1);
    EXPECT_EQ(alarms, 0) << "while a command runs the alarm is the library's";
    EXPECT_NE(log.take().find("7: Executing <exec sleep 20> ended on timeout (1)\n"), std::string::npos);
    EXPECT_EQ(sys_exec("true"), 0);
    EXPECT_EQ(ended_on_timeout, 0);
    EXPECT_EQ(alarm(0), 1U) << "not cancelled, and the caller's action is back";
    EXPECT_EQ(sys_set_timeout(-5), 1);
    alarm(100);
    sys_exec("true");
    EXPECT_EQ(alarm(0), 0U) << "a time-out of 0 or less cancels";
    EXPECT_EQ(sys_set_timeout(0), -5);
    signal(SIGALRM, SIG_DFL);
}

TEST(Exec, GroupEndsWithTheCommand)
{
    ReportLog log;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(sys_setpgid(1), 0);
    EXPECT_EQ(sys_exec("(trap '' TERM; sleep 30) & exit 0"), 0);
    EXPECT_EQ(sys_setpgid(0), 1);
    close(ends[1]);
    char byte;
    EXPECT_EQ(read(ends[0], &byte, 1), 0) << "the helper is gone, and with it the last writer";
    close(ends[0]);
}

TEST(Exec, ShellChoiceAndShellsThatAreNotThere)
{
    ReportLog log;
    setenv("SHELL", "/nonexistent/shell", 1);
    EXPECT_EQ(sys_exec("true"), 0);
    sys_set_shell(0);
    const int result = sys_exec("true");
    EXPECT_EQ(result, 1) << "the child's report ends it";
    setenv("SHELL", "/bin/sh", 1);
    EXPECT_EQ(sys_exec("exit 4"), 4);
    unsetenv("SHELL");
    EXPECT_EQ(sys_exec("[ -n \"$BASH_VERSION\" ]"), 0);
    sys_set_shell(1);
    const int pid = sys_exec_bg("exit 6");
    EXPECT_EQ(WEXITSTATUS(wait_for(pid)), 6);
}

TEST(Expect, WhichResultsAreReported)
{
    ReportLog log;
    EXPECT_EQ(sys_set_verbose(0), 8U);
    EXPECT_EQ(sys_set_expect_level(4), 0x303U);
    struct Row {
        int mask;
        const char *command;
        bool reported;
    };
    const Row rows[] = {{0, "exit 1", false}, {1, "true", false},        {1, "exit 1", true},
                        {4, "exit 1", false}, {4, "true", true},         {2, "kill -KILL $$", false},
                        {6, "exit 2", false}, {1, "kill -KILL $$", true}};
    for (const Row &row : rows) {
        sys_set_expect(row.mask);
        log.take();
        const int result = sys_exec("%s", row.command);
        const std::string report = "4: sys_expect failed: exec(" + std::string(row.command) + ") returned " +
                                   std::to_string(result) + "\n";
        EXPECT_EQ(log.take().find(report) != std::string::npos, row.reported) << row.mask << row.command;
    }
    sys_set_expect(SYS_EXPECT_ZERO);
    int status = 0;
    free(sys_get(&status, "exit 1"));
    EXPECT_NE(log.take().find("returned " + std::to_string(status) + "\n"), std::string::npos)
        << "the raw status";
    EXPECT_EQ(sys_set_expect(0), SYS_EXPECT_ZERO);
    sys_set_expect_level(0x303);
    sys_set_verbose(8);
}

TEST(Get, OutputAndStatus)
{
    ReportLog log;
    int status = 5, len = 5;
    EXPECT_EQ(take(sys_get(&status, "printf '%s'; exit 2", "a b")), "a b");
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(log.take(), "8: sys_get_cmd(printf 'a b'; exit 2)\n");
    char *bytes = sys_get_bin(nullptr, &len, "printf 'a\\0b'");
    EXPECT_EQ(std::string(bytes, 3), std::string("a\0b", 3));
    EXPECT_EQ(len, 3);
    free(bytes);
    EXPECT_EQ(joined(sys_get_lines(nullptr, "printf 'one\\n\\ntwo'")), "one||two|");
    EXPECT_EQ(take(sys_get_cmd(&status, nullptr)), "(null)");
    EXPECT_EQ(status, -1);
    // A command that fills the pipe.
    EXPECT_EQ(take(sys_get_cmd(nullptr, "head -c 300000 /dev/zero | tr '\\0' x")).size(), 300000U);
    EXPECT_EQ(take(_sys_get_cmd(&status, "true", &len, "q")), "(null)");
    EXPECT_EQ(status, -1);
    EXPECT_NE(log.take().find("4: popen(true): "), std::string::npos);
}

TEST(Shell, ArgumentsAsOneLine)
{
    char *argv[] = {const_cast<char *>("echo"), const_cast<char *>("a b"), const_cast<char *>(""), nullptr};
    EXPECT_EQ(take(argv_to_shell(argv)), "echo $'a b' ''");
    EXPECT_EQ(take(argv_to_shell(nullptr)), "");
}

TEST(Spawn, DescriptorMaps)
{
    struct Row {
        uint32_t flags;
        std::vector<int> map;
        std::string seen; // the child's descriptors, and what its 6 and 7 say when they are pipes of ours
    };
    // The child writes the list to its descriptor 5, which is our pipe (7 here) in every row.
    const Row rows[] = {
        {0, {0, 1, 2, -3, -3, 7, -1}, "0125"},
        {0, {-2, -3, -2, -3, -3, 7, -1}, "025"},
        {2, {-2, -2, -2, -3, -3, 7, -2, -1}, "01256"},
        {0, {-3, -3, -3, -3, 7, 7, 5, -1}, "456"},
    };
    for (const Row &row : rows) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const int writer = fcntl(ends[1], F_DUPFD, 100);
        close(ends[1]);
        const ChildResult child = run_in_child([&] {
            dup2(writer, 7);
            dup2(1, 5);
            char *argv[] = {const_cast<char *>("/bin/sh"), const_cast<char *>("-c"),
                            const_cast<char *>(kListFds), nullptr};
            _exit(WEXITSTATUS(wait_for(spawn_child_process(row.flags, argv, nullptr, row.map.data()))));
        });
        close(writer);
        char seen[32] = {};
        ssize_t total = 0, length;
        while ((length = read(ends[0], seen + total, sizeof(seen) - 1 - static_cast<size_t>(total))) > 0)
            total += length;
        close(ends[0]);
        EXPECT_TRUE(child.exited_with(0)) << row.seen << " " << child.status;
        EXPECT_EQ(std::string(seen), row.seen);
    }
}

TEST(Spawn, SwapsFailuresAndSettings)
{
    // The map's numbers are the caller's whatever stands before them: 3 and 4 change places.
    const ChildResult swapped = run_in_child([] {
        int a[2], b[2];
        if (pipe(a) || pipe(b))
            _exit(9);
        if (write(a[1], "A", 1) != 1 || write(b[1], "B", 1) != 1)
            _exit(9);
        const int first = fcntl(a[0], F_DUPFD, 20), second = fcntl(b[0], F_DUPFD, 20);
        dup2(first, 3);
        dup2(second, 4);
        fcntl(3, F_SETFD, FD_CLOEXEC);
        const int map[] = {0, 1, 2, 4, 3, -1};
        char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                        const_cast<char *>("head -c1 <&3; head -c1 <&4"), nullptr};
        wait_for(spawn_child_process(SPAWN_NICE(5), argv, nullptr, map));
    });
    EXPECT_EQ(swapped.output, "BA");

    char *nowhere[] = {const_cast<char *>("/nonexistent/program"), nullptr};
    EXPECT_EQ(WEXITSTATUS(wait_for(spawn_child_process(0, nowhere, nullptr, nullptr))), 255);
    const int bad_map[] = {0, 1, 2, 99, -1};
    char *yes[] = {const_cast<char *>("true"), nullptr};
    EXPECT_EQ(WEXITSTATUS(wait_for(spawn_child_process(0, yes, nullptr, bad_map))), 255);
    EXPECT_EQ(spawn_child_process(0, nullptr, nullptr, nullptr), -1);

    // A fresh session, a chosen nice value, default actions, the caller's mask.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR1, [](int) {});
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    const int before = getpriority(PRIO_PROCESS, 0);
    char *script[] = {const_cast<char *>("sh"),
                      const_cast<char *>("-c"),
                      const_cast<char *>("[ \"$(nice)\" = \"$1\" ] && kill -PIPE $$"),
                      const_cast<char *>("sh"),
                      const_cast<char *>("7"),
                      nullptr};
    EXPECT_EQ(
        WTERMSIG(wait_for(spawn_child_process(SPAWN_F_SESSION | SPAWN_NICE(7), script, nullptr, nullptr))),
        SIGPIPE);
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before);
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
    EXPECT_EQ(sigismember(&after, SIGTERM), 0);
    char *environment[] = {const_cast<char *>("WORD=exit 4"), nullptr};
    char *echo[] = {const_cast<char *>("/bin/sh"), const_cast<char *>("-c"),
                    const_cast<char *>("eval \"$WORD\""), nullptr};
    EXPECT_EQ(WEXITSTATUS(wait_for(spawn_child_process(0, echo, environment, nullptr))), 4);
}

TEST(Descriptors, ClosedFromANumberUp)
{
    const ChildResult result = run_in_child([] {
        dup2(1, 40);
        dup2(1, 900);
        errno = EDOM;
        close_fds_from(40);
        const bool errno_kept = errno == EDOM;
        printf("%d%d%d%d", is_open(39), is_open(40), is_open(900), errno_kept);
        dup2(1, 39);
        close_fds_from(40);
        printf("%d", is_open(39));
    });
    EXPECT_EQ(result.output, "00011");
    ReportLog log;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    clear_fd_buffer(ends[0]);
    EXPECT_EQ(log.take(), "7: Warning: error cleaning input buffer\n");
    close(ends[0]);
    close(ends[1]);
}

TEST(Descriptors, ClearingReadsAndRestoresStandardInput)
{
    const ChildResult result = run_in_child([] {
        int masters[2], slaves[2];
        for (int i = 0; i < 2; i++) {
            masters[i] = posix_openpt(O_RDWR | O_NOCTTY);
            if (masters[i] < 0 || grantpt(masters[i]) || unlockpt(masters[i]))
                _exit(9);
            slaves[i] = open(ptsname(masters[i]), O_RDWR | O_NOCTTY);
        }
        dup2(slaves[0], 0);
        struct termios given, input;
        tcgetattr(slaves[1], &given);
        given.c_oflag &= ~static_cast<tcflag_t>(OPOST);
        tcsetattr(slaves[1], TCSANOW, &given);
        if (write(masters[0], "typed\n", 6) != 6)
            _exit(9);
        clear_fd_buffer(slaves[1]);
        struct pollfd waiting = {.fd = 0, .events = POLLIN, .revents = 0};
        tcgetattr(0, &input);
        tcgetattr(slaves[1], &given);
        printf("%d %d %d %d", poll(&waiting, 1, 0), (input.c_oflag & OPOST) != 0,
               (given.c_lflag & (ICANON | ECHO)) != 0, (fcntl(slaves[1], F_GETFL) & O_NONBLOCK) != 0);
    });
    EXPECT_EQ(result.output, "0 0 0 1")
        << "input dropped and given the other's settings, which is left quiet";
}
