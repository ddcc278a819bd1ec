// The 32-byte header before each frame on a stream connection.
#pragma once

#include <array>
#include <cstdint>

#include "lenswire/protocol.h"

namespace lenswire::camera {

// ucCodec of the audio packets that the simulator sends: G.711 A-law, 8000 Hz, one channel.
inline constexpr uint8_t kCodecALaw = LENSWIRE_CODEC_AUDIO_KIND_1;

struct PacketHead {
    uint16_t flag = LENSWIRE_FLAG_STREAM;
    bool video = true;
    uint8_t frame_type = LENSWIRE_FRAME_TYPE_1;  // 1 key frame, 3 any other
    uint8_t codec = LENSWIRE_CODEC_H264;
    uint32_t length = 0;  // of the payload, at most LENSWIRE_PACKET_LENGTH_MAX
    uint32_t timestamp_ms = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t frame_rate = 0;
    uint16_t attributes = 0;
};

using PacketBytes = std::array<uint8_t, ARG_HEAD_LEN>;

PacketBytes to_bytes(const PacketHead& head);

}  // namespace lenswire::camera
