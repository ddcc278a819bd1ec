// As much of an RTSP camera as a player needs to take the benchmarks' streams: the dialogue up to PLAY, and
// H.264 and A-law sound in RTP packets interleaved on the same connection.
#pragma once

#include <cstdint>
#include <vector>

#include "bench/cameras/video.h"

namespace lenswire::bench::rtsp {

// Bytes of one RTP packet on the connection, its framing and headers included.
constexpr uint32_t kRtpPacketBytes = 1448;
constexpr uint32_t kFramingBytes = 4;
constexpr uint32_t kRtpHeaderBytes = 12;
constexpr uint32_t kSoundPacketBytes = kFramingBytes + kRtpHeaderBytes + kAudioFrame;

// Answers a player's requests until it wants to see the stream. False when it leaves before.
bool answer_until_play(int fd);

// What a stream's packet takes on the connection.
uint32_t connection_bytes(uint32_t stream, uint32_t number);

// The packets of the camera's streams, each in as many RTP packets as it takes.
class RtpPackets : public PacketSource {
  public:
    explicit RtpPackets(uint32_t streams);
    PacketBytes packet(uint32_t stream, uint32_t number) override;
    // A player knows that a frame has ended when the next one, behind a packet of sound, has begun.
    uint32_t bytes_beyond() const override { return kSoundPacketBytes + kRtpPacketBytes; }
    // RTSP servers send one RTP packet after the other.
    size_t bytes_at_once() const override { return kRtpPacketBytes; }

  private:
    struct Stream {
        uint16_t sequences[2] = {};  // of each track
        std::vector<uint8_t> bytes;
    };
    void add_picture(Stream& stream, uint32_t first_frame, uint32_t index) const;
    void add_fragment(Stream& stream, uint32_t index, uint32_t frame, uint32_t from, uint32_t count) const;
    void add_sound(Stream& stream, uint32_t index) const;

    std::vector<Stream> streams_;
    std::vector<uint8_t> bulk_;
};

}  // namespace lenswire::bench::rtsp
