#ifndef KUTIL_COMMON_DURABLE_SAVE_H
#define KUTIL_COMMON_DURABLE_SAVE_H

#include "problem.h"
#include "util/internal/text.h"

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

} // namespace kutil::common

#endif
