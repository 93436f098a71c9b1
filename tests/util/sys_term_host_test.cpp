// Terminal capture, with the tool that it drives.

#include "util/lines.h"
#include "util/sys.h"

#include "support.h"

#include <cstring>
#include <fcntl.h>

namespace
{

bool has_expect() { return system("command -v expect >/dev/null 2>&1") == 0; }

std::string captured(const char *command)
{
    int status = 5;
    char *text = sys_term_get_cmd(&status, command);
    EXPECT_EQ(status, 0);
    const std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

} // namespace

TEST(Terminal, ShowsWhatACommandWritesToATerminal)
{
    if (!has_expect())
        GTEST_SKIP() << "expect is not installed";
    ReportLog log;
    // The command sees a terminal, whatever our own input is; the tool's line comes first.
    for (const char *input : {"/dev/null", "/dev/zero"}) {
        const int saved = dup(0);
        ASSERT_NE(freopen(input, "r", stdin), nullptr);
        EXPECT_EQ(captured("tty -s"), "spawn tty -s\r\n");
        EXPECT_EQ(captured("sh -c {[ -t 1 ] && printf 'it''s\\n'; sleep 0.1; echo end}"),
                  "spawn sh -c [ -t 1 ] && printf 'it''s\\n'; sleep 0.1; echo end\r\nits\r\nend\r\n");
        dup2(saved, 0);
        close(saved);
    }
    const ChildResult closed = run_in_child([] { // and when it is closed, which it is afterwards, too
        close(0);
        char *text = sys_term_get_cmd(nullptr, "sh -c {sleep 0.1; echo end}");
        _exit(strstr(text, "\r\nend\r\n") && fcntl(0, F_GETFD) < 0 ? 0 : 1);
    });
    EXPECT_TRUE(closed.exited_with(0)) << closed.status;
    char **lines = sys_term_get_lines(nullptr, "echo %s", "one");
    EXPECT_EQ(lines_count(lines), 2);
    EXPECT_STREQ(lines[1], "one");
    lines_free(&lines);
}
