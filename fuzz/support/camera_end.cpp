#include "fuzz/support/camera_end.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fuzz/support/host.h"
#include "pteClient/client_table.h"

namespace lenswire::fuzz {

SocketPair::SocketPair() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "a socket pair");
    library = ends[0];
    camera = ends[1];
}

SocketPair::~SocketPair() {
    close(library);
    close(camera);
}

void SocketPair::say(std::span<const uint8_t> bytes) const {
    const ssize_t sent = send(camera, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    require(sent == static_cast<ssize_t>(bytes.size()), "the socket takes what one input says");
}

void SocketPair::drain() const {
    static uint8_t dropped[65536];
    while (recv(library, dropped, sizeof dropped, 0) == sizeof dropped) continue;
    while (recv(camera, dropped, sizeof dropped, 0) == sizeof dropped) continue;
}

CameraEnd::CameraEnd() {
    clients::open_tables();
    unit_ = PC_CreateNew();
    const LoginInfo info{};
    bool full = false;
    const clients::Invited invited = clients::bind_unit(unit_, {kCameraAddress, 9, &info}, full);
    require(clients::attach(invited.ref, sockets_.library), "a client takes its socket");
    PC_SetCBState(&client(), PC_STATE_READY);
    clients::finish(invited.ref, 0);
}

void CameraEnd::say(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    require(bytes.size() <= MAX_CMD_SIZE, "no more than one pass reads");
    sockets_.say(bytes);
    PC_SingleStep();
}

std::deque<uint16_t> CameraEnd::requests() {
    std::deque<uint16_t> codes;
    PrivateCmd header;
    while (recv(sockets_.camera, &header, sizeof header, 0) == sizeof header) {
        codes.push_back(header.usCmd);
        uint8_t payload[MAX_CMD_SIZE];
        const size_t length = size_t{header.ulBufferNum} * header.ulBufferSize;
        require(length <= sizeof payload, "a request is no longer than a message");
        if (length > 0) (void)!recv(sockets_.camera, payload, length, 0);
    }
    return codes;
}

void CameraEnd::clear() {
    sockets_.drain();
    client().ulRecvRemainLen = 0;
}

}  // namespace lenswire::fuzz
