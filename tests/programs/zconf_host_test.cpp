// zconf among other programs: the demonstration, the shell's completion, pipes.

#include "programs/child_program.h"

namespace
{

ProgramResult bash(const ScratchFolder &folder, const std::string &script)
{
    const ScratchFolder aside;
    return run_program(folder, aside, {"/bin/bash", "-c", script}, "");
}

} // namespace

TEST(ZconfHost, TheShellCompletesCommandsPathsAndFiles)
{
    const ScratchFolder folder;
    folder.write("c", "(conf(wan(mtu(1))(mode(2))(ppp(user(x))))(wifi(on(1)))(a/b(c(1)))(lone))");
    const std::string complete =
        "source '" KUTIL_SOURCE_DIR "/packaging/completion/zconf' || exit; c() {"
        " COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); COMPREPLY=(); _zconf; echo \"${COMPREPLY[*]}\"; }; ";
    const struct {
        const char *words; // the last one is being typed
        const char *replies;
    } rows[] = {
        {"-f c de", "del"},
        {"-f c rep", "replace"},
        {"-f c get --", "--type --unmask"},
        {"-f c set --type bin", "bin bin-secret"},
        {"-f c set --type bin-secret wan/p", "wan/ppp/"},
        {"-f c reobscure wi", "wifi/"},
        {"-f c get ''", "wan/ wifi/ a\\\\/b/ lone"},
        {"-f c get w", "wan/ wifi/"},
        {"-f c get wan/m", "wan/mtu wan/mode"},
        {"-f c list wan/p", "wan/ppp/"},
        {"-f c get 'a\\/b/'", "a\\/b/c"},
        {"-f c set wan/mtu ''", ""},
        {"-f c merge c wa", "wan/"},
        {"-f c print --de", "--depth"},
        {"--fo", "--force"},
        {"-f ''", "c"},
        {"-f c diff ''", "c"},
        {"-f none get ''", ""},
    };
    for (const auto &row : rows) {
        const ProgramResult result = bash(folder, complete + "c '" KUTIL_ZCONF "' " + row.words);
        std::string expected = row.replies;
        for (size_t at; (at = expected.find("\\\\")) != std::string::npos;)
            expected.erase(at, 1);
        EXPECT_EQ(result.out, expected + "\n") << row.words;
        EXPECT_EQ(result.err, "") << row.words;
    }
}

TEST(ZconfHost, TheDemonstrationRuns)
{
    const ScratchFolder folder;
    ASSERT_EQ(symlink(KUTIL_ZCONF, (folder / "zconf").c_str()), 0);
    const ProgramResult result =
        bash(folder, "'" KUTIL_SOURCE_DIR "/scripts/demo' '" + folder.path() + "' get wifi/radio/1/channel");
    EXPECT_EQ(result.exit_code, 0) << result.err;
    for (const char *part : {"~ wifi/radio/1/channel=116\n", "\n116\n", "The new file: "})
        EXPECT_NE(result.out.find(part), std::string::npos) << part << result.out;
}

TEST(ZconfHost, AReaderThatStopsEndsItQuietly)
{
    const ScratchFolder folder;
    const ProgramResult result = bash(folder, "set -o pipefail; '" KUTIL_ZCONF "' -f '" KUTIL_SOURCE_DIR
                                              "/share/gateway.conf' list | head -n 1");
    EXPECT_EQ(result.out, "system/hostname=gateway\n");
    EXPECT_EQ(result.err, "");
}
