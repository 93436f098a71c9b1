// Reports that end a process, and what only a process that initialised nothing can show. Every case runs in a
// child, and the parent never reports.

#include "util/zel_error.h"

#include "support.h"
#include "util/internal/error_state.h"

#include <csignal>
#include <fstream>
#include <sstream>

TEST(Delivery, CallbacksThatReportForeverEndOnStandardError)
{
    const ChildResult result = run_in_child([] {
        zel_error_init_nodefault();
        zel_error_set_mt_id();
        static int count;
        const zel_error_cb again = [](void *, const char *, int, uint32_t) {
            return zel_error_full(1, 5, "after %d", ++count);
        };
        zel_error_register(0, again, nullptr);
        zel_error_full(1, 5, "start");
        printf("called %d times\n", count);
    });
    EXPECT_TRUE(result.exited_with(77));
    EXPECT_EQ(result.output, "after 8\ncalled 8 times\n");
}

TEST(Ends, FatalReports)
{
    struct Row {
        const char *what;
        void (*body)();
        const char *output;
    };
    const Row rows[] = {
        {"hook, once",
         [] {
             zel_error_exit_func_set([] {
                 puts("hook");
                 zel_error_full(1, 0x301, "second");
             });
             zel_error_full(1, 0x303, "first");
         },
         "crit: first\nemerg: second\nhook\n"},
        {"crash without dump", [] { zel_error_full(1, 0x401, "dead"); }, "emerg: dead\n"},
        {"in an exit handler",
         [] {
             atexit([] { zel_error_full(1, 0x303, "handler"); });
             zel_error_full(1, 0x303, "first");
         },
         "crit: first\ncrit: handler\n"},
        {"second initialisation", [] { zel_error_init_nodefault(); },
         "crit: zel_error_init: already initialized\n"},
    };
    for (const Row &row : rows) {
        const ChildResult result = run_in_child([&] {
            zel_error_init_default(8);
            zel_error_set_mt_id();
            row.body();
        });
        EXPECT_TRUE(result.exited_with(1)) << row.what << " status " << result.status;
        EXPECT_EQ(result.output, row.output) << row.what;
    }

    const ChildResult result = run_in_child([] {
        zel_error_init(1, 0, 0, "name-is-longer-than-it-may-be", nullptr, nullptr);
        zel_error_set_mt_id();
        puts(kutil::process_name());
        fflush(stdout);
        signal(SIGSEGV, SIG_IGN);
        zel_error_reboot_func = [] {
            puts("reboot hook");
            fflush(stdout);
        };
        zel_error_full(1, 0x303, "m");
    });
    EXPECT_TRUE(WIFSIGNALED(result.status) || result.exited_with(1)) << result.status;
    EXPECT_EQ(result.output.find("name-is-longer-\nreboot hook\n"), 0U) << result.output;
}

TEST(Ends, DefaultCallbackPrefixes)
{
    const ChildResult result = run_in_child([] {
        for (uint32_t flags : {4U, 0U, 9U, 0x2004U})
            default_error_cb(nullptr, "m", flags);
        default_error_cb(nullptr, nullptr, 8);
    });
    EXPECT_EQ(result.output, "err: m\nm\nm\nmdebug: \n");
}

// Frames whose words the dump must show. The result keeps each in use until the call below it is back.
static __attribute__((noinline)) uint32_t dump_below(int depth)
{
    volatile uint32_t marker[] = {0xC0FFEE01, 0xC0FFEE02, 0xC0FFEE03, 0xC0FFEE04};
    uint32_t below = 0;
    if (depth > 0)
        below = dump_below(depth - 1);
    else
        strace_write();
    return below + marker[0];
}

TEST(StackDump, RowsFromHereToTheTop)
{
    EXPECT_EQ(run_in_child([] { strace_write(); }).output, "") << "no top is recorded";

    const ChildResult named = run_in_child([] {
        zel_error_init(0, 0, 1, nullptr, reinterpret_cast<void *>(0x1234), "trace");
        puts(kutil::process_name());
        strace_write();
    });
    std::string name;
    std::getline(std::ifstream("/proc/self/comm"), name);
    EXPECT_EQ(named.output.find(name + "\nStack trace (trace()=0x1234)\nepc   : "), 0U) << named.output;

    const ChildResult result = run_in_child([] {
        zel_error_init_nodefault();
        strace_init();
        dump_below(8);
    });
    std::istringstream lines(result.output);
    std::string line, words;
    std::getline(lines, line);
    EXPECT_EQ(line.find("Stack traceepc   : "), 0U) << "no line end without a name: " << line;
    std::getline(lines, line);
    EXPECT_EQ(line.find("ra    : "), 0U) << line;
    std::getline(lines, line);
    unsigned long long from = 0, to = 0;
    ASSERT_EQ(sscanf(line.c_str(), "User-mode stack:(%llx to %llx)", &from, &to), 2) << line;
    for (unsigned long long row = from & ~31ULL; std::getline(lines, line); row += 32) {
        char address[16];
        snprintf(address, sizeof(address), "%04llx:", row & 0xFFE0);
        ASSERT_EQ(line.substr(0, 5), address);
        words += line.substr(5);
    }
    const size_t blanks = from % 32 / 4;
    EXPECT_EQ(words.size(), 9 * (blanks + (to - from) / 4 + 1)) << result.output;
    EXPECT_EQ(words.find_first_not_of(' '), 9 * blanks + 1) << "words stand under their place in the row";
    EXPECT_NE(words.find(" c0ffee01 c0ffee02 c0ffee03 c0ffee04"), std::string::npos) << result.output;
}
