#include "common/durable_save.h"
#include "common/file_lock.h"
#include "common/strict_load.h"

#include "programs/scratch_folder.h"
#include "support.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

using namespace kutil::common;

namespace
{

std::string resolve(const std::string &path)
{
    Problem problem;
    char *resolved = resolve_file(path.c_str(), &problem);
    const std::string text = resolved ? resolved : "error: " + std::string(problem.text());
    free(resolved);
    return text;
}

// "" or the problem.
std::string save(const std::string &path, const std::string &text, Owner owner = Owner::must_keep)
{
    Problem problem;
    return durable_save(path.c_str(), text, owner, &problem) ? "" : problem.text();
}

std::string permissions(const std::string &path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return "none";
    char text[64];
    snprintf(text, sizeof(text), "%o %u:%u", static_cast<unsigned>(status.st_mode & 07777),
             static_cast<unsigned>(status.st_uid), static_cast<unsigned>(status.st_gid));
    return text;
}

std::string own(const char *mode)
{
    return std::string(mode) + " " + std::to_string(geteuid()) + ":" + std::to_string(getegid());
}

// A user who is not root: root is above modes. Returns false where the process cannot become one.
bool drop_root() { return geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0); }

} // namespace

TEST(DurableSave, KeepsTheModeOfTheOldFileAndMakesNewOnesPrivate)
{
    const ScratchFolder folder;
    const std::string path = folder / "conf";
    EXPECT_EQ(save(path, "first"), "");
    EXPECT_EQ(permissions(path), own("600"));
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const mode_t mask = umask(077);
    EXPECT_EQ(save(path, std::string("\0\xff", 2)), "");
    umask(mask);
    EXPECT_EQ(permissions(path), own("640"));
    EXPECT_EQ(folder.read("conf"), std::string("\0\xff", 2));
    EXPECT_EQ(save(path, ""), "");
    EXPECT_EQ(folder.read("conf"), "");
    EXPECT_EQ(folder.list(), "conf");
}

TEST(DurableSave, KeepsTheOwnerOrRefuses)
{
    const ScratchFolder folder;
    const std::string path = folder / "conf";
    folder.write("conf", "old");
    const std::string refused = path + ": its owner 4321 and group 1234 cannot be kept: ";
    if (chown(path.c_str(), 4321, 1234) != 0) {
        // Who may not give files away has none of another owner to save: only the step itself is left.
        const std::string reason = strerror(errno);
        const int fd = open(path.c_str(), O_RDWR);
        struct stat old = {};
        old.st_mode = S_IFREG | 06775;
        old.st_uid = 4321;
        old.st_gid = 1234;
        Problem problem;
        EXPECT_FALSE(keep_owner(fd, old, Owner::must_keep, path.c_str(), &problem));
        EXPECT_EQ(problem.text(), refused + reason);
        EXPECT_TRUE(keep_owner(fd, old, Owner::may_change, path.c_str(), &problem));
        EXPECT_EQ(permissions(path), own("755"));
        close(fd);
        return;
    }
    ASSERT_EQ(chmod(path.c_str(), 06775), 0);
    EXPECT_EQ(save(path, "new"), "");
    EXPECT_EQ(permissions(path), "6775 4321:1234");

    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    const ChildResult child = run_in_child([&] {
        if (!drop_root())
            _exit(0);
        printf("[%s]\n", save(path, "refused").c_str());
        printf("[%s]\n", save(path, "forced", Owner::may_change).c_str());
        printf("%s", permissions(path).c_str());
    });
    EXPECT_EQ(child.output, "[" + refused + strerror(EPERM) + "]\n[]\n755 65534:65534");
    EXPECT_EQ(folder.read("conf"), "forced");
    EXPECT_EQ(folder.list(), "conf");
}

TEST(DurableSave, RemovesWhatAKilledSaveLeft)
{
    const ScratchFolder folder;
    folder.write("conf", "old");
    folder.write(".conf.tmp", "half of a te");
    EXPECT_EQ(save(folder / "conf", "new"), "");
    EXPECT_EQ(folder.read("conf"), "new");
    EXPECT_EQ(folder.list(), "conf");

    // A link left in its place must not be followed.
    folder.write("victim", "untouched");
    ASSERT_EQ(symlink("victim", (folder / ".conf.tmp").c_str()), 0);
    EXPECT_EQ(save(folder / "conf", "newer"), "");
    EXPECT_EQ(folder.read("victim"), "untouched");
    EXPECT_EQ(folder.list(), "conf victim");
}

