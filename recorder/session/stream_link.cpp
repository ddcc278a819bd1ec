#include "recorder/session/stream_link.h"

#include <utility>

namespace lenswire::recorder {
namespace {

using std::chrono::seconds;

constexpr auto kHeartbeatInterval = seconds(10);
// The library gives up after 10 seconds by itself. A camera that is being restarted is tried more often.
constexpr auto kFirstLogin = seconds(15);
constexpr auto kNextLogin = seconds(4);
constexpr const char* kRefusal = "wrong user name or password";

}  // namespace

PluginStreamLink::PluginStreamLink(Host& host, RecorderStream& recorder_stream, CameraLink& camera)
    : host_(host), recorder_stream_(recorder_stream), camera_(camera) {}

int PluginStreamLink::login(bool first) {
    recorder_stream_.allow_login_for(first ? kFirstLogin : kNextLogin);
    next_heartbeat_ = RecorderStream::Clock::now() + kHeartbeatInterval;
    const int result = camera_.login(first ? kFirstLogin : kNextLogin);
    const bool refused = result == StreamPlan::kLoginDenied;
    if (refused && !std::exchange(refused_, refused)) recorder_stream_.event("login", kRefusal);
    refused_ = refused;
    if (refused) {
        recorder_stream_.trouble(Cause::kRefused, kRefusal);
    } else if (result != StreamPlan::kLoggedIn) {
        recorder_stream_.trouble(Cause::kUnreachable, login_failure(result));
    }
    return result;
}

bool PluginStreamLink::invite() {
    if (camera_.invite()) return true;
    recorder_stream_.trouble(Cause::kUnreachable, "opens no stream");
    return false;
}

void PluginStreamLink::open() {
    recorder_stream_.queue().begin_connection();
    recorder_stream_.opened();
    DevChannelInfo info{};
    recorder_stream_.describe(info, camera_.unit());
    host_.requests.post(STREAM_REQ_OPEN, info);
}

bool PluginStreamLink::control_alive() {
    if (!camera_.control_alive()) return false;
    const auto now = RecorderStream::Clock::now();
    if (now < next_heartbeat_) return true;
    next_heartbeat_ = now + kHeartbeatInterval;
    return camera_.send_heartbeat();
}

}  // namespace lenswire::recorder
