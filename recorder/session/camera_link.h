// One unit of the library: a control connection to a camera and the stream connection that goes with it.
#pragma once

#include <string>

#include "recorder/host/camera_address.h"
#include "recorder/session/plugin.h"

namespace lenswire::recorder {

// One thread at a time.
class CameraLink {
  public:
    // Takes a unit; throws when there is none. The recorder's channel and stream name the login for the host
    // services.
    CameraLink(Plugin& plugin, CameraAddress address, int recorder_channel, int recorder_stream);
    ~CameraLink();  // releases the unit
    CameraLink(const CameraLink&) = delete;
    CameraLink& operator=(const CameraLink&) = delete;

    // Logs in, also anew; blocks up to 10 seconds. The result of PC_Login.
    int login();
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

// Why a login failed, in words: "cannot be reached: ..." or "refused the login".
std::string login_failure(int result);

}  // namespace lenswire::recorder
