#ifndef KUTIL_TESTS_PROGRAMS_SCRATCH_FOLDER_H
#define KUTIL_TESTS_PROGRAMS_SCRATCH_FOLDER_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

// An empty folder in `base` (NULL: in $TMPDIR or /tmp), removed with everything in it.
class ScratchFolder
{
public:
    explicit ScratchFolder(const char *base = nullptr)
    {
        base = base ? base : getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/kutil-test-XXXXXX";
        if (!mkdtemp(pattern.data()))
            abort();
        char *real = realpath(pattern.c_str(), nullptr);
        path_ = real;
        free(real);
    }
    ~ScratchFolder() { remove_tree(path_); }
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;

    const std::string &path() const { return path_; }
    friend std::string operator/(const ScratchFolder &folder, const std::string &name)
    {
        return folder.path_ + "/" + name;
    }
    void write(const std::string &name, const std::string &text) const
    {
        std::ofstream(*this / name, std::ios::binary) << text;
    }
    std::string read(const std::string &name) const
    {
        std::ifstream file(*this / name, std::ios::binary);
        EXPECT_TRUE(file.good()) << name;
        std::ostringstream text; // in blocks: an emulator takes its time over single characters
        text << file.rdbuf();
        return text.str();
    }
    // The names in it, sorted, with a blank between them.
    std::string list() const
    {
        std::string all;
        for (const std::string &name : names(path_))
            all += (all.empty() ? "" : " ") + name;
        return all;
    }

private:
    static std::vector<std::string> names(const std::string &path)
    {
        std::vector<std::string> found;
        if (DIR *dir = opendir(path.c_str())) {
            while (const dirent *entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..")
                    found.push_back(name);
            }
            closedir(dir);
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    static void remove_tree(const std::string &path)
    {
        if (unlink(path.c_str()) == 0)
            return;
        for (const std::string &name : names(path))
            remove_tree(path + "/" + name);
        rmdir(path.c_str());
    }

    std::string path_;
};

#endif
