#include "util/zel_error.h"

#include "support.h"
#include "util/internal/error_state.h"

#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <syslog.h>

namespace
{

struct LogEntry {
    int priority;
    std::string format;
    std::string text;
};
std::vector<LogEntry> log_entries;

void record_log(int priority, const char *format, va_list ap)
{
    char text[4096];
    vsnprintf(text, sizeof(text), format, ap);
    log_entries.push_back({priority, format, text});
}

// A file of the test's own in place of the console.
struct ConsoleFile {
    char path[32] = "/tmp/kutil-console-XXXXXX";
    ConsoleFile()
    {
        close(mkstemp(path));
        kutil::console_path = path;
    }
    ~ConsoleFile()
    {
        unlink(path);
        kutil::console_path = "/dev/console";
    }
    std::string take()
    {
        std::ifstream file(path);
        std::string text(std::istreambuf_iterator<char>(file), {});
        EXPECT_EQ(truncate(path, 0), 0);
        return text;
    }
};

bool report_on_open = false;
std::string calls;

int note_call(void *data, const char *, int, uint32_t)
{
    calls += static_cast<const char *>(data);
    return 0;
}

char kOne[] = "1", kTwo[] = "2", kThree[] = "3", kFirst[] = "0", kLate[] = "n";

} // namespace

extern "C" {
// What would reach the system log is recorded here, whichever of its entry points the build uses.
void openlog(const char *ident, int, int)
{
    if (report_on_open)
        zel_error_full(1, 4, "opening %s", ident);
}
void vsyslog(int priority, const char *format, va_list ap) { record_log(priority, format, ap); }
void __vsyslog_chk(int priority, int, const char *format, va_list ap) { record_log(priority, format, ap); }
}

