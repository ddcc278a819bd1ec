// Firmware uploads: whole ones, broken ones, and what the camera makes of them.
#include "camera/serve/upload.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::CameraStats;
using camera::UploadFault;

TEST(Checksum, DependsOnTheBytesAlone) {
    const Bytes bytes = pattern(1000);
    for (const size_t piece : {1U, 3U, 8U, 13U, 999U}) {
        camera::Checksum checksum;
        for (size_t at = 0; at < bytes.size(); at += piece) {
            checksum.add(slice(bytes, at, std::min(piece, bytes.size() - at)));
        }
        EXPECT_EQ(checksum.value(), camera::checksum_of(bytes)) << piece;
    }
    Bytes other = bytes;
    other[500] ^= 0x10;
    EXPECT_NE(camera::checksum_of(other), camera::checksum_of(bytes));
    EXPECT_NE(camera::checksum_of(bytes + Bytes(1)), camera::checksum_of(bytes));
    EXPECT_NE(camera::checksum_of(Bytes(7)), camera::checksum_of(Bytes(8)));
}

Bytes header_for(size_t length) {
    Message header = command(0x2002);
    header.buffer_size = static_cast<uint32_t>(length);
    header.buffer_num = 1;
    return header.bytes();
}

// A camera that is away for ever after an upload, so that a test sees what it leaves behind.
camera::CameraConfig uploadable() {
    camera::CameraConfig config;
    config.reboot_ms = 3'600'000;
    return config;
}

// The state that the camera answers to a file sent in one go.
uint16_t upload(camera::Camera& camera, const Bytes& file) {
    Wire wire = connect_to(camera);
    wire.sends(header_for(file.size()) + file);
    const Bytes first = wire.reads(32);
    const Message answer = header_of(first);
    EXPECT_EQ(answer.command, 0x2002);
    return answer.state;
}

TEST(Upload, BringsTheCameraBackWithNewFirmware) {
    const auto folder = std::filesystem::temp_directory_path() / ("upload_test." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    auto config = uploadable();
    config.reboot_ms = 1;
    config.keep_firmware_dir = folder.string();
    OneCamera one(config);
    Session session = log_in(*one);
    const Bytes file = pattern(200'001);
    const Bytes sent = header_for(file.size()) + file;
    Wire wire = connect_to(*one);
    for (size_t at = 0; at < sent.size(); at += 9'999) {
        wire.sends(slice(sent, at, std::min<size_t>(9'999, sent.size() - at)));
    }
    EXPECT_EQ(wire.reads_command().state, 0);
    EXPECT_TRUE(session.wire.sees_close());
    ASSERT_TRUE(one->wait([&](const CameraStats& stats) { return stats.reboots == 1 && one->running(); }));
    Session again = log_in(*one);
    EXPECT_EQ(slice(again.asks(0x2003, Bytes(464)).payload, 368, 18),
              bytes_of("LW_20_BTAMC_1.0.1") + Bytes(1));
    EXPECT_EQ(one->uploads()[0].checksum, camera::checksum_of(file));
    std::ifstream kept(folder / "127.0.0.1-1.bin", std::ios::binary);
    EXPECT_TRUE(Bytes(std::istreambuf_iterator<char>(kept), {}) == file);
    std::filesystem::remove_all(folder);
}

TEST(Upload, ThatBreaksOffLeavesNothingBehind) {
    const auto folder = std::filesystem::temp_directory_path() / ("broken_test." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    auto config = uploadable();
    config.keep_firmware_dir = folder.string();
    OneCamera one(config);
    {
        Wire wire = connect_to(*one);
        wire.sends(header_for(1000) + Bytes(999));
        ASSERT_TRUE(one->wait([&](const CameraStats&) {
            return !one->uploads().empty() && one->uploads()[0].received == 999;
        }));
        EXPECT_FALSE(wire.has_bytes()) << "the last byte is missing";
    }
    ASSERT_TRUE(one->wait([&](const CameraStats&) { return !one->uploads()[0].open; }));
    EXPECT_FALSE(one->uploads()[0].complete);
    log_in(*one);  // a round of the loop later
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_EQ(one->stats().reboots, 0U);
    std::filesystem::remove_all(folder);
}

TEST(Upload, OfTheWrongLengthIsAFailure) {
    OneCamera one(uploadable());
    EXPECT_NE(upload(*one, {}), 0);
    Wire wire = connect_to(*one);
    wire.sends(header_for(10) + Bytes(11));
    EXPECT_NE(wire.reads_command().state, 0);
    EXPECT_EQ(one->stats().failed_uploads, 2U);
    EXPECT_EQ(one->stats().reboots, 0U);
}

TEST(Upload, FailsAsItIsTold) {
    const Bytes file = pattern(100'000);
    const struct {
        UploadFault fault;
        uint16_t state;
        bool complete;
    } cases[] = {
        {{}, 0, true},
        {{.state = 9}, 9, true},
        {{.full_at = 50'000}, 5, false},
        {{.late_ms = 5}, 0, true},
        {{.bytes_per_second = 5'000'000}, 0, true},
    };
    for (const auto& each : cases) {
        OneCamera one(uploadable());
        one->add_fault(each.fault);
        EXPECT_EQ(upload(*one, file), each.state);
        EXPECT_EQ(one->uploads()[0].complete, each.complete);
        EXPECT_EQ(one->uploads()[0].state, each.state);
    }
    auto config = uploadable();
    config.keep_firmware_dir = "/dev/null";
    OneCamera full(config);
    EXPECT_EQ(upload(*full, file), 5) << "the disk is really full";
}

TEST(Upload, CanCloseMidwayOrNeverAnswer) {
    OneCamera one(uploadable());
    one->add_fault(UploadFault{.times = 1, .close_at = 500});
    one->add_fault(UploadFault{.silent = true});
    Wire closed = connect_to(*one);
    closed.sends(header_for(1000) + Bytes(600));
    EXPECT_TRUE(closed.sees_close());
    Wire silent = connect_to(*one);
    silent.sends(header_for(1000) + Bytes(1000));
    ASSERT_TRUE(one->wait(
        [&](const CameraStats&) { return one->uploads().size() == 2 && one->uploads()[1].complete; }));
    log_in(*one);
    EXPECT_FALSE(silent.has_bytes());
    EXPECT_FALSE(one->uploads()[1].answered);
    EXPECT_EQ(one->stats().reboots, 0U);
}

TEST(Upload, TalksNonsenseBeforeItAnswers) {
    OneCamera one(uploadable());
    one->add_fault(UploadFault{.babble = 3});
    Wire wire = connect_to(*one);
    wire.sends(header_for(1000) + Bytes(999));
    for (int i = 0; i < 3; ++i) EXPECT_NE(wire.reads_command().command, 0x2002);
    wire.sends(Bytes(1));
    EXPECT_EQ(wire.reads_command().command, 0x2002);
}

}  // namespace
}  // namespace lenswire::test
