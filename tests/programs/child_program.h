#ifndef KUTIL_TESTS_PROGRAMS_CHILD_PROGRAM_H
#define KUTIL_TESTS_PROGRAMS_CHILD_PROGRAM_H

#include "programs/scratch_folder.h"

#include <fcntl.h>
#include <functional>
#include <sys/wait.h>

struct ProgramResult {
    int exit_code; // -1: ended by a signal
    std::string out;
    std::string err;
};

// Runs a program in `folder` with `input` as its standard input, until it ends. `prepare` runs in the child
// before. What the program reads and writes goes through files in `aside`.
inline ProgramResult run_program(const ScratchFolder &folder, const ScratchFolder &aside,
                                 const std::vector<std::string> &words, const std::string &input,
                                 const std::function<void()> &prepare = {})
{
    std::vector<char *> argv;
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    aside.write("in", input);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int in = open((aside / "in").c_str(), O_RDONLY);
        const int out = open((aside / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open((aside / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (chdir(folder.path().c_str()) != 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
            _exit(126);
        if (prepare)
            prepare();
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, aside.read("out"), aside.read("err")};
}

#endif
