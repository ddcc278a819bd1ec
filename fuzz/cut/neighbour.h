// A camera beside those that are cut: answers and streams all the time, and nothing of it may be missed.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "fuzz/cut/session.h"

namespace lenswire::fuzz {

class Neighbour {
  public:
    explicit Neighbour(int channel);
    ~Neighbour();
    // Ends it. What it missed; empty when that is nothing.
    std::string stop();
    int gets() const { return gets_; }
    uint32_t frames() const { return frames_got_; }

  private:
    void play_camera();
    void ask();
    void look_at_frames();

    int channel_;
    ScriptedCamera camera_{"127.0.2.1"};
    ReceiveBuffer buffer_{1 << 16};
    FakeStream stream_;
    StreamConn* unit_ = nullptr;
    std::atomic<bool> stop_{false};
    std::atomic<int> gets_{0};
    std::atomic<uint32_t> frames_got_{0};
    std::atomic<const char*> missed_{""};
    std::thread camera_thread_, recorder_thread_;
};

}  // namespace lenswire::fuzz
