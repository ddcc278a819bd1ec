#include "recorder/session/camera_link.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "recorder/support/failure.h"

namespace lenswire::recorder {

CameraLink::CameraLink(Plugin& plugin, CameraAddress address, int recorder_channel, int recorder_stream)
    : plugin_(plugin),
      address_(std::move(address)),
      channel_(recorder_channel),
      stream_(recorder_stream),
      unit_(plugin.PC_CreateNew()) {
    if (unit_ == nullptr) throw camera_failed("the library has no free unit for " + address_.name());
}

CameraLink::~CameraLink() {
    const int socket = release();
    if (socket >= 0) close(socket);
}

int CameraLink::login() {
    const LoginInfo info = login_info(address_);
    return plugin_.PC_Login(unit_, address_.ip, address_.port, &info, channel_, stream_);
}

bool CameraLink::invite() {
    uint8_t description[LENSWIRE_STREAM_ANSWER_SIZE];
    return plugin_.PC_GetStream(unit_, address_.channel, address_.stream, description) == 0;
}

// Looks without taking anything: what there is to read belongs to the library's event loop. The socket is
// replaced by login() only, so by the thread that asks here.
bool CameraLink::control_alive() const {
    const CmdClient* client = unit_->pCmdClient;
    if (client == nullptr || client->sockFd < 0) return false;
    char byte = 0;
    const ssize_t result = recv(client->sockFd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return result > 0 || (result < 0 && (errno == EAGAIN || errno == EINTR));
}

bool CameraLink::send_heartbeat() {
    return plugin_.PC_SendHeartbeat(unit_->pCmdClient) == 0;
}

int CameraLink::release() {
    if (unit_ == nullptr) return -1;
    const int socket = unit_->sockFd;
    plugin_.PC_Delete(unit_);
    unit_ = nullptr;
    return socket;
}

std::string login_failure(int result) {
    switch (result) {
        case -4:
            return "refused the login";
        case -3:
            return "cannot be reached: connection refused";
        case -2:
            return "cannot be reached: no connection";
        default:
            return "cannot be reached: no answer to the login";
    }
}

}  // namespace lenswire::recorder
