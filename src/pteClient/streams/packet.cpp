// From a stream's socket into the host's ring, and packet by packet out of it into frames. Runs on the
// receive loop's thread for every piece of data that arrives: one recv, one copy of each payload, nothing
// allocated, no line printed unless the stream ends. The bytes are the camera's: a length in them is used
// only once the ring holds as much.
#include "pteClient/streams/packet.h"

#include <sys/socket.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/log.h"
#include "common/wire.h"
#include "lenswire/host_services.h"
#include "lenswire/stream.h"

using namespace lenswire;

namespace lenswire::packet {

namespace {

// By the code in the packet. H264 and H265 have two numbers each, and a host is told which one came.
constexpr Codec kCodecs[] = {{0, "H264"}, {3, "H265"}, {0, "H264"}, {2, "JPEG"}, {4, "H264"}, {5, "H265"}};

void fill_common(StreamFrameHead& head, uint8_t kind, uint16_t sequence, const timeval& received) {
    head.ucKind = kind;
    head.reserved1 = 0;
    head.usSequence = sequence;
    head.ulSeconds = static_cast<uint32_t>(received.tv_sec);
    head.ulMicroseconds = static_cast<uint32_t>(received.tv_usec);
}

}  // namespace

// An unknown code is taken for H264: the frame is worth more than the name.
const Codec& video_codec(uint8_t id) {
    return kCodecs[id < std::size(kCodecs) ? id : 0];
}

uint8_t audio_kind(uint8_t id) {
    return id == LENSWIRE_CODEC_AUDIO_KIND_1 ? 1 : 2;
}

void fill_video_head(StreamFrameHead& head, const StreamHeadInfo& header, uint16_t sequence, int frame_rate,
                     uint8_t byte29, const timeval& received) {
    fill_common(head, 0, sequence, received);
    const bool passed_on =
        header.ucFrameType == LENSWIRE_FRAME_TYPE_1 || header.ucFrameType == LENSWIRE_FRAME_TYPE_3;
    head.ulTimeStamp = header.ulTimeStamp;
    head.ucFrameType = passed_on ? header.ucFrameType : 0;
    head.reserved17 = 0;
    head.ucCodec = video_codec(header.ucCodec).code;
    head.usAttr = header.usAttr >> 10;
    head.usWidth = header.usWidth;
    head.usHeight = header.usHeight;
    // Until a rate has been measured, the camera's own word is the best there is.
    head.ucFrameRate = static_cast<uint8_t>(frame_rate > 0 ? frame_rate : header.usFrameRate);
    head.reserved29 = byte29;
    head.ulDataSize = payload_length(header);
}

void fill_audio_head(StreamFrameHead& head, const StreamHeadInfo& header, uint16_t sequence,
                     const timeval& received) {
    fill_common(head, 1, sequence, received);
    head.ucCodec = audio_kind(header.ucCodec);
    head.ucAudio21 = 1;
    head.usAttr = 0x0100;
    head.ulDataSize = payload_length(header) + sizeof kAudioPrefix;
}

}  // namespace lenswire::packet

namespace {

// What the library says its buffers take; hosts check a pop against it.
constexpr int kHeaderCapacity = 1024;
constexpr uint32_t kDataCapacity = 0x100000;
constexpr uint32_t kSkipPiece = 1024;    // stands on the stack
constexpr uint32_t kDetectionSpan = 30;  // frames

void* ring_of(void* pRecvBuf) {
    return static_cast<uint8_t*>(pRecvBuf) + LENSWIRE_RING_OFFSET;
}

// A packet counts as whole once 33 bytes beyond it are there, with which the next one begins.
bool is_complete(uint32_t length, uint32_t held) {
    return held >= LENSWIRE_RING_SIZE(length);
}

// For a ring that takes nothing more. When its front packet is not complete no restart will help, so the host
// is told what that packet needs.
void report_full(int channel, int stream, void* ring) {
    StreamHeadInfo header{};
    const uint32_t held = ring_used_size(ring);
    if (held > ARG_HEAD_LEN) ring_pop_temp(ring, &header, sizeof header);
    const uint32_t length = packet::payload_length(header);
    if (is_complete(length, held)) return;
    std::fprintf(stderr,
                 "[%s:%s:%d]:channel:%d,stream:%d,the ring is full with %u bytes, its packet needs %u \n",
                 LENSWIRE_LAYER_CLIENT, "RecvStreamToPacketBuf", __LINE__, channel, stream, held,
                 LENSWIRE_RING_SIZE(length));
}

uint8_t* private_info(const void* pStream) {
    struct Words {
        int first, second;
    };
    const auto words =
        wire::load<Words>(static_cast<const uint8_t*>(pStream) + offsetof(HostStreamObject, lFirst));
    return static_cast<uint8_t*>(networkGetStreampPrivateInfo(words.first, words.second));
}

// The payload goes from the ring to its final place in one copy, in pieces of what one pop may take.
void pop_payload(void* ring, uint8_t* dst, uint32_t length) {
    while (length > 0) {
        const uint32_t piece = std::min(length, kDataCapacity);
        ring_pop_n(ring, dst, static_cast<int>(piece), kDataCapacity);
        dst += piece;
        length -= piece;
    }
}

// The payload leaves the ring also when nobody takes it: the next header must be at the front.
void skip_payload(void* ring, uint32_t length) {
    uint8_t dropped[kSkipPiece];
    while (length > 0) {
        const uint32_t piece = std::min(length, kSkipPiece);
        ring_pop_n(ring, dropped, static_cast<int>(piece), kSkipPiece);
        length -= piece;
    }
}

void insert(void* pStream, void* frame) {
    streamFrameQueueLock(pStream);
    streamInsertFrameToFrameQueue(pStream, frame);
    steramFrameQueueUnlock(pStream);
}

// Whether the channel still carries audio is decided anew every span of frames.
void update_audio_detection(int channel) {
    if (ucAudioTypeFlag[channel] != 0) {
        if (uFreamCount[channel] != kDetectionSpan) return;
        if (uFreamType[channel] == 0) ucAudioTypeFlag[channel] = 0;
    }
    uFreamCount[channel] = 0;
    uFreamType[channel] = 0;
}

// The host may be reading the name: it is left alone where it stands already.
void tell_codec_name(const void* pStream, const char (&name)[5]) {
    uint8_t* info = private_info(pStream);
    if (info == nullptr) return;
    uint8_t* place = info + offsetof(HostStreamInfo, szCodec);
    if (std::memcmp(place, name, sizeof name - 1) != 0) std::memcpy(place, name, sizeof name);
}

void tell_audio_kind(const void* pStream, uint32_t kind) {
    uint8_t* info = private_info(pStream);
    if (info != nullptr) wire::store(info + offsetof(HostStreamInfo, ulAudioKind), kind);
}

// The counters are signed words that wrap.
void add(int32_t& counter, uint32_t n) {
    counter = static_cast<int32_t>(static_cast<uint32_t>(counter) + n);
}

timeval wall_clock() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now;
}

}  // namespace

