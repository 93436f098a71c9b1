// The dump of the stack, and the forced fault that hands a dying process to the platform.

#include "zel_error.h"

#include "internal/error_state.h"
#include "internal/fd.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/syscall.h>
#include <utility>

using namespace kutil;

namespace
{

constexpr size_t kLineSize = 100;
constexpr uintptr_t kWordsPerLine = 8;
constexpr uintptr_t kRowBytes = kWordsPerLine * sizeof(uint32_t);

constinit uintptr_t stack_top;

// Copies memory that may not be there. The kernel does the reading, through a pipe, so that an address
// without memory ends the dump and not the process; the raw call keeps the sanitizers from looking at the
// stack's red zones.
class Prober
{
public:
    Prober()
    {
        int ends[2];
        if (pipe(ends) == 0) {
            read_end_ = Fd(ends[0]);
            write_end_ = Fd(ends[1]);
        }
    }
    bool read_word(uintptr_t address, uint32_t *word) const
    {
        return write_end_.valid() &&
               syscall(SYS_write, write_end_.get(), address, sizeof(*word)) ==
                   static_cast<long>(sizeof(*word)) &&
               read(read_end_.get(), word, sizeof(*word)) == static_cast<ssize_t>(sizeof(*word));
    }

private:
    Fd read_end_;
    Fd write_end_;
};

void dump_words(char *line, uintptr_t from, uintptr_t to)
{
    const Prober prober;
    size_t length = strlen(line);
    uintptr_t counter = 0;
    uint32_t word = 0;
    for (uintptr_t address = from; address <= to && prober.read_word(address, &word);
         address += sizeof(word)) {
        if (counter % kWordsPerLine == 0) {
            printf("%s\n", line);
            // Deliberate: only the low 16 bits of a row's address; the full range stands in the first line.
            length = static_cast<size_t>(
                snprintf(line, kLineSize, "%04lx:", static_cast<unsigned long>(address & 0xFFE0)));
        }
        if (counter == 0) {
            // Blank columns, so that a word stands under its place in the row.
            counter = (address & (kRowBytes - 1)) / sizeof(word);
            const size_t blanks = 9 * counter;
            memset(line + length, ' ', blanks);
            length += blanks;
        }
        length += static_cast<size_t>(snprintf(line + length, kLineSize - length, " %08x", word));
        counter++;
    }
    printf("%s\n", line);
}

} // namespace

__attribute__((noinline)) void strace_init(void)
{
    stack_top = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}

__attribute__((noinline)) void strace_write(void)
{
    if (!stack_top)
        return;
    char *line = static_cast<char *>(malloc(kLineSize));
    if (!line)
        return;
    printf("Stack trace");
    // Deliberate: without a name no line ends here.
    if (trace_info.func_name)
        printf(" (%s()=%p)\n", trace_info.func_name, trace_info.func_addr);
    printf("epc   : %lx\n", reinterpret_cast<unsigned long>(&strace_write));
    printf("ra    : %lx\n", reinterpret_cast<unsigned long>(__builtin_return_address(0)));
    const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) & ~uintptr_t{3};
    snprintf(line, kLineSize, "User-mode stack:(%p to %p)", reinterpret_cast<void *>(here),
             reinterpret_cast<void *>(stack_top));
    dump_words(line, here, stack_top);
    free(line);
    fflush(stdout);
}

__attribute__((no_sanitize("undefined", "address"))) void zel_error_reboot(void)
{
    static bool in_hook;
    if (zel_error_reboot_func && !std::exchange(in_hook, true))
        zel_error_reboot_func();

    // The platform's crash handling takes over when a process dies of a memory fault; the address is volatile
    // so that no compiler sees that it is invalid.
    volatile double zero = 0.0;
    volatile uintptr_t address = 1;
    *reinterpret_cast<volatile uint32_t *>(address) = static_cast<uint32_t>(1.0 / zero > 0.0);

    // Reached only when somebody handles the fault.
    signal(SIGSEGV, SIG_DFL);
    sigset_t fault;
    sigemptyset(&fault);
    sigaddset(&fault, SIGSEGV);
    sigprocmask(SIG_UNBLOCK, &fault, nullptr);
    raise(SIGSEGV);
    _exit(1);
}
