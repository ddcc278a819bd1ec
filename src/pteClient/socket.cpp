// Small steps over sockets. select is the one call that waits, so descriptors from 1024 up are refused before
// they touch a set that they do not fit.
#include "lenswire/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>

namespace {

bool fits_select(int fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

timeval to_timeval(int milliseconds) {
    return {.tv_sec = milliseconds / 1000, .tv_usec = (milliseconds % 1000) * 1000};
}

// The socket's pending error; `unknown` when it cannot be asked.
int pending_error(int fd, int unknown) {
    int error = unknown;
    socklen_t length = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    return error;
}

}  // namespace

int SK_ConnectTo(uint32_t address, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    // A socket that blocks would hold up whoever steps the login.
    if (SK_SetSocketUnblock(fd) != 0) {
        close(fd);
        return -1;
    }
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_port = htons(static_cast<uint16_t>(port));
    camera.sin_addr.s_addr = address;
    // In progress as a rule; the readiness tests tell how it ended.
    (void)connect(fd, reinterpret_cast<const sockaddr*>(&camera), sizeof camera);
    return fd;
}

int SK_SetSocketUnblock(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags != -1 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0 ? 0 : -1;
}

int SK_SelectWaitReadable(int fd, int milliseconds) {
    if (!fits_select(fd)) return -1;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval wait = to_timeval(milliseconds);
    if (select(fd + 1, &readable, nullptr, nullptr, &wait) <= 0) return -1;
    return FD_ISSET(fd, &readable) ? 0 : -1;
}

int SK_SelectWaitWriteable(int fd, int milliseconds) {
    if (fd == 0 || !fits_select(fd)) return -1;
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(fd, &writable);
    timeval wait = to_timeval(milliseconds);
    const int ready = select(fd + 1, nullptr, &writable, nullptr, &wait);
    if (ready < 0) return ready;
    if (ready == 0) return -1;
    if (!FD_ISSET(fd, &writable)) return 0;
    return pending_error(fd, 1) == 0 ? 0 : -1;
}

int PC_SockReadable(int fd) {
    if (!fits_select(fd)) {
        std::printf("illegal socket fd[%d]\n", fd);
        return -1;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    fd_set writable = readable;
    timeval wait = to_timeval(1000);
    const int ready = select(fd + 1, &readable, &writable, nullptr, &wait);
    // Writable says that a connect has ended, not how: the pending error does.
    if (ready < 0) return 0;
    if (ready == 0) return -2;
    if (!FD_ISSET(fd, &readable) && !FD_ISSET(fd, &writable)) return ready;
    switch (pending_error(fd, 1)) {
        case 0:
            return 1;
        case ECONNREFUSED:
            return -3;
        case EHOSTUNREACH:
        case EINPROGRESS:
            return -2;
        default:
            return 0;
    }
}

int Getsockerron(int fd) {
    int error = errno;
    socklen_t length = sizeof error;
    int result = 0;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        std::printf("getsockopt(SO_ERROR): %m");
        result = -1;
    }
    if (error == 0) return result;
    errno = error;
    return -1;
}