int PacketToFrameQueue(const void* header_bytes, int frameRate, void* pRecvBuf, void* pStream, void*,
                       int byte29, int32_t* videoFrameNo, int32_t*, int32_t* framecount, int32_t* width,
                       int32_t* height, int channel) {
    const auto header = wire::load<StreamHeadInfo>(header_bytes);
    const uint32_t length = packet::payload_length(header);
    const bool video = packet::is_video(header);
    const uint32_t prefix = video ? 0 : sizeof packet::kAudioPrefix;
    void* ring = ring_of(pRecvBuf);
    update_audio_detection(channel);

    auto* frame =
        static_cast<uint8_t*>(streamGetFrameQueueBuffer(pStream, static_cast<int>(length + prefix)));
    if (frame == nullptr) {
        skip_payload(ring, length);
        return 0;
    }
    // Some bytes of the head belong to the host and keep what it put there.
    auto head = wire::load<StreamFrameHead>(frame);
    const auto sequence = static_cast<uint16_t>(*videoFrameNo);
    add(*videoFrameNo, 1);
    if (video) {
        packet::fill_video_head(head, header, sequence, frameRate, static_cast<uint8_t>(byte29),
                                wall_clock());
        tell_codec_name(pStream, packet::video_codec(header.ucCodec).name);
    } else {
        ucAudioTypeFlag[channel] = 1;
        uFreamType[channel] += 2 * uFreamCount[channel];
        packet::fill_audio_head(head, header, sequence, wall_clock());
        tell_audio_kind(pStream, packet::audio_kind(header.ucCodec));
    }
    ++uFreamCount[channel];
    wire::store(frame, head);
    std::memcpy(frame + sizeof head, packet::kAudioPrefix, prefix);
    pop_payload(ring, frame + sizeof head + prefix, length);
    insert(pStream, frame);
    if (video) {
        add(*framecount, 1);
        *width = header.usWidth;
        *height = header.usHeight;
    }
    return 0;
}

int RecvStreamToPacketBuf(int channel, int stream, int32_t*, int sockFd, int frameRate, int32_t* bitrate,
                          void* pRecvBuf, void* pStream, int32_t* videoFrameNo, int32_t* audioFrameNo,
                          int32_t* framecount, int32_t* width, int32_t* height) {
    void* ring = ring_of(pRecvBuf);
    const int room = ring_free_size_ex(ring);
    void* start = ring_get_start_buf(ring);
    if (start == nullptr || room <= 0) {
        std::printf("#########################recvLen =%d%m \r\n", room);
        if (room <= 0) report_full(channel, stream, ring);
        return -1;
    }
    // Once a pass and stream: who sends fast does not keep the others waiting.
    const ssize_t received = recv(sockFd, start, static_cast<size_t>(room), 0);
    if (received == 0) {
        ENGINE_ERROR("PostRestartMessageToQueue4.................. \n");
        return -1;
    }
    if (received < 0) {
        if (errno == EINTR || errno == EAGAIN) return 0;
        ENGINE_ERROR("PostRestartMessageToQueue5.................. \n");
        return -1;
    }
    ring_set_data_end(ring, static_cast<int>(received));

    while (ring_used_size(ring) > ARG_HEAD_LEN) {
        StreamHeadInfo header{};
        ring_pop_temp(ring, &header, sizeof header);
        if (header.ulFlag != LENSWIRE_FLAG_STREAM) {
            std::printf("*************stream header error! fd:%d, pHeadinfo->ulFlag : %d**************\n",
                        sockFd, header.ulFlag);
            return -1;
        }
        const uint32_t length = packet::payload_length(header);
        if (!is_complete(length, ring_used_size(ring))) break;
        add(*bitrate, length + sizeof header);
        ring_pop_n(ring, &header, sizeof header, kHeaderCapacity);
        PacketToFrameQueue(&header, frameRate, pRecvBuf, pStream, pStream, 0, videoFrameNo, audioFrameNo,
                           framecount, width, height, channel);
    }
    return 1;
}
