#include "output.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace csv2sql
{

using kutil::common::Owner;
using kutil::common::Problem;

Exit Output::open(const char *path)
{
    signal(SIGXFSZ, SIG_IGN); // a write past the limit fails
    name_ = path;
    if (View(path) == "-") {
        name_ = "standard output";
        fd_ = 1;
        return kDone;
    }
    struct stat status;
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode)) {
        other_.reset(::open(path, O_WRONLY | O_CLOEXEC | O_NOCTTY));
        fd_ = other_.get();
        return other_.valid() ? kDone : complain(kUnwritten, "%s: %s", path, strerror(errno));
    }
    Problem problem;
    const HeapText resolved(kutil::common::resolve_file(path, &problem));
    if (!resolved || !lock_.take(resolved.get(), &problem) || !file_.open(resolved.get(), &problem))
        return complain(kUnwritten, "%s", problem.text());
    if (!file_.replaces()) {
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(file_.fd(), 0666 & ~mask);
    }
    fd_ = file_.fd();
    replaces_ = true;
    return kDone;
}

Exit Output::flush()
{
    View rest = text_.text();
    while (!rest.empty() && result_ == kDone) {
        const ssize_t written = write(fd_, rest.data(), rest.size());
        if (written < 0 && errno != EINTR)
            result_ = complain(kUnwritten, "%s: %s", name_, strerror(errno));
        rest.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    text_.clear();
    return result_;
}

Exit Output::close()
{
    if (flush() != kDone)
        return result_;
    Problem problem;
    if (replaces_ && !file_.commit(Owner::may_change, &problem))
        return complain(kUnwritten, "%s", problem.text());
    if (other_.valid() && ::close(other_.release()) != 0)
        return complain(kUnwritten, "%s: %s", name_, strerror(errno));
    return kDone;
}

} // namespace csv2sql
