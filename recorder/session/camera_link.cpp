#include "recorder/session/camera_link.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "recorder/support/failure.h"
#include "recorder/support/port.h"

namespace lenswire::recorder {

CameraLink::CameraLink(Plugin& plugin, CameraAddress address, int recorder_channel, int recorder_stream)
    : plugin_(plugin),
      address_(std::move(address)),
      channel_(recorder_channel),
      stream_(recorder_stream),
      unit_(plugin.PC_CreateNew()) {
    if (unit_ == nullptr) throw local_failure("the library has no free unit for " + address_.name());
}

CameraLink::~CameraLink() {
    const int socket = release();
    if (socket >= 0) close(socket);
}

int CameraLink::login(std::chrono::steady_clock::duration patience) {
    using End = LoginWatch::End;
    const LoginInfo info = login_info(address_);
    LoginWatch watch(unit_->pCmdClient, patience);
    Host* host = Host::current();
    if (host != nullptr && unit_->pCmdClient != nullptr) host->watch_login(channel_, stream_, &watch);
    const int result = plugin_.PC_Login(unit_, address_.ip, address_.port, &info, channel_, stream_);
    if (host != nullptr) host->watch_login(channel_, stream_, nullptr);
    if (result == kLoggedIn) return result;
    switch (watch.end()) {
        case End::kRefused:
            return kLoginDenied;
        case End::kClosed:
            return kLoginClosed;
        case End::kPortRefused:
            return kLoginPortRefused;
        case End::kNoConnection:
            return kLoginNoConnection;
        case End::kTimedOut:
            if (result == kLoginFailed) return kLoginTimedOut;
            break;
        case End::kNone:
            break;
    }
    return result;
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

void look_at_port(const CameraAddress& camera, std::chrono::steady_clock::duration patience) {
    const int error = error_of_port(camera.ip, camera.port, patience);
    if (error == 0) return;
    std::string reason = error == ETIMEDOUT ? "no connection" : std::strerror(error);
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    throw Failure(kUnreachable, "camera " + camera.name() + " cannot be reached: " + reason);
}

std::string login_failure(int result) {
    switch (result) {
        case kLoginDenied:
            return "refused the login";
        case kLoginClosed:
            return "closed the connection during the login";
        case kLoginPortRefused:
            return "cannot be reached: connection refused";
        case kLoginNoConnection:
            return "cannot be reached: no connection";
        case kLoginUnanswered:
        case kLoginTimedOut:
            return "did not answer the login";
        default:
            return "cannot be reached";
    }
}

ExitCode login_exit_code(int result) {
    if (result == kLoginDenied) return kLoginRefused;
    return result == kLoginUnanswered || result == kLoginTimedOut ? kTimedOut : kUnreachable;
}

}  // namespace lenswire::recorder
