#include "recorder/media/timeline.h"

#include <algorithm>
#include <cstdlib>

namespace lenswire::recorder {
namespace {

constexpr int64_t kReorderMs = 1000;      // a clock that goes back less than this has not been set
constexpr int64_t kPlausibleMs = 10'000;  // the most that a clock may be off its reception
constexpr int64_t kReconnectedMs = 2000;  // the same for a camera that may have been started anew
constexpr int64_t kLongestGapMs = 24 * 3600 * 1000;
constexpr int64_t kAudioSlackMs = 200;
constexpr int64_t kSamplesPerMs = 8;

}  // namespace

// How far the timeline advances to a picture.
int64_t Timeline::step(uint32_t camera_ms, int64_t received_ms) const {
    const int64_t by_camera = static_cast<int32_t>(camera_ms - camera_ms_);
    const int64_t by_reception = std::clamp<int64_t>(received_ms - received_ms_, 1, kLongestGapMs);
    const int64_t off = std::abs(by_camera - by_reception);
    if (new_connection_) return by_camera > 0 && off <= kReconnectedMs ? by_camera : by_reception;
    const bool steady = by_camera > -kReorderMs && by_camera <= kPlausibleMs;
    const bool long_gap = by_camera > 0 && off <= kPlausibleMs;
    return steady || long_gap ? by_camera : by_reception;
}

int64_t Timeline::video(uint32_t camera_ms, int64_t received_ms) {
    if (started_) {
        camera_time_ += step(camera_ms, received_ms);
        video_ms_ = std::max(video_ms_ + 1, camera_time_);
    }
    started_ = true;
    new_connection_ = false;
    camera_ms_ = camera_ms;
    received_ms_ = received_ms;
    return video_ms_;
}

int64_t Timeline::audio(int64_t received_ms, uint32_t samples) {
    const int64_t placed = std::max<int64_t>(0, video_ms_ + received_ms - received_ms_) * kSamplesPerMs;
    const bool runs_on =
        audio_samples_ >= 0 && std::abs(placed - audio_samples_) <= kAudioSlackMs * kSamplesPerMs;
    const int64_t at = runs_on ? audio_samples_ : std::max(placed, audio_samples_);
    audio_samples_ = at + samples;
    return at / kSamplesPerMs;
}

}  // namespace lenswire::recorder
