#include "settings/interposed.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace lenswire::test {
namespace {

thread_local Timewarp* t_warp = nullptr;
std::atomic<time_t> g_frozen{-1};

template <typename Function>
Function real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Rounded: some microseconds pass between the caller's look at the clock and this one.
int seconds_until(const timespec& deadline) {
    timeval now;
    gettimeofday(&now, nullptr);
    const double left = static_cast<double>(deadline.tv_sec - now.tv_sec) +
                        static_cast<double>(deadline.tv_nsec) / 1e9 - static_cast<double>(now.tv_usec) / 1e6;
    return static_cast<int>(left + 0.5);
}

}  // namespace

Timewarp::Timewarp() {
    t_warp = this;
}

Timewarp::~Timewarp() {
    t_warp = nullptr;
}

FrozenTime::FrozenTime(time_t moment) {
    g_frozen = moment;
}

FrozenTime::~FrozenTime() {
    g_frozen = -1;
}

}  // namespace lenswire::test

using namespace lenswire::test;

extern "C" {

unsigned sleep(unsigned seconds) {
    if (t_warp == nullptr) return real<unsigned (*)(unsigned)>("sleep")(seconds);
    t_warp->slept_us.push_back(static_cast<long>(seconds) * 1000000);
    return 0;
}

int usleep(useconds_t microseconds) {
    if (t_warp == nullptr) return real<int (*)(useconds_t)>("usleep")(microseconds);
    t_warp->slept_us.push_back(static_cast<long>(microseconds));
    return 0;
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    const auto real_select = real<Select>("select");
    if (t_warp == nullptr) return real_select(count, readable, writable, exceptional, timeout);
    timeval now{};
    const int result = real_select(count, readable, writable, exceptional, &now);
    if (result != 0) return result;
    t_warp->selected_ms.push_back(timeout->tv_sec * 1000L + timeout->tv_usec / 1000L);
    if (t_warp->meanwhile) t_warp->meanwhile();
    return 0;
}

time_t time(time_t* out) {
    timeval now;
    gettimeofday(&now, nullptr);
    const time_t moment = g_frozen >= 0 ? g_frozen.load() : now.tv_sec;
    if (out != nullptr) *out = moment;
    return moment;
}

int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* deadline) {
    if (t_warp == nullptr) {
        using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, const timespec*);
        return real<Wait>("pthread_cond_timedwait")(cond, mutex, deadline);
    }
    t_warp->waited_s.push_back(seconds_until(*deadline));
    return ETIMEDOUT;
}
}
