// The commands for one camera, from the command line through the library to a simulated camera and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <numeric>
#include <sstream>

#include "lenswire/protocol.h"
#include "program.h"
#include "recorder/records/zone_name.h"
#include "recorder/session/control_session.h"
#include "support/capture.h"

namespace lenswire::recorder {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Bytes = std::vector<uint8_t>;

class SettingsTest : public ProgramTest {
  protected:
    // Runs a command that must succeed and say nothing but its result.
    json run(const std::string& line) {
        const Outcome outcome = lenswire(line + " --json --db DIR/recorder.db");
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_THAT(outcome.err, IsEmpty());
        return outcome.json();
    }
    // A record in which every byte can be told from its neighbours.
    Bytes put_record(uint16_t get_code, size_t size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), uint8_t{1});
        camera_->set_record(get_code, bytes);
        return bytes;
    }
    Bytes last_payload(uint16_t code) {
        EXPECT_TRUE(camera_->wait_received(code, 1));
        return camera_->received(code).back().payload;
    }

    camera::Camera* const camera_ = &add_camera();
};

struct Row {
    const char* what;
    uint16_t get_code;
    size_t size;
    const char* assignment = nullptr;  // none where it cannot be set
    size_t offset = 0;
    Bytes changed = {};
    bool own = false;  // the camera's own record, since the library looks into it
};
const Row kRows[] = {
    {"image", LENSWIRE_CMD_IMAGE_GET, 36, "brightness=200", 2, {200}},
    {"network", LENSWIRE_CMD_NETWORK_GET, 118},
    {"osd", LENSWIRE_CMD_OSD_GET, 228, "name-x=258", 4, {2, 1}},
    {"wifi", LENSWIRE_CMD_WIFI_GET, 626},
    {"motion", LENSWIRE_CMD_MOTION_GET, 168, "sensitivity=77", 3, {77}},
    {"cover", LENSWIRE_CMD_COVER_GET, 204, "area2.left=513", 16, {1, 2}},
    {"encoding", LENSWIRE_CMD_ENCODING_GET, 96, "sub.kbit-rate=12345", 32 + 8, {0x39, 0x30, 0, 0}, true},
    {"fish-encoding", LENSWIRE_CMD_FISH_ENCODING_GET, 768, "view1.width=513", 4, {1, 2}, true},
    {"fisheye", LENSWIRE_CMD_FISH_PROPERTY_GET, 64},
    {"device", LENSWIRE_CMD_DEVICE_INFO, 464},
    {"property", LENSWIRE_CMD_PROPERTY_BLOCK, 1024},
};

TEST_F(SettingsTest, ComeFromTheCameraByteForByteAndChangeInNothingButWhatIsNamed) {
    for (const Row& row : kRows) {
        const std::string what = row.what;
        SCOPED_TRACE(what);
        const Bytes before = row.own ? camera_->record(row.get_code) : put_record(row.get_code, row.size);
        Bytes expected = before;
        EXPECT_EQ(run("get CAM " + what + " --raw DIR/raw")["what"], row.what);
        EXPECT_EQ(folder_.read("raw"), expected);
        if (row.assignment == nullptr) continue;
        std::ranges::copy(row.changed, expected.begin() + static_cast<long>(row.offset));
        run("set CAM " + what + " " + row.assignment);
        EXPECT_EQ(camera_->record(row.get_code), expected);
        if (row.own) continue;
        camera_->set_record(row.get_code, before);
        run("set CAM " + what + " --from " + folder_.write("changed", expected));
        EXPECT_EQ(camera_->record(row.get_code), expected) << "from a file";
    }
}

