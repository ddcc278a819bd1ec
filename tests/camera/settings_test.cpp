// The settings behind a camera's commands: what can be set is what a get answers, in files if asked.
#include "camera/device/settings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "camera/device/layouts.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::Command;
using camera::Settings;

Command request(uint16_t code, Bytes payload, uint32_t size, uint32_t number) {
    Command command;
    command.code = code;
    command.buffer_size = size;
    command.buffer_num = number;
    command.payload = std::move(payload);
    return command;
}

// A settings object on a clock that stands until a test moves it.
struct Bench {
    explicit Bench(camera::DeviceConfig device = {}) {
        camera::Surroundings around{
            .device = device, .address = "127.0.0.9", .port = 7788, .streams = {{}, {}}};
        settings.emplace(around, [this] { return now_us; });
        std::string error;
        EXPECT_TRUE(settings->load(&error)) << error;
    }
    Settings::Outcome asks(uint16_t code, Bytes payload, uint32_t number = 1) {
        const auto size = static_cast<uint32_t>(number == 0 ? payload.size() : payload.size() / number);
        if (number == 0) payload.clear();
        return settings->handle(request(code, std::move(payload), size, number));
    }
    Bytes gets(uint16_t code, Bytes payload, uint32_t number = 1) {
        const auto [answer, understood] = asks(code, std::move(payload), number);
        EXPECT_TRUE(understood);
        return answer ? answer->payload : Bytes{};
    }
    void operates(uint8_t code, uint8_t argument = 0) {
        Bytes operation(20);
        operation[1] = code;
        operation[4] = argument;
        EXPECT_FALSE(asks(0x0020, operation).answer.has_value());
    }
    Bytes ptz() { return gets(0x1031, {}, 0); }
    double pan() { return u16_at(ptz(), 2) / 100.0; }
    double tilt() { return u16_at(ptz(), 4) / 100.0; }
    void seconds_pass(double seconds) { now_us += static_cast<int64_t>(seconds * 1e6); }

    int64_t now_us = 1'700'000'000'000'000;  // 14 November 2023, 22:13:20
    std::optional<Settings> settings;
};

struct Pair {
    uint16_t set, get;
    uint32_t size, number;
    Bytes ask;
};

Bytes first_bytes(uint32_t size, Bytes bytes) {
    bytes.resize(size);
    return bytes;
}

const Pair kPairs[] = {
    {0x1005, 0x1004, 36, 1, first_bytes(36, {0, 0x33})},
    {0x1022, 0x1023, 228, 1, Bytes(228)},
    {0x100B, 0x100A, 168, 1, Bytes(168)},
    {0x1020, 0x1021, 204, 1, Bytes(204)},
    {0x1062, 0x1061, 256, 3, Bytes(256)},
    {0x0025, 0x0026, 980, 1, first_bytes(980, {0, 2})},
    {0x1003, 0x1002, 32, 3, first_bytes(32, {0, 0x33})},
};

// A payload for a set, different everywhere, with the bytes that say which record or line it is.
Bytes settable(const Pair& pair) {
    Bytes payload = pattern(size_t{pair.size} * pair.number);
    for (uint32_t i = 0; i < pair.number && pair.set == 0x1003; ++i)
        payload[32 * i + 1] = static_cast<uint8_t>(2 - i);
    if (pair.set == 0x0025) payload[1] = 2;
    return payload;
}

TEST(Settings, WhatIsSetIsWhatAGetAnswers) {
    for (const Pair& pair : kPairs) {
        SCOPED_TRACE(pair.set);
        Bench bench;
        EXPECT_NE(bench.gets(pair.get, pair.ask), settable(pair)) << "the default is another";
        const auto outcome = bench.asks(pair.set, settable(pair), pair.number);
        EXPECT_TRUE(outcome.understood);
        EXPECT_FALSE(outcome.answer.has_value()) << "sets have no answer";
        Bytes expected = settable(pair);
        if (pair.set == 0x1003) {
            expected = slice(expected, 64, 32) + slice(expected, 32, 32) + slice(expected, 0, 32);
        }
        EXPECT_EQ(bench.gets(pair.get, pair.ask), expected);
    }
}

