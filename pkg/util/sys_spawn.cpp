// Children with their descriptors arranged, and the descriptors of a process.

#include "sys.h"

#include "internal/errno_scope.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "internal/signal_block.h"
#include "str.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <termios.h>

using namespace kutil;

namespace
{

constexpr int kSpawnFailed = 255; // what _exit(-1) gives
constexpr int kNiceShift = 25;
constexpr uint32_t kNiceMask = 0x3F;
constexpr int kNiceZero = 20;
constexpr int kStandardMap[] = {SPAWN_FD_NULL, SPAWN_FD_NULL, SPAWN_FD_NULL, SPAWN_FD_END};

// What the child is to become. It shares this with its parent, which stands still until the child runs its
// program.
struct Spawn {
    uint32_t flags;
    char *const *argv;
    char *const *envp;
    int *map; // a copy, in which the child notes where it moved descriptors to; NULL: leave them alone
    int map_length;
    sigset_t mask; // the caller's
};

[[noreturn]] void give_up() { _exit(kSpawnFailed); }

// dup2 that also clears close-on-exec when the two are the same.
void put_descriptor(int from, int to)
{
    if (from == to) {
        const int flags = fcntl(from, F_GETFD);
        if (flags < 0 || fcntl(from, F_SETFD, flags & ~FD_CLOEXEC) < 0)
            give_up();
    } else if (dup2(from, to) < 0) {
        give_up();
    }
}

// A descriptor of the caller whose number the map gives to another one is moved out of the way first.
void save_sources(const Spawn &spawn)
{
    for (int i = 0; i < spawn.map_length; i++) {
        const int from = spawn.map[i];
        if (from < 0 || from >= spawn.map_length || from == i)
            continue;
        spawn.map[i] = fcntl(from, F_DUPFD_CLOEXEC, spawn.map_length);
        if (spawn.map[i] < 0)
            give_up();
    }
}

void arrange_descriptors(const Spawn &spawn)
{
    save_sources(spawn);
    int null_fd = -1;
    for (int i = 0; i < spawn.map_length; i++) {
        if (spawn.map[i] != SPAWN_FD_NULL)
            continue;
        if (null_fd < 0) {
            // Above the map, so that no later entry takes its number.
            const int opened = open("/dev/null", O_RDWR);
            null_fd = opened < 0 ? -1 : fcntl(opened, F_DUPFD_CLOEXEC, spawn.map_length);
            if (null_fd < 0)
                give_up();
            if (opened < spawn.map_length && spawn.map[opened] < 0)
                close(opened);
        }
        put_descriptor(null_fd, i);
    }
    for (int i = 0; i < spawn.map_length; i++) {
        if (spawn.map[i] == SPAWN_FD_CLOSED)
            close(i);
        else if (spawn.map[i] >= 0)
            put_descriptor(spawn.map[i], i);
    }
    close_fds_from(spawn.map_length);
}

// A handler of the caller must not run here, in its memory; what is caught becomes the default action, as the
// program's start would make it.
void reset_signals()
{
    for (int number = 1; number < NSIG; number++) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) != 0)
            continue;
        const bool caught = action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
        if (!caught && number != SIGPIPE && number != SIGCHLD)
            continue;
        action = {};
        action.sa_handler = SIG_DFL;
        sigemptyset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}

// Runs in the child, in memory that it shares with the caller: nothing here allocates or reports.
[[noreturn]] __attribute__((noinline)) void become(const Spawn &spawn)
{
    if ((spawn.flags & SPAWN_F_SESSION) && setsid() < 0)
        give_up();
    if (spawn.map)
        arrange_descriptors(spawn);
    if (spawn.flags & SPAWN_F_NICE)
        setpriority(PRIO_PROCESS, 0, static_cast<int>((spawn.flags >> kNiceShift) & kNiceMask) - kNiceZero);
    reset_signals();
    sigprocmask(SIG_SETMASK, &spawn.mask, nullptr);
    if (spawn.envp)
        execve(spawn.argv[0], spawn.argv, spawn.envp);
    else
        execvp(spawn.argv[0], spawn.argv);
    give_up();
}

