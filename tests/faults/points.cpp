// The program's own functions stand in front of libc's and the host's. A row each; most do nothing when they
// fail, some do their work all the same, as close does.
#include "faults/points.h"

#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "lenswire/host_services.h"
#include "support/interpose.h"

namespace lenswire::test {
namespace {

constexpr int kFaster = 20;
constexpr int64_t kSecond = 1'000'000'000;

Point* g_first;
std::atomic<Point*> g_failing;
std::atomic<int> g_number, g_error;
std::atomic<bool> g_failed;

struct Range {
    uintptr_t from = 0, to = 0;
    bool holds(const void* place) const {
        const auto at = reinterpret_cast<uintptr_t>(place);
        return at >= from && at < to;
    }
};

int find_library(dl_phdr_info* info, size_t, void* found) {
    if (std::strstr(info->dlpi_name, "liblenswire.so") == nullptr) return 0;
    auto& range = *static_cast<Range*>(found);
    range.from = info->dlpi_addr;
    for (int i = 0; i < info->dlpi_phnum; ++i)
        range.to = std::max<uintptr_t>(
            range.to, info->dlpi_addr + info->dlpi_phdr[i].p_vaddr + info->dlpi_phdr[i].p_memsz);
    return 1;
}

Range g_library;
// Before main; calls before that are nobody's.
const int g_found = dl_iterate_phdr(find_library, &g_library);

int64_t to_ns(const timespec& time) {
    return int64_t{time.tv_sec} * kSecond + time.tv_nsec;
}

timespec to_timespec(int64_t ns) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ns / kSecond);
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>(ns % kSecond);
    return time;
}

int64_t real_ns() {
    using ClockGettime = int (*)(clockid_t, timespec*);
    static const auto real = REAL_TIMED(ClockGettime, clock_gettime);
    timespec now{};
    real(CLOCK_MONOTONIC, &now);
    return to_ns(now);
}

int64_t start_ns() {
    static const int64_t start = real_ns();
    return start;
}

int64_t library_ns() {
    return start_ns() + (real_ns() - start_ns()) * kFaster;
}

// Never so short that a poll would leave nobody else the processor.
useconds_t shorter(int64_t us) {
    return static_cast<useconds_t>(us / kFaster + 50);
}

}  // namespace

Point::Point(const char* name, int error, int other_error)
    : name_(name), error_(error), other_error_(other_error), next_(g_first) {
    g_first = this;
}

Point* Point::first() {
    return g_first;
}

Point* Point::find(const std::string& name) {
    Point* point = g_first;
    while (point != nullptr && name != point->name_) point = point->next_;
    return point;
}

void Point::fails_at(int number, int error_index) {
    g_number = number;
    g_error = error_index == 0 ? error_ : other_error_;
    g_failing = this;
}

void Point::nothing_fails() {
    g_failing = nullptr;
}

bool Point::has_failed() {
    return g_failed;
}

bool Point::fails(const void* caller) {
    if (!g_library.holds(caller)) return false;
    const int number = ++calls_;
    if (g_failing != this || g_number != number) return false;
    g_failed = true;
    errno = g_error;
    return true;
}

}  // namespace lenswire::test

using namespace lenswire::test;

