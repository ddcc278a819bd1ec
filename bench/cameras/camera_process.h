// Cameras that only answer: logins, gets (with the bytes of the request) and firmware uploads. All of them
// live in one process of their own, each at an address of the loopback interface.
#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <cstdint>
#include <string>

#include "bench/support/process.h"

namespace lenswire::bench {

class CameraProcess {
  public:
    explicit CameraProcess(uint32_t cameras);

    uint32_t cameras() const { return cameras_; }
    static std::string address_text(uint32_t camera);
    static uint32_t address(uint32_t camera) { return inet_addr(address_text(camera).c_str()); }
    int port(uint32_t camera) const { return board_[camera].port; }
    // Bytes of firmware that the camera has taken.
    uint64_t uploaded(uint32_t camera) const { return board_[camera].uploaded; }

  private:
    friend class CameraLoop;
    struct Board {
        std::atomic<int> port;
        std::atomic<uint64_t> uploaded;
    };

    uint32_t cameras_;
    SharedMemory shared_;
    Board* board_;
    ChildProcess process_;
};

}  // namespace lenswire::bench
