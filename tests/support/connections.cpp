#include "support/connections.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace lenswire::test {

LoginInfo credentials(const std::string& user, const std::string& password) {
    LoginInfo info{};
    std::memcpy(info.szUserName, user.data(), std::min(user.size(), sizeof info.szUserName));
    std::memcpy(info.szPassword, password.data(), std::min(password.size(), sizeof info.szPassword));
    return info;
}

Pair::Pair() {
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        ADD_FAILURE() << "no socket pair: " << strerror(errno);
        return;
    }
    ours_ = sockets[0];
    theirs_ = Wire(sockets[1]);
    fcntl(ours_, F_SETFL, fcntl(ours_, F_GETFL) | O_NONBLOCK);
}

Pair::~Pair() {
    closes_ours();
}

int Pair::gives_ours() {
    return std::exchange(ours_, -1);
}

void Pair::closes_ours() {
    if (ours_ >= 0) close(ours_);
    ours_ = -1;
}

int waiting_bytes(int descriptor) {
    int count = -1;
    ioctl(descriptor, FIONREAD, &count);
    return count;
}

}  // namespace lenswire::test
