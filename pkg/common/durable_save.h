#ifndef KUTIL_COMMON_DURABLE_SAVE_H
#define KUTIL_COMMON_DURABLE_SAVE_H

#include "problem.h"
#include "util/internal/fd.h"

#include <sys/stat.h>

namespace kutil::common
{

enum class Owner {
    must_keep, // a file whose owner or group cannot be kept is not saved
    may_change // it is saved as the caller's
};

// durable_save replaces the file at `resolved` (see resolve_file) by `text`, so that at every moment, also
// after a kill or a loss of power, the file holds the old text or the new one, whole. It writes .NAME.tmp in
// the same folder, readable by the owner alone, gives it the owner and the mode of the old file (a new file
// keeps 0600), flushes it to the disk, renames it, and flushes the folder. Every step is checked: on failure
// the problem names it, the old file stays and the temporary one is removed. One that a killed save left is
// removed by the next.
//
// The caller holds the file's lock: two saves at once would share the temporary file. Only a regular file is
// replaced. The new file is another one: hard links keep the old text.
bool durable_save(const char *resolved, View text, Owner owner, Problem *problem);

// keep_owner is the step of it that gives the open temporary file the owner and mode of the `old` one. With
// Owner::may_change a file whose owner or group cannot be kept loses its set-id bits, and one whose group
// cannot be kept grants its new group only what it grants to everybody.
bool keep_owner(int fd, const struct stat &old, Owner owner, const char *resolved, Problem *problem);

// DurableFile is durable_save for a text that is made bit by bit: write to fd() between open() and commit().
// Unless commit() is called the old file stays. A new file gets the mode that the caller gives to fd().
class DurableFile
{
public:
    DurableFile() = default;
    DurableFile(const DurableFile &) = delete;
    DurableFile &operator=(const DurableFile &) = delete;
    ~DurableFile() { abandon(); }

    // Removes what a killed save left and makes the temporary file.
    bool open(const char *resolved, Problem *problem);
    // Takes over owner and mode of the old file, flushes, puts the file in place, flushes the folder.
    bool commit(Owner owner, Problem *problem);

    // Removes the temporary file; the old one stays. So does the end of this.
    void abandon();

    int fd() const { return fd_.get(); }
    // There was a file before.
    bool replaces() const { return old_.st_mode != 0; }

private:
    HeapText resolved_;
    HeapText temporary_; // NULL: there is none to remove
    struct stat old_ = {};
    Fd fd_;
};

} // namespace kutil::common

#endif