TEST_F(SettingsTest, GoToAFileAndBack) {
    run("cruise CAM set 2 7:3:9 2");
    std::string file = lenswire("dump CAM").out;
    std::ofstream(folder_.path("same.toml")) << file;
    EXPECT_EQ(run("diff DIR/same.toml CAM")["differences"], json::array()) << file;
    for (const auto& [from, to] :
         {std::pair{"main.codec = \"h264\"", "main.codec = \"h265\""}, {"\"7:3:9\"", "\"8\""}}) {
        const size_t at = file.find(from);
        ASSERT_NE(at, std::string::npos) << from << " in " << file;
        file.replace(at, std::strlen(from), to);
    }
    std::ofstream(folder_.path("other.toml")) << file;
    const Bytes before = camera_->record(LENSWIRE_CMD_ENCODING_GET);
    const json wanted = run("apply DIR/other.toml CAM --dry-run")["differences"];
    EXPECT_THAT(wanted, SizeIs(2));
    EXPECT_EQ(wanted[0], (json{{"what", "encoding.main.codec"}, {"camera", "h264"}, {"file", "h265"}}));
    EXPECT_EQ(camera_->record(LENSWIRE_CMD_ENCODING_GET), before);
    EXPECT_EQ(run("apply DIR/other.toml CAM")["differences"], wanted);
    EXPECT_EQ(run("diff DIR/other.toml CAM")["differences"], json::array());
    EXPECT_EQ(run("get CAM encoding")["fields"]["main.codec"], "h265");
}

TEST_F(SettingsTest, ThatDoNotReadBackAreSentAsTyped) {
    run("set CAM smart-iframe enabled=1 interval=250");
    const Bytes sent = last_payload(LENSWIRE_CMD_SMART_IFRAME_SET);
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 4), (Bytes{0, 1, 250, 0}));
    run("set CAM alarm channel=3");
    EXPECT_EQ(last_payload(LENSWIRE_CMD_ALARM_EX)[0], 3);
    EXPECT_EQ(run("set CAM ptz speed=9 pan=77")["fields"]["speed"], 9) << "what moves is not read back";
    EXPECT_EQ(run("set CAM time year=2031 month=2 day=3")["fields"]["year"], 2031);
    EXPECT_EQ(lenswire("time CAM").out.substr(0, 11), "2031-02-03 ") << "and it runs";
}

struct Ending {
    const char* line;   // NOBODY is an address where nothing listens
    const char* fault;  // of the camera; none when empty
    int code;
    const char* words;  // on standard error; null where the result says it
};
const Ending kEndings[] = {
    {"get CAM image", "", 0, ""},
    {"get CAM nonsense", "", 2, "cannot be read"},
    {"time CAM --set --zone GMT+25:00", "", 2, "GMT+25:00"},
    {"get NOBODY image", "", 3, "cannot be reached: connection refused"},
    {"get CAM image", "close-answer", 3, "closed the connection during the login"},
    {"get CAM image --timeout 0.3", "silent", 4, "did not answer the login"},
    {"get CAM image --timeout 0.5", "silent:0x1004", 4, "did not answer"},
    {"get CAM image", "refuse-login", 5, "refused the login"},
    {"get CAM image", "answer-state=1:0x1004", 6, "answered the request for image settings with an error"},
    {"get CAM device", "answer-flag=1:0x2003", 6,
     "answered the request for device information with an error"},
    {"set CAM image brightness=3 hue=99", "DEAF", 6, "did not take hue, it has 6"},
    {"firmware check DIR/unfit.bin --camera CAM", "", 7, nullptr},
    {"probe CAM NOBODY", "", 8, nullptr},
    {"probe NOBODY", "", 3, nullptr},
    {"diff DIR/settings.toml CAM", "", 8, nullptr},
};

