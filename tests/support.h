#ifndef KUTIL_TESTS_SUPPORT_H
#define KUTIL_TESTS_SUPPORT_H

// What many tests share: reports caught as they are delivered, and fatal paths watched in a child.

#include "util/zel_error.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// Catches every report of this process while it lives.
class ReportLog
{
public:
    struct Entry {
        std::string message;
        int entity;
        uint32_t flags;
        bool operator==(const Entry &) const = default;
    };

    ReportLog()
    {
        static const bool initialized = (zel_error_init_nodefault(), true);
        (void)initialized;
        zel_error_set_mt_id();
        zel_error_register(0, catch_report, this);
    }
    ~ReportLog() { zel_error_unregister(catch_report, this); }
    ReportLog(const ReportLog &) = delete;
    ReportLog &operator=(const ReportLog &) = delete;

    // The messages since the last call, one a line, as "LEVEL: TEXT".
    std::string take()
    {
        std::string text;
        for (const Entry &entry : entries)
            text += std::to_string(entry.flags & 15) + ": " + entry.message + "\n";
        entries.clear();
        return text;
    }

    std::vector<Entry> entries;

private:
    static int catch_report(void *data, const char *message, int entity, uint32_t flags)
    {
        static_cast<ReportLog *>(data)->entries.push_back({message, entity, flags});
        return 0;
    }
};

// How a child ended that ran `body`, and what it wrote to standard output and standard error.
struct ChildResult {
    int status;
    std::string output;
    bool exited_with(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

template <class Body>
ChildResult run_in_child(Body body)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], 1);
        dup2(ends[1], 2);
        close(ends[0]);
        close(ends[1]);
        body();
        fflush(nullptr);
        _exit(77); // a body that comes back
    }
    close(ends[1]);
    ChildResult result{0, ""};
    char buffer[4096];
    ssize_t length;
    while ((length = read(ends[0], buffer, sizeof(buffer))) > 0)
        result.output.append(buffer, static_cast<size_t>(length));
    close(ends[0]);
    waitpid(pid, &result.status, 0);
    return result;
}

// Runs `body` in a child whose reports go to standard error; expects that a fatal report ends it, and that it
// says `message`.
template <class Body>
void expect_fatal(const std::string &message, Body body)
{
    const ChildResult result = run_in_child([&] {
        zel_error_set_mt_id();
        zel_error_register_level(0, 0x108, default_error_cb, nullptr);
        body();
    });
    EXPECT_TRUE(result.exited_with(1)) << "status " << result.status << ": " << result.output;
    EXPECT_NE(result.output.find(message), std::string::npos) << result.output;
}

#endif
