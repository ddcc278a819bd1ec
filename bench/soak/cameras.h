// Cameras that fail their recorder: they answer a login and a get, send the first packets of a stream and are
// gone, or say nothing at all. In a process of their own, each at an address of the loopback interface.
#pragma once

#include <atomic>
#include <cstdint>

#include "bench/support/process.h"

namespace lenswire::bench::soak {

enum class End {
    kCloses,   // both connections, in the middle of a packet
    kResets,   // the same, with resets
    kBabbles,  // bytes that mean nothing, then the close
    kStays,    // the recorder leaves
    kMute,     // takes the connection and says nothing
    kDead,     // no camera is there
};

class Cameras {
  public:
    explicit Cameras(uint32_t count);

    // How the camera's next connections end. The address is network order, the port refuses when it is dead.
    void will_end(uint32_t camera, End end) { board_[camera].end = static_cast<int>(end); }
    static uint32_t address(uint32_t camera);
    int port(uint32_t camera) const { return board_[camera].port; }

  private:
    friend class CameraLoop;
    struct Board {
        std::atomic<int> port;
        std::atomic<int> end;
    };

    SharedMemory shared_;
    Board* board_;
    ChildProcess process_;
};

}  // namespace lenswire::bench::soak
