// Stream packets: their headers, their content byte for byte, their times, and where a stream ends.
#include <gtest/gtest.h>

#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::Clip;
using camera::Pace;

std::shared_ptr<const Clip> open_clip(const std::string& name) {
    std::string error;
    return Clip::open(LENSWIRE_CLIPS "/" + name, &error);
}

TEST(Stream, PlaysAClipInALoopWithAudioBetween) {
    camera::CameraConfig config;
    auto& stream = config.streams[1];
    stream = {.video = open_clip("h265-sub.h265"), .audio = open_clip("tone.alaw"), .frame_rate = 50};
    stream.max_frames = 120;
    OneCamera one(config);
    const Session session = log_in(*one);
    one.pass_ms(1234);
    Wire wire = ask_for_stream(*one, session, 1);
    EXPECT_EQ(slice(wire.reads_command().payload, 0, 9), (Bytes{0, 1, 1, 50, 0x40, 0x01, 180, 0, 0}));
    one.pass_ms(10'000);
    for (size_t i = 0; i < 180; ++i) {  // two pictures for each packet of audio, which comes behind the first
        const bool is_video = i % 3 != 1;
        const size_t index = is_video ? i / 3 * 2 + i % 3 / 2 : i / 3;
        const Clip& source = is_video ? *stream.video : *stream.audio;
        const auto payload = source.payload(index % source.size());
        Packet expected{.frame_type = 0,
                        .video = is_video,
                        .codec = source.codec(),
                        .time_stamp = static_cast<uint32_t>(1234 + index * (is_video ? 20 : 40)),
                        .payload = Bytes(payload.begin(), payload.end())};
        if (is_video) {
            expected.frame_type = source.is_key(index % source.size()) ? 1 : 3;
            std::tie(expected.width, expected.height, expected.frame_rate) = std::tuple(320, 180, 50);
        }
        const ReadPacket packet = read_packet(wire);
        ASSERT_EQ(packet.head + packet.payload, expected.bytes()) << i;
    }
    EXPECT_FALSE(wire.has_bytes()) << "a stream of so many frames ends there";
    EXPECT_TRUE(one->streams()[0].ended && one->streams()[0].open);
    EXPECT_EQ(one->stats().video_frames + one->stats().audio_frames, 180U);
    EXPECT_EQ(one->streams()[0].first_timestamp_ms, 1234U);
    EXPECT_EQ(one->streams()[0].last_timestamp_ms, 1234U + 119 * 20);
    EXPECT_EQ(one->streams()[0].most_late_us, 9'980'000);
}

TEST(Stream, SyntheticFramesAreWhatTheirFormulaSays) {
    auto config = small_streams(30);
    config.streams[1].synthetic->audio = true;
    config.number = 7;
    OneCamera one(config);
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session, 1, 3);
    one.pass_ms(5000);
    for (uint32_t next[2] = {}; next[1] < 30;) {
        ReadPacket packet = read_packet(wire);
        uint32_t seed = 0;
        uint32_t index = 0;
        ASSERT_TRUE(camera::synthetic_matches(packet.payload, &seed, &index));
        EXPECT_EQ(seed, 0x00070301U) << "camera, channel, stream";
        EXPECT_EQ(index, next[packet.video()]++);
        if (packet.video()) {
            EXPECT_EQ(packet.payload, camera::synthetic_payload(*config.streams[1].synthetic, seed, index));
        }
        packet.payload.back() ^= 1;
        EXPECT_FALSE(camera::synthetic_matches(packet.payload, &seed, &index));
    }
}

// Frames of 9000 and 1000 bytes behind the 64 of the answer, each with a header of 32.
TEST(Stream, KeepsItsPace) {
    const std::tuple<Pace, uint32_t, int64_t, std::string> cases[] = {
        {Pace::kRealTime, 8, 1, "0:64 0:9032 40:1032 80:9032 120:1032"},
        {Pace::kRealTime, 8, 100'000, "0:64 0:9032 100:1032 100:9032 200:1032"},
        {Pace::kUnpaced, 8, 100'000, "0:64 0:9032 0:1032 0:9032 0:1032"},
        {Pace::kSpread, 8, 1,
         "0:64 0:1500 " + every(1, 1, 7, "1000") + " 8:532 40:1032 80:1500 " + every(1, 81, 7, "1000") +
             " 88:532 120:1032"},
    };
    for (const auto& [pace, link_mbit, gather_us, seen] : cases) {
        auto config = small_streams(4);
        config.gather_us = gather_us;
        config.streams[0].synthetic = camera::Synthetic{.mbit = 1, .gop = 2, .key_ratio = 9};
        config.streams[0].pace = pace;
        config.streams[0].link_mbit = link_mbit;
        OneCamera one(config);
        const Session session = log_in(*one);
        Tape tape(one);
        Wire wire = ask_for_stream(*one, session);
        EXPECT_EQ(tape.record(wire, 250), seen);
    }
}

TEST(Stream, IsFinishedBehindAWholePacket) {
    for (const bool close : {true, false}) {
        auto config = small_streams();
        config.streams[0].pace = Pace::kSpread;
        config.streams[0].synthetic->mbit = 1;
        config.streams[0].link_mbit = 8;
        OneCamera one(config);
        const Session session = log_in(*one);
        Tape tape(one);
        Wire wire = ask_for_stream(*one, session);
        const std::string begun = tape.record(wire, 2);
        one->finish_streams(close);
        EXPECT_EQ(begun, "0:64 0:1500 1:1000 2:1000");
        EXPECT_EQ(tape.record(wire, 100), every(1, 1, 7, "1000") + " 8:246" + (close ? " 8:closed" : ""));
        EXPECT_EQ(one->streams()[0].video_frames, 1U);
        EXPECT_EQ(one->stats().streams_open, close ? 0U : 1U);
        EXPECT_EQ(one->streams()[0].open, !close);
    }
}

TEST(Stream, RequestsThatCannotBeMetAreRefused) {
    for (const auto& [request, state] :
         {std::pair<Bytes, int>{{0, 2, 0, 0}, 3}, {{0, 0, 0}, 4}, {Bytes(5), 4}}) {
        OneCamera one(small_streams());
        Session session = log_in(*one);
        Wire wire = connect_to(*one);
        wire.sends(command(0x0102, request, 0, session.login_id));
        EXPECT_EQ(wire.reads_command().state, state);
        EXPECT_EQ(session.ask(0x0102, Bytes(4)).state, 4) << "a control connection is no stream";
    }
}

}  // namespace
}  // namespace lenswire::test
