// A stream packet's header and the frame head made of it: pure functions.
#pragma once

#include <sys/time.h>
#include <cstdint>

#include "lenswire/records.h"

namespace lenswire::packet {

inline bool is_video(const StreamHeadInfo& header) {
    return (header.ulDataInfo & 1) == LENSWIRE_PACKET_VIDEO;
}

inline uint32_t payload_length(const StreamHeadInfo& header) {
    return header.ulDataInfo >> LENSWIRE_PACKET_LENGTH_SHIFT & LENSWIRE_PACKET_LENGTH_MAX;
}

// What a video codec id becomes: the code in the frame head, the name in the host's stream information.
struct Codec {
    uint8_t code;
    char name[5];
};
const Codec& video_codec(uint8_t id);

// The audio kind of a codec id, 1 or 2.
uint8_t audio_kind(uint8_t id);

// The bytes that go before an audio frame's payload.
constexpr uint8_t kAudioPrefix[4] = {0x00, 0x01, 0xA0, 0x00};

// Fill in what the head of a frame says, leaving the bytes that mean nothing in it as they are.
void fill_video_head(StreamFrameHead& head, const StreamHeadInfo& header, uint16_t sequence, int frame_rate,
                     uint8_t byte29, const timeval& received);
void fill_audio_head(StreamFrameHead& head, const StreamHeadInfo& header, uint16_t sequence,
                     const timeval& received);

}  // namespace lenswire::packet
