// The settings behind a camera's commands: what can be set is what a get answers, in files if asked; and what
// moves by itself as time passes, the clock and the camera's head.
#include "camera/device/settings.h"

#include <gtest/gtest.h>

#include <fstream>

#include "camera/device/layouts.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

camera::Command request(uint16_t code, Bytes payload, uint32_t number = 1) {
    camera::Command command;
    command.code = code;
    command.buffer_size = static_cast<uint32_t>(payload.size()) / std::max(number, 1U);
    command.buffer_num = number;
    if (number != 0) command.payload = std::move(payload);
    return command;
}

// A settings object on a clock that stands until a test moves it.
struct Device {
    explicit Device(camera::DeviceConfig device = {}) {
        settings.emplace(
            camera::Surroundings{
                .device = device, .address = "127.0.0.9", .port = 7788, .streams = {{}, {.audio = true}}},
            [this] { return now_us; });
        std::string error;
        EXPECT_TRUE(settings->load(&error)) << error;
    }
    // The answer's payload; a byte of its state when that is no success, nothing when there is no answer.
    Bytes ask(uint16_t code, Bytes payload, uint32_t number = 1) {
        const auto [answer, understood] = settings->handle(request(code, std::move(payload), number));
        if (!answer) return Bytes(understood ? 0 : 1, 0xFF);
        if (answer->state != 0) return {static_cast<uint8_t>(answer->state)};
        EXPECT_EQ(answer->buffer_size * answer->buffer_num, answer->payload.size());
        return answer->payload;
    }
    // Where the head is and what it does: pan, tilt, zoom, then motion, preset, cruise line and point.
    std::string operate(uint8_t code, uint8_t argument, double seconds) {
        EXPECT_EQ(ask(0x0020, padded({0, code, 0, 0, argument}, 20)), Bytes{});
        now_us += static_cast<int64_t>(seconds * 1e6);
        const Bytes ptz = ask(0x1031, {}, 0);
        char text[64];
        std::snprintf(text, sizeof text, "%.2f %.2f %.2f %u %u %u %u", u16_at(ptz, 2) / 100.0,
                      u16_at(ptz, 4) / 100.0, u16_at(ptz, 6) / 100.0, ptz[8], ptz[9], ptz[10], ptz[11]);
        return text;
    }

    int64_t now_us = 1'700'000'000'000'000;  // 14 November 2023, 22:13:20
    std::optional<camera::Settings> settings;
};

const struct {
    uint16_t set, get;
    uint32_t size, number;
    Bytes ask;
} kPairs[] = {
    {0x1005, 0x1004, 36, 1, padded({0, 0x33}, 36)}, {0x1022, 0x1023, 228, 1, Bytes(228)},
    {0x100B, 0x100A, 168, 1, Bytes(168)},           {0x1020, 0x1021, 204, 1, Bytes(204)},
    {0x1062, 0x1061, 256, 3, Bytes(256)},           {0x0025, 0x0026, 980, 1, padded({0, 2}, 980)},
    {0x1003, 0x1002, 32, 3, padded({0, 0x33}, 32)},
};

TEST(Settings, WhatIsSetIsWhatAGetAnswersAlsoFromFiles) {
    const Folder folder;
    const camera::DeviceConfig kept{.state_dir = folder.path("deep/camera")};
    for (const auto& pair : kPairs) {
        SCOPED_TRACE(pair.set);
        Bytes payload = pattern(size_t{pair.size} * pair.number), expected = payload;
        if (pair.set == 0x0025) expected[1] = payload[1] = 2;    // the last line
        for (uint8_t i = 0; i < 3 && pair.set == 0x1003; ++i) {  // records find their places by their streams
            payload[32 * i + 1] = 2 - i;
            std::copy_n(payload.begin() + 32 * i, 32, expected.begin() + 32 * (2 - i));
        }
        Device device(kept);
        const Bytes before = device.ask(pair.get, pair.ask);
        EXPECT_NE(before, expected) << "the default is another";
        EXPECT_EQ(device.ask(pair.set, slice(payload, 1, payload.size())), Bytes{0xFF}) << "too short";
        EXPECT_EQ(device.ask(pair.set, payload, 0), Bytes{0xFF}) << "no buffer";
        EXPECT_EQ(device.ask(pair.get, pair.ask + Bytes(1)), Bytes{4});
        EXPECT_EQ(device.ask(pair.get, pair.ask), before);
        EXPECT_EQ(device.ask(pair.set, payload, pair.number), Bytes{}) << "sets have no answer";
        EXPECT_EQ(device.ask(pair.get, pair.ask), expected);
        EXPECT_EQ(Device(kept).ask(pair.get, pair.ask), expected);
    }
    EXPECT_EQ(Device().ask(0x0025, padded({0, 3}, 980)), Bytes{0xFF}) << "there are three cruise lines";
    EXPECT_EQ(Device().ask(0x0026, padded({0, 3}, 980)), Bytes{3});
    EXPECT_EQ(Device().ask(0x1002, padded({0, 3}, 32)), Bytes{3});
    EXPECT_EQ(Device().ask(0x1003, Bytes(32) + padded({0, 3}, 64), 3), Bytes{0xFF});
    EXPECT_EQ(Device().ask(0x2099, Bytes(4)), Bytes{3});

    for (const size_t wrong : {5, 37}) {
        std::ofstream(kept.state_dir + "/image.bin") << std::string(wrong, 'x');
        EXPECT_EQ(Device(kept).ask(0x1004, Bytes(36)), Device().ask(0x1004, Bytes(36)));
    }
    camera::Settings nowhere({.device = {.state_dir = "/dev/null/x"}, .address = "127.0.0.1", .streams = {}});
    std::string error;
    EXPECT_FALSE(nowhere.load(&error));
    EXPECT_TRUE(error.starts_with("/dev/null/x: ")) << error;
}

