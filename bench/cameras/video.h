// The video that every stream benchmark sends: 4 Mbit/s, 25 frames a second, an I-frame every 50 frames ten
// times as large as the others, and audio of 8 kB/s, one packet between two frames.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "lenswire/host_objects.h"

namespace lenswire::bench {

constexpr uint32_t kFrameRate = 25;
constexpr uint32_t kKeyInterval = 50;
constexpr uint32_t kKeyFactor = 10;
constexpr uint32_t kVideoBytesPerSecond = 4'000'000 / 8;
constexpr uint32_t kAudioBytesPerSecond = 8'000;
constexpr int64_t kFrameNs = 1'000'000'000 / kFrameRate;

constexpr uint32_t kSmallFrame =
    kVideoBytesPerSecond / kFrameRate * kKeyInterval / (kKeyInterval - 1 + kKeyFactor);
constexpr uint32_t kKeyFrame = kSmallFrame * kKeyFactor;
constexpr uint32_t kAudioFrame = kAudioBytesPerSecond / kFrameRate;

// Even packets of a stream are video, odd ones audio.
constexpr bool is_video(uint32_t packet) {
    return packet % 2 == 0;
}

constexpr bool is_key_frame(uint32_t frame) {
    return frame % kKeyInterval == 0;
}
constexpr uint32_t frame_size(uint32_t frame) {
    return is_key_frame(frame) ? kKeyFrame : kSmallFrame;
}

// At the start of every payload, so that a consumer sees whether the right bytes came.
struct Mark {
    uint32_t magic = 0x4b52414d;
    uint32_t stream = 0;
    uint32_t packet = 0;
    uint32_t length = 0;
    bool operator==(const Mark&) const = default;
};

// The bytes of one packet, valid until the next one of the same stream is asked for.
struct PacketBytes {
    std::span<const uint8_t> head;
    std::span<const uint8_t> body;
    size_t size() const { return head.size() + body.size(); }
};

// What a sender sends on its streams, packet by packet.
class PacketSource {
  public:
    virtual ~PacketSource() = default;
    virtual PacketBytes packet(uint32_t stream, uint32_t number) = 0;
    // How many bytes beyond a packet the receiver needs to see before it can deliver it.
    virtual uint32_t bytes_beyond() const = 0;
    // How many bytes a camera of this kind hands to its connection at once.
    virtual size_t bytes_at_once() const { return SIZE_MAX; }
};

// The streams of a camera.
class CameraPackets : public PacketSource {
  public:
    explicit CameraPackets(uint32_t streams);
    PacketBytes packet(uint32_t stream, uint32_t number) override;
    uint32_t bytes_beyond() const override { return LENSWIRE_BYTES_BEHIND_PACKET; }

  private:
#pragma pack(push, 1)
    struct Head {
        StreamHeadInfo info;
        Mark mark;
    };
#pragma pack(pop)
    std::vector<Head> heads_;
    std::vector<uint8_t> bulk_;
};

// Bytes for payloads: no two alike in a row, none of them 0.
std::vector<uint8_t> payload_bytes(size_t count);

// Where a stream stands when the sending starts. Streams are spread over one interval of I-frames, as those
// of cameras that know nothing of each other are.
struct Phase {
    uint32_t first_frame;
    int64_t delay_ns;  // of the first frame, less than one frame's time
};
Phase phase(uint32_t stream);

// When a packet is due, from the start of the sending.
int64_t due_ns(uint32_t stream, uint32_t number);

}  // namespace lenswire::bench
