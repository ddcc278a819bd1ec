// The commands for one camera, from the command line through the library to a simulated camera and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>

#include "camera/serve/farm.h"
#include "lenswire/protocol.h"
#include "program.h"

namespace lenswire::recorder {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Bytes = std::vector<uint8_t>;

class SettingsTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        camera::CameraConfig config;
        config.password = "Secret";
        camera_ = farm_.add(config, &error);
        ASSERT_NE(camera_, nullptr) << error;
        address_ = "admin:Secret@127.0.0.1:" + std::to_string(camera_->port());
        file_ = testing::TempDir() + "lenswire-settings-" +
                testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    void TearDown() override { std::filesystem::remove(file_); }

    // A record in which every byte can be told from its neighbours.
    Bytes put_record(uint16_t get_code, size_t size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), uint8_t{1});
        camera_->set_record(get_code, bytes);
        return bytes;
    }

    static Bytes file_bytes(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    camera::CameraFarm farm_;
    camera::Camera* camera_ = nullptr;
    std::string address_;
    std::string file_;
};

struct Row {
    const char* what;
    uint16_t get_code;
    size_t size;
    const char* assignment;  // none where it cannot be set
    size_t offset;
    Bytes changed;
};
const Row kRows[] = {
    {"image", LENSWIRE_CMD_IMAGE_GET, 36, "brightness=200", 2, {200}},
    {"network", LENSWIRE_CMD_NETWORK_GET, 118, nullptr, 0, {}},
    {"osd", LENSWIRE_CMD_OSD_GET, 228, "name-x=258", 4, {2, 1}},
    {"wifi", LENSWIRE_CMD_WIFI_GET, 626, nullptr, 0, {}},
    {"motion", LENSWIRE_CMD_MOTION_GET, 168, "sensitivity=77", 3, {77}},
    {"cover", LENSWIRE_CMD_COVER_GET, 204, "area2.left=513", 16, {1, 2}},
    {"fisheye", LENSWIRE_CMD_FISH_PROPERTY_GET, 64, nullptr, 0, {}},
    {"device", LENSWIRE_CMD_DEVICE_INFO, 464, nullptr, 0, {}},
    {"property", LENSWIRE_CMD_PROPERTY_BLOCK, 1024, nullptr, 0, {}},
};

TEST_F(SettingsTest, ComeFromTheCameraByteForByte) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.what);
        const Bytes record = put_record(row.get_code, row.size);
        const Outcome outcome = run_lenswire({"get", address_, row.what, "--raw", file_, "--json"});
        ASSERT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_THAT(outcome.err, IsEmpty());
        EXPECT_EQ(file_bytes(file_), record);
        EXPECT_EQ(json::parse(outcome.out)["what"], row.what);
    }
}

TEST_F(SettingsTest, ChangeInTheCameraAndLeaveEveryOtherByteAlone) {
    for (const Row& row : kRows) {
        if (row.assignment == nullptr) continue;
        SCOPED_TRACE(row.what);
        Bytes expected = put_record(row.get_code, row.size);
        std::ranges::copy(row.changed, expected.begin() + static_cast<long>(row.offset));
        const Outcome outcome = run_lenswire({"set", address_, row.what, row.assignment});
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_EQ(camera_->record(row.get_code), expected);
    }
}

TEST_F(SettingsTest, AreRestoredFromAFile) {
    const Bytes before = put_record(LENSWIRE_CMD_OSD_GET, 228);
    ASSERT_EQ(run_lenswire({"get", address_, "osd", "--raw", file_}).code, 0);
    ASSERT_EQ(run_lenswire({"set", address_, "osd", "name=changed"}).code, 0);
    ASSERT_NE(camera_->record(LENSWIRE_CMD_OSD_GET), before);
    ASSERT_EQ(run_lenswire({"set", address_, "osd", "--from", file_}).code, 0);
    EXPECT_EQ(camera_->record(LENSWIRE_CMD_OSD_GET), before);
    std::ofstream(file_, std::ios::app) << "x";
    const Outcome outcome = run_lenswire({"set", address_, "osd", "--from", file_});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.err, HasSubstr("must have 228 bytes"));
}