TEST(Settings, RequestsOfAnotherShapeChangeNothing) {
    for (const Pair& pair : kPairs) {
        SCOPED_TRACE(pair.set);
        Bench bench;
        const Bytes before = bench.gets(pair.get, pair.ask);
        EXPECT_FALSE(bench.asks(pair.set, Bytes(size_t{pair.size} * pair.number - 1)).understood);
        EXPECT_FALSE(bench.settings->handle(request(pair.set, {}, pair.size, 0)).understood);
        const auto answer = bench.asks(pair.get, Bytes(pair.size + 1)).answer;
        ASSERT_TRUE(answer.has_value());
        EXPECT_NE(answer->state, 0);
        EXPECT_EQ(bench.gets(pair.get, pair.ask), before);
    }
    Bench bench;
    EXPECT_FALSE(bench.asks(0x0025, first_bytes(980, {0, 3})).understood) << "there are three cruise lines";
    EXPECT_NE(bench.asks(0x0026, first_bytes(980, {0, 3})).answer->state, 0);
    EXPECT_NE(bench.asks(0x2099, Bytes(4)).answer->state, 0);
}

TEST(Settings, FilesBringThemBack) {
    const auto folder =
        std::filesystem::temp_directory_path() / ("settings_test." + std::to_string(getpid()));
    const camera::DeviceConfig device{.state_dir = (folder / "deep" / "camera").string()};
    for (const Pair& pair : kPairs) {
        Bytes wanted;
        {
            Bench bench(device);
            bench.asks(pair.set, settable(pair), pair.number);
            wanted = bench.gets(pair.get, pair.ask);
        }
        EXPECT_EQ(Bench(device).gets(pair.get, pair.ask), wanted);
    }
    {
        Bench bench(device);
        bench.operates(3);
        bench.seconds_pass(1);
        bench.operates(0x2C, 200);
        bench.settings->take_new_firmware("A_B_2");
    }
    Bench back(device);
    back.operates(0x28, 200);
    back.seconds_pass(60);
    EXPECT_NEAR(back.pan(), 180 + 64 * 120 / 255.0, 0.01);
    EXPECT_EQ(slice(back.gets(0x2003, Bytes(464)), 368, 6), bytes_of("A_B_2") + Bytes(1));
    std::ofstream(folder / "deep" / "camera" / "image.bin") << "short";
    EXPECT_EQ(Bench(device).gets(0x1004, Bytes(36)), Bench().gets(0x1004, Bytes(36)));

    std::string error;
    Settings nowhere(
        {.device = {.state_dir = "/dev/null/x"}, .address = "127.0.0.1", .port = 1, .streams = {}});
    EXPECT_FALSE(nowhere.load(&error));
    EXPECT_NE(error.find("/dev/null/x"), std::string::npos);
    std::filesystem::remove_all(folder);
}

TEST(Settings, DescribeTheDevice) {
    Bench bench({.type = 241,
                 .firmware_name = "X_Y",
                 .platform = "HI3516A",
                 .sensor = "IMX178",
                 .special_family = true,
                 .fisheye_type = 3});
    const Bytes device = bench.gets(0x2003, Bytes(464));
    EXPECT_EQ(device[1], 241);
    EXPECT_EQ(slice(device, 368, 4), bytes_of("X_Y") + Bytes(1));
    EXPECT_EQ(slice(device, 432, 8), bytes_of("HI3516A") + Bytes(1));
    EXPECT_EQ(slice(device, 448, 7), bytes_of("IMX178") + Bytes(1));
    EXPECT_EQ(bench.gets(0x2012, Bytes(1024))[27], 1);
    EXPECT_EQ(bench.gets(0x1063, Bytes(64))[1], 3);
    const Bytes network = bench.gets(0x1006, Bytes(118));
    EXPECT_EQ(slice(network, 2, 4), (Bytes{127, 0, 0, 9}));
    EXPECT_EQ(u16_at(network, 28), 7788);
    const std::string scope(reinterpret_cast<const char*>(bench.gets(0x1102, Bytes(1027)).data()) + 3);
    EXPECT_EQ(std::count(scope.begin(), scope.end(), '@'), 2) << "three stream modes";
    EXPECT_EQ(bench.gets(0x1002, first_bytes(32, {0, 0x33})).size(), 96U);
    EXPECT_EQ(bench.gets(0x1002, first_bytes(32, {0, 1}))[1], 1) << "one stream's record";
}

