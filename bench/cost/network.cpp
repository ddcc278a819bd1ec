#include "bench/cost/network.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <deque>

namespace lenswire::bench::cost {

namespace {

using Piece = std::vector<uint8_t>;

std::deque<Piece>& pieces_of(int fd) {
    static std::deque<Piece> pieces[FD_SETSIZE];
    return pieces[fd];
}

}  // namespace

void Network::brings(int fd, std::initializer_list<std::span<const uint8_t>> parts) {
    Piece& piece = pieces_of(fd).emplace_back();
    for (const auto& part : parts) piece.insert(piece.end(), part.begin(), part.end());
}

Network& network() {
    static Network network;
    return network;
}

}  // namespace lenswire::bench::cost

using namespace lenswire::bench::cost;

extern "C" {

int connect(int, const sockaddr*, socklen_t) {
    return 0;
}

ssize_t recv(int fd, void* buffer, size_t room, int) {
    auto& pieces = pieces_of(fd);
    if (pieces.empty()) {
        errno = EAGAIN;
        return -1;
    }
    auto& piece = pieces.front();
    const size_t length = std::min(room, piece.size());
    std::memcpy(buffer, piece.data(), length);
    piece.erase(piece.begin(), piece.begin() + static_cast<ptrdiff_t>(length));
    if (piece.empty()) pieces.pop_front();
    return static_cast<ssize_t>(length);
}

ssize_t send(int fd, const void* bytes, size_t length, int) {
    const auto* first = static_cast<const uint8_t*>(bytes);
    network().sent(fd, {first, first + length});
    return static_cast<ssize_t>(length);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval*) {
    int ready = 0;
    for (int fd = 0; fd < count; ++fd) {
        if (readable != nullptr && FD_ISSET(fd, readable) && pieces_of(fd).empty()) FD_CLR(fd, readable);
        ready +=
            (readable != nullptr && FD_ISSET(fd, readable)) + (writable != nullptr && FD_ISSET(fd, writable));
    }
    if (exceptional != nullptr) FD_ZERO(exceptional);
    return ready;
}

int usleep(useconds_t) {
    if (network().paused) network().paused();
    return 0;
}

int clock_gettime(clockid_t, timespec* now) noexcept {
    const int64_t us = network().now_us++;
    *now = {.tv_sec = static_cast<time_t>(us / 1'000'000),
            .tv_nsec = static_cast<long>(us % 1'000'000 * 1000)};
    return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return network().refuses_threads ? EAGAIN : real(thread, attributes, body, argument);
}

int pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t* mutex, clockid_t, const timespec*) {
    pthread_mutex_unlock(mutex);
    network().awaited();
    pthread_mutex_lock(mutex);
    return 0;
}
}