TEST_F(SettingsTest, SayWhenTheCameraDoesNotTakeAValue) {
    put_record(LENSWIRE_CMD_IMAGE_GET, 36);
    camera_->on_command(LENSWIRE_CMD_IMAGE_SET, [](const camera::Command&) { return std::nullopt; });
    const Outcome outcome = run_lenswire({"set", address_, "image", "hue=99"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("did not take hue, it has 6"));
}

TEST_F(SettingsTest, SayWhichWayTheCameraDidNotPlayAlong) {
    const auto failing = [this](camera::AnswerFault fault) {
        fault.code = LENSWIRE_CMD_IMAGE_GET;
        camera_->clear_faults();
        camera_->add_fault(fault);
        const Outcome outcome = run_lenswire({"get", address_, "image"});
        EXPECT_EQ(outcome.code, 1);
        EXPECT_THAT(outcome.out, IsEmpty());
        EXPECT_THAT(outcome.err, Not(HasSubstr("Secret")));
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
        return outcome.err;
    };
    camera::AnswerFault error;
    error.state = 1;
    EXPECT_THAT(failing(error), HasSubstr("answered the request for image settings with an error"));
    camera::AnswerFault close;
    close.state = 1;
    close.close_after = true;
    EXPECT_THAT(failing(close), HasSubstr("request for image settings"));
}

TEST_F(SettingsTest, RefuseBadInputBeforeTheCameraIsAsked) {
    const std::vector<std::vector<std::string>> cases = {
        {"get", address_, "nonsense"},
        {"get", address_, "smart-iframe"},  // can only be set
        {"set", address_, "network", "port=1"},
        {"set", address_, "image"},
        {"set", address_, "image", "brightness=300"},
        {"set", address_, "image", "bright=3"},
        {"set", address_, "osd", "--from", "/nonexistent"},
        {"ptz", address_, "sideways"},
        {"ptz", address_, "preset"},
        {"ptz", address_, "preset", "256"},
        {"ptz", address_, "left", "0"},
        {"cruise", address_, "start"},
        {"cruise", address_, "start", "4"},
        {"cruise", address_, "set", "1", "0:1"},
        {"cruise", address_, "dance"},
        {"time", address_, "--zone", "GMT+08:00"},
        {"firmware", "check", "/nonexistent", "--camera", address_},
        {"firmware", "make", "wooden"},
        {"upgrade", "/nonexistent", address_},
    };
    for (const auto& arguments : cases) {
        const Outcome outcome = run_lenswire(arguments);
        SCOPED_TRACE(arguments[0] + " " + arguments.back() + ": " + outcome.err);
        EXPECT_EQ(outcome.code, 2);
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1);
        EXPECT_THAT(outcome.err, Not(HasSubstr("Secret")));
        EXPECT_THAT(outcome.out, IsEmpty());
    }
    EXPECT_EQ(camera_->stats().connections, 0u);
}

TEST_F(SettingsTest, ShowNothingOfTheLibrarysLinesUnlessAskedTo) {
    put_record(LENSWIRE_CMD_IMAGE_GET, 36);
    EXPECT_THAT(run_lenswire({"get", address_, "image"}).err, IsEmpty());
    const Outcome verbose = run_lenswire({"get", address_, "image", "--verbose", "--json"});
    EXPECT_THAT(verbose.err, HasSubstr("connect success"));
    EXPECT_TRUE(json::accept(verbose.out)) << "and standard output stays the program's alone";
    ASSERT_EQ(run_lenswire({"get", address_, "image", "--log", file_}).code, 0);
    const Bytes log = file_bytes(file_);
    EXPECT_THAT(std::string(log.begin(), log.end()), HasSubstr("connect success"));
}

TEST_F(SettingsTest, OfEveryStreamChangeApart) {
    Bytes expected = camera_->record(LENSWIRE_CMD_ENCODING_GET);
    ASSERT_THAT(expected, SizeIs(96));
    expected[17] = 0x5A;  // a byte that has no name
    camera_->set_record(LENSWIRE_CMD_ENCODING_GET, expected);
    expected[8] = 0x39;
    expected[9] = 0x30;
    expected[32 + 12] = 7;
    const Outcome outcome = run_lenswire({"set", address_, "encoding", "main.kbit-rate=12345", "sub.gop=7"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(camera_->record(LENSWIRE_CMD_ENCODING_GET), expected);
}

TEST_F(SettingsTest, ThatCannotBeReadAreSentAsTyped) {
    ASSERT_EQ(run_lenswire({"set", address_, "smart-iframe", "enabled=1", "interval=250"}).code, 0);
    ASSERT_TRUE(camera_->wait_received(LENSWIRE_CMD_SMART_IFRAME_SET, 1));
    const Bytes sent = camera_->received(LENSWIRE_CMD_SMART_IFRAME_SET)[0].payload;
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 4), (Bytes{0, 1, 250, 0}));
    ASSERT_EQ(run_lenswire({"set", address_, "alarm", "channel=3"}).code, 0);
    ASSERT_TRUE(camera_->wait_received(LENSWIRE_CMD_ALARM_EX, 1));
    EXPECT_EQ(camera_->received(LENSWIRE_CMD_ALARM_EX)[0].payload[0], 3);
}