TEST(Settings, TheFirmwareNameCountsUp) {
    const char* const names[][2] = {{"LW_20_BTAMC_1.0.0", "LW_20_BTAMC_1.0.1"},
                                    {"V9", "V10"},
                                    {"v199b", "v200b"},
                                    {"none", "none_1"},
                                    {"", "_1"}};
    for (const auto& [before, after] : names) EXPECT_EQ(camera::next_firmware_name(before), after);
}

TEST(Clock, RunsOnFromWhatItWasSetTo) {
    Bench bench;
    const Bytes start = bench.gets(0x1000, Bytes(212), 0);
    EXPECT_EQ(slice(start, 0, 7), (Bytes{0xE7, 0x07, 11, 14, 22, 13, 20}));
    Bytes record = pattern(212);
    const Bytes new_year = {0xE7, 0x07, 12, 31, 23, 58, 50};
    std::copy(new_year.begin(), new_year.end(), record.begin());
    bench.asks(0x1001, record);
    EXPECT_EQ(bench.gets(0x1000, Bytes(212), 0), record);
    bench.seconds_pass(75);
    const Bytes later = bench.gets(0x1000, Bytes(212), 0);
    EXPECT_EQ(slice(later, 0, 7), (Bytes{0xE8, 0x07, 1, 1, 0, 0, 5}));
    EXPECT_EQ(slice(later, 7, 205), slice(record, 7, 205));
    record[5] = 65;
    bench.asks(0x1001, record);
    EXPECT_EQ(slice(bench.gets(0x1000, Bytes(212), 0), 0, 7), (Bytes{0xE8, 0x07, 1, 1, 0, 5, 50}));
    record[2] = 0;
    bench.asks(0x1001, record);
    bench.seconds_pass(75);
    EXPECT_EQ(bench.gets(0x1000, Bytes(212), 0), record) << "without a date there is nothing to count on";
}

TEST(Ptz, MovesUntilItIsStoppedOrAtItsEnd) {
    Bench bench;
    const double pan = bench.pan();
    bench.operates(2, 51);  // left, 24 degrees a second
    bench.seconds_pass(2);
    EXPECT_NEAR(bench.pan(), pan - 48, 0.01);
    bench.seconds_pass(8);
    EXPECT_NEAR(bench.pan(), pan - 240 + 360, 0.01) << "round and round";
    bench.operates(4, 255);
    bench.seconds_pass(10);
    EXPECT_EQ(bench.tilt(), 90);
    EXPECT_EQ(bench.ptz()[8], 1);
    bench.operates(5, 51);
    bench.seconds_pass(1);
    bench.operates(1);
    bench.seconds_pass(100);
    EXPECT_NEAR(bench.tilt(), 66, 0.01);
    EXPECT_EQ(bench.ptz()[8], 0);
    bench.operates(99);
    EXPECT_EQ(bench.ptz()[8], 0) << "a code of another camera";
}

TEST(Ptz, TheSpeedOfItsPropertyIsTheOneOfPlainMoves) {
    Bench bench;
    Bytes property = bench.ptz();
    property[1] = 255;
    property[20] = 0x77;
    bench.asks(0x1030, property);
    EXPECT_EQ(bench.ptz(), property);
    const double pan = bench.pan();
    bench.operates(3);
    bench.seconds_pass(1);
    EXPECT_NEAR(bench.pan(), pan + 120, 0.01);
}

