#ifndef KUTIL_INTERNAL_ERRNO_SCOPE_H
#define KUTIL_INTERNAL_ERRNO_SCOPE_H

#include <cerrno>

namespace kutil
{

// Puts errno back to what it was when the scope was entered.
class ErrnoScope
{
public:
    ErrnoScope() : saved_(errno) {}
    ~ErrnoScope() { errno = saved_; }
    ErrnoScope(const ErrnoScope &) = delete;
    ErrnoScope &operator=(const ErrnoScope &) = delete;
    int saved() const { return saved_; }

private:
    int saved_;
};

} // namespace kutil

#endif
