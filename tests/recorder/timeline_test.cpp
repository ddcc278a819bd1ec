#include "recorder/media/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace lenswire::recorder {
namespace {

struct Picture {
    uint32_t camera_ms;
    int64_t received_ms;
};

std::vector<int64_t> stamps(const std::vector<Picture>& pictures) {
    Timeline timeline;
    std::vector<int64_t> result;
    for (const Picture& picture : pictures) {
        result.push_back(timeline.video(picture.camera_ms, picture.received_ms));
    }
    return result;
}

TEST(Timeline, PlacesPictures) {
    struct Case {
        const char* name;
        std::vector<Picture> pictures;
        std::vector<int64_t> expected;
    };
    const Case cases[] = {
        {"by the camera's clock, not by a bursty reception",
         {{5000, 70'000}, {5040, 70'900}, {5080, 70'901}, {5120, 70'902}},
         {0, 40, 80, 120}},
        {"over the wrap of the clock",
         {{0xFFFFFFF0, 100}, {0x00000018, 140}, {0x00000040, 180}},
         {0, 40, 80}},
        {"by reception where the clock was set back",
         {{500'000, 1000}, {500'040, 1040}, {100, 1080}, {140, 1120}},
         {0, 40, 80, 120}},
        {"by reception where the clock was set far ahead",
         {{0, 1000}, {40, 1040}, {900'000'000, 1080}, {900'000'040, 1120}},
         {0, 40, 80, 120}},
        {"over a long interruption by the camera's clock when it went on",
         {{0, 1000}, {60'000, 61'300}},
         {0, 60'000}},
        {"over a long interruption by reception when the clock began anew",
         {{600'000, 1000}, {20, 61'300}, {60, 61'340}},
         {0, 60'300, 60'340}},
        {"in strict order when stamps repeat or swap",
         {{0, 0}, {40, 40}, {40, 40}, {20, 60}, {80, 80}, {120, 120}},
         {0, 40, 41, 42, 80, 120}},
        {"forward even when reception goes back as well",
         {{500'000, 90'000}, {100, 20}, {140, 60}},
         {0, 1, 41}},
    };
    for (const Case& c : cases) EXPECT_EQ(stamps(c.pictures), c.expected) << c.name;
}

TEST(Timeline, TrustsTheClockOverANewConnectionOnlyWhereReceptionAgrees) {
    struct Case {
        uint32_t camera_ms;
        int64_t received_ms, expected;
    };
    for (const Case& c : {Case{5040, 6500, 5000}, Case{540, 5000, 4960}, Case{30, 5000, 4960}}) {
        Timeline timeline;
        timeline.video(40, 40);
        timeline.connection_began();
        EXPECT_EQ(timeline.video(c.camera_ms, c.received_ms), c.expected) << c.camera_ms;
        EXPECT_EQ(timeline.video(c.camera_ms + 40, c.received_ms + 900), c.expected + 40);
    }
}

TEST(Timeline, LetsSoundRunOnWithoutGapsThroughJitter) {
    Timeline timeline;
    timeline.video(7000, 1000);
    EXPECT_EQ(timeline.audio(1005, 320), 5);
    EXPECT_EQ(timeline.audio(1100, 320), 45);
    EXPECT_EQ(timeline.audio(1101, 324), 85);
    timeline.video(7120, 1120);
    EXPECT_EQ(timeline.audio(1125, 320), 125) << "half a millisecond carried over";
    EXPECT_EQ(timeline.audio(1165, 320), 165);
}

TEST(Timeline, PlacesSoundAnewAfterAGapAndNeverBefore) {
    Timeline timeline;
    timeline.video(0, 1000);
    EXPECT_EQ(timeline.audio(1000, 320), 0);
    timeline.video(3000, 4000);
    EXPECT_EQ(timeline.audio(4010, 320), 3010) << "three seconds of silence";
    EXPECT_EQ(timeline.audio(2000, 320), 3050) << "a reception in the past does not go back";
}

TEST(Timeline, FollowsTheCamerasClockWithTheSound) {
    Timeline timeline;
    timeline.video(0, 0);
    // The camera's clock runs one percent fast, over an hour.
    int64_t last = -1;
    for (int i = 1; i < 36'000; ++i) {
        const int64_t video = timeline.video(static_cast<uint32_t>(i * 101), i * 100);
        const int64_t audio = timeline.audio(i * 100, 800);
        ASSERT_LT(last, audio);
        ASSERT_LE(std::abs(video - audio), 210);
        last = audio;
    }
}

}  // namespace
}  // namespace lenswire::recorder
