#include "recorder/host/login_watch.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>

namespace lenswire::recorder {
namespace {

// ulLoginStep of a client that has sent user and password.
constexpr uint32_t kLoginSent = 3;
constexpr uint8_t kTcpClosed = 7;

bool read_tcp_info(int fd, tcp_info& info) {
    socklen_t size = sizeof info;
    constexpr size_t kNeeded = offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received;
    return getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && size >= kNeeded;
}

// Looks without taking anything away.
bool peer_closed(int fd) {
    char byte = 0;
    return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

}  // namespace

bool LoginWatch::over() {
    if (end_ == End::kNone) end_ = look();
    return end_ != End::kNone;
}

LoginWatch::End LoginWatch::look() {
    const int fd = client_->sockFd;
    if (fd < 0) return End::kClosed;
    tcp_info info{};
    const bool known = read_tcp_info(fd, info);
    if (known && info.tcpi_state == kTcpClosed) {
        int error = 0;
        socklen_t size = sizeof error;
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
        if (client_->ulLoginStep > 0) return End::kClosed;
        return error == ECONNREFUSED ? End::kPortRefused : End::kNoConnection;
    }
    if (known && client_->ulLoginStep == kLoginSent) {
        // An answer that was read and changed nothing was a refusal. The order makes the error, if bytes
        // come in between, one to the side of waiting.
        int unread = 0;
        ioctl(fd, FIONREAD, &unread);
        const uint64_t read = info.tcpi_bytes_received - static_cast<uint64_t>(unread);
        if (!read_before_) read_before_ = read;
        if (static_cast<int64_t>(read - *read_before_) > 0) return End::kRefused;
    }
    if (client_->ulLoginStep > 0 && client_->ulLoginStep <= kLoginSent && peer_closed(fd))
        return End::kClosed;
    return Clock::now() >= deadline_ ? End::kTimedOut : End::kNone;
}

}  // namespace lenswire::recorder
