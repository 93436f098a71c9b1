// What the library's objects cost in heap. Prints NAME, a tab and a number per line; scripts/size reads it.

#include "util/kutil.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <sys/socket.h>
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

} // namespace

int main()
{
    constexpr int kCount = 1000;
    zel_error_init_default(5);
    zel_error_set_mt_id();
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
    return 0;
}
