#include "bench/cameras/connection_loop.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>

#include "bench/support/process.h"
#include "lenswire/records.h"

namespace lenswire::bench {

ConnectionLoop::ConnectionLoop() : epoll_(epoll_create1(0)) {}

int ConnectionLoop::listen_for(uint32_t camera, const std::string& address, int receive_buffer_bytes) {
    int port = 0;
    const int listener = listen_at(address.c_str(), port);
    if (receive_buffer_bytes > 0)
        setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &receive_buffer_bytes, sizeof receive_buffer_bytes);
    connections_[listener] = {.camera = camera, .listens = true};
    watch(listener);
    return port;
}

void ConnectionLoop::run() {
    epoll_event events[64];
    while (true) {
        const int count = epoll_wait(epoll_, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            // One that an earlier event of the same wait has ended is not there any more.
            if (const auto found = connections_.find(events[i].data.fd); found != connections_.end())
                serve(found->first, found->second);
        }
    }
}

void ConnectionLoop::watch(int fd) const {
    epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
    epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
}

void ConnectionLoop::serve(int fd, Connection& connection) {
    if (connection.listens) {
        const int accepted = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK);
        if (accepted < 0) return;
        connections_[accepted] = {.camera = connection.camera};
        watch(accepted);
    } else if (!take(fd, connection)) {
        connections_.erase(fd);
        close(fd);
    }
}

bool ConnectionLoop::receive(int fd, Connection& connection) {
    uint8_t received[MAX_CMD_SIZE];
    const ssize_t count = recv(fd, received, sizeof received, 0);
    if (count <= 0) return count < 0 && errno == EAGAIN;
    connection.bytes.insert(connection.bytes.end(), received, received + count);
    return true;
}

}  // namespace lenswire::bench
