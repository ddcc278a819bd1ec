#include "settings/settings.h"

#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "support/interpose.h"

namespace lenswire::test {

void SettingsTest::SetUp() {
    EngineTest::SetUp();
    LoggedIn login = new_login(camera_);
    unit_ = login.unit;
    wire_ = std::move(login.wire);
    host().has_channel(kChannel, Channel{.address = camera_.address_text(), .port = camera_.port()});
}

SettingsTest::Exchanged SettingsTest::runs(const std::function<int()>& operation,
                                           const std::vector<Message>& answers) {
    Exchanged exchanged{};
    std::future<int> result = starts(operation);
    for (const Message& answer : answers) {
        exchanged.requests.push_back(wire_.reads_command());
        wire_.sends(answer);
    }
    exchanged.result = result.get();
    EXPECT_FALSE(camera_was_asked());
    return exchanged;
}

SettingsTest::Exchanged SettingsTest::sends(const std::function<int()>& operation, size_t commands) {
    Exchanged exchanged{.result = operation(), .requests = {}};
    for (size_t i = 0; i < commands; ++i) exchanged.requests.push_back(wire_.reads_command());
    EXPECT_FALSE(camera_was_asked());
    return exchanged;
}

}  // namespace lenswire::test

using namespace lenswire::test;

namespace {

// Rounded: some microseconds pass between the caller's look at the clock and this one.
int seconds_until(const timespec& deadline) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const double left = static_cast<double>(deadline.tv_sec - now.tv_sec) +
                        static_cast<double>(deadline.tv_nsec - now.tv_nsec) / 1e9;
    return static_cast<int>(left + 0.5);
}

}  // namespace

extern "C" {

int usleep(useconds_t microseconds) {
    if (Timewarp::current == nullptr) return REAL(int (*)(useconds_t), usleep)(microseconds);
    Timewarp::current->slept_us.push_back(static_cast<long>(microseconds));
    return 0;
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    const auto real_select = REAL_TIMED(Select, select);
    if (Timewarp::current == nullptr) return real_select(count, readable, writable, exceptional, timeout);
    timeval now{};
    const int result = real_select(count, readable, writable, exceptional, &now);
    if (result != 0) return result;
    Timewarp::current->selected_ms.push_back(timeout->tv_sec * 1000L + timeout->tv_usec / 1000L);
    if (Timewarp::current->meanwhile) Timewarp::current->meanwhile();
    return 0;
}

ssize_t send(int descriptor, const void* bytes, size_t length, int flags) {
    if (Timewarp::current != nullptr && Timewarp::current->failing_send > 0 &&
        --Timewarp::current->failing_send == 0) {
        errno = EPIPE;
        return -1;
    }
    return REAL(ssize_t(*)(int, const void*, size_t, int), send)(descriptor, bytes, length, flags);
}

time_t time(time_t* out) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t moment = Timewarp::current != nullptr && Timewarp::current->moment >= 0
                              ? Timewarp::current->moment
                              : now.tv_sec;
    if (out != nullptr) *out = moment;
    return moment;
}

int clock_gettime(clockid_t clock, timespec* out) {
    if (Timewarp::current != nullptr && Timewarp::current->clock_fails) return -1;
    return REAL_TIMED(int (*)(clockid_t, timespec*), clock_gettime)(clock, out);
}

int pthread_cond_clockwait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
    if (Timewarp::current == nullptr) {
        using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
        return REAL_TIMED(Wait, pthread_cond_clockwait)(cond, mutex, clock, deadline);
    }
    if (clock == CLOCK_MONOTONIC) Timewarp::current->waited_s.push_back(seconds_until(*deadline));
    return ETIMEDOUT;
}
}
