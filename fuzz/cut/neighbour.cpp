#include "fuzz/cut/neighbour.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "tests/support/connections.h"

namespace lenswire::fuzz {

namespace {

// A get that is late on a busy machine, whose clock runs fast, is asked once more; a connection that was
// touched answers none.
constexpr int kLateInARow = 20;

}  // namespace

Neighbour::Neighbour(int channel) : channel_(channel), unit_(PC_CreateNew()) {
    camera_thread_ = std::thread([this] { play_camera(); });
    const LoginInfo info = credentials();
    uint8_t out[LENSWIRE_STREAM_ANSWER_SIZE];
    if (PC_Login(unit_, camera_.address(), camera_.port(), &info, channel_, 0) != 0 ||
        PC_GetStream(unit_, channel_, 0, out) != 0)
        missed_ = "its own login";
    host().posts_open(channel_, 0, unit_, buffer_, stream_);
    recorder_thread_ = std::thread([this] { ask(); });
}

Neighbour::~Neighbour() {
    stop();
}

void Neighbour::play_camera() {
    Wire control = camera_.accepts();
    answers_serial_request(control);
    answers_login(control);
    Wire stream = camera_.accepts();
    stream.reads(36);
    stream.sends(command(LENSWIRE_CMD_STREAM, Bytes(32)));
    for (uint32_t number = 0; !stop_; ++number) {
        Bytes payload(100);
        put_u32(payload, 0, number);
        const Bytes packet = Packet{.frame_type = 3, .payload = payload}.bytes();
        if (send(stream.descriptor(), packet.data(), packet.size(), MSG_NOSIGNAL) <= 0)
            missed_ = "its stream connection";
        while (control.has_bytes()) {
            control.reads_command();
            control.sends(command(LENSWIRE_CMD_IMAGE_GET, pattern(LENSWIRE_IMAGE_SIZE)));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Neighbour::ask() {
    for (int late = 0; !stop_;) {
        Bytes out(LENSWIRE_IMAGE_SIZE);
        if (Prv_GetIPCImageProperty(channel_, camera_.address(), out.data()) != 0) {
            if (++late == kLateInARow) missed_ = "answers";
            continue;
        }
        late = 0;
        ++gets_;
        if (out != pattern(LENSWIRE_IMAGE_SIZE)) missed_ = "its own answer";
        look_at_frames();
    }
}

void Neighbour::look_at_frames() {
    for (const Frame& frame : stream_.frames.takes()) {
        if (u32_at(frame.payload, 0) != frames_got_++) missed_ = "a frame";
    }
}

std::string Neighbour::stop() {
    // Looked at first: its stream ends with its camera.
    if (!stop_ && g_restarts[static_cast<size_t>(channel_)] != 0)
        missed_ = "its stream, which was started anew";
    if (stop_.exchange(true)) return missed_.load();
    recorder_thread_.join();
    host().posts_close(channel_, 0);
    wait_for([] { return host().waits_for_requests_taken(); });
    camera_thread_.join();
    const int stream_socket = unit_->sockFd;
    PC_Delete(unit_);
    if (stream_socket > 0) close(stream_socket);
    return missed_.load();
}

}  // namespace lenswire::fuzz
