#include "pteClient/wake_up.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>

namespace lenswire {

WakeUp g_event_loop_wake_up, g_stream_loop_wake_up;

void WakeUp::open() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd >= FD_SETSIZE) {
        ::close(fd);
        return;
    }
    fd_ = fd;
}

// Clears the word first and then waits for those who may have read it before: a raise never writes into a
// number that somebody else has by now.
void WakeUp::close() {
    const int fd = fd_.exchange(-1);
    while (raising_ != 0) sched_yield();
    if (fd >= 0) ::close(fd);
}

void WakeUp::raise() {
    const int error = errno;
    ++raising_;
    const uint64_t once = 1;
    const int fd = fd_;
    if (fd >= 0) (void)!write(fd, &once, sizeof once);  // fails only when it is raised already
    --raising_;
    errno = error;
}

int WakeUp::watch(fd_set& readable) const {
    const int fd = fd_;
    if (fd >= 0) FD_SET(fd, &readable);
    return fd;
}

bool WakeUp::take(const fd_set& readable) {
    const int fd = fd_;
    if (fd < 0 || !FD_ISSET(fd, &readable)) return false;
    uint64_t times;
    (void)!read(fd, &times, sizeof times);  // lowers it
    return true;
}

void WakeUp::wait(unsigned seconds) {
    fd_set readable;
    FD_ZERO(&readable);
    timeval longest{.tv_sec = static_cast<time_t>(seconds), .tv_usec = 0};
    if (select(watch(readable) + 1, &readable, nullptr, nullptr, &longest) > 0) take(readable);
}

void WakeUp::forget_if_closed() {
    const int fd = fd_;
    if (fd >= 0 && fcntl(fd, F_GETFD) < 0) fd_ = -1;
}

}  // namespace lenswire
