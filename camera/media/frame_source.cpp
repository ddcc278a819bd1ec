#include "camera/media/frame_source.h"

#include <algorithm>
#include <cstring>

namespace lenswire::camera {

// One of the two sequences that a stream is made of.
class Track {
  public:
    explicit Track(uint32_t per_second) : per_second_(per_second) {}
    virtual ~Track() = default;
    virtual Frame frame(uint64_t index) const = 0;
    int64_t due_us(uint64_t index) const { return static_cast<int64_t>(index * 1'000'000 / per_second_); }

  private:
    uint32_t per_second_;
};

namespace {

constexpr uint32_t kAudioPacketsPerSecond = 25;
constexpr uint32_t kAudioPacketBytes = 320;

constexpr size_t kPatternOffsets = size_t{1} << 20;
constexpr size_t kPatternBytes = kPatternOffsets + LENSWIRE_PACKET_LENGTH_MAX;

// Fixed pseudo-random bytes; every synthetic payload is a window into them, so nothing is made per frame.
std::span<const uint8_t> pattern() {
    static const Bytes bytes = [] {
        Bytes filled(kPatternBytes);
        uint32_t state = 0x2545F491;
        for (uint8_t& byte : filled) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            byte = static_cast<uint8_t>(state >> 11);
        }
        return filled;
    }();
    return bytes;
}

std::span<const uint8_t> window(uint32_t seed, uint64_t index, size_t length) {
    const uint64_t mixed = (seed * 0x9E3779B97F4A7C15U) ^ (index * 0xC2B2AE3D27D4EB4FU);
    return pattern().subspan((mixed >> 24) % kPatternOffsets, length);
}

std::array<uint8_t, kSyntheticPrefix> prefix_of(bool key, uint32_t seed, uint64_t index) {
    std::array<uint8_t, kSyntheticPrefix> prefix{0,   0,   0,  1, static_cast<uint8_t>(key ? 0x65 : 0x41),
                                                 'L', 'W', 'S'};
    put_u32(&prefix[8], seed);
    put_u32(&prefix[12], static_cast<uint32_t>(index));
    return prefix;
}

PacketHead audio_head() {
    return {.video = false, .frame_type = 0, .codec = kCodecALaw, .length = kAudioPacketBytes};
}

class ClipTrack : public Track {
  public:
    ClipTrack(std::shared_ptr<const Clip> clip, uint16_t per_second)
        : Track(per_second), clip_(std::move(clip)), per_second_(per_second) {}

    Frame frame(uint64_t index) const override {
        const size_t unit = index % clip_->size();
        Frame frame;
        frame.payload = clip_->payload(unit);
        frame.head = {.video = clip_->is_video(),
                      .frame_type = clip_->is_key(unit) ? uint8_t{LENSWIRE_FRAME_TYPE_1}
                                                        : uint8_t{LENSWIRE_FRAME_TYPE_3},
                      .codec = clip_->codec(),
                      .length = static_cast<uint32_t>(frame.payload.size()),
                      .width = clip_->width(),
                      .height = clip_->height(),
                      .frame_rate = per_second_};
        return frame;
    }

  private:
    std::shared_ptr<const Clip> clip_;
    uint16_t per_second_;
};

class SyntheticVideo : public Track {
  public:
    SyntheticVideo(const Synthetic& synthetic, uint32_t seed)
        : Track(synthetic.frame_rate), synthetic_(synthetic), seed_(seed) {}

    Frame frame(uint64_t index) const override {
        const bool key = index % synthetic_.gop == 0;
        Frame frame;
        frame.head = {.frame_type = key ? uint8_t{LENSWIRE_FRAME_TYPE_1} : uint8_t{LENSWIRE_FRAME_TYPE_3},
                      .codec = synthetic_.codec,
                      .length = synthetic_length(synthetic_, index),
                      .width = synthetic_.width,
                      .height = synthetic_.height,
                      .frame_rate = static_cast<uint16_t>(synthetic_.frame_rate)};
        frame.prefix = prefix_of(key, seed_, index);
        frame.prefix_length = kSyntheticPrefix;
        frame.payload = window(seed_, static_cast<uint32_t>(index), frame.head.length - kSyntheticPrefix);
        return frame;
    }