TEST_F(SettingsTest, OfPanAndTiltFollowTheOperations) {
    struct Case {
        std::vector<std::string> words;
        uint8_t code, argument;
    };
    const Case cases[] = {
        {{"left", "200"}, 0x02, 200}, {{"right"}, 0x03, 0},       {{"up"}, 0x04, 0},
        {{"down"}, 0x05, 0},          {{"zoom-in"}, 0x06, 0},     {{"zoom-out"}, 0x07, 0},
        {{"stop"}, 0x01, 0},          {{"preset", "5"}, 0x28, 4}, {{"set-preset", "255"}, 0x2C, 254},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words[0]);
        std::vector<std::string> arguments = {"ptz", address_, "--json"};
        arguments.insert(arguments.end(), c.words.begin(), c.words.end());
        const Outcome outcome = run_lenswire(arguments);
        ASSERT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_TRUE(json::parse(outcome.out)["fields"].contains("pan"));
        const Bytes sent = camera_->received(LENSWIRE_CMD_PTZ_OPTION).back().payload;
        EXPECT_EQ(sent[1], c.code);
        EXPECT_EQ(sent[4], c.argument);
    }
    const Outcome outcome = run_lenswire({"ptz", address_, "speed", "33", "--json"});
    EXPECT_EQ(json::parse(outcome.out)["fields"]["speed"], 33);
}

TEST_F(SettingsTest, OfCruiseLinesGoThroughDatabaseAndCamera) {
    const auto lines = [this](std::vector<std::string> words) {
        words.insert(words.begin() + 1, address_);
        words.insert(words.end(), {"--json", "--db", file_});
        const Outcome outcome = run_lenswire(words);
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        return json::parse(outcome.out)["lines"];
    };
    const json points = {{{"preset", 7}, {"time", 3}, {"speed", 9}},
                         {{"preset", 2}, {"time", 5}, {"speed", 5}}};
    EXPECT_EQ(lines({"cruise", "set", "2", "7:3:9", "2"})[0]["points"], points);
    EXPECT_EQ(lines({"cruise", "start", "2"})[0]["enabled"], true);
    EXPECT_EQ(camera_->received(LENSWIRE_CMD_PTZ_OPTION).back().payload[1], LENSWIRE_PTZ_START_CRUISE);
    camera_->set_record(LENSWIRE_CMD_CRUISE_GET, Bytes(3 * 980));
    EXPECT_EQ(lines({"cruise", "resend"})[1]["points"], points) << "the camera had forgotten it";
    const json stopped = lines({"cruise", "stop"});
    EXPECT_EQ(camera_->received(LENSWIRE_CMD_PTZ_OPTION).back().payload[1], LENSWIRE_PTZ_STOP_CRUISE);
    for (const json& line : stopped) EXPECT_EQ(line["enabled"], false);
}

// Without a database the recorder knows no line; what the camera has must not be lost over a start.
TEST_F(SettingsTest, OfACruiseLineThatOnlyTheCameraKnowsStay) {
    const Bytes before = camera_->record(LENSWIRE_CMD_CRUISE_GET);
    ASSERT_EQ(run_lenswire({"cruise", address_, "start", "1"}).code, 0);
    Bytes after = camera_->record(LENSWIRE_CMD_CRUISE_GET);
    EXPECT_EQ(after[2], 1) << "enabled now";
    after[2] = before[2];
    EXPECT_EQ(after, before);
}

TEST_F(SettingsTest, OfTheClockBecomeLocalTimeInEveryZone) {
    const char* zone_before = std::getenv("TZ");
    const std::pair<const char*, int> zones[] = {{"GMT+00:00", 0},   {"GMT+08:00", 480},  {"GMT+14:00", 840},
                                                 {"GMT+05:45", 345}, {"GMT-03:30", -210}, {"GMT-05:00", -300},
                                                 {"GMT-12:00", -720}};
    for (const auto& [zone, minutes] : zones) {
        SCOPED_TRACE(zone);
        const Outcome outcome = run_lenswire({"time", address_, "--set", "--zone", zone, "--json"});
        ASSERT_EQ(outcome.code, 0) << outcome.err;
        const std::string text = json::parse(outcome.out)["time"];
        tm fields{};
        ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &fields), nullptr) << text;
        EXPECT_NEAR(static_cast<double>(timegm(&fields)), static_cast<double>(time(nullptr) + minutes * 60),
                    30);
        EXPECT_EQ(json::parse(outcome.out)["zone"], 24 + minutes / 30);
    }
    EXPECT_EQ(run_lenswire({"time", address_, "--set", "--zone", "GMT+25:00"}).code, 2);
    zone_before != nullptr ? setenv("TZ", zone_before, 1) : unsetenv("TZ");
}

TEST_F(SettingsTest, AreShownTogetherAsInformation) {
    const Outcome outcome = run_lenswire({"info", address_, "--json"});
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    const json info = json::parse(outcome.out);
    EXPECT_EQ(info["platform_family"], "ordinary");
    EXPECT_EQ(info["fisheye_type"], 0);
    EXPECT_EQ(info["host_fisheye_type"], 1);
    EXPECT_THAT(info["scope"], SizeIs(6));
    EXPECT_THAT(info["scope"][1]["codecs"], testing::Contains("H265"));
    EXPECT_THAT(info["scope"][5]["sizes"], testing::ElementsAre("320x240"));
    EXPECT_THAT(run_lenswire({"info", address_}).out, HasSubstr("triple 3"));
}

}  // namespace
}  // namespace lenswire::recorder
