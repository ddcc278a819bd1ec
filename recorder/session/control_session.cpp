#include "recorder/session/control_session.h"

#include <unistd.h>

namespace lenswire::recorder {
namespace {

// An answer that is an error comes at once; nothing that waits for one gives up sooner than this.
constexpr auto kShortestWait = std::chrono::seconds(2);

}  // namespace

ControlSession::ControlSession(CameraAddress camera, const SessionOptions& options)
    : camera_(std::move(camera)),
      host_(options.database),
      channel_(host_.store.bind_camera(camera_)),
      plugin_(options.library),
      context_(std::in_place, plugin_),
      link_(plugin_, camera_, channel_, 0),
      timeout_(options.timeout()),
      deadline_(std::in_place, [this] { plugin_.PC_UnInitCtx(); }) {
    look_at_port(camera_, timeout_);
    const int result = link_.login(timeout_);
    if (result != 0)
        throw Failure(login_exit_code(result), "camera " + camera_.name() + " " + login_failure(result));
}

ControlSession::~ControlSession() {
    end();
}

// A stream socket outlives the context: until it has been stopped the receive loop may read it.
void ControlSession::end() {
    deadline_.reset();
    const int socket = link_.release();
    context_.reset();
    if (socket >= 0) close(socket);
}

Failure ControlSession::failure(const std::string& what, std::chrono::steady_clock::duration taken) const {
    const std::string camera = "camera " + camera_.name();
    if (deadline_->passed() || (taken >= kShortestWait && link_.control_alive()))
        return {kTimedOut, camera + " did not answer the request for " + what};
    if (!link_.control_alive())
        return {kUnreachable, camera + " closed the connection over the request for " + what};
    return {kCameraRefused, camera + " answered the request for " + what + " with an error"};
}

Failure ControlSession::not_sent(const std::string& what) const {
    return {kUnreachable, "camera " + camera_.name() + " closed the connection before " + what + " was sent"};
}

}  // namespace lenswire::recorder
