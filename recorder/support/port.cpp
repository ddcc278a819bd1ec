#include "recorder/support/port.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "recorder/support/descriptor.h"

namespace lenswire::recorder {
namespace {

using Clock = std::chrono::steady_clock;

// 0, or the error that the attempt ended with; ETIMEDOUT when time was over.
int error_of_connect(const Descriptor& socket, uint32_t ip, int port, Clock::time_point end) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ip;
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (connect(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return 0;
    if (errno != EINPROGRESS) return errno;
    pollfd wanted{.fd = socket.number(), .events = POLLOUT, .revents = 0};
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        ready = poll(&wanted, 1, static_cast<int>(std::max<int64_t>(left, 0)));
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) return ready == 0 ? ETIMEDOUT : errno;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket.number(), SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

}  // namespace

int error_of_port(uint32_t ip, int port, Clock::duration patience) {
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return socket.number() < 0 ? errno : error_of_connect(socket, ip, port, Clock::now() + patience);
}

}  // namespace lenswire::recorder
