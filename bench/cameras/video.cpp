#include "bench/cameras/video.h"

#include <random>

namespace lenswire::bench {

namespace {

constexpr uint16_t kWidth = 1920;
constexpr uint16_t kHeight = 1080;

}  // namespace

std::vector<uint8_t> payload_bytes(size_t count) {
    std::vector<uint8_t> bytes(count);
    std::minstd_rand random(1);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(1 + random() % 255);
    return bytes;
}

Phase phase(uint32_t stream) {
    constexpr int64_t kInterval = kKeyInterval * kFrameNs;
    constexpr int64_t kGoldenPart = 1'236'067'977;  // of the interval: its multiples spread evenly
    const int64_t at = stream * kGoldenPart % kInterval;
    return {kKeyInterval - 1 - static_cast<uint32_t>(at / kFrameNs), at % kFrameNs};
}

CameraPackets::CameraPackets(uint32_t streams) : heads_(streams), bulk_(payload_bytes(kKeyFrame)) {}

PacketBytes CameraPackets::packet(uint32_t stream, uint32_t number) {
    const uint32_t frame = phase(stream).first_frame + number / 2;
    const uint32_t length = is_video(number) ? frame_size(frame) : kAudioFrame;
    Head& head = heads_[stream];
    head.info = {};
    head.info.ulFlag = LENSWIRE_FLAG_STREAM;
    head.info.ulDataInfo = length << LENSWIRE_PACKET_LENGTH_SHIFT |
                           (is_video(number) ? LENSWIRE_PACKET_VIDEO : LENSWIRE_PACKET_AUDIO);
    head.info.ucCodec = is_video(number) ? LENSWIRE_CODEC_H264 : LENSWIRE_CODEC_AUDIO_KIND_1;
    head.info.ucFrameType = is_key_frame(frame) ? LENSWIRE_FRAME_TYPE_1 : LENSWIRE_FRAME_TYPE_3;
    head.info.ulTimeStamp = frame * (1000 / kFrameRate);
    head.info.usWidth = kWidth;
    head.info.usHeight = kHeight;
    head.info.usFrameRate = kFrameRate;
    head.mark = {.stream = stream, .packet = number, .length = length};
    return {{reinterpret_cast<const uint8_t*>(&head), sizeof head},
            std::span(bulk_).first(length - sizeof(Mark))};
}

int64_t due_ns(uint32_t stream, uint32_t number) {
    return phase(stream).delay_ns + number * (kFrameNs / 2);
}

}  // namespace lenswire::bench
