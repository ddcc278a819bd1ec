// Sends one stream over its connection: frames at their times, straight from where they lie.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "camera/media/frame_source.h"
#include "camera/serve/faults.h"
#include "camera/serve/loop.h"
#include "camera/serve/stats.h"

struct iovec;

namespace lenswire::camera {

struct SenderSetup {
    int fd = -1;
    StreamConfig config;
    std::unique_ptr<FrameSource> source;
    std::vector<StreamFault> faults;
    std::shared_ptr<StreamStats> stats;
    uint32_t timestamp_base_ms = 0;
    int64_t gather_us = 0;  // frames that fall due within such a span are sent in one go
    std::function<void(const StreamFault&)> struck = {};  // told of each fault that is made
};

class StreamSender {
  public:
    // `close` is called when the connection is to go, with true for a reset. It may not destroy the sender at
    // once.
    StreamSender(Loop& loop, SenderSetup setup, std::function<void(bool reset)> close);

    // Sends what is due and fits; called when the socket may have room.
    void pump();
    // Ends after the packet that is on its way; the connection stays or is closed then.
    void finish(bool close);
    // The descriptor is gone: nothing is sent any more.
    void halt();

  private:
    enum class Step { kGoOn, kWait };

    Step begin_packet(int64_t now);
    Step send_more(int64_t now, size_t* budget);
    Step finish_packet();
    Step end(bool close, bool reset = false);
    Step wait_until(int64_t due_us);
    bool apply_faults(int64_t now);
    size_t allowed_bytes(int64_t now) const;
    size_t gather_pieces(size_t most, std::array<iovec, 3>* pieces) const;

    Loop& loop_;
    SenderSetup setup_;
    std::function<void(bool)> close_;
    Timer timer_;
    int64_t start_us_;
    Frame frame_;
    bool have_frame_ = false;  // frame_ is the next to go out
    bool sending_ = false;     // its packet has been begun
    bool ended_ = false;
    bool finish_ = false;
    bool close_at_end_ = false;
    bool one_byte_ = false;
    PacketBytes head_{};
    size_t packet_length_ = 0;
    size_t sent_ = 0;
    std::optional<size_t> break_off_at_;  // bytes of the packet after which a fault ends the stream
    bool break_off_closes_ = false;
    int64_t packet_start_us_ = 0;
    uint64_t video_begun_ = 0;
};

}  // namespace lenswire::camera