bool close_range_from(int n)
{
#ifdef SYS_close_range
    return syscall(SYS_close_range, static_cast<unsigned>(n), UINT_MAX, 0U) == 0;
#else
    (void)n;
    return false;
#endif
}

// The number that a directory entry's name is, or -1.
int number_of(const char *name)
{
    int number = 0;
    for (; is_digit(*name) && number < INT_MAX / 10; name++)
        number = number * 10 + (*name - '0');
    return *name ? -1 : number;
}

// Reads the kernel's list of open descriptors without a stream, since a child of vfork may not allocate.
bool close_listed_from(int n)
{
#ifdef SYS_getdents64
    constexpr size_t kLengthAt = 16,
                     kNameAt = 19; // of the kernel's record: inode, offset, length, type, name
    const int folder = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    alignas(8) char records[1024];
    long size;
    while ((size = syscall(SYS_getdents64, folder, records, sizeof(records))) > 0) {
        for (long at = 0; at < size;) {
            const int fd = number_of(records + at + kNameAt);
            if (fd >= n && fd != folder)
                close(fd);
            uint16_t length;
            memcpy(&length, records + at + kLengthAt, sizeof(length));
            at += length;
        }
    }
    close(folder);
    return size == 0;
#else
    (void)n;
    return false;
#endif
}

void close_each_from(int n)
{
    constexpr rlim_t kMost = 1 << 20;
    struct rlimit limit;
    rlim_t end = kMost;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < kMost)
        end = limit.rlim_cur;
    for (int fd = n; fd < static_cast<int>(end); fd++)
        close(fd);
}

bool drain_terminal(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    struct termios before;
    if (flags < 0 || tcgetattr(fd, &before) != 0)
        return false;
    struct termios quiet = before;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL | ECHOCTL);
    if (tcsetattr(fd, TCSANOW, &quiet) != 0)
        return false;
    bool ok = fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
    // Deliberate: standard input is read and restored, whatever fd is.
    struct pollfd input = {.fd = 0, .events = POLLIN, .revents = 0};
    char byte;
    while (ok && poll(&input, 1, 0) > 0 && read(0, &byte, 1) == 1)
        continue;
    ok = fcntl(0, F_SETFL, flags) == 0 && ok;
    return tcsetattr(0, TCSANOW, &before) == 0 && ok;
}

} // namespace

int spawn_child_process(uint32_t flags, char *const *argv, char *const *envp, const int *fd_map)
{
    if (!argv || !argv[0])
        return -1;
    if (!fd_map && (flags & SPAWN_F_SESSION))
        fd_map = kStandardMap;
    Spawn spawn = {.flags = flags, .argv = argv, .envp = envp};
    Heap<int> map;
    if (fd_map) {
        while (fd_map[spawn.map_length] != SPAWN_FD_END)
            spawn.map_length++;
        map.reset(new_array<int>(static_cast<size_t>(spawn.map_length) + 1));
        memcpy(map.get(), fd_map, static_cast<size_t>(spawn.map_length) * sizeof(int));
        spawn.map = map.get();
    }
    pid_t pid = -1;
    {
        const SignalBlock block;
        spawn.mask = block.saved();
        pid = vfork();
        if (pid == 0)
            become(spawn);
    }
    if (pid < 0)
        return zel_error_full(kEntity, kErr, "spawn_child: vfork failed");
    return pid;
}

void close_fds_from(int n)
{
    const ErrnoScope keep_errno;
    if (n < 0)
        n = 0;
    if (!close_range_from(n) && !close_listed_from(n))
        close_each_from(n);
}

void clear_fd_buffer(int fd)
{
    if (!drain_terminal(fd))
        zel_error_full(kEntity, kInfo, "Warning: error cleaning input buffer");
}
