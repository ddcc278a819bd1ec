// Time stamps of a file, in milliseconds from its first picture.
//
// Pictures keep the distances that the camera's clock gives them, also where its 32 bits wrap. Where that
// clock jumps (the camera was restarted, its clock was set), the time between receptions takes its place.
// Sound carries no time stamp: it is placed by its reception beside the latest picture, and runs on without
// gaps while that stays plausible.
#pragma once

#include <cstdint>

namespace lenswire::recorder {

class Timeline {
  public:
    // The next picture comes over a new connection, and so perhaps from a camera that was started anew.
    void connection_began() { new_connection_ = true; }
    // Strictly increasing.
    int64_t video(uint32_t camera_ms, int64_t received_ms);
    // Not decreasing. `samples` of 8000 a second are in the frame. Not before the first video().
    int64_t audio(int64_t received_ms, uint32_t samples);

    int64_t last_video_ms() const { return video_ms_; }

  private:
    int64_t step(uint32_t camera_ms, int64_t received_ms) const;

    bool started_ = false;
    bool new_connection_ = false;
    uint32_t camera_ms_ = 0;      // clock of the latest picture
    int64_t camera_time_ = 0;     // the same on the file's timeline
    int64_t received_ms_ = 0;     // its reception
    int64_t video_ms_ = 0;        // its time stamp
    int64_t audio_samples_ = -1;  // where sound goes on; negative before the first
};

}  // namespace lenswire::recorder