#define CALLER __builtin_return_address(0)
// 32-bit platforms call the variant for large files or late times.
#if defined(__LP64__)
#define REAL_WIDE(type, name, wide) REAL(type, name)
#else
#define REAL_WIDE(type, name, wide) REAL(type, wide)
#endif
#define FAILS_BEHIND(type, name, wide, parameters, arguments, failed, error, other)  \
    Point point_##name(#name, error, other);                                         \
    type name parameters {                                                           \
        if (point_##name.fails(CALLER)) return failed;                               \
        static const auto real_function = REAL_WIDE(type(*) parameters, name, wide); \
        return real_function arguments;                                              \
    }
#define FAILS(type, name, parameters, arguments, failed, error, other) \
    FAILS_BEHIND(type, name, name, parameters, arguments, failed, error, other)
// Does its work and says that it did not.
#define FAILS_AFTER(type, name, parameters, arguments, failed, error)     \
    Point point_##name(#name, error, 0);                                  \
    type name parameters {                                                \
        const bool fails_then = point_##name.fails(CALLER);               \
        static const auto real_function = REAL(type(*) parameters, name); \
        const type result = real_function arguments;                      \
        return fails_then ? (errno = error, failed) : result;             \
    }
#define FAILS_PRINTING(name, parameters, real_name, ...)         \
    Point point_##name(#name, EIO, 0);                           \
    int name parameters {                                        \
        if (point_##name.fails(CALLER)) return -1;               \
        va_list list;                                            \
        va_start(list, format);                                  \
        const int result = real_name(__VA_ARGS__, format, list); \
        va_end(list);                                            \
        return result;                                           \
    }

extern "C" {

FAILS(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE, 0)
FAILS(int, connect, (int fd, const sockaddr* address, socklen_t length), (fd, address, length), -1,
      ENETUNREACH, EINTR)
FAILS(ssize_t, recv, (int fd, void* bytes, size_t length, int flags), (fd, bytes, length, flags), -1,
      ECONNRESET, EINTR)
FAILS(ssize_t, send, (int fd, const void* bytes, size_t length, int flags), (fd, bytes, length, flags), -1,
      EPIPE, EAGAIN)
FAILS_BEHIND(ssize_t, sendfile, sendfile64, (int out, int in, off_t* from, size_t count),
             (out, in, from, count), -1, EIO, EINTR)
FAILS(int, getsockopt, (int fd, int level, int name, void* value, socklen_t* length),
      (fd, level, name, value, length), -1, ENOBUFS, 0)
FAILS(int, shutdown, (int fd, int how), (fd, how), -1, ENOTCONN, 0)
FAILS(int, eventfd, (unsigned count, int flags), (count, flags), -1, EMFILE, 0)
FAILS(ssize_t, read, (int fd, void* bytes, size_t count), (fd, bytes, count), -1, EAGAIN, 0)
FAILS(ssize_t, write, (int fd, const void* bytes, size_t count), (fd, bytes, count), -1, EAGAIN, 0)
FAILS_AFTER(int, close, (int fd), (fd), -1, EINTR)
FAILS_AFTER(int, fclose, (FILE * file), (file), EOF, EIO)
FAILS(FILE*, fdopen, (int fd, const char* mode), (fd, mode), nullptr, ENOMEM, 0)
FAILS(int, fileno, (FILE * file), (file), -1, EBADF, 0)
FAILS(size_t, fread, (void* bytes, size_t size, size_t count, FILE* file), (bytes, size, count, file), 0, EIO,
      0)
FAILS_BEHIND(int, fseeko, fseeko64, (FILE * file, off_t offset, int whence), (file, offset, whence), -1, EIO,
             0)
FAILS_BEHIND(int, fstat, __fstat64_time64, (int fd, struct stat* status), (fd, status), -1, EIO, 0)
FAILS_BEHIND(int, stat, __stat64_time64, (const char* path, struct stat* status), (path, status), -1, EACCES,
             0)
FAILS(int, fputs, (const char* text, FILE* file), (text, file), EOF, EIO, 0)
FAILS(int, puts, (const char* text), (text), EOF, EIO, 0)
FAILS_PRINTING(printf, (const char* format, ...), vfprintf, stdout)
FAILS_PRINTING(fprintf, (FILE * file, const char* format, ...), vfprintf, file)
FAILS(int, pthread_attr_setstacksize, (pthread_attr_t * attributes, size_t size), (attributes, size), EINVAL,
      EINVAL, 0)
FAILS(int, pthread_create,
      (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
      (thread, attributes, body, argument), EAGAIN, EAGAIN, 0)
#if !defined(__SANITIZE_THREAD__)  // which calls them itself, before it is ready
FAILS(int, pthread_attr_init, (pthread_attr_t * attributes), (attributes), ENOMEM, ENOMEM, 0)
FAILS(int, pthread_key_create, (pthread_key_t * key, void (*destroy)(void*)), (key, destroy), EAGAIN, EAGAIN,
      0)
FAILS(int, pthread_setspecific, (pthread_key_t key, const void* value), (key, value), ENOMEM, ENOMEM, 0)
#endif
FAILS(int, sem_wait, (sem_t * sem), (sem), -1, EINTR, 0)
FAILS(int, sigpending, (sigset_t * set), (set), -1, EFAULT, 0)
FAILS_BEHIND(int, sigtimedwait, __sigtimedwait64,
             (const sigset_t* set, siginfo_t* info, const timespec* timeout), (set, info, timeout), -1, EINTR,
             EAGAIN)
FAILS_BEHIND(tm*, localtime_r, __localtime64_r, (const time_t* time, tm* local), (time, local), nullptr,
             EOVERFLOW, 0)
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* __libc_malloc(size_t size);
Point point_malloc("malloc", ENOMEM, 0);
void* malloc(size_t size) {
    return point_malloc.fails(CALLER) ? nullptr : __libc_malloc(size);
}
#endif

Point point_open("open", EMFILE, EINTR);
int open(const char* path, int flags, ...) {
    if (point_open.fails(CALLER)) return -1;
    va_list list;
    va_start(list, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(list, int) : 0;
    va_end(list);
    using Open = int (*)(const char*, int, ...);
    static const auto real_open = REAL_WIDE(Open, open, open64);
    return real_open(path, flags, mode);
}

Point point_fcntl("fcntl", EPERM, 0);
int fcntl(int fd, int command, ...) {
    if (point_fcntl.fails(CALLER)) return -1;
    va_list list;
    va_start(list, command);
    void* argument = va_arg(list, void*);
    va_end(list);
    using Fcntl = int (*)(int, int, ...);
    static const auto real_fcntl = REAL_WIDE(Fcntl, fcntl, fcntl64);
    return real_fcntl(fd, command, argument);
}

Point point_prctl("prctl", EPERM, 0);
int prctl(int option, ...) {
    if (point_prctl.fails(CALLER)) return -1;
    va_list list;
    va_start(list, option);
    const unsigned long argument = va_arg(list, unsigned long);
    va_end(list);
    using Prctl = int (*)(int, unsigned long, unsigned long, unsigned long, unsigned long);
    static const auto real_prctl = REAL(Prctl, prctl);
    return real_prctl(option, argument, 0, 0, 0);
}

// -- Those that know about time.

Point point_clock_gettime("clock_gettime", EINVAL, 0);
int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (point_clock_gettime.fails(CALLER)) return -1;
    if (clock == CLOCK_MONOTONIC && g_library.holds(CALLER)) {
        *now = to_timespec(library_ns());
        return 0;
    }
    using ClockGettime = int (*)(clockid_t, timespec*);
    static const auto real_clock_gettime = REAL_TIMED(ClockGettime, clock_gettime);
    return real_clock_gettime(clock, now);
}

Point point_usleep("usleep", EINTR, 0);
int usleep(useconds_t us) {
    if (point_usleep.fails(CALLER)) return -1;
    using Usleep = int (*)(useconds_t);
    static const auto real_usleep = REAL(Usleep, usleep);
    return real_usleep(g_library.holds(CALLER) ? shorter(us) : us);
}

Point point_sleep("sleep", EINTR, 0);
unsigned sleep(unsigned seconds) {
    if (!point_sleep.fails(CALLER))
        usleep(g_library.holds(CALLER) ? shorter(seconds * 1'000'000) : seconds * 1'000'000);
    return 0;
}

Point point_select("select", EBADF, EINTR);
int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    if (point_select.fails(CALLER)) return -1;
    timeval shorter_timeout{};
    if (timeout != nullptr && g_library.holds(CALLER)) {
        const useconds_t us = shorter(int64_t{timeout->tv_sec} * 1'000'000 + timeout->tv_usec);
        shorter_timeout.tv_sec = us / 1'000'000;
        shorter_timeout.tv_usec = us % 1'000'000;
        timeout = &shorter_timeout;
    }
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static const auto real_select = REAL_TIMED(Select, select);
    return real_select(count, readable, writable, exceptional, timeout);
}

Point point_pthread_cond_clockwait("pthread_cond_clockwait", ETIMEDOUT, 0);
int pthread_cond_clockwait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
    if (point_pthread_cond_clockwait.fails(CALLER)) return ETIMEDOUT;
    const bool ours = g_library.holds(CALLER);
    const timespec sooner =
        ours ? to_timespec(start_ns() + (to_ns(*deadline) - start_ns()) / kFaster) : *deadline;
    using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
    static const auto real_wait = REAL_TIMED(Wait, pthread_cond_clockwait);
    return real_wait(cond, mutex, clock, &sooner);
}

// -- The host's services.

#define SERVICE(type, name, parameters, arguments, failed) \
    FAILS(type, name, parameters, arguments, failed, EIO, 0)
SERVICE(int, DbMainMsgChannelInfo, (int channel, char ip[64], int* port, char user[64], char password[64]),
        (channel, ip, port, user, password), -1)
SERVICE(int, databaseOperate, (int table, int operation, void* key, int size, void* buffer, int length),
        (table, operation, key, size, buffer, length), -1)
SERVICE(int, configGetDisplayNum, (), (), 0)
SERVICE(int, get_channel_protocol, (int channel), (channel), 0)
SERVICE(int, get_channel_bindstatus, (int channel), (channel), 0)
SERVICE(int, is_channel_fish_eye, (int channel), (channel), 0)
SERVICE(int, Private_Protocol_GetRequestFromQueue, (StreamRequest * request), (request), -1)
SERVICE(int, networkInsertMessageToQueue, (int channel, int stream, void* message, int kind),
        (channel, stream, message, kind), -1)
SERVICE(int, networkGetStreamUsedNum, (int channel, int stream), (channel, stream), 0)
SERVICE(int, networkGetRunFlag, (int channel, int stream), (channel, stream), 4)
SERVICE(void*, networkGetStreampPrivateInfo, (int first, int second), (first, second), nullptr)
SERVICE(int, Private_Protocol_SetRecvBit, (int channel, int stream, int bytes, int width, int height),
        (channel, stream, bytes, width, height), -1)
SERVICE(int, libVideoInfoSetNetworkParam, (int channel, int stream, int kind, int rate, int bytes),
        (channel, stream, kind, rate, bytes), -1)
SERVICE(int, ring_free_size_ex, (void* ring), (ring), 0)
SERVICE(void*, ring_get_start_buf, (void* ring), (ring), nullptr)
SERVICE(void*, streamGetFrameQueueBuffer, (void* stream, int size), (stream, size), nullptr)
SERVICE(int, VideoMDGetStatus, (int channel), (channel), 0)
SERVICE(int, VideoMDSetStatus, (int channel, int status, void* data), (channel, status, data), -1)
SERVICE(int, snapSetMotion, (int channel, int state), (channel, state), -1)
SERVICE(int, motion_data_copy, (int channel, void* data), (channel, data), -1)
SERVICE(int, MD_Disarming_Time, (int channel), (channel), 0)
SERVICE(int, streamInsertAlarmToAlarmQueue, (int queue, void* record), (queue, record), -1)
SERVICE(int, GetTimeZone, (char* name, int* a, int* b), (name, a, b), -1)
SERVICE(int, GetTimeZoneTime, (uint32_t zone, uint8_t* hours, uint8_t* minutes), (zone, hours, minutes), -1)
SERVICE(uint32_t, GetIpcTimeZoneMap, (uint32_t zone), (zone), 0)
SERVICE(void*, MeMalloc, (int size, const char* file, int line), (size, file, line), nullptr)

// The host's clock goes half as fast as the library's.
uint32_t uptime(void) {
    return static_cast<uint32_t>(1000 + (library_ns() - start_ns()) / kSecond / 2);
}
}
