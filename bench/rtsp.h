// As much of an RTSP camera as a player needs to see the benchmarks' video: the dialogue up to PLAY, and
// H.264 in RTP packets interleaved on the same connection.
#pragma once

#include <cstdint>
#include <vector>

#include "bench/video.h"

namespace lenswire::bench::rtsp {

// Bytes of one RTP packet on the connection, its framing and headers included.
constexpr uint32_t kRtpPacketBytes = 1448;

// Answers a player's requests until it wants to see the stream. False when it leaves before.
bool answer_until_play(int fd);

// What a stream's frame takes on the connection.
uint32_t connection_bytes(uint32_t stream, uint32_t number);

// The video frames of the camera's streams, without the audio; a packet of this source is a whole frame.
class RtpPackets : public PacketSource {
  public:
    explicit RtpPackets(uint32_t streams);
    PacketBytes packet(uint32_t stream, uint32_t number) override;
    int64_t due_ns(uint32_t stream, uint32_t number) const override;
    // A player knows that a frame has ended when the next one has begun.
    uint32_t bytes_beyond() const override { return kRtpPacketBytes; }
    // RTSP servers send one RTP packet after the other.
    size_t bytes_at_once() const override { return kRtpPacketBytes; }

  private:
    struct Stream {
        uint16_t sequence = 0;
        std::vector<uint8_t> bytes;
    };
    void add_rtp(Stream& stream, uint32_t number, uint32_t frame, uint32_t from, uint32_t count);

    std::vector<Stream> streams_;
    std::vector<uint8_t> bulk_;
};

}  // namespace lenswire::bench::rtsp
