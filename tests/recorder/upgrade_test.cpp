// Firmware files and upgrades, from the command line to simulated cameras.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>

#include <filesystem>
#include <thread>

#include "program.h"
#include "recorder/archive/ledger.h"
#include "recorder/session/recording_session.h"
#include "recorder/session/upgrade_session.h"
#include "support/capture.h"

namespace lenswire::recorder {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

class UpgradeTest : public ProgramTest {
  protected:
    // A file of a style that fits the first camera.
    std::string make(const std::string& style, const std::string& size = "70000") {
        const Outcome outcome =
            lenswire("firmware make " + style + " --camera CAM --json --out DIR/ --size " + size);
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        return outcome.json().value("path", "");
    }
    Outcome upgrade(const std::string& file, std::string more = "") {
        for (const std::string& address : addresses_) more += " " + address;
        return lenswire("upgrade --yes " + file + " " + more);
    }
    // The same without --yes, at a terminal where somebody types that.
    Outcome ask(const std::string& file, const std::string& answer) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(write(ends[0], answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
        const int own = dup(STDIN_FILENO);
        dup2(ends[1], STDIN_FILENO);
        Outcome outcome = lenswire("upgrade " + file + " " + addresses_[0] + " " + addresses_[1]);
        dup2(own, STDIN_FILENO);
        for (const int descriptor : {own, ends[0], ends[1]}) close(descriptor);
        return outcome;
    }
    Outcome check(const std::string& file) { return lenswire("firmware check --camera CAM " + file); }
};

TEST_F(UpgradeTest, BringsAFileOfEachStyleToTheCameraThatItWasMadeFor) {
    const std::pair<const char*, camera::DeviceConfig> styles[] = {
        {"name", {.type = 20, .firmware_name = "LW_20_BTAMCP_1.0"}},
        {"tokens", {.type = 60, .firmware_name = "LW_55_W_1.0"}},
        {"header", {.type = 5, .firmware_name = "other", .platform = "HI3516A", .sensor = "IMX178"}},
        {"tag", {.type = 11, .firmware_name = "other"}},
    };
    for (const auto& [style, device] : styles) {
        SCOPED_TRACE(style);
        addresses_.clear();
        camera::Camera& camera = add_camera(device);
        const std::string file = make(style), name = camera.address() + ":" + std::to_string(camera.port());
        const Outcome fit = check(file + " --json");
        EXPECT_EQ(fit.code, 0);
        EXPECT_EQ(fit.json()["checks"][std::string("by ") + style], "fits");
        const Outcome outcome = upgrade(file);
        EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
        EXPECT_THAT(outcome.out, AllOf(HasSubstr(name + " 100% done\n"), HasSubstr(name + " has firmware ")));
        ASSERT_THAT(camera.uploads(), SizeIs(1));
        EXPECT_EQ(camera.uploads()[0].received, 70'000u);
        EXPECT_TRUE(camera.uploads()[0].complete);
    }
}

TEST_F(UpgradeTest, SaysWhetherAndWhyAFileFits) {
    add_camera({.type = 5, .firmware_name = "other", .platform = "HI3516A", .sensor = "IMX178"});
    const std::string file = make("header");
    const Outcome good = check(file);
    EXPECT_EQ(good.out,
              "file       header-trial.bin, 70000 bytes\n"
              "header     platform HI3516A, sensor IMX178\n"
              "camera     type 5, firmware other, platform HI3516A, sensor IMX178\n"
              "by name    does not apply, the camera's name has no feature letters\n"
              "by tokens  does not fit\n"
              "by header  fits\n"
              "by tag     does not fit\n"
              "result     fits\n");
    std::filesystem::resize_file(file, 69'999);
    const Outcome bad = check(file + " --json");
    EXPECT_EQ(bad.code, 7);
    EXPECT_EQ(bad.json()["fits"], false);
    EXPECT_EQ(bad.json()["checks"]["by header"], "does not fit");
    EXPECT_EQ(bad.json()["file"]["header"]["length"], 70'000);
}

// The last line of several objects.
json last_object(const Outcome& outcome) {
    const std::string lines = outcome.out.substr(0, outcome.out.size() - 1);
    return json::parse(lines.substr(lines.rfind('\n') + 1), nullptr, false);
}

TEST_F(UpgradeTest, SaysWhichCameraFailedAndShowsItsAlarm) {
    Ledger recorder(folder_.path("lenswire.db"));  // one at work has it open
    recorder.account("first", {AccountEntry::Kind::kWatchBegins, 1});
    recorder.write();
    for (const bool as_json : {true, false}) {
        addresses_.clear();
        const camera::Camera& good = add_camera();
        camera::UploadFault fault;
        fault.close_at = 10'000;
        add_camera().add_fault(fault);
        addresses_.push_back("admin:Secret@127.0.0.250:1");
        const std::string file = make("name", "3000000");
        addresses_[0].insert(0, "first=");
        const Outcome outcome = upgrade(file, as_json ? "--out DIR/ --json" : "--out DIR/");
        EXPECT_EQ(outcome.code, 8);
        EXPECT_THAT(outcome.err,
                    AllOf(HasSubstr("127.0.0.250:1 cannot be reached"), HasSubstr("upgrade failed")));
        EXPECT_EQ(good.uploads().at(0).received, 3'000'000u);
        const std::string alarm = "alarm: firmware upgrade failed on channel 1";
        if (!as_json) {
            EXPECT_THAT(outcome.out,
                        AllOf(HasSubstr(alarm + "\n"), HasSubstr("% failed\n"), HasSubstr(" 100% done\n")));
            EXPECT_THAT(outcome.err, HasSubstr("the ledger does not have all of this"));
            continue;
        }
        std::vector<std::string> noted;
        for (const EventRow& row : recorder.events()) noted.push_back(row.stream + "|" + row.text);
        const std::string old = "LW_20_BTAMC_1.0.0", with = " with LW_20_trial.bin, firmware ";
        EXPECT_THAT(noted, ElementsAre("first|begun" + with + "is " + old,
                                       "first|done" + with + "is LW_20_BTAMC_1.0.1, was " + old,
                                       HasSubstr("|127.0.0.2-"), HasSubstr("the upgrade failed")));
        Database(folder_.path("lenswire.db")).execute("PRAGMA user_version = 99");  // now of a later one
        const json result = last_object(outcome);
        EXPECT_EQ(result["cameras"][0]["state"], "done");
        EXPECT_NE(result["cameras"][0]["firmware_after"], result["cameras"][0]["firmware"]);
        EXPECT_EQ(result["cameras"][1]["state"], "failed");
        EXPECT_EQ(result["cameras"][2]["code"], 3);
        EXPECT_THAT(result["alarms"], ElementsAre(alarm));
    }
}

TEST_F(UpgradeTest, TriesOneCameraFirstAndAsksWhenOnlyTheNameFits) {
    camera::UploadFault fault;
    fault.state = 1;
    add_camera().add_fault(fault);
    const camera::Camera& second = add_camera();
    const std::string file = make("name");
    EXPECT_THAT(lenswire("upgrade " + file + " CAM").err, HasSubstr("--yes"));
    const Outcome refused = ask(file, "n\n");
    EXPECT_THAT(refused.out, HasSubstr("nothing but its name says that " + file));
    EXPECT_THAT(refused.err, HasSubstr("nothing was sent"));
    EXPECT_THAT(farm_[0].uploads(), IsEmpty());
    const Outcome outcome = ask(file, "y\n");
    EXPECT_EQ(outcome.code, 8);
    EXPECT_THAT(outcome.err, HasSubstr("was left out"));
    EXPECT_THAT(second.uploads(), IsEmpty());
}

TEST_F(UpgradeTest, SendsNothingToAnyCameraWhenOneOfThemCannotTakeTheFile) {
    const camera::Camera& good = add_camera();
    const std::string file = make("name"), database = folder_.path("recorder.db");
    add_camera({.type = 20, .firmware_name = "LW_21_BTAMC_1.0"});
    camera::AnswerFault error;
    error.code = LENSWIRE_CMD_DEVICE_INFO;
    error.state = 1;
    add_camera().add_fault(error);
    add_camera();
    {
        Store store(database);
        for (const CameraAddress& address : camera_addresses(addresses_, "")) store.bind_camera(address);
        auto record = store.channel_record(3).value();
        record.ucProtocol = 2;
        store.set_channel_record(3, record);
    }
    const Outcome outcome = upgrade(file, "--db " + database);
    EXPECT_EQ(outcome.code, 7);
    for (const char* objection :
         {"does not fit it", "does not tell what it is", "is on channel 3, which is of another protocol"})
        EXPECT_THAT(outcome.err, HasSubstr(objection));
    EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 3) << "a line for each, and none for the good one";
    EXPECT_THAT(good.uploads(), IsEmpty());

    addresses_ = {addresses_[0].insert(6, "no-")};  // another password
    EXPECT_THAT(upgrade(file).err, HasSubstr("refused the login"));
}

TEST_F(UpgradeTest, RefusesWhatItCannotDo) {
    addresses_ = {"a:b@127.0.0.1:1", "a:b@127.0.0.1:2"};
    const std::string file = folder_.write("LW_20_trial.bin", std::vector<uint8_t>(1000));
    EXPECT_THAT(upgrade(file).err, HasSubstr("cameras 127.0.0.1:1 and 127.0.0.1:2 have one address"));
    for (int i = 2; i <= 66; ++i) addresses_.push_back("a:b@127.0.1." + std::to_string(i) + ":1");
    EXPECT_THAT(upgrade(file).err, HasSubstr("more than 64 cameras"));
    const RecordingSession::Options all{.cameras = camera_addresses(addresses_, ""),
                                        .names = {},
                                        .directory = folder_.path(),
                                        .library = LENSWIRE_LIBRARY,
                                        .database = ""};
    EXPECT_THAT([&] { RecordingSession session(all); },
                ThrowsMessage<Failure>(HasSubstr("motion is counted on channels 0 to 63 only")));
    addresses_ = {"a:b@127.0.2.1:1"};
    EXPECT_THAT(upgrade(file, "--db DIR/lenswire.db").err, HasSubstr("no channel below 64 left"));
    addresses_.clear();
    add_camera({.type = 60, .firmware_name = "W_1"});
    const std::string fitting = folder_.path(std::string(127 - folder_.path("").size(), 'x'));
    std::filesystem::copy(file, fitting);
    std::filesystem::copy(file, fitting + "x");
    EXPECT_EQ(upgrade(fitting).code, 7) << "the longest path";
    const Outcome too_long = upgrade(fitting + "x");
    EXPECT_EQ(too_long.code, 2);
    EXPECT_THAT(too_long.err, HasSubstr("127 characters"));
}

bool library_is_loaded() {
    void* library = dlopen(LENSWIRE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
}

// A job that nobody watches is waited for, and so is every thread that came with it: the library is not
// unloaded beneath them.
TEST_F(UpgradeTest, EndsAfterTheJobAndItsThreads) {
    const camera::Camera& camera = add_camera();
    const std::string file = make("name", "3000000");
    const test::Capture capture;
    std::thread straggler;
    bool seen_loaded = true;
    {
        UpgradeSession session(camera_addresses(addresses_, ""),
                               {.library = LENSWIRE_LIBRARY, .database = ""});
        ASSERT_THAT(session.objections(file), IsEmpty());
        session.start(file);
        straggler = std::thread([&] {
            test::wait_until([&] { return camera.stats().uploads == 1; });
            for (int i = 0; i < 300 && seen_loaded; ++i) {
                seen_loaded = library_is_loaded();
                usleep(1000);
            }
        });
    }
    EXPECT_FALSE(library_is_loaded());
    straggler.join();
    EXPECT_TRUE(seen_loaded) << "while the thread was there";
    EXPECT_TRUE(camera.uploads().at(0).complete);
}

}  // namespace
}  // namespace lenswire::recorder
