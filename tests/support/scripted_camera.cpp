#include "support/scripted_camera.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace lenswire::test {

namespace {

constexpr int kPatienceMs = 20000;

bool becomes_ready(int descriptor, short events) {
    pollfd wait{.fd = descriptor, .events = events, .revents = 0};
    int result;
    do result = poll(&wait, 1, kPatienceMs);
    while (result < 0 && errno == EINTR);
    return result > 0;
}

sockaddr_in loopback(const std::string& address) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) std::abort();
    return name;
}

}  // namespace

Bytes default_serial() {
    return {0xA1, 0xB2, 0xC3, 0xD4, 0xE5, 0xF6, 0x07, 0x18};
}

Bytes Wire::reads(size_t count) {
    Bytes bytes(count);
    size_t done = 0;
    while (done < count) {
        const bool ready = becomes_ready(descriptor_, POLLIN);
        const ssize_t got = ready ? recv(descriptor_, bytes.data() + done, count - done, 0) : -1;
        if (got <= 0) {
            ADD_FAILURE() << "only " << done << " of " << count << " bytes came, then "
                          << (ready ? "the end" : "nothing");
            break;
        }
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

Message Wire::reads_command() {
    Message message = header_of(reads(32));
    const uint32_t length = message.buffer_num * message.buffer_size;
    if (length > 4096 - 32) {
        ADD_FAILURE() << "a command of " << length << " payload bytes came";
        return message;
    }
    if (length > 0) message.payload = reads(length);
    return message;
}

bool Wire::sees_close() {
    uint8_t dropped[4096];
    while (becomes_ready(descriptor_, POLLIN)) {
        if (recv(descriptor_, dropped, sizeof dropped, 0) <= 0) return true;
    }
    return false;
}

bool Wire::has_bytes() const {
    uint8_t byte;
    return recv(descriptor_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

void Wire::sends(const Bytes& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t sent = send(descriptor_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            ADD_FAILURE() << "the camera could send only " << done << " of " << bytes.size() << " bytes";
            return;
        }
        done += static_cast<size_t>(sent);
    }
}

void Wire::closes() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
}

void Wire::finishes() {
    shutdown(descriptor_, SHUT_WR);
}

void Wire::resets() {
    const linger no_linger{.l_onoff = 1, .l_linger = 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &no_linger, sizeof no_linger);
    closes();
}

ScriptedCamera::ScriptedCamera(const std::string& address, int backlog) {
    sockaddr_in name = loopback(address);
    socklen_t length = sizeof name;
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener_, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
        listen(listener_, backlog) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&name), &length) != 0) {
        ADD_FAILURE() << "the camera cannot listen on " << address << ": " << strerror(errno);
    }
    address_ = name.sin_addr.s_addr;
    port_ = ntohs(name.sin_port);
}

ScriptedCamera::~ScriptedCamera() {
    stops_listening();
}

std::string ScriptedCamera::address_text() const {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address_, text, sizeof text);
}

Wire ScriptedCamera::accepts() {
    if (!becomes_ready(listener_, POLLIN)) {
        ADD_FAILURE() << "nobody connects to the camera";
        return Wire();
    }
    const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return Wire(descriptor);
}

std::future<Wire> ScriptedCamera::logs_in_next(uint32_t login_id, Bytes serial) {
    return std::async(std::launch::async, [this, login_id, serial = std::move(serial)] {
        Wire wire = accepts();
        if (!wire.connected()) return wire;
        answers_serial_request(wire, serial);
        answers_login(wire, login_id);
        return wire;
    });
}

void ScriptedCamera::stops_listening() {
    if (listener_ >= 0) close(listener_);
    listener_ = -1;
}

Bytes answers_serial_request(Wire& wire, const Bytes& serial) {
    Bytes request = wire.reads(32);
    wire.sends(command(0x0101, serial));
    return request;
}

Bytes answers_login(Wire& wire, uint32_t login_id, uint16_t state) {
    Bytes request = wire.reads(108);
    wire.sends(command(0x0000, {}, state, login_id));
    return request;
}

int refused_port(const std::string& address) {
    ScriptedCamera camera(address);
    return camera.port();
}

}  // namespace lenswire::test
