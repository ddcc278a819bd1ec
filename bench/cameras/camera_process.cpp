#include "bench/cameras/camera_process.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "bench/cameras/answers.h"
#include "bench/cameras/connection_loop.h"
#include "bench/support/measure.h"
#include "lenswire/records.h"

namespace lenswire::bench {

namespace {

// A camera takes its firmware in small pieces out of a small buffer.
constexpr size_t kTakeBytes = 16 * 1024;
constexpr int kReceiveBufferBytes = 64 * 1024;

}  // namespace

// The cameras' side, in their process.
class CameraLoop final : public ConnectionLoop {
  public:
    CameraLoop(CameraProcess::Board* board, uint32_t cameras) : board_(board) {
        for (uint32_t camera = 0; camera < cameras; ++camera)
            board_[camera].port =
                listen_for(camera, CameraProcess::address_text(camera), kReceiveBufferBytes);
    }

  private:
    bool take(int fd, Connection& connection) override {
        if (connection.firmware_left > 0) return take_firmware(fd, connection);
        if (!receive(fd, connection)) return false;
        while (connection.bytes.size() >= sizeof(PrivateCmd) && answer_first(fd, connection)) {
        }
        return true;
    }

    // False when the first message is not whole yet.
    bool answer_first(int fd, Connection& connection) {
        std::vector<uint8_t>& bytes = connection.bytes;
        PrivateCmd header;
        std::memcpy(&header, bytes.data(), sizeof header);
        if (header.usCmd == LENSWIRE_CMD_UPGRADE) {
            connection.firmware_left = header.ulBufferSize;
            count_firmware(fd, connection, bytes.size() - sizeof header);
            bytes.clear();
            return false;
        }
        const std::vector<uint8_t> answer = answer_first_of(bytes);
        if (answer.empty()) return false;
        send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
        return true;
    }

    bool take_firmware(int fd, Connection& connection) {
        const ssize_t count = recv(fd, nullptr, kTakeBytes, MSG_TRUNC);  // dropped in the kernel
        if (count <= 0) return count < 0 && errno == EAGAIN;
        count_firmware(fd, connection, static_cast<size_t>(count));
        return true;
    }

    void count_firmware(int fd, Connection& connection, uint64_t count) {
        board_[connection.camera].uploaded += count;
        connection.firmware_left -= std::min(connection.firmware_left, count);
        if (connection.firmware_left > 0) return;
        const PrivateCmd done{.ulFlag = 0,
                              .ucTag1 = 1,
                              .ucTag2 = 1,
                              .usCmd = LENSWIRE_CMD_UPGRADE,
                              .ucState = 0,
                              .ulLoginId = 0,
                              .ulBufferSize = 0,
                              .ulBufferNum = 0,
                              .reserved20 = {}};
        send(fd, &done, sizeof done, MSG_NOSIGNAL);
    }

    CameraProcess::Board* board_;
};

CameraProcess::CameraProcess(uint32_t cameras)
    : cameras_(cameras),
      shared_(cameras * sizeof(Board)),
      board_(reinterpret_cast<Board*>(shared_.bytes())),
      process_([this] {
          prctl(PR_SET_TIMERSLACK, 1);
          CameraLoop(board_, cameras_).run();
      }) {
    for (uint32_t camera = 0; camera < cameras; ++camera) {
        while (port(camera) == 0) sleep_ms(1);
    }
}

std::string CameraProcess::address_text(uint32_t camera) {
    return "127.0." + std::to_string(1 + camera / 200) + "." + std::to_string(1 + camera % 200);
}

}  // namespace lenswire::bench
