#include "recorder/media/timeline.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

namespace lenswire::recorder {
namespace {

TEST(Timeline, PlacesPictures) {
    using Pictures = std::vector<std::pair<uint32_t, int64_t>>;  // the camera's time, and when they came
    const std::tuple<const char*, Pictures, std::vector<int64_t>> cases[] = {
        {"by the camera's clock, not by a bursty reception",
         {{5000, 70'000}, {5040, 70'900}, {5080, 70'901}, {5120, 70'902}},
         {70'000, 70'040, 70'080, 70'120}},
        {"by the camera's clock where each stamp comes twice",
         {{1000, 1000}, {1000, 1040}, {1080, 1080}, {1080, 1120}, {1160, 1160}, {1160, 1200}, {1240, 1500}},
         {1000, 1001, 1080, 1081, 1160, 1161, 1240}},
        {"in strict order when stamps swap", {{0, 0}, {40, 40}, {20, 60}, {80, 80}}, {1, 41, 42, 81}},
    };
    for (const auto& [what, pictures, expected] : cases) {
        Timeline timeline;
        std::vector<int64_t> stamps;
        for (const auto& [camera_ms, received_ms] : pictures)
            stamps.push_back(timeline.video(camera_ms, received_ms));
        EXPECT_EQ(stamps, expected) << what;
    }
}

// An hour of pictures from cameras with all kinds of clocks, each received some time after it was taken.
TEST(Timeline, StaysWithinAFifthOfASecondOfTheTrueTimeOverAnHour) {
    const auto running = [](double rate) {
        return [rate](int64_t ms) { return static_cast<uint32_t>(static_cast<double>(ms) * rate); };
    };
    const auto jumping = [](int64_t by) {
        return [by](int64_t ms) { return static_cast<uint32_t>(ms / 600'000 % 2 * by + ms + 5'000'000); };
    };
    // Its clock at a true time, and how often that jumps.
    const std::tuple<const char*, std::function<uint32_t(int64_t)>, int> cases[] = {
        {"right", running(1), 0},
        {"a fifth fast", running(1.2), 0},
        {"a fifth slow", running(0.8), 0},
        {"500 ppm fast", running(1.0005), 0},
        {"wrapping", [](int64_t ms) { return static_cast<uint32_t>(ms + 0xFFFFFFFF - 1'800'000); }, 0},
        {"standing still", [](int64_t) { return 17u; }, 0},
        {"jumping an hour ahead and back", jumping(3'600'000), 5},
        {"jumping five seconds ahead and back", jumping(5000), 5},
    };
    for (const auto& [name, camera, expected_jumps] : cases) {
        SCOPED_TRACE(name);
        Timeline timeline;
        std::mt19937 random(1);
        int jumps = 0;
        int64_t last = -1, received = 0;
        for (int64_t taken = 0; taken < 3'600'000; taken += 40) {
            const bool stalled = taken % 300'000 < 3000 && taken > 300'000;  // three seconds come in a burst
            const int64_t arrival =
                stalled ? taken - taken % 300'000 + 3000 : taken + static_cast<int64_t>(random() % 30);
            received = std::max(received, arrival);
            const int64_t at = timeline.video(camera(taken), received);
            ASSERT_LT(last, at);
            last = at;
            jumps += timeline.take_jump().has_value();
            const bool settled = taken > 20'000 && taken % 300'000 > 10'000;
            ASSERT_LE(settled ? std::abs(at - taken) : 0, 200) << taken;
        }
        EXPECT_EQ(jumps, expected_jumps);
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
