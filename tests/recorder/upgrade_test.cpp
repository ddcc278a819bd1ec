// Firmware files and upgrades, from the command line to simulated cameras.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "camera/serve/farm.h"
#include "program.h"
#include "recorder/host/store.h"

namespace lenswire::recorder {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class UpgradeTest : public testing::Test {
  protected:
    void SetUp() override {
        directory_ =
            fs::path(testing::TempDir()) /
            (std::string("lenswire-") + testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(directory_);
        fs::create_directories(directory_);
    }
    void TearDown() override { fs::remove_all(directory_); }

    camera::Camera& add_camera(camera::DeviceConfig device = {}) {
        camera::CameraConfig config;
        config.address = camera::address_above("127.0.0.1", static_cast<uint32_t>(farm_.size()));
        config.password = "Secret";
        config.device = std::move(device);
        config.reboot_ms = 1;
        std::string error;
        camera::Camera* camera = farm_.add(config, &error);
        EXPECT_NE(camera, nullptr) << error;
        addresses_.push_back("admin:Secret@" + config.address + ":" + std::to_string(camera->port()));
        return *camera;
    }

    // A file of a style that fits the first camera.
    std::string make(const std::string& style, const std::string& size = "70000") {
        const Outcome outcome = run_lenswire({"firmware", "make", style, "--camera", addresses_[0], "--out",
                                              directory_, "--size", size, "--json"});
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        return outcome.code == 0 ? json::parse(outcome.out)["path"].get<std::string>() : "";
    }

    Outcome upgrade(const std::string& file, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"upgrade", file};
        arguments.insert(arguments.end(), addresses_.begin(), addresses_.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run_lenswire(arguments);
    }

    fs::path directory_;
    camera::CameraFarm farm_;
    std::vector<std::string> addresses_;
};

struct Style {
    const char* name;
    camera::DeviceConfig device;
};

TEST_F(UpgradeTest, BringsAFileOfEachStyleToTheCameraThatItWasMadeFor) {
    const Style styles[] = {
        {"name", {.type = 20, .firmware_name = "LW_20_BTAMCP_1.0"}},
        {"tokens", {.type = 60, .firmware_name = "LW_55_W_1.0"}},
        {"header", {.type = 5, .firmware_name = "other", .platform = "HI3516A", .sensor = "IMX178"}},
        {"tag", {.type = 11, .firmware_name = "other"}},
    };
    for (const Style& style : styles) {
        SCOPED_TRACE(style.name);
        addresses_.clear();
        camera::Camera& camera = add_camera(style.device);
        const std::string file = make(style.name);
        EXPECT_EQ(run_lenswire({"firmware", "check", file, "--camera", addresses_[0]}).code, 0);
        const Outcome outcome = upgrade(file);
        EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr("100% done"));
        ASSERT_THAT(camera.uploads(), SizeIs(1));
        EXPECT_EQ(camera.uploads()[0].received, 70'000u);
        EXPECT_TRUE(camera.uploads()[0].complete);
    }
}

TEST_F(UpgradeTest, SaysWhetherAndWhyAFileFits) {
    add_camera({.type = 5, .firmware_name = "other", .platform = "HI3516A", .sensor = "IMX178"});
    const std::string file = make("header");
    const Outcome good = run_lenswire({"firmware", "check", file, "--camera", addresses_[0]});
    EXPECT_THAT(good.out, AllOf(HasSubstr("chip HI3516A, sensor IMX178"), HasSubstr("no feature letters"),
                                HasSubstr("by header  fits"), HasSubstr("result     fits")));
    fs::resize_file(file, 69'999);
    const Outcome bad = run_lenswire({"firmware", "check", file, "--camera", addresses_[0], "--json"});
    EXPECT_EQ(bad.code, 1);
    EXPECT_EQ(json::parse(bad.out)["fits"], false);
    EXPECT_EQ(json::parse(bad.out)["checks"]["by header"], "does not fit");
}

TEST_F(UpgradeTest, SaysWhichCameraFailedAndShowsItsAlarm) {
    camera::Camera& good = add_camera();
    camera::Camera& bad = add_camera();
    camera::UploadFault fault;
    fault.close_at = 10'000;
    bad.add_fault(fault);
    const Outcome outcome = upgrade(make("name", "3000000"), {"--json"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, IsEmpty());
    const json result = json::parse(outcome.out);
    EXPECT_EQ(result["cameras"][0]["state"], "done");
    EXPECT_EQ(result["cameras"][0]["percent"], 100);
    EXPECT_EQ(result["cameras"][1]["state"], "failed");
    EXPECT_THAT(result["alarms"], ElementsAre("alarm: firmware upgrade failed on channel 1"));
    EXPECT_EQ(good.uploads().at(0).received, 3'000'000u);
}

TEST_F(UpgradeTest, SendsNothingToAnyCameraWhenOneOfThemCannotTakeTheFile) {
    camera::Camera& good = add_camera();
    add_camera({.type = 20, .firmware_name = "LW_21_BTAMC_1.0"});
    const std::string file = make("name");
    camera::AnswerFault error;
    error.code = LENSWIRE_CMD_DEVICE_INFO;
    error.state = 1;
    add_camera().add_fault(error);
    const Outcome outcome = upgrade(file);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("does not fit it"), HasSubstr("does not tell what it is")));
    EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 2) << "a line for each, and none for the good one";
    EXPECT_THAT(good.uploads(), IsEmpty());
}

TEST_F(UpgradeTest, RefusesChannelsOfAnotherProtocol) {
    camera::Camera& camera = add_camera();
    const std::string database = directory_ / "recorder.db";
    {
        Store store(database);
        const int channel = store.bind_camera(camera_addresses({addresses_[0]}, "").front());
        HostChannelRecord record = store.channel_record(channel).value();
        record.ucProtocol = 2;
        store.set_channel_record(channel, record);
    }
    const Outcome outcome = upgrade(make("name"), {"--db", database});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("channel 0, which is of another protocol"));
    EXPECT_THAT(camera.uploads(), IsEmpty());
}

TEST_F(UpgradeTest, RefusesTwoCamerasOfOneAddressAndTooLongPaths) {
    add_camera();
    const std::string file = make("name");
    EXPECT_EQ(run_lenswire({"upgrade", file, "a:b@127.0.0.1:1", "a:b@127.0.0.1:2"}).code, 2);
    const fs::path deep = directory_ / std::string(100, 'd');
    fs::create_directories(deep);
    fs::copy(file, deep / "LW_20_trial.bin");
    const Outcome outcome = upgrade(deep / "LW_20_trial.bin");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.err, HasSubstr("127 characters"));
}

TEST_F(UpgradeTest, MakesNoFileForACameraThatTellsTooLittle) {
    add_camera({.type = 60, .firmware_name = "W_1"});
    for (const char* style : {"name", "tokens", "header"}) {
        const Outcome outcome =
            run_lenswire({"firmware", "make", style, "--camera", addresses_[0], "--out", directory_});
        EXPECT_EQ(outcome.code, 2) << style;
    }
    EXPECT_EQ(run_lenswire({"firmware", "make", "tag", "--size", "307", "--out", directory_}).code, 2);
    EXPECT_TRUE(fs::is_empty(directory_));
}

}  // namespace
}  // namespace lenswire::recorder
