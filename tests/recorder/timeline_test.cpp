#include "recorder/media/timeline.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

namespace lenswire::recorder {
namespace {

struct Picture {
    uint32_t camera_ms;
    int64_t received_ms;
};

TEST(Timeline, PlacesPictures) {
    struct Case {
        const char* name;
        std::vector<Picture> pictures;
        std::vector<int64_t> expected;
    };
    const Case cases[] = {
        {"by the camera's clock, not by a bursty reception",
         {{5000, 70'000}, {5040, 70'900}, {5080, 70'901}, {5120, 70'902}},
         {70'000, 70'040, 70'080, 70'120}},
        {"over the wrap of the clock",
         {{0xFFFFFFF0, 100}, {0x00000018, 140}, {0x00000040, 180}},
         {100, 140, 180}},
        {"by reception where the clock was set back",
         {{500'000, 1000}, {500'040, 1040}, {100, 1080}, {140, 1120}},
         {1000, 1040, 1080, 1120}},
        {"by reception where the clock was set far ahead",
         {{0, 1000}, {40, 1040}, {900'000'000, 1080}, {900'000'040, 1120}},
         {1000, 1040, 1080, 1120}},
        {"by reception where the clock began anew after a long interruption",
         {{600'000, 1000}, {20, 61'300}, {60, 61'340}},
         {1000, 61'300, 61'340}},
        {"by the camera's clock where each stamp comes twice",
         {{1000, 1000}, {1000, 1040}, {1080, 1080}, {1080, 1120}, {1160, 1160}, {1160, 1200}, {1240, 1500}},
         {1000, 1001, 1080, 1081, 1160, 1161, 1240}},
        {"in strict order when stamps swap", {{0, 0}, {40, 40}, {20, 60}, {80, 80}}, {1, 41, 42, 81}},
    };
    for (const Case& c : cases) {
        Timeline timeline;
        std::vector<int64_t> stamps;
        for (const Picture& picture : c.pictures)
            stamps.push_back(timeline.video(picture.camera_ms, picture.received_ms));
        EXPECT_EQ(stamps, c.expected) << c.name;
    }
}

// An hour of pictures from cameras with all kinds of clocks, each received some time after it was taken.
TEST(Timeline, StaysWithinAFifthOfASecondOfTheTrueTimeOverAnHour) {
    struct Case {
        const char* name;
        std::function<uint32_t(int64_t)> camera;  // its clock at a true time
        int jumps = 0;
    };
    const auto running = [](double rate) {
        return [rate](int64_t ms) {
            return static_cast<uint32_t>(static_cast<int64_t>(static_cast<double>(ms) * rate));
        };
    };
    const Case cases[] = {
        {"right", running(1)},
        {"a fifth fast", running(1.2)},
        {"a fifth slow", running(0.8)},
        {"500 ppm fast", running(1.0005)},
        {"wrapping", [](int64_t ms) { return static_cast<uint32_t>(ms + 0xFFFFFFFF - 1'800'000); }},
        {"standing still", [](int64_t) { return 17u; }},
        {"jumping an hour ahead and back",
         [](int64_t ms) { return static_cast<uint32_t>(ms / 600'000 % 2 * 3'600'000 + ms + 5'000'000); }, 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Timeline timeline;
        std::mt19937 random(1);
        int jumps = 0;
        int64_t last = -1, received = 0;
        for (int64_t taken = 0; taken < 3'600'000; taken += 40) {
            const bool stalled = taken % 300'000 < 3000 && taken > 300'000;  // three seconds come in a burst
            const int64_t arrival =
                stalled ? taken - taken % 300'000 + 3000 : taken + static_cast<int64_t>(random() % 30);
            received = std::max(received, arrival);
            const int64_t at = timeline.video(c.camera(taken), received);
            ASSERT_LT(last, at);
            last = at;
            jumps += timeline.take_jump().has_value();
            const bool settled = taken > 20'000 && taken % 300'000 > 10'000;
            if (settled) {
                ASSERT_LE(std::abs(at - taken), 200) << taken;
            }
        }
        EXPECT_EQ(jumps, c.jumps);
    }
}

TEST(Timeline, LetsSoundRunOnWithoutGapsThroughJitterAndPlacesItAnewAfterAGap) {
    Timeline timeline;
    timeline.video(7000, 1000);
    EXPECT_EQ(timeline.audio(1005, 320), 1005);
    EXPECT_EQ(timeline.audio(1100, 320), 1045);
    EXPECT_EQ(timeline.audio(1101, 324), 1085);
    timeline.video(7120, 1120);
    EXPECT_EQ(timeline.audio(1125, 320), 1125) << "half a millisecond carried over";
    timeline.video(10'000, 4000);
    EXPECT_EQ(timeline.audio(4010, 320), 4010) << "three seconds of silence";
    EXPECT_EQ(timeline.audio(2000, 320), 4050) << "a reception in the past does not go back";
}

}  // namespace
}  // namespace lenswire::recorder
