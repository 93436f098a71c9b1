#include "file_lock.h"

#include "sibling.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

namespace kutil::common
{

namespace
{

constexpr int kMaxLinks = 40;

// The target of the link at `path`, NULL when it is none or cannot be read.
HeapText read_link(const char *path)
{
    for (size_t room = 256;; room = mul_sizes(room, 2)) {
        HeapText target(new_text(room));
        const ssize_t length = readlink(path, target.get(), room);
        if (length < 0)
            return nullptr;
        if (static_cast<size_t>(length) < room) {
            target.get()[length] = '\0';
            return target;
        }
    }
}

HeapText join(View folder, View name)
{
    HeapText path(new_text(add_sizes(folder.size(), name.size())));
    *put(put(path.get(), folder), name) = '\0';
    return path;
}

// With the folder made absolute and free of links.
HeapText with_real_folder(const char *path)
{
    const size_t folder_end = folder_length(path);
    const View name(path + folder_end);
    if (name.empty() || name == "." || name == "..") {
        errno = EISDIR;
        return nullptr;
    }
    const HeapText folder(folder_end > 0 ? copy_text(View(path, folder_end)) : copy_text("."));
    const HeapText real(realpath(folder.get(), nullptr));
    if (!real)
        return nullptr;
    const View top = View(real.get()) == "/" ? View("") : View(real.get());
    return join(join(top, "/").get(), name);
}

// The lock file belongs to whom the file belongs to: who may change the file may lock it. Failing is no
// fault: what counts is whether the next one can open it.
void give_to_owner(int fd, const char *resolved)
{
    struct stat target;
    if (stat(resolved, &target) != 0)
        return;
    const bool given = fchown(fd, target.st_uid, target.st_gid) == 0;
    if (given || target.st_uid == geteuid())
        (void)fchmod(fd, target.st_mode & 0666);
}

Fd open_lock_file(const char *path, const char *resolved)
{
    const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    for (int round = 0; round < 2; round++) {
        Fd fd(open(path, flags | O_CREAT | O_EXCL, 0600));
        if (fd.valid()) {
            give_to_owner(fd.get(), resolved);
            return fd;
        }
        if (errno != EEXIST)
            return fd;
        fd.reset(open(path, flags));
        if (fd.valid() || errno != ENOENT)
            return fd;
    }
    return Fd();
}

bool report_holder(int fd, const char *resolved, Problem *problem)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool known = fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK && lock.l_pid > 0;
    if (!known)
        return problem->set("%s: another process is changing it", resolved);
    return problem->set("%s: process %ld is changing it", resolved, static_cast<long>(lock.l_pid));
}

bool is_still_there(const char *path, int fd)
{
    struct stat named;
    struct stat locked;
    return stat(path, &named) == 0 && fstat(fd, &locked) == 0 && named.st_dev == locked.st_dev &&
           named.st_ino == locked.st_ino;
}

} // namespace

char *resolve_file(const char *path, Problem *problem)
{
    HeapText at(copy_text(path));
    for (int links = 0; links < kMaxLinks; links++) {
        const HeapText target = read_link(at.get());
        if (!target) {
            HeapText resolved = with_real_folder(at.get());
            if (!resolved)
                problem->set("%s: %s", path, strerror(errno));
            return resolved.release();
        }
        const View folder(at.get(), target.get()[0] == '/' ? 0 : folder_length(at.get()));
        at = join(folder, target.get());
    }
    errno = ELOOP;
    problem->set("%s: %s", path, strerror(errno));
    return nullptr;
}

bool FileLock::take(const char *resolved, Problem *problem)
{
    HeapText path = sibling(resolved, ".lock");
    for (;;) {
        Fd fd = open_lock_file(path.get(), resolved);
        if (!fd.valid())
            return problem->set_errno(path.get(), "cannot open the lock file");
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        if (fcntl(fd.get(), F_SETLK, &lock) != 0) {
            if (errno == EACCES || errno == EAGAIN)
                return report_holder(fd.get(), resolved, problem);
            return problem->set_errno(path.get(), "cannot lock");
        }
        if (!is_still_there(path.get(), fd.get()))
            continue; // the one who had it removed it meanwhile
        fd_ = static_cast<Fd &&>(fd);
        path_.swap(path);
        return true;
    }
}

void FileLock::remove()
{
    if (held())
        unlink(path_.get());
    release();
}

} // namespace kutil::common
