// When a picture was taken, on the recorder's monotonic clock, in milliseconds.
//
// Pictures keep the distances that the camera's clock gives them, and that clock is steered to ours: it may
// run fast or slow by a fifth, and its 32 bits wrap. What comes soonest after it was taken says how the two
// clocks stand; a burst after a stall moves nothing. Where the camera's clock jumps or stands still,
// reception takes its place. Sound carries no time stamp: it is placed by its reception beside the latest
// picture, and runs on without gaps while that stays plausible.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

namespace lenswire::recorder {

class Timeline {
  public:
    // The next picture comes over a new connection, and so perhaps from a camera that was started anew.
    void connection_began() { anchored_ = false; }
    // Strictly increasing.
    int64_t video(uint32_t camera_ms, int64_t received_ms);
    // Not decreasing. `samples` of 8000 a second are in the frame. Not before the first video().
    int64_t audio(int64_t received_ms, uint32_t samples);

    int64_t last_video_ms() const { return video_ms_; }
    // How far the camera's clock jumped within a connection, if it did since the last call.
    std::optional<int64_t> take_jump() { return std::exchange(jump_, std::nullopt); }

  private:
    void anchor(int64_t received_ms);
    void steer(int64_t received_ms);

    bool anchored_ = false;
    uint32_t camera_ms_ = 0;   // clock of the latest picture
    int64_t received_ms_ = 0;  // its reception
    int64_t video_ms_ = 0;     // its time stamp
    double exact_ms_ = 0;      // the same as the camera's clock has it
    double rate_ = 1;          // our milliseconds per one of the camera's
    int still_ = 0;            // how often in a row the camera's clock did not move
    int64_t block_began_ms_ = 0;
    double soonest_ms_ = 0;  // least time from picture to reception in the block
    std::optional<int64_t> jump_;
    int64_t audio_samples_ = -1;  // where sound goes on; negative before the first
};

}  // namespace lenswire::recorder
