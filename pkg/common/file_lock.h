#ifndef KUTIL_COMMON_FILE_LOCK_H
#define KUTIL_COMMON_FILE_LOCK_H

#include "problem.h"
#include "util/internal/fd.h"

namespace kutil::common
{

// resolve_file returns the path of the file that saving to `path` must replace: symbolic links are followed,
// also when the last of them leads to nothing yet, and the folder is absolute. A new text; NULL and a problem
// when the folder is not there or the links go in a circle.
char *resolve_file(const char *path, Problem *problem);

// The right to change a file, which one process has at a time: an exclusive lock on .NAME.lock in the
// file's folder, from before the file is loaded until after it was saved. Readers need none, since a save
// replaces the file at once.
//
// It is a POSIX record lock: the kernel gives it back when the process ends in whatever way, and names the
// holder. So it does not pass to a child of fork: a daemon takes it after it has become one. And two of one
// process do not exclude each other: the program has one for each file. The lock file stays unless its holder
// removes it.
class FileLock
{
public:
    // Takes the lock of the file at `resolved` (see resolve_file) without waiting. Returns false with a
    // problem when another process has it, which is then named by its pid, or when it cannot be taken.
    bool take(const char *resolved, Problem *problem);
    void release() { fd_.reset(); }
    // Gives the right back and removes the lock file.
    void remove();
    bool held() const { return fd_.valid(); }

private:
    HeapText path_;
    Fd fd_;
};

} // namespace kutil::common

#endif