TEST(DurableSave, RefusesWhatIsNoRegularFileAndNamesTheFailingStep)
{
    const ScratchFolder folder;
    ASSERT_EQ(mkdir((folder / "dir").c_str(), 0700), 0);
    EXPECT_EQ(save(folder / "dir", "x"), folder / "dir" + ": not a regular file");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(save(folder / "pipe", "x"), folder / "pipe" + ": not a regular file");
    EXPECT_EQ(save(folder / "no/conf", "x"),
              folder / "no/.conf.tmp" + ": cannot make the temporary file: " + strerror(ENOENT));
    ASSERT_EQ(mkdir((folder / ".busy.tmp").c_str(), 0700), 0);
    EXPECT_NE(save(folder / "busy", "x").find("cannot remove what an earlier save left"), std::string::npos);
    EXPECT_EQ(folder.list(), ".busy.tmp dir pipe");
}

// The limit on the size of files stands for a disk that is full after so many bytes.
TEST(DurableSave, AFullDiskLeavesTheOldText)
{
    for (const rlim_t limit : {rlim_t(0), rlim_t(1), rlim_t(4096), rlim_t(99999)}) {
        const ScratchFolder folder;
        folder.write("conf", "old");
        const ChildResult child = run_in_child([&] {
            const struct rlimit size = {limit, limit};
            setrlimit(RLIMIT_FSIZE, &size);
            fputs(save(folder / "conf", std::string(100000, 'n')).c_str(), stdout);
        });
        EXPECT_EQ(child.output, folder / "conf" + ": cannot write the new text: " + strerror(EFBIG)) << limit;
        EXPECT_EQ(folder.read("conf"), "old");
        EXPECT_EQ(folder.list(), "conf");
    }
}

TEST(DurableSave, AKillAtAnyMomentLeavesTheOldTextOrTheNew)
{
    // In memory where that is possible: the time to the disk would be most of a save, and no kill in it
    // matters.
    const ScratchFolder folder(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : nullptr);
    const std::string path = folder / "conf";
    const std::string texts[] = {std::string(200000, 'a'), std::string(150000, 'b')};
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 4; i++)
        ASSERT_EQ(save(path, texts[i % 2]), "");
    const std::chrono::nanoseconds two_saves = (std::chrono::steady_clock::now() - start) / 2;
    int saved[2] = {};
    int left_over = 0;
    // For a second, and on where that was not enough: rounds take long under an emulator.
    const auto wants_more = [&](int round) {
        const bool in_time = std::chrono::steady_clock::now() - start < std::chrono::seconds(1);
        return round < 12 || (round < 1000 && (in_time || !saved[0] || !saved[1] || !left_over));
    };
    for (int round = 0; wants_more(round); round++) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            if (write(ends[1], "", 1) != 1)
                _exit(1);
            for (int i = round;; i++)
                save(path, texts[i % 2]);
        }
        char started;
        ASSERT_EQ(read(ends[0], &started, 1), 1);
        close(ends[0]);
        close(ends[1]);
        std::this_thread::sleep_for(two_saves * (round * 7919 % 64) / 64);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const std::string text = folder.read("conf");
        ASSERT_TRUE(text == texts[0] || text == texts[1]) << "length " << text.size();
        saved[text == texts[1]]++;
        left_over += access((folder / ".conf.tmp").c_str(), F_OK) == 0;
    }
    EXPECT_GT(saved[0], 0);
    EXPECT_GT(saved[1], 0);
    EXPECT_GT(left_over, 0);
    EXPECT_EQ(save(path, "the end"), "");
    EXPECT_EQ(folder.list(), "conf");
}

TEST(ResolveFile, FollowsLinksAlsoToWhatIsNotThereYet)
{
    const ScratchFolder folder;
    ASSERT_EQ(mkdir((folder / "etc").c_str(), 0700), 0);
    folder.write("etc/real", "x");
    const std::string real_folder = folder.path();
    const struct {
        const char *link;
        const char *target;
        const char *resolved;
    } rows[] = {
        {"one", "etc/real", "/etc/real"},   {"two", "one", "/etc/real"}, {"etc/up", "../two", "/etc/real"},
        {"new", "etc/later", "/etc/later"}, {"dir", "etc", "/etc"},
    };
    for (const auto &row : rows) {
        ASSERT_EQ(symlink(row.target, (folder / row.link).c_str()), 0);
        EXPECT_EQ(resolve(folder / row.link), real_folder + row.resolved) << row.link;
    }
    ASSERT_EQ(symlink((folder / "one").c_str(), (folder / "absolute").c_str()), 0);
    EXPECT_EQ(resolve(folder / "absolute"), real_folder + "/etc/real");
    EXPECT_EQ(resolve(folder / "dir/../etc/./real"), real_folder + "/etc/real");
    EXPECT_EQ(resolve("/x"), "/x");

    ASSERT_EQ(symlink("circle", (folder / "circle").c_str()), 0);
    EXPECT_EQ(resolve(folder / "circle"), "error: " + folder / "circle" + ": " + strerror(ELOOP));
    EXPECT_EQ(resolve(folder / "no/conf"), "error: " + folder / "no/conf" + ": " + strerror(ENOENT));
    for (const char *no_name : {"etc/", "etc/.", "etc/.."})
        EXPECT_EQ(resolve(folder / no_name), "error: " + folder / no_name + ": " + strerror(EISDIR));
}