TEST(Settings, FilesKeepWhatMovesAndTheFirmware) {
    const Folder folder;
    const camera::DeviceConfig kept{.state_dir = folder.path()};
    {
        Device device(kept);
        device.operate(4, 51, 1);
        device.operate(0x2C, 200, 0);
        device.ask(0x1030, padded({0, 255}, 24));
        device.ask(0x1001, padded({0xE7, 0x07, 1, 1, 0, 0, 59}, 212));
        device.settings->take_new_firmware("A_B_2");
    }
    Device back(kept);
    back.now_us += 2'000'000;
    EXPECT_EQ(slice(back.ask(0x1000, Bytes(212), 0), 0, 7), (Bytes{0xE7, 0x07, 1, 1, 0, 1, 0}));
    EXPECT_EQ(slice(back.ask(0x2003, Bytes(464)), 368, 6), bytes_of("A_B_2") + Bytes(1));
    EXPECT_EQ(back.operate(0x28, 200, 60), "180.00 44.00 1.00 0 201 0 0");
    EXPECT_EQ(back.operate(3, 0, 1), "300.00 44.00 1.00 1 201 0 0") << "at the kept speed";
}

TEST(Settings, DescribeTheDevice) {
    Device device;
    device.settings->set_port(9988);
    const std::tuple<uint16_t, Bytes, size_t, Bytes> cases[] = {
        {0x2003, Bytes(464), 3, {2}},  // streams
        {0x1006, Bytes(118), 2, {127, 0, 0, 9, 255, 0, 0, 0}},
        {0x1006, Bytes(118), 22, {2, 0, 127, 0, 0, 9, 0x04, 0x27}},
        {0x1002, Bytes(32), 3, {25, 0x80, 0x07, 0x38, 0x04, 0, 16, 0, 0, 50}},
        {0x1002, padded({0, 1}, 32), 15, {3, 1}},  // with audio
        {0x1002, padded({0, 2}, 32), 30, {0}},     // which is not there
    };
    for (const auto& [code, ask, at, bytes] : cases) {
        EXPECT_EQ(slice(device.ask(code, ask), at, bytes.size()), bytes) << code << " " << at;
    }
    for (const auto& [before, after] : {std::pair{"LW_20_BTAMC_1.0.0", "LW_20_BTAMC_1.0.1"},
                                        {"V9", "V10"},
                                        {"v199b", "v200b"},
                                        {"none", "none_1"},
                                        {"", "_1"}}) {
        EXPECT_EQ(camera::next_firmware_name(before), after);
    }
}

TEST(Clock, RunsOnFromWhatItWasSetTo) {
    Device device;
    EXPECT_EQ(slice(device.ask(0x1000, Bytes(212), 0), 0, 9), (Bytes{0xE7, 0x07, 11, 14, 22, 13, 20, 0, 24}));
    const std::tuple<Bytes, int, Bytes> cases[] = {
        {{0xE7, 0x07, 12, 31, 23, 58, 50}, 75, {0xE8, 0x07, 1, 1, 0, 0, 5}},
        {{0xE8, 0x07, 2, 28, 0, 65, 0}, 86400, {0xE8, 0x07, 2, 29, 1, 5, 0}},  // minutes count on
        {{0xE7, 0x07, 2, 31, 0, 0, 0}, 1, {0xE7, 0x07, 3, 3, 0, 0, 1}},        // and days
        {{0xE7, 0x07, 0, 31, 0, 0, 0}, 75, {0xE7, 0x07, 0, 31, 0, 0, 0}},      // without a date it stands
        {{0xE7, 0x07, 12, 32, 0, 0, 0}, 75, {0xE7, 0x07, 12, 32, 0, 0, 0}},
    };
    for (const auto& [set, seconds, seen] : cases) {
        const Bytes rest = slice(pattern(212), 7, 205);
        device.ask(0x1001, set + rest);
        device.now_us += seconds * 1'000'000LL;
        EXPECT_EQ(device.ask(0x1000, Bytes(212), 0), seen + rest);
    }
}

