#include "util/file.h"

#include "support.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

TEST(File, TemporaryFilesAreNewEmptyAndPrivate)
{
    const mode_t old_mask = umask(0);
    char *first = file_tmp_create("file_test_"), *second = file_tmp_create("file_test_");
    char *unnamed = file_tmp_create(nullptr);
    umask(old_mask);
    ASSERT_TRUE(first && second && unnamed);
    EXPECT_STRNE(first, second);
    for (const char *path : {first, second}) {
        EXPECT_EQ(strncmp(path, "/tmp/file_test_", 15), 0) << path;
        EXPECT_EQ(strlen(path), 21U);
    }
    for (char *path : {first, second, unnamed}) {
        struct stat made = {};
        EXPECT_EQ(stat(path, &made), 0);
        EXPECT_EQ(made.st_mode & 0777, 0600U);
        EXPECT_EQ(made.st_size, 0);
        unlink(path);
        free(path);
    }
}

TEST(File, APrefixCannotLeaveTheFolder)
{
    ReportLog log;
    EXPECT_EQ(file_tmp_create("../tmp/x"), nullptr);
    EXPECT_EQ(file_tmp_create(std::string(5000, 'n').c_str()), nullptr) << "no file system has such a name";
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(log.entries[0], (ReportLog::Entry{"Failed creating a temporary file for ../tmp/x", 10, 4}));
}

TEST(File, ContentsAreReadWholeWithTheirNulBytes)
{
    char *path = file_tmp_create("file_test_");
    ASSERT_NE(path, nullptr);
    const std::string bytes("a\0b\r\n\xff\0", 7);
    FILE *fp = file_open(path, "wb");
    ASSERT_NE(fp, nullptr);
    fwrite(bytes.data(), 1, bytes.size(), fp);
    fclose(fp);
    int length = -1;
    char *content = file_read_bin(path, &length);
    ASSERT_EQ(length, 7);
    EXPECT_EQ(memcmp(content, bytes.c_str(), 8), 0) << "with a NUL behind it";
    free(content);
    free(file_read_bin(path, nullptr));
    unlink(path);
    for (const char *absent : {static_cast<const char *>(path), static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(file_read_bin(absent, &length), nullptr);
        EXPECT_EQ(length, 0);
        length = -1;
    }
    free(path);
}

TEST(File, FailedOpeningIsReported)
{
    ReportLog log;
    EXPECT_EQ(file_open("/nonexistent/x", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(file_open(nullptr, "r"), nullptr);
    EXPECT_EQ(file_open("/dev/null", nullptr), nullptr);
    EXPECT_EQ(log.take(),
              "4: Failed opening /nonexistent/x\n4: Failed opening \n4: Failed opening /dev/null\n");
}
