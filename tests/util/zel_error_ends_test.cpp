// Reports that end a process, and what only a process that initialised nothing can show. Every case runs in a
// child, and the parent never reports.

#include "util/zel_error.h"

#include "support.h"
#include "util/internal/error_state.h"

#include <csignal>
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

TEST(StackDump, RowsFromHereToTheTop)
{
    const ChildResult quiet = run_in_child([] { strace_write(); });
    EXPECT_EQ(quiet.output, "");

    const ChildResult result = run_in_child([] {
        zel_error_init(0, 0, 1, nullptr, nullptr, nullptr);
        volatile uint32_t marker[4] = {0xC0FFEE01, 0xC0FFEE02, 0xC0FFEE03, 0xC0FFEE04};
        // The recorded top lies below this frame; a top of its own puts the marker into the dump.
        const auto deep = [](auto self, int depth) -> void {
            depth ? self(self, depth - 1) : strace_write();
        };
        (void)marker;
        deep(deep, 3);
    });
    EXPECT_EQ(result.output.find("Stack traceepc   : "), 0U)
        << "no line end without a name: " << result.output;
    EXPECT_NE(result.output.find("\nra    : "), std::string::npos);
    EXPECT_NE(result.output.find("\nUser-mode stack:("), std::string::npos);
    std::istringstream lines(result.output);
    std::string line;
    for (int i = 0; i < 3; i++)
        std::getline(lines, line);
    while (std::getline(lines, line)) {
        EXPECT_LE(line.size(), 5U + 8 * 9) << line;
        EXPECT_EQ(line[4], ':') << line;
        EXPECT_EQ((line.size() - 5) % 9, 0U) << line;
    }
}
