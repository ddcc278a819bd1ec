#include "engine/unkind_system.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>

#include "support/interpose.h"

namespace lenswire::test {
namespace {

// The test's own thread is the process's first.
bool spared() {
    return gettid() == getpid();
}

int fail_with(int error) {
    errno = error;
    return -1;
}

}  // namespace

UnkindSystem& unkind() {
    static UnkindSystem system;
    return system;
}

}  // namespace lenswire::test

using namespace lenswire::test;

extern "C" {

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static const auto real_select = REAL_TIMED(Select, select);
    const bool short_wait = timeout != nullptr && timeout->tv_sec == 0 && timeout->tv_usec == 1000;
    if (unkind().endless_waits && short_wait && !spared()) timeout = nullptr;
    return real_select(count, readable, writable, exceptional, timeout);
}

int prctl(int option, ...) {
    va_list list;
    va_start(list, option);
    const unsigned long argument = va_arg(list, unsigned long);
    va_end(list);
    static thread_local int calls;
    if (!spared() && (unkind().refuses_every_prctl || ++calls == unkind().refused_prctl)) {
        return fail_with(EPERM);
    }
    using Prctl = int (*)(int, unsigned long, unsigned long, unsigned long, unsigned long);
    static const auto real_prctl = REAL(Prctl, prctl);
    return real_prctl(option, argument, 0, 0, 0);
}

ssize_t recv(int fd, void* buffer, size_t length, int flags) {
    using Recv = ssize_t (*)(int, void*, size_t, int);
    static const auto real_recv = REAL(Recv, recv);
    if (fd >= 0 && fd < 1024) ++unkind().received_from[fd];
    if (const int error = spared() ? 0 : unkind().recv_error.exchange(0); error != 0) return fail_with(error);
    const ssize_t received = real_recv(fd, buffer, length, flags);
    using Hold = UnkindSystem::Hold;
    Hold next = Hold::kNext;
    const bool holds =
        received > 0 && !spared() && unkind().recv_hold.compare_exchange_strong(next, Hold::kHeld);
    if (holds) unkind().recv_hold.wait(Hold::kHeld);
    return received;
}

int fcntl(int fd, int command, ...) {
    va_list list;
    va_start(list, command);
    const long argument = va_arg(list, long);
    va_end(list);
    if (command == F_SETFL && unkind().blocking_only) return fail_with(EPERM);
#ifdef SYS_fcntl64
    return static_cast<int>(syscall(SYS_fcntl64, fd, command, argument));
#else
    return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
#endif
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static thread_local int readings;
    const bool fails = unkind().failing_clock && !spared() && ++readings % 2 == 0;
    if (clock == CLOCK_MONOTONIC && fails) return fail_with(EINVAL);
    using ClockGettime = int (*)(clockid_t, timespec*);
    static const auto real_clock_gettime = REAL_TIMED(ClockGettime, clock_gettime);
    return real_clock_gettime(clock, now);
}
}
