// A recorder's side of the wire for tests of the simulated camera: connections, the login, the stream
// request. Messages are built by the byte tools of the tests, not by the camera's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "camera/serve/farm.h"
#include "support/camera_bytes.h"
#include "support/scripted_camera.h"

namespace lenswire::test {

// A fresh connection to the camera; not connected when it does not listen.
Wire connect_to(const camera::Camera& camera);

struct Session {
    Wire wire;
    uint32_t login_id = 0;
    uint16_t state = 0;  // of the login's answer

    // Sends a command with the session's login id.
    void sends(uint16_t code, Bytes payload = {});
    Message asks(uint16_t code, Bytes payload = {});
};

Session log_in(const camera::Camera& camera, const std::string& user = "admin",
               const std::string& password = "admin");

// A stream connection whose answer has been read; packets follow.
Wire open_stream(const camera::Camera& camera, const Session& session, uint8_t stream = 0,
                 uint8_t channel = 0);

// The head of one packet as it came, and its payload.
struct ReadPacket {
    Bytes head;
    Bytes payload;
    bool video() const { return (head[4] & 1) != 0; }
};
ReadPacket read_packet(Wire& wire);

// A farm with one camera; a failure when it does not start.
struct OneCamera {
    explicit OneCamera(camera::CameraConfig config = {});
    camera::CameraFarm farm;
    camera::Camera* camera = nullptr;
    camera::Camera* operator->() { return camera; }
    camera::Camera& operator*() { return *camera; }
};

// Small frames of made-up bytes, as fast as they are taken, `frames` of them on both streams.
camera::CameraConfig small_streams(uint64_t frames = 0);

}  // namespace lenswire::test