TEST_F(SettingsTest, SayWhichWayTheCameraDidNotPlayAlong) {
    put_record(LENSWIRE_CMD_IMAGE_GET, 36);
    folder_.write("unfit.bin", Bytes(1000));
    std::ofstream(folder_.path("settings.toml")) << "[image]\nhue = 99\n";
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(std::string(ending.line) + ", " + ending.fault);
        camera_->clear_faults();
        std::string error, line = ending.line;
        if (const auto fault = camera::parse_fault(ending.fault, &error)) {
            std::visit([&](const auto& each) { camera_->add_fault(each); }, *fault);
        } else if (error.starts_with("DEAF")) {
            camera_->on_command(LENSWIRE_CMD_IMAGE_SET, [](const camera::Command&) { return std::nullopt; });
        }
        if (const size_t at = line.find("NOBODY"); at != line.npos)
            line.replace(at, 6, "a:Secret@127.0.0.1:1");
        for (const std::string form : {"", " --json"}) {
            const Outcome outcome = lenswire(line + form);
            EXPECT_EQ(outcome.code, ending.code) << outcome.err;
            if (ending.words == nullptr) continue;
            EXPECT_THAT(outcome.err, AllOf(HasSubstr(ending.words), Not(HasSubstr("ecret"))));
            if (ending.code == 0) continue;
            EXPECT_THAT(outcome.out, IsEmpty());
            EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
            const json error = json::parse(outcome.err, nullptr, false);
            EXPECT_EQ(error.is_discarded() ? json() : error["error"]["code"],
                      form.empty() ? json() : json(ending.code));
        }
    }
    EXPECT_EQ(lenswire("get CAM image", "/nonexistent").code, 1);
}

TEST_F(ProgramTest, ListsTheServicesThatAProgramLacks) {
    const Outcome whole = lenswire("hostcheck /proc/self/exe --json");
    EXPECT_EQ(whole.code, 0) << whole.out;
    EXPECT_THAT(whole.json()["missing"], IsEmpty());
    const Outcome none = lenswire("hostcheck " LENSWIRE_LIBRARY);
    EXPECT_EQ(none.code, 1);
    EXPECT_THAT(none.out,
                AllOf(testing::StartsWith("DbMain"), HasSubstr("\nuptime\nuc"), HasSubstr("Type\n")));
    EXPECT_EQ(lenswire("hostcheck " LENSWIRE_LIBRARY " /proc/self/exe").code, 0);
    const std::string library = folder_.path("copy");
    std::filesystem::copy_file(LENSWIRE_LIBRARY, library);
    for (const uintmax_t size : {4000, 100, 3}) {  // a file whose end is missing
        std::filesystem::resize_file(library, size);
        EXPECT_EQ(lenswire("hostcheck " + library).code, size > 3 ? 1 : 2);
    }
}

