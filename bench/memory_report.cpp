// What the library's objects cost in memory: heap of one object, and private dirty memory of an idle process.
// Prints NAME, a tab and a number per line; scripts/size reads it.

#include "util/kutil.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

size_t heap_in_use() { return mallinfo2().uordblks; }

void print(const char *name, size_t bytes) { printf("%s\t%zu\n", name, bytes); }

// Bytes of one of `count` objects that `make` makes.
template <class Make>
void measure(const char *name, int count, Make make)
{
    make(0); // what the first one alone sets up
    const size_t before = heap_in_use();
    for (int i = 1; i <= count; i++)
        make(i);
    print(name, (heap_in_use() - before) / static_cast<size_t>(count));
}

void ignore_timer(void *) {}
void ignore_fd(int, void *) {}
int ignore_client(estream *, int) { return 0; }

size_t private_dirty()
{
    FILE *file = fopen("/proc/self/smaps_rollup", "r");
    char line[256];
    size_t kilobytes = 0;
    while (file && fgets(line, sizeof(line), file))
        sscanf(line, "Private_Dirty: %zu", &kilobytes);
    if (file)
        fclose(file);
    return kilobytes * 1024;
}

// The same measurement in two children, one of which lives on the library.
size_t idle_process(bool with_library)
{
    int ends[2];
    if (pipe(ends) != 0)
        return 0;
    fflush(nullptr);
    if (fork() == 0) {
        if (with_library) {
            event_loop_init();
            eserver_open_port(0, 0, ignore_client, nullptr);
            for (intptr_t i = 0; i < 10; i++)
                event_timer_set(1e9, ignore_timer, reinterpret_cast<void *>(i));
        }
        const size_t dirty = private_dirty();
        _exit(write(ends[1], &dirty, sizeof(dirty)) == sizeof(dirty) ? 0 : 1);
    }
    size_t dirty = 0;
    if (read(ends[0], &dirty, sizeof(dirty)) != sizeof(dirty))
        dirty = 0;
    wait(nullptr);
    return dirty;
}

} // namespace

int main()
{
    constexpr int kCount = 1000;
    zel_error_init_default(5);
    zel_error_set_mt_id();
    const size_t bare = idle_process(false);
    const size_t idle = idle_process(true);
    set *keys = set_alloc("conf");
    measure("tree key", kCount, [&](int i) {
        char name[16];
        snprintf(name, sizeof(name), "key%d", i);
        set_set_path_str(&keys, name, "value");
    });
    event_loop_init();
    measure("timer", kCount,
            [](intptr_t i) { event_timer_set(1e9, ignore_timer, reinterpret_cast<void *>(i)); });
    measure("descriptor watch", 500, [](int) { event_fd_set(dup(0), EVENT_READ, ignore_fd, nullptr); });
    measure("idle stream with a line request", 200, [](int) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0) {
            estream *stream = estream_connect_fd(ends[0], 0, nullptr);
            estream_read_line(stream);
        }
    });
    print("idle process", idle > bare ? idle - bare : 0);
    return 0;
}
