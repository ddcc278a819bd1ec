// A client that is logged in to a camera played by the input, over a socket pair and without threads: what
// the camera says is read by one pass of the event loop at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <span>

#include "fuzz/support/target.h"
#include "lenswire/connection.h"

namespace lenswire::fuzz {

// A connected pair of stream sockets, the library's end non-blocking.
struct SocketPair {
    SocketPair();
    ~SocketPair();
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    // All of it, at once.
    void say(std::span<const uint8_t> bytes) const;
    // What waits to be read at one of the ends is dropped.
    void drain() const;

    int library = -1;
    int camera = -1;
};

class CameraEnd {
  public:
    CameraEnd();

    CmdClient& client() { return *unit_->pCmdClient; }
    // Says so many bytes, MAX_CMD_SIZE at most, and lets the event loop read them.
    void say(std::span<const uint8_t> bytes);
    // The commands that the library sent since it was last asked.
    std::deque<uint16_t> requests();
    // Neither end has anything waiting or kept.
    void clear();

  private:
    SocketPair sockets_;
    StreamConn* unit_;
};

// What say_next_answer() calls while one of these is set: says whether there was an answer.
inline std::function<bool()> g_answers;
inline bool say_next_answer() {
    return g_answers && g_answers();
}

}  // namespace lenswire::fuzz
