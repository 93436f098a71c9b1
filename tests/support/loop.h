#ifndef KUTIL_TESTS_SUPPORT_LOOP_H
#define KUTIL_TESTS_SUPPORT_LOOP_H

// The event loop and plain sockets, for tests of what lives in the loop.

#include "util/event.h"
#include "util/iaddr.h"

#include <arpa/inet.h>
#include <cerrno>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <set>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

// Runs the loop until `done` says so, asking in every iteration; false, and a failure, when that takes longer
// than `ms`.
inline bool run_until(std::function<bool()> done, double ms = 5000)
{
    struct Watch {
        std::function<bool()> done;
        double end;
        bool reached;

        static void look(int fd, void *data)
        {
            auto *self = static_cast<Watch *>(data);
            self->reached = self->done();
            if (!self->reached && get_time_from_boot() <= self->end)
                return;
            event_fd_clr(fd, EVENT_READ, look, data);
            event_loop_quit = 1;
        }
    } watch = {done, get_time_from_boot() + ms, false};
    // A descriptor that is always readable.
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    close(ends[1]);
    event_loop_quit = 0;
    event_fd_set(ends[0], EVENT_READ, Watch::look, &watch);
    event_loop();
    event_fd_clr(ends[0], EVENT_READ, Watch::look, &watch);
    close(ends[0]);
    event_loop_quit = 0;
    EXPECT_TRUE(watch.reached) << "after " << ms << " ms";
    return watch.reached;
}

// Runs the loop for a while, asleep when nothing happens.
inline void run_for(double ms)
{
    const event_timer_cb stop = [](void *) { event_loop_quit = 1; };
    event_loop_quit = 0;
    event_timer_set(ms, stop, nullptr);
    event_loop();
    event_loop_quit = 0;
}

// The processor time of this thread.
inline double cpu_ms()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1000 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The descriptors that are open.
inline std::set<int> open_fds()
{
    std::set<int> fds;
    for (int fd = 0; fd < 256; fd++) {
        if (lseek(fd, 0, SEEK_CUR) >= 0 || errno != EBADF)
            fds.insert(fd);
    }
    return fds;
}

inline uint16_t port_of(int fd)
{
    sockaddr_storage name = {};
    socklen_t length = sizeof(name);
    uint16_t port = 0;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&name), &length), 0);
    sockaddr_get_port(reinterpret_cast<sockaddr *>(&name), &port);
    return port;
}

// A blocking client of this host that closes itself.
class Client
{
public:
    explicit Client(uint16_t port, const char *address = "127.0.0.1")
    {
        iaddr peer;
        EXPECT_EQ(str2iaddr(&peer, address), 0);
        sockaddr_storage name = {};
        socklen_t length = 0;
        iaddr2sockaddr(reinterpret_cast<sockaddr *>(&name), &peer, port, &length);
        fd_ = socket(peer.family, SOCK_STREAM, 0);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr *>(&name), length), 0) << strerror(errno);
    }
    ~Client() { end(); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    int fd() const { return fd_; }
    void end()
    {
        if (fd_ >= 0)
            close(std::exchange(fd_, -1));
    }
    void send(const std::string &text) const
    {
        EXPECT_EQ(::send(fd_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    // Whether the peer closed the connection; what it sent before is in `text`.
    bool ended(std::string *text = nullptr) const
    {
        char buffer[4096];
        ssize_t length;
        while ((length = recv(fd_, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0) {
            if (text)
                text->append(buffer, static_cast<size_t>(length));
        }
        return length == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    }

private:
    int fd_;
};

#endif
