#ifndef KUTIL_INTERNAL_SIGNAL_BLOCK_H
#define KUTIL_INTERNAL_SIGNAL_BLOCK_H

#include <csignal>

namespace kutil
{

// Blocks all signals until the end of the scope.
class SignalBlock
{
public:
    SignalBlock()
    {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &saved_);
    }
    ~SignalBlock() { sigprocmask(SIG_SETMASK, &saved_, nullptr); }
    SignalBlock(const SignalBlock &) = delete;
    SignalBlock &operator=(const SignalBlock &) = delete;
    const sigset_t &saved() const { return saved_; }

private:
    sigset_t saved_;
};

} // namespace kutil

#endif
