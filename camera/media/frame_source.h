// What a stream connection sends, frame by frame: clips in a loop, or made-up bytes for load.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "camera/media/clip.h"
#include "camera/wire/bytes.h"
#include "camera/wire/packet.h"

namespace lenswire::camera {

// A source that needs no file: every GOP has one key frame `key_ratio` times as large as the others, and the
// whole comes out at `mbit` megabits of payload a second. The content is a function of (seed, index), so a
// receiver can verify every byte: see synthetic_payload and synthetic_matches.
struct Synthetic {
    double mbit = 4;
    uint32_t frame_rate = 25;
    uint32_t gop = 50;
    uint32_t key_ratio = 10;
    bool audio = false;  // 25 packets of 320 bytes a second beside the video
    uint8_t codec = LENSWIRE_CODEC_H264;
    uint16_t width = 1920;
    uint16_t height = 1080;
};

// The payload length of video frame `index`, never below kSyntheticPrefix.
uint32_t synthetic_length(const Synthetic& synthetic, uint64_t index);
// The whole payload of frame `index`: a prefix that names seed and index, then bytes that follow from them.
Bytes synthetic_payload(const Synthetic& synthetic, uint32_t seed, uint64_t index);
// Whether a payload is one that a synthetic source sends, byte for byte; tells its seed and index if it is.
bool synthetic_matches(std::span<const uint8_t> payload, uint32_t* seed, uint32_t* index);
// The seed of one stream: which camera of the farm, channel and stream number.
uint32_t synthetic_seed(uint32_t camera, uint8_t channel, uint8_t stream);

inline constexpr uint32_t kSyntheticPrefix = 16;

enum class Pace {
    kRealTime,  // each frame at its time
    kUnpaced,   // as fast as the socket takes it
    kSpread     // each frame at its time, its bytes no faster than a link of link_mbit brings them
};

struct StreamConfig {
    std::shared_ptr<const Clip> video = {};
    std::shared_ptr<const Clip> audio = {};   // interleaved with the video when there is one
    std::optional<Synthetic> synthetic = {};  // instead of the two clips
    uint16_t frame_rate = 25;                 // of the video clip
    Pace pace = Pace::kRealTime;
    uint32_t link_mbit = 100;
    uint64_t max_frames = 0;  // video frames after which the stream ends at a frame boundary; 0 never
};

struct Frame {
    PacketHead head;
    int64_t due_us = 0;  // since the start of the stream
    std::array<uint8_t, kSyntheticPrefix> prefix{};
    uint32_t prefix_length = 0;
    std::span<const uint8_t> payload;  // behind the prefix
};

class Track;

class FrameSource {
  public:
    // Null when the stream has nothing to play.
    static std::unique_ptr<FrameSource> make(const StreamConfig& config, uint32_t seed);
    ~FrameSource();

    // The next frame of the stream: video and audio by their times, the video first when they coincide.
    Frame next();

  private:
    FrameSource();

    std::unique_ptr<Track> video_;
    std::unique_ptr<Track> audio_;
    uint64_t next_video_ = 0;
    uint64_t next_audio_ = 0;
};

}  // namespace lenswire::camera
