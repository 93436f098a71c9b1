#include "secret_input.h"

#include "common/secrets.h"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace zconf
{

namespace
{

constexpr size_t kMaxLength = 65536;

volatile sig_atomic_t caught_signal;

// While it lives the terminal shows nothing of what is typed. A signal that would end or stop the process in
// between only interrupts the reading; the destructor puts the terminal right and sends it again.
class SilentTerminal
{
public:
    SilentTerminal()
    {
        caught_signal = 0;
        sigset_t held; // but in the waiting, so that none comes just before it and is not noticed
        sigemptyset(&held);
        for (const int number : kSignals)
            sigaddset(&held, number);
        sigprocmask(SIG_BLOCK, &held, &saved_mask_);
        struct sigaction note = {};
        note.sa_handler = [](int number) { caught_signal = number; };
        for (size_t i = 0; i < kCount; i++) {
            sigaction(kSignals[i], nullptr, &saved_[i]);
            if (saved_[i].sa_handler != SIG_IGN)
                sigaction(kSignals[i], &note, nullptr);
        }
        silent_ = tcgetattr(STDIN_FILENO, &shown_) == 0;
        struct termios hidden = shown_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ICANON | ECHONL;
        silent_ = silent_ && tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == 0;
    }
    ~SilentTerminal()
    {
        if (silent_)
            tcsetattr(STDIN_FILENO, TCSADRAIN, &shown_);
        for (size_t i = 0; i < kCount; i++)
            sigaction(kSignals[i], &saved_[i], nullptr);
        sigprocmask(SIG_SETMASK, &saved_mask_, nullptr);
        if (caught_signal)
            raise(caught_signal);
    }
    SilentTerminal(const SilentTerminal &) = delete;
    SilentTerminal &operator=(const SilentTerminal &) = delete;
    bool silent() const { return silent_; }
    // False when a signal came before there is something to read.
    bool wait() const
    {
        struct pollfd input = {STDIN_FILENO, POLLIN, 0};
        while (ppoll(&input, 1, nullptr, &saved_mask_) < 0) {
            if (errno != EINTR || caught_signal)
                return false;
        }
        return true;
    }

private:
    static constexpr int kSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};
    static constexpr size_t kCount = std::size(kSignals);
    struct sigaction saved_[kCount];
    sigset_t saved_mask_;
    struct termios shown_ = {};
    bool silent_;
};

// Reads up to the end, on a terminal up to a line end, at most `size` bytes. Returns how many, -1 on failure.
ssize_t read_up_to(char *to, size_t size, const SilentTerminal *terminal)
{
    size_t length = 0;
    while (length < size) {
        if (terminal && !terminal->wait())
            return -1;
        const ssize_t got = read(STDIN_FILENO, to + length, size - length);
        if (got < 0 && errno != EINTR)
            return -1;
        if (got == 0)
            break;
        length += got > 0 ? static_cast<size_t>(got) : 0;
        if (terminal && length > 0 && to[length - 1] == '\n')
            break;
    }
    return static_cast<ssize_t>(length);
}

ssize_t read_from_terminal(char *to, size_t size, const char *what)
{
    for (;;) {
        ssize_t length;
        {
            const SilentTerminal scope;
            if (!scope.silent())
                return -1;
            fprintf(stderr, "Secret for %s: ", what);
            length = read_up_to(to, size, &scope);
        }
        if (length >= 0 || !caught_signal) // else it was stopped, and goes on now
            return length;
    }
}

} // namespace

char *read_secret_input(Session &session, const char *what)
{
    const bool terminal = isatty(STDIN_FILENO);
    if (terminal ? !session.check_stdin() : !session.claim_stdin())
        return nullptr;
    kutil::Heap<char> text(kutil::new_array<char>(kMaxLength + 2));
    caught_signal = 0;
    const ssize_t got = terminal ? read_from_terminal(text.get(), kMaxLength + 2, what)
                                 : read_up_to(text.get(), kMaxLength + 2, nullptr);
    const char *fault = got < 0 ? strerror(errno) : nullptr;
    size_t length = got < 0 ? 0 : static_cast<size_t>(got);
    if (length > 0 && text.get()[length - 1] == '\n')
        length--;
    if (length > kMaxLength)
        fault = "the secret is too long";
    if (memchr(text.get(), '\0', length))
        fault = "a secret has no NUL characters";
    char *secret = fault ? nullptr : kutil::copy_text(View(text.get(), length));
    explicit_bzero(text.get(), kMaxLength + 2);
    if (fault)
        session.complain(kMisuse, "standard input: %s", fault);
    return secret;
}

} // namespace zconf
