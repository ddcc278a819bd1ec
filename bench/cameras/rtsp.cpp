#include "bench/cameras/rtsp.h"

#include <sys/socket.h>
#include <algorithm>
#include <string>

namespace lenswire::bench::rtsp {

namespace {

constexpr uint32_t kFragmentHeadBytes = kFramingBytes + kRtpHeaderBytes + 2;
constexpr uint32_t kFragmentBytes = kRtpPacketBytes - kFragmentHeadBytes;

struct Track {
    uint8_t number;
    uint8_t payload_type;
    uint32_t clock_rate;
};
constexpr Track kVideo{0, 96, 90'000};
constexpr Track kSound{1, 8, kAudioBytesPerSecond};

// How a frame's NAL unit begins: an IDR slice or another one, first macroblock 0.
constexpr uint8_t kKeyStart[] = {0x65, 0x88, 0x84};
constexpr uint8_t kOtherStart[] = {0x41, 0x9a, 0x21};

const std::string kDescription =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=bench\r\nt=0 0\r\n"
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 packetization-mode=1;profile-level-id=4d4028;"
    "sprop-parameter-sets=Z01AKOygPAET8uAiAAADAAIAAAMAZB4wYyw=,aOvjyyA=\r\n"
    "a=control:video\r\n"
    "m=audio 0 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\na=control:sound\r\n";

// Up to the blank line; empty when the player has gone. These requests have no body.
std::string read_request(int fd) {
    std::string text;
    char byte;
    while (!text.ends_with("\r\n\r\n")) {
        if (recv(fd, &byte, 1, 0) != 1) return {};
        text += byte;
    }
    return text;
}

std::string field(const std::string& request, const std::string& name) {
    const size_t at = request.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    const size_t start = at + name.size() + 4;
    return request.substr(start, request.find("\r\n", start) - start);
}

std::string answer_to(const std::string& request) {
    std::string fields = "CSeq: " + field(request, "CSeq") + "\r\n";
    std::string body;
    if (request.starts_with("OPTIONS")) fields += "Public: DESCRIBE, SETUP, PLAY, TEARDOWN\r\n";
    if (request.starts_with("DESCRIBE")) {
        body = kDescription;
        fields += "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    }
    if (request.starts_with("SETUP")) fields += "Transport: " + field(request, "Transport") + "\r\n";
    return "RTSP/1.0 200 OK\r\n" + fields + "Session: 1\r\n\r\n" + body;
}

void put16(std::vector<uint8_t>& bytes, uint32_t value) {
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value));
}

void put32(std::vector<uint8_t>& bytes, uint32_t value) {
    put16(bytes, value >> 16);
    put16(bytes, value);
}

// The framing of an RTP packet on the connection, and its header. The index is that of the track's frame.
void put_head(std::vector<uint8_t>& bytes, const Track& track, bool marker, uint16_t sequence, uint32_t index,
              uint32_t payload) {
    bytes.insert(bytes.end(), {'$', static_cast<uint8_t>(2 * track.number)});
    put16(bytes, kRtpHeaderBytes + payload);
    bytes.insert(bytes.end(), {0x80, static_cast<uint8_t>(marker << 7 | track.payload_type)});
    put16(bytes, sequence);
    put32(bytes, index * (track.clock_rate / kFrameRate));
    put32(bytes, 1U + track.number);
}

}  // namespace

bool answer_until_play(int fd) {
    while (true) {
        const std::string request = read_request(fd);
        if (request.empty()) return false;
        const std::string answer = answer_to(request);
        if (send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return false;
        if (request.starts_with("PLAY")) return true;
    }
}

uint32_t connection_bytes(uint32_t stream, uint32_t number) {
    if (!is_video(number)) return kSoundPacketBytes;
    const uint32_t sent =
        frame_size(phase(stream).first_frame + number / 2) - 1;  // each fragment has the first byte
    return sent + (sent + kFragmentBytes - 1) / kFragmentBytes * kFragmentHeadBytes;
}

RtpPackets::RtpPackets(uint32_t streams) : streams_(streams), bulk_(payload_bytes(kKeyFrame)) {}

// One fragment (FU-A) of the frame's NAL unit, whose first byte goes into each fragment's own two.
void RtpPackets::add_fragment(Stream& stream, uint32_t index, uint32_t frame, uint32_t from,
                              uint32_t count) const {
    constexpr uint8_t kFragment = 28;
    const uint8_t* start = is_key_frame(frame) ? kKeyStart : kOtherStart;
    const bool first = from == 1;
    const bool last = from + count == frame_size(frame);
    std::vector<uint8_t>& bytes = stream.bytes;
    put_head(bytes, kVideo, last, stream.sequences[kVideo.number]++, index, 2 + count);
    bytes.push_back(static_cast<uint8_t>((start[0] & 0xe0) | kFragment));
    bytes.push_back(static_cast<uint8_t>(first << 7 | last << 6 | (start[0] & 0x1f)));
    const size_t payload = bytes.size();
    bytes.insert(bytes.end(), bulk_.begin() + from, bulk_.begin() + from + count);
    if (first) std::copy_n(start + 1, 2, bytes.begin() + static_cast<ptrdiff_t>(payload));
}

void RtpPackets::add_picture(Stream& stream, uint32_t first_frame, uint32_t index) const {
    const uint32_t frame = first_frame + index;
    const uint32_t size = frame_size(frame);
    for (uint32_t from = 1; from < size; from += kFragmentBytes) {
        add_fragment(stream, index, frame, from, std::min(kFragmentBytes, size - from));
    }
}

void RtpPackets::add_sound(Stream& stream, uint32_t index) const {
    put_head(stream.bytes, kSound, false, stream.sequences[kSound.number]++, index, kAudioFrame);
    stream.bytes.insert(stream.bytes.end(), bulk_.begin(), bulk_.begin() + kAudioFrame);
}

PacketBytes RtpPackets::packet(uint32_t stream, uint32_t number) {
    Stream& one = streams_[stream];
    one.bytes.clear();
    if (is_video(number)) {
        add_picture(one, phase(stream).first_frame, number / 2);
    } else {
        add_sound(one, number / 2);
    }
    return {one.bytes, {}};
}

}  // namespace lenswire::bench::rtsp
