#include "engine/unkind_system.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>

namespace lenswire::test {
namespace {

template <typename Function>
Function real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

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
    static const auto real_select = real<Select>("select");
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
    static const auto real_prctl = real<Prctl>("prctl");
    return real_prctl(option, argument, 0, 0, 0);
}

ssize_t recv(int fd, void* buffer, size_t length, int flags) {
    using Recv = ssize_t (*)(int, void*, size_t, int);
    static const auto real_recv = real<Recv>("recv");
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

// The library's name for fcntl, on every platform.
int fcntl64(int fd, int command, ...) {
    va_list list;
    va_start(list, command);
    const long argument = va_arg(list, long);
    va_end(list);
    if (command == F_SETFL && unkind().blocking_only) return fail_with(EPERM);
    using Fcntl = int (*)(int, int, long);
    static const auto real_fcntl = real<Fcntl>("fcntl64");
    return real_fcntl(fd, command, argument);
}
}

namespace {

// Under both names of the call: where time has 32 bits by default, the library asks for 64.
template <typename Moment>
int read_clock(const char* name, clockid_t clock, Moment* now) {
    if (clock == CLOCK_MONOTONIC && unkind().stopped_clock && !spared()) return fail_with(EINVAL);
    return real<int (*)(clockid_t, Moment*)>(name)(clock, now);
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    return read_clock("clock_gettime", clock, now);
}

int __clock_gettime64(clockid_t clock, void* now) {
    return read_clock("__clock_gettime64", clock, now);
}
}
