// A recorder's side of the wire for tests of the simulated camera: connections, the login, the stream
// request. Messages are built by the byte tools of the tests, not by the camera's.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "camera/serve/farm.h"
#include "support/camera_bytes.h"
#include "support/folder.h"
#include "support/scripted_camera.h"

namespace lenswire::test {

// A fresh connection to the camera; not connected when it does not listen.
Wire connect_to(const camera::Camera& camera);

struct Session {
    Wire wire;
    uint32_t login_id = 0;
    uint16_t state = 0;  // of the login's answer

    // Sends a command with the session's login id.
    void send(uint16_t code, Bytes payload = {});
    Message ask(uint16_t code, Bytes payload = {});
};

Session log_in(const camera::Camera& camera, const std::string& user = "admin",
               const std::string& password = "admin");

// A connection on which a stream has been asked for; and one whose answer has been read, so that packets
// follow.
Wire ask_for_stream(const camera::Camera& camera, const Session& session, uint8_t stream = 0,
                    uint8_t channel = 0);
Wire open_stream(const camera::Camera& camera, const Session& session, uint8_t stream = 0,
                 uint8_t channel = 0);

// What announces a firmware file of that length.
Message upload_header(size_t length);

// The head of one packet as it came, and its payload.
struct ReadPacket {
    Bytes head;
    Bytes payload;
    bool video() const { return (head[4] & 1) != 0; }
};
ReadPacket read_packet(Wire& wire);

// A farm with one camera, whose time stands until a test moves it; a failure when it does not start.
struct OneCamera {
    explicit OneCamera(camera::CameraConfig config = {});
    void pass_ms(int64_t ms);  // and all that is due by then has been done

    std::atomic<int64_t> now_us = 1'000'000'000'000;
    camera::CameraFarm farm{1, [this] { return now_us.load(); }};
    camera::Camera* camera = nullptr;
    camera::Camera* operator->() { return camera; }
    camera::Camera& operator*() { return *camera; }
};

// What a camera does on one connection from the making of the tape on, write by write and millisecond by
// millisecond: "0:64 40:210*2 80:closed" is 64 bytes at once, two times 210 after 40 ms, the end after 80.
class Tape {
  public:
    explicit Tape(OneCamera& one);
    // Lets the time pass; the bytes that came are in `bytes`. The first connection to end must be this one.
    std::string record(Wire& wire, int64_t for_ms);
    Bytes bytes;

  private:
    OneCamera& one_;
};

// The writes of a tape at every step from a moment on.
std::string every(int step_ms, int from_ms, int count, const std::string& write);

// Small frames of made-up bytes, 25 a second, `frames` of them on both streams: 567 bytes, then four of 210.
camera::CameraConfig small_streams(uint64_t frames = 0);

}  // namespace lenswire::test
