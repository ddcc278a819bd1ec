// Stream packets: their headers, their content byte for byte, and where a stream ends.
#include <gtest/gtest.h>

#include "camera/wire/packet.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::CameraStats;
using camera::Clip;

TEST(PacketHead, StandsByteByByte) {
    const camera::PacketHead video{.frame_type = 3,
                                   .codec = 5,
                                   .length = 4194303,
                                   .timestamp_ms = 0x11223344,
                                   .width = 0x0780,
                                   .height = 0x0438,
                                   .frame_rate = 25,
                                   .attributes = 0xFC01};
    const Bytes expected = {1,    0,    0,    3,    0xC1, 0xFF, 0xFF, 0x0F, 0,  5, 0, 0,    0, 0, 0, 0,
                            0x44, 0x33, 0x22, 0x11, 0x80, 0x07, 0x38, 0x04, 25, 0, 1, 0xFC, 0, 0, 0, 0};
    const auto bytes = camera::to_bytes(video);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), expected);

    const auto audio = camera::to_bytes({.video = false, .codec = 16, .length = 320, .width = 9});
    EXPECT_EQ(Bytes(audio.begin(), audio.begin() + 10), (Bytes{1, 0, 0, 0, 0, 0x50, 0, 0, 0, 16}));
    EXPECT_EQ(Bytes(audio.begin() + 20, audio.end()), Bytes(12));
}

std::shared_ptr<const Clip> clip(const std::string& name) {
    std::string error;
    auto opened = Clip::open(LENSWIRE_CLIPS "/" + name, &error);
    EXPECT_NE(opened, nullptr) << error;
    return opened;
}

TEST(Stream, PlaysAClipInALoopWithAudioBetween) {
    camera::CameraConfig config;
    config.streams[0].video = clip("h264-main.h264");
    config.streams[0].audio = clip("tone.alaw");
    config.streams[0].pace = camera::Pace::kUnpaced;
    config.streams[0].max_frames = 120;
    const auto& video = *config.streams[0].video;
    const auto& audio = *config.streams[0].audio;
    OneCamera one(config);
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session);
    uint32_t base_ms = 0;
    for (size_t i = 0; i < 239; ++i) {
        const ReadPacket packet = read_packet(wire);
        const size_t frame = i / 2;  // both have 25 packets a second, the video first
        const Clip& source = i % 2 == 0 ? video : audio;
        const auto expected = source.payload(frame % source.size());
        ASSERT_TRUE(
            std::equal(packet.payload.begin(), packet.payload.end(), expected.begin(), expected.end()))
            << i;
        ASSERT_EQ(packet.video(), i % 2 == 0);
        if (i == 0) base_ms = u32_at(packet.head, 16);
        ASSERT_EQ(u32_at(packet.head, 16) - base_ms, frame * 40);
        ASSERT_EQ(packet.head[3], !packet.video() ? 0 : video.is_key(frame % video.size()) ? 1 : 3);
    }
    ASSERT_TRUE(one->wait([&](const CameraStats&) { return one->streams()[0].ended; }));
    EXPECT_FALSE(wire.has_bytes()) << "a stream of so many frames ends there";
    EXPECT_EQ(one->streams()[0].video_frames, 120U);
}

TEST(Stream, RealTimeStreamsStampTheirFramesInMilliseconds) {
    camera::CameraConfig config;
    config.streams[1].video = clip("h265-sub.h265");
    config.streams[1].frame_rate = 250;
    OneCamera one(config);
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session, 1);
    const uint32_t first = u32_at(read_packet(wire).head, 16);
    for (uint32_t i = 1; i < 20; ++i) EXPECT_EQ(u32_at(read_packet(wire).head, 16), first + 4 * i);
}

TEST(Stream, SyntheticFramesAreWhatTheirFormulaSays) {
    const camera::Synthetic load{.mbit = 4};
    uint64_t gop = 0;
    for (uint64_t i = 50; i < 100; ++i) gop += camera::synthetic_length(load, i);
    EXPECT_NEAR(static_cast<double>(gop), 4e6 / 8 * 2, 50) << "50 frames are 2 seconds";
    EXPECT_NEAR(camera::synthetic_length(load, 0), 10.0 * camera::synthetic_length(load, 1), 10);

    auto config = small_streams(30);
    config.streams[0].synthetic->audio = true;
    config.number = 7;
    OneCamera one(config);
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session, 0, 3);
    uint32_t next = 0;
    while (next < 30) {
        ReadPacket packet = read_packet(wire);
        uint32_t seed = 0;
        uint32_t index = 0;
        ASSERT_TRUE(camera::synthetic_matches(packet.payload, &seed, &index));
        EXPECT_EQ(seed, camera::synthetic_seed(7, 3, 0));
        packet.payload.back() ^= 1;
        EXPECT_FALSE(camera::synthetic_matches(packet.payload, &seed, &index));
        packet.payload.back() ^= 1;
        if (!packet.video()) continue;
        EXPECT_EQ(index, next++);
        EXPECT_TRUE(packet.payload == camera::synthetic_payload(*config.streams[0].synthetic, seed, index));
    }
}

TEST(Stream, EndsBehindAWholePacketAndCountsWhatItSent) {
    OneCamera one(small_streams());
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session);
    read_packet(wire);
    one->finish_streams(true);
    uint64_t video = 1;
    for (;;) {
        const bool ended = one->streams()[0].ended;  // asked first: nothing more comes after it
        if (!wire.has_bytes()) {
            if (ended) break;
            continue;
        }
        ASSERT_LT(video, 200'000U) << "it does not end";
        const ReadPacket packet = read_packet(wire);
        ASSERT_EQ(u16_at(packet.head, 0), 1);
        ++video;
    }
    EXPECT_TRUE(wire.sees_close());
    EXPECT_EQ(one->streams()[0].video_frames, video);
    EXPECT_EQ(one->stats().streams_open, 0U);
}

TEST(Stream, ThatThereIsNotIsRefused) {
    OneCamera one(small_streams());
    const Session session = log_in(*one);
    Wire wire = connect_to(*one);
    wire.sends(command(0x0102, {0, 2, 0, 0}, 0, session.login_id));
    EXPECT_NE(wire.reads_command().state, 0);
}

TEST(Stream, ALinkSpreadsTheBytesOfAFrame) {
    auto config = small_streams(1);
    config.streams[0].pace = camera::Pace::kSpread;
    config.streams[0].link_mbit = 8;  // 1000 bytes a millisecond
    config.streams[0].synthetic = camera::Synthetic{.mbit = 1, .gop = 2, .key_ratio = 9};
    OneCamera one(config);
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session);
    uint32_t seed = 0;
    uint32_t index = 0;
    EXPECT_TRUE(camera::synthetic_matches(read_packet(wire).payload, &seed, &index));
}

}  // namespace
}  // namespace lenswire::test
