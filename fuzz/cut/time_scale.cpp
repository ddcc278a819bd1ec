// The process's monotonic clock and the library's waits, sped up alike: ten seconds for an answer pass in a
// fraction of one, so that thousands of cameras can be waited for that say nothing. Pauses of a millisecond
// stay: loops would spin.
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>

#include "fuzz/cut/session.h"
#include "tests/support/interpose.h"

namespace {

constexpr long kLeastUs = 1000;
constexpr long long kSecond = 1'000'000'000;

timespec g_start;  // of the process, where both clocks agree

int real_clock(clockid_t clock, timespec* out) {
    using Call = int (*)(clockid_t, timespec*);
    static const auto call = REAL_TIMED(Call, clock_gettime);
    return call(clock, out);
}

// The distance of a moment from the start, multiplied and divided.
timespec stretched(const timespec& moment, int times, int by) {
    const long long since = (moment.tv_sec - g_start.tv_sec) * kSecond + (moment.tv_nsec - g_start.tv_nsec);
    const long long ns = g_start.tv_nsec + since / by * times;
    timespec result{};
    result.tv_sec = g_start.tv_sec + static_cast<time_t>(ns / kSecond);
    result.tv_nsec = static_cast<long>(ns % kSecond);
    return result;
}

long shortened(long us) {
    return us <= kLeastUs ? us : std::max(us / lenswire::fuzz::g_time_scale, kLeastUs);
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* out) {
    const int result = real_clock(clock, out);
    if (clock != CLOCK_MONOTONIC || result != 0) return result;
    if (g_start.tv_sec == 0) g_start = *out;  // before there are threads
    *out = stretched(*out, lenswire::fuzz::g_time_scale, 1);
    return 0;
}

int usleep(useconds_t us) {
    static const auto call = REAL(int (*)(useconds_t), usleep);
    return call(static_cast<useconds_t>(shortened(static_cast<long>(us))));
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    using Call = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static const auto call = REAL_TIMED(Call, select);
    if (timeout == nullptr) return call(count, readable, writable, exceptional, timeout);
    const long us =
        shortened(static_cast<long>(timeout->tv_sec) * 1'000'000 + static_cast<long>(timeout->tv_usec));
    timeval wait{};
    wait.tv_sec = us / 1'000'000;
    wait.tv_usec = us % 1'000'000;
    return call(count, readable, writable, exceptional, &wait);
}

int pthread_cond_clockwait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
    using Call = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
    static const auto call = REAL_TIMED(Call, pthread_cond_clockwait);
    const timespec sooner = stretched(*deadline, 1, lenswire::fuzz::g_time_scale);
    return call(cond, mutex, clock, clock == CLOCK_MONOTONIC ? &sooner : deadline);
}
}