// Points of a cruise line on every second place: a preset, a dwell time in tenths of a second, a speed.
Bytes cruise_line(uint8_t line, const std::vector<std::array<uint8_t, 3>>& points) {
    Bytes record = padded({0, line}, 980);
    for (size_t i = 0; i < points.size(); ++i) {
        const auto& [preset, dwell, speed] = points[i];
        std::ranges::copy(Bytes{1, preset, dwell, 0, speed}, record.begin() + 68 + 28 * (2 * i + 1) + 4);
    }
    return record;
}

// At first preset 4 looks to 180, 60 and preset 5 to 225, 0; the speed is 30.12 degrees a second at 64.
TEST(Ptz, MovesAsTimePasses) {
    Device device;
    device.ask(0x0025, cruise_line(1, {{4, 20, 255}, {5, 30, 0}, {6, 0, 255}, {5, 1, 255}}));
    device.ask(0x0025, cruise_line(2, {}));
    constexpr uint8_t kStop = 1, kLeft = 2, kRight = 3, kUp = 4, kDown = 5, kZoomIn = 6, kZoomOut = 7;
    constexpr uint8_t kGoTo = 0x28, kStart = 0x29, kSet = 0x2C, kEnd = 0x2E, kUnknown = 99;
    const std::tuple<uint8_t, uint8_t, double, const char*> steps[] = {
        {kUnknown, 0, 9, "180.00 20.00 1.00 0 0 0 0"},
        {kLeft, 51, 10, "300.00 20.00 1.00 1 0 0 0"},  // 24 degrees a second, round and round
        {kUp, 255, 10, "300.00 90.00 1.00 1 0 0 0"},   // to its end
        {kDown, 51, 1, "300.00 66.00 1.00 1 0 0 0"},
        {kStop, 0, 100, "300.00 66.00 1.00 0 0 0 0"},
        {kZoomIn, 51, 1, "300.00 66.00 3.40 1 0 0 0"},
        {kZoomOut, 255, 1, "300.00 66.00 1.00 1 0 0 0"},
        {kZoomIn, 255, 9, "300.00 66.00 30.00 1 0 0 0"},
        {kSet, 7, 0, "300.00 66.00 30.00 1 0 0 0"},
        {kRight, 51, 1, "324.00 66.00 30.00 1 0 0 0"},
        {kGoTo, 7, 60, "300.00 66.00 30.00 0 8 0 0"},  // index 7 is preset number 8
        {kGoTo, 1, 1, "310.90 60.70 26.99 2 8 0 0"},   // the shorter way, over 360
        {kGoTo, 4, 60, "180.00 60.00 1.00 0 5 0 0"},
        {kStart, 2, 1, "180.00 60.00 1.00 0 5 0 0"},  // a line without points does not run
        {kStart, 1, 2.1, "182.26 56.99 1.00 3 5 2 4"},
        {kUnknown, 0, 4.95, "225.00 0.00 1.00 3 6 2 8"},
        {kEnd, 0, 1, "180.00 60.00 1.00 3 5 2 2"},  // another line
        {kEnd, 1, 1, "180.00 60.00 1.00 0 5 0 0"},
    };
    for (const auto& [code, argument, seconds, seen] : steps) {
        EXPECT_EQ(device.operate(code, argument, seconds), seen) << int{code};
    }
    device.operate(kStart, 1, 1);
    device.ask(0x0025, cruise_line(1, {{5, 20, 255}}));
    EXPECT_EQ(device.operate(kUnknown, 0, 1), "225.00 0.00 1.00 3 6 2 2") << "it takes its new points";
    device.ask(0x0025, cruise_line(1, {}));
    EXPECT_EQ(device.operate(kUnknown, 0, 1), "225.00 0.00 1.00 0 6 0 0") << "and ends when there are none";
}

TEST(Describe, SaysWhatWasReceived) {
    const Bytes login = bytes_of("ad\x01min") + Bytes(26) + repeated('p', 32) + Bytes(12);
    const std::tuple<uint16_t, Bytes, std::string> cases[] = {
        {0x1005, {0, 0, 140}, "set image channel 0 stream 0 brightness 140"},
        {0x0020, {0, 0x28, 0, 0, 4}, "ptz-operation kind 0 operation 40 argument 4: go to preset index 4"},
        {0x0025, cruise_line(1, {{4, 20, 255}, {5, 30, 0}}),
         "set cruise channel 0 line 1 enabled 0 points 2"},
        {0x0102, {1, 2, 0, 0}, "stream request channel 1 stream 2"},
        {0x0000, login, "login user \"ad?min\""},
        {0x2099, {}, "command 0x2099"},
    };
    for (const auto& [code, payload, text] : cases) EXPECT_EQ(camera::describe(request(code, payload)), text);
}

}  // namespace
}  // namespace lenswire::test