TEST(Report, FormatsWithErrnoText)
{
    ReportLog log;
    const std::string denied = strerror(EACCES);
    struct Row {
        const char *format;
        std::string wanted;
    };
    const Row rows[] = {
        {"a %s b", "a X b"}, {"%m: %s", denied + ": X"},
        {"%%m %s", "%m X"},  {"%%%m %s", "%" + denied + " X"},
        {"%s %", "X "},      {"%s %5", "X "},
        {"%-3s|", "X  |"},   {nullptr, "error in `zel_error': no message specified"},
    };
    for (const Row &row : rows) {
        errno = EACCES;
        EXPECT_EQ(zel_error_full(7, 5, row.format, "X"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(log.take(), "5: " + row.wanted + "\n") << (row.format ? row.format : "NULL");
    }
    for (int number : {EACCES, 12345}) { // the C library makes the text of an unknown error anew each time
        const std::string text = strerror(number);
        errno = number;
        zel_perror_full(7, 4, "open %s", "f");
        ASSERT_EQ(log.entries.size(), 1U);
        EXPECT_EQ(log.entries[0], (ReportLog::Entry{"open f: " + text, 7, 4}));
        log.take();
    }
}

TEST(Report, CutsFormatAndMessage)
{
    ReportLog log;
    const std::string kilo(1024, 'x');
    struct Row {
        std::string format;
        std::string wanted;
    };
    const Row rows[] = {
        {kilo + "tail", kilo.substr(1)},
        {"%s", kilo.substr(1)},                  // the value is too long
        {kilo.substr(2) + "%s", kilo.substr(2)}, // the conversion would be cut: dropped
        {kilo.substr(3) + "%s", kilo.substr(1)}, // and just fits here
        {kilo.substr(2) + "%%", kilo.substr(2)}, // "%%" is a unit
        {kilo.substr(4) + "%m", kilo.substr(4) + std::string(strerror(EACCES)).substr(0, 3)},
    };
    for (const Row &row : rows) {
        errno = EACCES;
        zel_error_full(10, 5, row.format.c_str(), kilo.c_str());
        EXPECT_EQ(log.take(), "5: " + row.wanted + "\n");
    }

    // Deliberate loss: a full piece is 1,024 characters long and shows 1,023 of them.
    std::string text;
    for (int i = 0; i < 2048 + 3; i++)
        text += static_cast<char>('a' + i % 26);
    EXPECT_EQ(zel_error_long_full(10, 6, text.c_str()), -1);
    EXPECT_EQ(log.take(), "6: " + text.substr(0, 1023) + "\n6: " + text.substr(1024, 1023) +
                              "\n6: " + text.substr(2048) + "\n");
    EXPECT_EQ(zel_error_long_full(10, 6, ""), -1);
    EXPECT_EQ(zel_error_long_full(10, 6, nullptr), -1);
    EXPECT_EQ(log.take(), "");
}

TEST(Report, FormatCodes)
{
    ReportLog log;
    zel_error_itofmt table[] = {
        {5, 1, "five %d", 4}, {5, 1, "never", 4}, {0, 1, "zero %s", 7}, {-1, 1, "end", 4}};
    EXPECT_EQ(zel_error_itofmt_full(3, table, 5, 55), -1);
    EXPECT_EQ(zel_error_itofmt_full(3, table, 0, "s"), -1);
    EXPECT_EQ(log.take(), "4: five 55\n7: zero s\n");
    EXPECT_EQ(zel_error_itofmt_set_enabled(table, 5, 0), 0);
    EXPECT_EQ(zel_error_itofmt_full(3, table, 5, 55), 0);
    EXPECT_EQ(zel_error_itofmt_full(3, table, -1), -1);
    EXPECT_EQ(zel_error_itofmt_set_enabled(table, 1, 0), -1);
    EXPECT_EQ(zel_error_itofmt_full(3, nullptr, 1), -1);
    EXPECT_EQ(log.take(), "");
}

TEST(Report, ReplacingTheExitHookIsSaid)
{
    ReportLog log;
    const zel_error_hook hook = [] {};
    EXPECT_EQ(zel_error_exit_func_set(hook), nullptr);
    EXPECT_EQ(log.take(), "");
    char text[128];
    snprintf(text, sizeof(text), "7: Changing zel_error_exit_func from %p to %p\n",
             reinterpret_cast<void *>(hook), static_cast<void *>(nullptr));
    EXPECT_EQ(zel_error_exit_func_set(nullptr), hook);
    EXPECT_EQ(log.take(), text);
}

TEST(Delivery, LevelsAndSelectors)
{
    ReportLog init;
    struct Row {
        uint32_t mask;
        uint32_t flags;
        bool called;
    };
    const Row rows[] = {
        {6, 1, true},         {6, 6, true},          {6, 7, false},      {6, 0, false},
        {8, 9, false},        {15, 15, true},        {0x106, 8, false},  {0x106, 0x108, true},
        {0x800, 0x800, true}, {0x800, 0x100, false}, {6, 0x1000, false}, {0x106, 0x1008, false},
        {0xF06, 0x800, true},
    };
    for (const Row &row : rows) {
        int count = 0;
        const zel_error_level_cb counter = [](void *data, const char *, uint32_t) {
            return ++*static_cast<int *>(data);
        };
        zel_error_register_level(0, row.mask, counter, &count);
        log_msg_deliver(10, row.flags, "m");
        zel_error_unregister_level(counter, &count);
        log_msg_deliver(10, row.flags, "m");
        EXPECT_EQ(count, row.called ? 1 : 0) << std::hex << row.mask << " " << row.flags;
    }
}

TEST(Delivery, OrderOfCallbacksAndChangesFromInside)
{
    ReportLog init;
    calls.clear();
    zel_error_register(5, note_call, kOne);
    zel_error_register(5, note_call, kTwo);
    zel_error_register(-5, note_call, kFirst);
    zel_error_register(7, note_call, kThree);
    zel_error_full(1, 5, "x");
    EXPECT_EQ(calls, "0123");

    // A callback that removes a later one, adds one and reports: what it adds joins with the next report.
    calls.clear();
    const zel_error_cb meddler = [](void *, const char *message, int, uint32_t) {
        if (strcmp(message, "outer"))
            return 0;
        zel_error_unregister(note_call, kTwo);
        zel_error_register(6, note_call, kLate);
        calls += "<";
        zel_error_full(1, 5, "inner");
        calls += ">";
        return 0;
    };
    zel_error_register(-9, meddler, nullptr);
    zel_error_full(1, 5, "outer");
    EXPECT_EQ(calls, "<01n3>013");
    zel_error_unregister(meddler, nullptr);
    for (char *name : {kOne, kThree, kFirst, kLate})
        zel_error_unregister(note_call, name);
    calls.clear();
    zel_error_full(1, 5, "x");
    EXPECT_EQ(calls, "");
}

TEST(Delivery, SignalsAreBlockedAndComeBack)
{
    ReportLog init;
    static sigset_t inside;
    const zel_error_cb look = [](void *, const char *, int, uint32_t) {
        return sigprocmask(SIG_SETMASK, nullptr, &inside);
    };
    zel_error_register(0, look, nullptr);
    for (const auto deliver : {+[] { zel_error_full(1, 5, "x"); }, +[] { log_msg_deliver(1, 5, "x"); }}) {
        deliver();
        sigset_t after;
        sigprocmask(SIG_SETMASK, nullptr, &after);
        EXPECT_EQ(sigismember(&inside, SIGTERM), 1);
        EXPECT_EQ(sigismember(&after, SIGTERM), 0);
        sigemptyset(&inside);
    }
    zel_error_unregister(look, nullptr);
}

TEST(Console, WhatIsCopied)
{
    struct Row {
        bool with_callback;
        int console_on;
        uint32_t flags;
        bool copied;
    };
    const Row rows[] = {
        {false, 0, 4, true},    {false, 0, 1, true},     {false, 0, 5, false}, {false, 0, 0, false},
        {false, 0, 12, false},  {true, 0, 4, false},     {true, 1, 4, true},   {true, 1, 5, false},
        {true, 0, 0x105, true}, {true, 0, 0x1000, true},
    };
    ConsoleFile console;
    for (const Row &row : rows) {
        if (row.with_callback)
            zel_error_register(0, note_call, kOne);
        EXPECT_EQ(zel_error_set_console(row.console_on), 0);
        log_msg_deliver(1, row.flags, "text");
        EXPECT_EQ(console.take(), row.copied ? "text\n" : "")
            << row.with_callback << row.console_on << " " << std::hex << row.flags;
        EXPECT_EQ(zel_error_set_console(0), row.console_on);
        zel_error_unregister(note_call, kOne);
    }
    EXPECT_EQ(console_printf("%d!", 12), 3);
    EXPECT_EQ(console.take(), "12!");
    kutil::console_path = "/nonexistent/console";
    EXPECT_EQ(console_printf("x"), -1);
}

TEST(Syslog, ReportsOfOtherProcesses)
{
    ReportLog log;
    mt_task_id = 0;
    log_entries.clear();
    struct Row {
        const char *value;
        std::string format; // as the log gets it: only "%%" and "%m" keep a meaning
        std::string text;
    };
    const std::string denied = strerror(EACCES);
    const Row rows[] = {
        {"plain", "plain", "plain"}, {"100%", "100%%", "100%"},
        {"%%", "%%", "%"},           {"%s%n%1$s", "%%s%%n%%1$s", "%s%n%1$s"},
        {"%m", "%m", denied},        {"%%%s", "%%%%s", "%%s"},
    };
    for (const Row &row : rows) {
        errno = EACCES;
        zel_error_full(1, 5, "%s", row.value);
        ASSERT_EQ(log_entries.size(), 1U);
        EXPECT_EQ(log_entries[0].priority, 4 | LOG_DAEMON);
        EXPECT_EQ(log_entries[0].format, row.format);
        EXPECT_EQ(log_entries[0].text, row.text);
        EXPECT_EQ(zel_openlog_initialized, 0) << "opened for one message only";
        log_entries.clear();
    }
    const std::string percents(1022, '%');
    zel_error_full(1, 5, "%s", (percents + "s").c_str());
    EXPECT_EQ(log_entries.at(0).text, percents.substr(511) + "s");
    log_entries.clear();

    for (uint32_t level : {0U, 9U, 15U})
        zel_error_full(1, level, "nothing");
    EXPECT_EQ(log_entries.size(), 0U);
    zel_openlog_full(12, "name", LOG_PID, LOG_USER);
    EXPECT_EQ(zel_openlog_initialized, 1);
    zel_openlog_full(12, "other", LOG_PID, LOG_USER);
    zel_error_syslog(1, 1, nullptr, "%d", 5);
    EXPECT_EQ(log_entries.at(0).priority, 0 | LOG_DAEMON);
    EXPECT_EQ(zel_openlog_initialized, 1);
    zel_closelog();
    EXPECT_EQ(zel_openlog_initialized, 0);
    report_on_open = true;
    testing::internal::CaptureStderr();
    zel_error_full(1, 5, "outer");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "opening 1.unknown\n") << "it has no way but this";
    EXPECT_EQ(log_entries.at(1).text, "outer");
    report_on_open = false;
    static int exit_calls;
    zel_error_syslog(
        1, ERR_F_EXIT, [] { exit_calls++; }, "x");
    zel_error_syslog(1, ERR_F_EXIT, nullptr, "x");
    EXPECT_EQ(exit_calls, 1);
    EXPECT_EQ(log.take(), "");
}
