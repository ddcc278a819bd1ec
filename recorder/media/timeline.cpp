#include "recorder/media/timeline.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace lenswire::recorder {
namespace {

constexpr int64_t kReorderMs = 1000;     // a clock that goes back less than this has not been set
constexpr double kPlausibleMs = 10'000;  // the most that a clock may be off its reception
constexpr double kLeadMs = 1000;         // pictures that a camera had kept come at once when a stream begins
constexpr int kStandsStill = 3;
constexpr int64_t kBlockMs = 1000;
constexpr double kSteer = 0.5;        // how much of the difference a block takes away at once ...
constexpr double kLearn = 0.05;       // ... and how much of it the rate learns
constexpr double kMostLearnt = 0.03;  // at a time: a lasting difference teaches, a single one does not
constexpr double kLowestRate = 0.5, kHighestRate = 2;
constexpr int64_t kAudioSlackMs = 200;
constexpr int64_t kSamplesPerMs = 8;

}  // namespace

void Timeline::anchor(int64_t received_ms) {
    anchored_ = true;
    still_ = 0;
    exact_ms_ = static_cast<double>(std::max(video_ms_ + 1, received_ms));
    block_began_ms_ = received_ms;
    soonest_ms_ = 0;
}

// Takes the camera's clock towards ours, once for each block of pictures.
void Timeline::steer(int64_t received_ms) {
    exact_ms_ += kSteer * soonest_ms_;
    const double learnt = std::clamp(kLearn * soonest_ms_ / kBlockMs, -kMostLearnt, kMostLearnt);
    rate_ = std::clamp(rate_ + learnt, kLowestRate, kHighestRate);
    block_began_ms_ = received_ms;
}

int64_t Timeline::video(uint32_t camera_ms, int64_t received_ms) {
    const int64_t moved = static_cast<int32_t>(camera_ms - camera_ms_);
    const bool known = anchored_;
    if (!known) anchor(received_ms);
    if (known) {
        const bool block_ends = received_ms - block_began_ms_ >= kBlockMs;
        if (block_ends) steer(received_ms);
        exact_ms_ += static_cast<double>(moved) * rate_;
        const double late = static_cast<double>(received_ms) - exact_ms_;
        soonest_ms_ = block_ends ? late : std::min(soonest_ms_, late);
        still_ = moved == 0 ? still_ + 1 : 0;
        if (moved <= -kReorderMs || late > kPlausibleMs || late < -2 * kLeadMs) {
            jump_ = moved - (received_ms - received_ms_);
            anchor(received_ms);
        } else if (still_ >= kStandsStill) {
            anchor(received_ms);
            still_ = kStandsStill;
        } else if (late < -kLeadMs) {
            exact_ms_ = static_cast<double>(received_ms) + kLeadMs;
            soonest_ms_ = -kLeadMs;
        }
    }
    camera_ms_ = camera_ms;
    received_ms_ = received_ms;
    video_ms_ = std::max(video_ms_ + 1, static_cast<int64_t>(std::llround(exact_ms_)));
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
