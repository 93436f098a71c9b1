#include "durable_save.h"

#include "sibling.h"
#include "util/internal/errno_scope.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace kutil::common
{

namespace
{

// A write past the process's file size limit shall fail instead of ending the process.
class SizeSignalIgnored
{
public:
    SizeSignalIgnored()
    {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGXFSZ, &ignore, &saved_);
    }
    ~SizeSignalIgnored() { sigaction(SIGXFSZ, &saved_, nullptr); }
    SizeSignalIgnored(const SizeSignalIgnored &) = delete;
    SizeSignalIgnored &operator=(const SizeSignalIgnored &) = delete;

private:
    struct sigaction saved_;
};

bool write_all(int fd, View text)
{
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        if (written == 0) {
            errno = ENOSPC;
            return false;
        }
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

bool sync(int fd)
{
    int result;
    do
        result = fsync(fd);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

// The descriptor is gone also when close is interrupted, and the text was flushed before.
bool close_checked(Fd *fd) { return close(fd->release()) == 0 || errno == EINTR; }

bool sync_folder(const char *resolved, Problem *problem)
{
    const HeapText folder(copy_text(View(resolved, folder_length(resolved))));
    const Fd fd(open(*folder ? folder.get() : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A file system without folders to flush says EINVAL.
    if (fd.valid() && (sync(fd.get()) || errno == EINVAL))
        return true;
    return problem->set_errno(resolved, "saved, but its folder could not be flushed to the disk");
}

} // namespace

bool keep_owner(int fd, const struct stat &old, Owner owner, const char *resolved, Problem *problem)
{
    // The owner first: changing it takes set-id bits of the mode away.
    struct stat fresh;
    if (fstat(fd, &fresh) != 0)
        return problem->set_errno(resolved, "cannot look at the temporary file");
    const bool same_group = fresh.st_gid == old.st_gid;
    const bool kept = (same_group && fresh.st_uid == old.st_uid) || fchown(fd, old.st_uid, old.st_gid) == 0;
    if (!kept && owner == Owner::must_keep) {
        return problem->set("%s: its owner %lu and group %lu cannot be kept: %s", resolved,
                            static_cast<unsigned long>(old.st_uid), static_cast<unsigned long>(old.st_gid),
                            strerror(errno));
    }
    // In other hands the bits that run a file as its owner or group would mean somebody else, and what the
    // old group was allowed would go to another one: that gets no more than anybody.
    mode_t mode = old.st_mode & (kept ? 07777 : 01777);
    if (!kept && !same_group && fchown(fd, static_cast<uid_t>(-1), old.st_gid) != 0)
        mode = (mode & ~S_IRWXG) | (mode & ((mode & S_IRWXO) << 3));
    return fchmod(fd, mode) == 0 || problem->set_errno(resolved, "cannot set the mode");
}

bool DurableFile::open(const char *resolved, Problem *problem)
{
    abandon();
    HeapText temporary = sibling(resolved, ".tmp");
    if (unlink(temporary.get()) != 0 && errno != ENOENT)
        return problem->set_errno(temporary.get(), "cannot remove what an earlier save left");
    old_ = {};
    if (lstat(resolved, &old_) != 0 && errno != ENOENT)
        return problem->set_errno(resolved, "cannot look at it");
    if (replaces() && !S_ISREG(old_.st_mode))
        return problem->set("%s: not a regular file", resolved);
    fd_.reset(::open(temporary.get(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd_.valid())
        return problem->set_errno(temporary.get(), "cannot make the temporary file");
    temporary_.swap(temporary);
    resolved_.reset(copy_text(resolved));
    return true;
}

bool DurableFile::commit(Owner owner, Problem *problem)
{
    const char *resolved = resolved_.get();
    if (replaces() && !keep_owner(fd_.get(), old_, owner, resolved, problem))
        return false;
    if (!sync(fd_.get()))
        return problem->set_errno(resolved, "cannot flush the new text to the disk");
    if (!close_checked(&fd_))
        return problem->set_errno(resolved, "cannot close the new text");
    if (rename(temporary_.get(), resolved) != 0)
        return problem->set_errno(resolved, "cannot put the new text in place");
    temporary_.reset();
    return sync_folder(resolved, problem);
}

void DurableFile::abandon()
{
    const ErrnoScope keep_errno;
    fd_.reset();
    if (temporary_)
        unlink(temporary_.get());
    temporary_.reset();
}

bool durable_save(const char *resolved, View text, Owner owner, Problem *problem)
{
    const SizeSignalIgnored scope;
    DurableFile file;
    if (!file.open(resolved, problem))
        return false;
    if (!write_all(file.fd(), text))
        return problem->set_errno(resolved, "cannot write the new text");
    return file.commit(owner, problem);
}

} // namespace kutil::common
