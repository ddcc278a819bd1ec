// One unit of the library: a control connection to a camera and the stream connection that goes with it.
#pragma once

#include <chrono>
#include <string>

#include "recorder/host/camera_address.h"
#include "recorder/host/host.h"
#include "recorder/session/plugin.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {

// How a login ended: as PC_Login has it, and what was seen beside it.
enum LoginResult {
    kLoggedIn = 0,
    kLoginFailed = -1,
    kLoginNoConnection = -2,
    kLoginPortRefused = -3,
    kLoginUnanswered = -4,
    kLoginDenied = -5,
    kLoginClosed = -6,
    kLoginTimedOut = -7,  // before user and password were sent
};

// One thread at a time.
class CameraLink {
  public:
    // The library gives up by itself then.
    static constexpr auto kLongestLogin = std::chrono::seconds(10);

    // Takes a unit; throws when there is none. The recorder's channel and stream name the login for the host
    // services.
    CameraLink(Plugin& plugin, CameraAddress address, int recorder_channel, int recorder_stream);
    ~CameraLink();  // releases the unit
    CameraLink(const CameraLink&) = delete;
    CameraLink& operator=(const CameraLink&) = delete;

    // Logs in, also anew. A LoginResult, as soon as it is clear, and after so long at the latest.
    int login(std::chrono::steady_clock::duration patience = kLongestLogin);
    // Opens the stream connection; blocks up to 6 seconds. Not while the stream has a slot in the library.
    bool invite();
    // Whether the camera still keeps the control connection open.
    bool control_alive() const;
    bool send_heartbeat();

    // Ends the control connection and gives the unit back. The stream socket is the host's to close, but not
    // while the library may still read it; it is returned, -1 when there is none.
    int release();

    StreamConn* unit() const { return unit_; }
    const CameraAddress& address() const { return address_; }

  private:
    Plugin& plugin_;
    CameraAddress address_;
    int channel_;
    int stream_;
    StreamConn* unit_;
};

// Throws an unreachable Failure with the reason when nothing listens where the camera should be: at once
// where that is known at once, after `patience` else.
void look_at_port(const CameraAddress& camera, std::chrono::steady_clock::duration patience);

// Why a login failed, in words: "cannot be reached: ..." or "refused the login"; and its exit code.
std::string login_failure(int result);
ExitCode login_exit_code(int result);

}  // namespace lenswire::recorder