TEST(FileLock, ASecondProcessIsRefusedWithThePidOfTheFirst)
{
    const ScratchFolder folder;
    const std::string path = folder / "conf";
    folder.write("conf", "x");
    const auto try_in_child = [&] {
        return run_in_child([&] {
                   FileLock lock;
                   Problem problem;
                   puts(lock.take(path.c_str(), &problem) ? "taken" : problem.text());
               })
            .output;
    };
    Problem problem;
    FileLock lock;
    ASSERT_TRUE(lock.take(path.c_str(), &problem)) << problem.text();
    EXPECT_EQ(folder.list(), ".conf.lock conf");
    EXPECT_EQ(try_in_child(), path + ": process " + std::to_string(getpid()) + " is changing it\n");
    lock.release();
    EXPECT_EQ(try_in_child(), "taken\n");
    // A killed holder leaves the file, not the lock.
    ASSERT_EQ(unlink((folder / ".conf.lock").c_str()), 0);
    EXPECT_EQ(try_in_child(), "taken\n");
    EXPECT_TRUE(lock.take(path.c_str(), &problem)) << problem.text();
}

TEST(FileLock, FollowsNoLinkAndBelongsToWhomTheFileBelongs)
{
    const ScratchFolder folder;
    folder.write("conf", "x");
    ASSERT_EQ(chmod((folder / "conf").c_str(), 0664), 0);
    Problem problem;
    FileLock lock;
    ASSERT_TRUE(lock.take((folder / "conf").c_str(), &problem)) << problem.text();
    EXPECT_EQ(permissions(folder / ".conf.lock"), own("664"));
    ASSERT_EQ(symlink("conf", (folder / ".other.lock").c_str()), 0);
    FileLock other;
    EXPECT_FALSE(other.take((folder / "other").c_str(), &problem));
    EXPECT_EQ(folder.read("conf"), "x");
}

TEST(StrictLoad, NamesThePlaceOfWhatASaveWouldLose)
{
    const std::string deep_start = [] {
        std::string text;
        for (int i = 0; i < 256; i++)
            text += "(a\n";
        return text;
    }();
    const struct {
        std::string text;
        const char *problem;
    } rows[] = {
        {"", "f:1:1: the text ends before the tree does"},
        {" (a)", "f:1:1: a tree starts with \"(\""},
        {"(a\n (b(1))\n", "f:3:1: the text ends before the tree does"},
        {"(a\n (b(1)x)\n)\n", "f:2:7: text behind a node"},
        {"(a\r\n  (b&4z;(1))\r\n)\r\n", "f:2:5: not an escape of \"&\", two hexadecimal digits and \";\""},
        {"(a(b&00;))", "f:1:5: an escaped NUL byte"},
        {std::string("(a(b\0))", 7), "f:1:5: a NUL byte"},
        {"(a)\n(b)\n", "f:2:1: a second top node"},
        {"(a)\nx", "f:2:1: text behind the tree"},
        {"(a))", "f:1:4: a \")\" without its \"(\""},
        {"(a\n  (\n    (b(1))\n  )\n)\n", "f:2:4: a node without a name has more than a value"},
        {deep_start + "(b)" + std::string(256, ')'), "f:257:1: more than 256 levels of nodes"},
    };
    for (const auto &row : rows) {
        Problem problem;
        EXPECT_EQ(strict_read("f", row.text, &problem), nullptr) << row.text;
        EXPECT_STREQ(problem.text(), row.problem) << row.text;
    }
}

TEST(StrictLoad, LoadsFilesAndTellsMissingFromUnreadable)
{
    const ScratchFolder folder;
    set *tree = nullptr;
    FileText text;
    Problem problem;
    folder.write("conf", "(a\r\n  (b(1))\r\n)\r\n");
    ASSERT_EQ(strict_load((folder / "conf").c_str(), &tree, &text, &problem), Load::done) << problem.text();
    EXPECT_STREQ(set_get_value(set_get(&tree, "b/1")), "1");
    EXPECT_TRUE(has_dos_line_ends(text.view()));
    set_free(&tree);
    EXPECT_EQ(strict_load((folder / "none").c_str(), &tree, &text, &problem), Load::missing);
    EXPECT_EQ(problem.text(), folder / "none" + ": " + strerror(ENOENT));
    EXPECT_EQ(strict_load(folder.path().c_str(), &tree, &text, &problem), Load::failed);
    EXPECT_EQ(problem.text(), folder.path() + ": cannot read: " + strerror(EISDIR));
}