TEST_F(SettingsTest, SayThatTheCameraClosedTheConnection) {
    const test::Capture capture;
    ControlSession session(camera_addresses(addresses_, "").front(), {LENSWIRE_LIBRARY, ""});
    const auto failure = [&session](bool ask, bool succeeds) -> std::string {
        const auto operation = [succeeds] { return succeeds; };
        try {
            ask ? session.ask("it", operation) : session.tell("it", operation);
        } catch (const Failure& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_THAT(failure(true, false), testing::EndsWith(" answered the request for it with an error"));
    EXPECT_EQ(failure(false, true), "");
    camera_->drop_control_connections();
    EXPECT_TRUE(test::wait_until([&] { return failure(false, true) != ""; }));
    EXPECT_THAT(failure(false, true), testing::EndsWith(" closed the connection before it was sent"));
    EXPECT_THAT(failure(true, false), testing::EndsWith(" closed the connection over the request for it"));
}

TEST_F(SettingsTest, RefuseBadInputBeforeTheCameraIsAsked) {
    folder_.write("short", Bytes(227));
    folder_.write("long", Bytes(229));
    std::istringstream lines(
        "get CAM nonsense|get CAM smart-iframe|get CAM image --log /nonexistent/log|get CAM image --db DIR/|"
        "get CAM image --password-file /nonexistent|get CAM image CAM|set CAM network port=1|set CAM image|"
        "set CAM image brightness=300|set CAM image bright=3|set CAM osd --from DIR/missing|"
        "set CAM osd --from DIR/short|set CAM osd --from DIR/long|ptz CAM sideways|ptz CAM preset|"
        "ptz CAM preset 256|ptz CAM left 0|ptz CAM left 256|cruise CAM start|cruise CAM start 4|"
        "cruise CAM show -1|cruise CAM start 1 2|cruise CAM set 1 0:1|cruise CAM dance|"
        "time CAM --zone GMT+08:00|time CAM --set --zone|firmware check "
        "/nonexistent --camera CAM|"
        "firmware make wooden|upgrade /nonexistent CAM|dance CAM|set CAM encoding main.codec=mpeg2|"
        "set CAM time month=13|set CAM time zone=Mars|stream CAM -o DIR/s --format avi|apply DIR/missing CAM|"
        "apply DIR/bad.toml CAM| ");
    std::ofstream(folder_.path("bad.toml")) << "[image]\nhue = 256\n";
    for (std::string line; std::getline(lines, line, '|');) {
        const Outcome outcome = lenswire(line);
        SCOPED_TRACE(line + ": " + outcome.err);
        EXPECT_EQ(outcome.code, 2);
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1);
        EXPECT_THAT(outcome.err, Not(HasSubstr("Secret")));
        EXPECT_THAT(outcome.out, IsEmpty());
    }
    EXPECT_EQ(camera_->stats().connections, 0u);
}

TEST_F(SettingsTest, ShowNothingOfTheLibrarysLinesUnlessAskedTo) {
    std::ofstream(folder_.path("password")) << "Secret\n";
    std::ofstream(folder_.path("log")) << "before\n";
    const std::string bare = "admin" + addresses_[0].substr(addresses_[0].find('@'));
    const Outcome quiet = lenswire("get " + bare + " image --password-file DIR/password --log DIR/log");
    EXPECT_EQ(quiet.code, 0);
    EXPECT_THAT(quiet.err, IsEmpty());
    const Bytes lines = folder_.read("log");
    EXPECT_THAT(std::string(lines.begin(), lines.end()),
                AllOf(HasSubstr("before\n"), HasSubstr("connect success")));
    const Outcome verbose = lenswire("get CAM image --verbose --json");
    EXPECT_THAT(verbose.err, HasSubstr("connect success"));
    EXPECT_TRUE(verbose.json().is_object()) << "and standard output stays the program's alone";
    EXPECT_THAT(verbose.arguments, Each(Not(HasSubstr("Secret")))) << "as a process list shows them";
    EXPECT_THAT(lenswire("get --help").out, HasSubstr("CAMERA"));
}

TEST_F(SettingsTest, OfPanAndTiltFollowTheOperations) {
    const std::tuple<const char*, uint8_t, uint8_t> cases[] = {
        {"left 200", 2, 200}, {"right", 3, 0},       {"up", 4, 0},
        {"down", 5, 0},       {"zoom-in", 6, 0},     {"zoom-out", 7, 0},
        {"stop", 1, 0},       {"preset 5", 0x28, 4}, {"set-preset 255", 0x2C, 254}};
    for (const auto& [words, code, argument] : cases) {
        EXPECT_TRUE(run(std::string("ptz CAM ") + words)["fields"].contains("pan"));
        const Bytes sent = last_payload(LENSWIRE_CMD_PTZ_OPTION);
        EXPECT_EQ(std::pair(sent[1], sent[4]), std::pair(code, argument)) << words;
    }
    EXPECT_EQ(run("ptz CAM speed 255")["fields"]["speed"], 255);
}

TEST_F(SettingsTest, OfCruiseLinesGoThroughDatabaseAndCamera) {
    const json points = {{{"preset", 7}, {"time", 3}, {"speed", 9}},
                         {{"preset", 2}, {"time", 5}, {"speed", 5}}};
    const Bytes before = camera_->record(LENSWIRE_CMD_CRUISE_GET);
    run("cruise CAM start 1");
    Bytes after = camera_->record(LENSWIRE_CMD_CRUISE_GET);
    EXPECT_EQ(std::exchange(after[2], before[2]), 1) << "enabled now";
    EXPECT_EQ(after, before) << "a line that only the camera knows stays";
    EXPECT_EQ(run("cruise CAM set 2 7:3:9 2")["lines"][0]["points"], points);
    const json started = run("cruise CAM start 2")["lines"];
    ASSERT_THAT(started, SizeIs(1));
    EXPECT_EQ(started[0]["enabled"], true);
    EXPECT_EQ(last_payload(LENSWIRE_CMD_PTZ_OPTION)[1], LENSWIRE_PTZ_START_CRUISE);
    camera_->set_record(LENSWIRE_CMD_CRUISE_GET, Bytes(3 * 980));
    EXPECT_EQ(run("cruise CAM resend")["lines"][1]["points"], points) << "the camera had forgotten it";
    EXPECT_EQ(run("cruise CAM show")["lines"][1]["enabled"], true);
    const json stopped = run("cruise CAM stop")["lines"];
    EXPECT_EQ(last_payload(LENSWIRE_CMD_PTZ_OPTION)[1], LENSWIRE_PTZ_STOP_CRUISE);
    for (const json& line : stopped) EXPECT_EQ(line["enabled"], false);
    EXPECT_EQ(run("cruise CAM set 3 4 --enable")["lines"][0]["enabled"], true);
}

TEST_F(SettingsTest, OfTheClockBecomeLocalTimeInEveryZone) {
    // In minutes. The last is the machine's, of a camera that loses the first request.
    const std::pair<const char*, int> zones[] = {{" --zone GMT+00:00", 0},    {" --zone GMT+14:00", 840},
                                                 {" --zone GMT+05:45", 345},  {" --zone GMT-03:30", -210},
                                                 {" --zone GMT-12:00", -720}, {"", 480}};
    for (const auto& [zone, minutes] : zones) {
        SCOPED_TRACE(zone);
        run("set CAM time year=2001");
        const bool loses = std::string(zone).empty();
        if (loses) {
            setenv("TZ", "LOC-08:00", 1);
            tzset();
            camera_->on_command(LENSWIRE_CMD_TIME_SET, [this](const camera::Command&) {
                camera_->on_command(LENSWIRE_CMD_TIME_SET, {});
                return std::nullopt;
            });
        }
        const json clock = run(std::string("time CAM --set") + zone);
        const std::string text = clock["time"];
        tm fields{};
        ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &fields), nullptr) << text;
        EXPECT_LE(std::abs(timegm(&fields) - time(nullptr) - minutes * 60), 30);
        EXPECT_EQ(clock["zone"], zone_text(loses ? -720 : minutes / 30 * 30).view())
            << "the first request brings it";
    }
}

TEST_F(SettingsTest, AreShownTogetherAsInformation) {
    add_camera({.type = 33, .special_family = true, .fisheye_type = 2});
    const json info = run("info CAM");
    EXPECT_EQ(info["platform_family"], "ordinary");
    EXPECT_EQ(info["fisheye_type"], 0);
    EXPECT_EQ(info["host_fisheye_type"], 1);
    EXPECT_EQ(info["device"]["type"], 20);
    ASSERT_THAT(info["scope"], SizeIs(6));
    EXPECT_THAT(info["scope"][1]["codecs"], testing::Contains("H265"));
    EXPECT_THAT(info["scope"][5]["sizes"], ElementsAre("320x240"));
    const std::string text = lenswire("info " + addresses_[1]).out;
    for (const char* line : {"type                33\n", "platform family     special\n",
                             "fisheye type        2 (", "triple 3   H264         320x240\n"})
        EXPECT_THAT(text, HasSubstr(line));
}

}  // namespace
}  // namespace lenswire::recorder
