#ifndef KUTIL_INTERNAL_FD_H
#define KUTIL_INTERNAL_FD_H

#include "errno_scope.h"

#include <unistd.h>
#include <utility>

namespace kutil
{

// Owns a descriptor until release().
class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    // Linux closes the descriptor even when close fails with EINTR, so it is never repeated.
    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            const ErrnoScope keep_errno;
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

} // namespace kutil

#endif