TEST(Ptz, PresetsAreWhereTheyWereSet) {
    Bench bench;
    bench.operates(3, 51);
    bench.seconds_pass(1);
    bench.operates(1);
    const Bytes there = bench.ptz();
    bench.operates(0x2C, 7);
    bench.operates(2, 51);
    bench.seconds_pass(5);
    bench.operates(0x28, 7);
    EXPECT_EQ(bench.ptz()[8], 2);
    bench.seconds_pass(30);
    EXPECT_EQ(slice(bench.ptz(), 2, 6), slice(there, 2, 6));
    EXPECT_EQ(bench.ptz()[9], 8) << "preset number 8 is index 7";
}

// A line of points, each at a preset with a dwell time in tenths of a second, on every second place.
Bytes cruise_line(uint8_t line, const std::vector<std::pair<uint8_t, uint8_t>>& points) {
    Bytes record(980);
    record[1] = line;
    for (size_t i = 0; i < points.size(); ++i) {
        uint8_t* entry = &record[68 + 28 * (2 * i + 1)];
        entry[4] = 1;
        entry[5] = points[i].first;
        entry[6] = points[i].second;
        entry[8] = 255;
    }
    return record;
}

TEST(Ptz, CruiseLinesRunRoundUntilStopped) {
    Bench bench;
    for (const auto& [preset, way] : {std::pair<uint8_t, uint8_t>{10, 3}, {11, 4}}) {
        bench.operates(0x2C, preset);  // here, and then 12 degrees further up or right
        bench.operates(way, 255);
        bench.seconds_pass(0.1);
        bench.operates(1);
    }
    bench.asks(0x0025, cruise_line(1, {{10, 20}, {11, 30}, {12, 0}}));
    bench.operates(0x29, 1);
    const auto at = [&] { return std::pair<int, int>{bench.ptz()[10], bench.ptz()[11]}; };
    EXPECT_EQ(at(), (std::pair{2, 2})) << "line number and place count from 1, 0 is none";
    bench.seconds_pass(1);
    EXPECT_EQ(bench.ptz()[9], 11);
    bench.seconds_pass(2);
    EXPECT_EQ(at(), (std::pair{2, 4}));
    bench.seconds_pass(2.5);
    EXPECT_EQ(at(), (std::pair{2, 2}));
    bench.seconds_pass(5.2 * 1000);
    EXPECT_EQ(bench.ptz()[8], 3) << "a thousand rounds later";
    bench.operates(0x2E, 0);
    EXPECT_EQ(bench.ptz()[8], 3) << "another line was stopped";
    bench.operates(0x2E, 1);
    EXPECT_EQ(bench.ptz()[8], 0);
    bench.operates(0x29, 2);
    EXPECT_EQ(bench.ptz()[8], 0) << "a line without points does not run";
    bench.operates(0x29, 3);
    EXPECT_EQ(bench.ptz()[8], 0);
}

TEST(Describe, SaysWhatWasReceived) {
    Bytes image(36);
    image[2] = 140;
    EXPECT_NE(
        camera::describe(request(0x1005, image, 36, 1)).find("set image channel 0 stream 0 brightness 140"),
        std::string::npos);
    EXPECT_EQ(camera::describe(request(0x1004, image, 36, 1)), "get image");
    Bytes operation(20);
    operation[1] = 0x28;
    operation[4] = 4;
    EXPECT_NE(camera::describe(request(0x0020, operation, 20, 1)).find("go to preset index 4"),
              std::string::npos);
    const Bytes login = bytes_of("ad\x01min") + Bytes(26) + repeated('p', 32) + Bytes(12);
    EXPECT_EQ(camera::describe(request(0x0000, login, 76, 1)), "login user \"ad?min\"");
    EXPECT_EQ(camera::describe(request(0x1005, {1}, 1, 1)), "set image channel 1") << "only what is there";
}

}  // namespace
}  // namespace lenswire::test
