#include "bench/soak/cameras.h"

#include <sys/socket.h>
#include <unistd.h>
#include <cstring>
#include <iterator>
#include <vector>

#include "bench/cameras/answers.h"
#include "bench/cameras/camera_process.h"
#include "bench/cameras/connection_loop.h"
#include "bench/cameras/video.h"
#include "bench/support/measure.h"
#include "lenswire/records.h"

namespace lenswire::bench::soak {

namespace {

constexpr uint32_t kPackets = 6;
constexpr size_t kBabbleBytes = 10'000;

void send_all(int fd, std::span<const uint8_t> bytes) {
    (void)!send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

}  // namespace

// The cameras' side, in their process.
class CameraLoop final : public ConnectionLoop {
  public:
    CameraLoop(Cameras::Board* board, uint32_t count)
        : board_(board), packets_(count), babble_(payload_bytes(kBabbleBytes)) {
        for (uint32_t camera = 0; camera < count; ++camera)
            board_[camera].port = listen_for(camera, CameraProcess::address_text(camera));
    }

  private:
    bool take(int fd, Connection& connection) override {
        if (!receive(fd, connection)) return false;
        const uint32_t camera = connection.camera;
        const End end{board_[camera].end.load()};
        if (end == End::kMute) return true;
        while (true) {
            const std::vector<uint8_t> answer = answer_first_of(connection.bytes);
            if (answer.empty()) return true;
            send_all(fd, answer);
            PrivateCmd header;
            std::memcpy(&header, answer.data(), sizeof header);
            if (header.usCmd != LENSWIRE_CMD_STREAM) continue;
            begin_stream(fd, camera);
            if (end == End::kStays) return true;
            leave(camera, end);
            return true;  // the connection is gone already
        }
    }

    // Some packets and the first half of another one.
    void begin_stream(int fd, uint32_t camera) {
        for (uint32_t number = 1; number <= kPackets; ++number) {
            const PacketBytes packet = packets_.packet(camera, 2 * number - 1);
            send_all(fd, packet.head);
            send_all(fd, number < kPackets ? packet.body : packet.body.first(packet.body.size() / 2));
        }
    }

    void leave(uint32_t camera, End end) {
        for (auto it = connections_.begin(); it != connections_.end();) {
            const int fd = it->first;
            const bool leaves = it->second.camera == camera && !it->second.listens;
            it = leaves ? connections_.erase(it) : std::next(it);
            if (!leaves) continue;
            if (end == End::kBabbles) send_all(fd, babble_);
            const linger at_once{.l_onoff = end == End::kResets ? 1 : 0, .l_linger = 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
            close(fd);
        }
    }

    Cameras::Board* board_;
    CameraPackets packets_;
    std::vector<uint8_t> babble_;
};

Cameras::Cameras(uint32_t count)
    : shared_(count * sizeof(Board)),
      board_(reinterpret_cast<Board*>(shared_.bytes())),
      process_([this, count] { CameraLoop(board_, count).run(); }) {
    for (uint32_t camera = 0; camera < count; ++camera) {
        while (port(camera) == 0) sleep_ms(1);
    }
}

uint32_t Cameras::address(uint32_t camera) {
    return CameraProcess::address(camera);
}

}  // namespace lenswire::bench::soak