  private:
    Synthetic synthetic_;
    uint32_t seed_;
};

class SyntheticAudio : public Track {
  public:
    explicit SyntheticAudio(uint32_t seed) : Track(kAudioPacketsPerSecond), seed_(seed) {}

    Frame frame(uint64_t index) const override {
        Frame frame;
        frame.head = audio_head();
        frame.prefix = prefix_of(false, seed_, index);
        frame.prefix_length = kSyntheticPrefix;
        frame.payload = window(seed_, static_cast<uint32_t>(index), kAudioPacketBytes - kSyntheticPrefix);
        return frame;
    }

  private:
    uint32_t seed_;
};

}  // namespace

uint32_t synthetic_length(const Synthetic& synthetic, uint64_t index) {
    const double gop_bytes = synthetic.mbit * 125'000 * synthetic.gop / synthetic.frame_rate;
    const double plain = gop_bytes / (synthetic.gop - 1 + synthetic.key_ratio);
    const double length = index % synthetic.gop == 0 ? plain * synthetic.key_ratio : plain;
    return static_cast<uint32_t>(
        std::clamp(length, double{kSyntheticPrefix}, double{LENSWIRE_PACKET_LENGTH_MAX}));
}

Bytes synthetic_payload(const Synthetic& synthetic, uint32_t seed, uint64_t index) {
    const Frame frame = SyntheticVideo(synthetic, seed).frame(index);
    Bytes payload(frame.head.length);
    std::copy(frame.prefix.begin(), frame.prefix.end(), payload.begin());
    std::copy(frame.payload.begin(), frame.payload.end(), payload.begin() + kSyntheticPrefix);
    return payload;
}

bool synthetic_matches(std::span<const uint8_t> payload, uint32_t* seed, uint32_t* index) {
    if (payload.size() < kSyntheticPrefix || payload.size() > LENSWIRE_PACKET_LENGTH_MAX) return false;
    const bool key = payload[4] == 0x65;
    *seed = get_u32(&payload[8]);
    *index = get_u32(&payload[12]);
    const auto prefix = prefix_of(key, *seed, *index);
    const auto rest = payload.subspan(kSyntheticPrefix);
    return std::equal(prefix.begin(), prefix.end(), payload.begin()) &&
           (rest.empty() ||
            std::memcmp(rest.data(), window(*seed, *index, rest.size()).data(), rest.size()) == 0);
}

uint32_t synthetic_seed(uint32_t camera, uint8_t channel, uint8_t stream) {
    return camera << 16 | static_cast<uint32_t>(channel) << 8 | stream;
}

FrameSource::FrameSource() = default;
FrameSource::~FrameSource() = default;

std::unique_ptr<FrameSource> FrameSource::make(const StreamConfig& config, uint32_t seed) {
    std::unique_ptr<FrameSource> source(new FrameSource);
    if (config.synthetic) {
        source->video_ = std::make_unique<SyntheticVideo>(*config.synthetic, seed);
        if (config.synthetic->audio) source->audio_ = std::make_unique<SyntheticAudio>(seed);
    } else {
        if (config.video) source->video_ = std::make_unique<ClipTrack>(config.video, config.frame_rate);
        if (config.audio) source->audio_ = std::make_unique<ClipTrack>(config.audio, kAudioPacketsPerSecond);
    }
    if (!source->video_ && !source->audio_) return nullptr;
    return source;
}

Frame FrameSource::next() {
    const bool audio = audio_ && (!video_ || audio_->due_us(next_audio_) < video_->due_us(next_video_));
    const Track& track = audio ? *audio_ : *video_;
    uint64_t& index = audio ? next_audio_ : next_video_;
    Frame frame = track.frame(index);
    frame.due_us = track.due_us(index);
    frame.head.timestamp_ms = static_cast<uint32_t>(frame.due_us / 1000);
    ++index;
    return frame;
}

}  // namespace lenswire::camera
