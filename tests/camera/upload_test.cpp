// Firmware uploads: whole ones, broken ones, and what the camera makes of them.
#include "camera/serve/upload.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "recorder_side.h"

namespace lenswire::test {
namespace {

// A camera that keeps its firmware in a folder of the test's own.
struct Uploads {
    explicit Uploads(const std::string& next_name = "")
        : one({.keep_firmware_dir = folder.path(), .next_firmware_name = next_name, .reboot_ms = 500}) {}
    // Sends what a header announces, and perhaps more or less, in pieces.
    Wire upload(size_t announced, const Bytes& file) {
        const Bytes sent = upload_header(announced).bytes() + file;
        Wire wire = connect_to(*one);
        for (size_t at = 0; at < sent.size(); at += 9'999) wire.sends(slice(sent, at, 9'999));
        return wire;
    }
    std::string firmware_name() {
        Session session = log_in(*one);
        return reinterpret_cast<const char*>(session.ask(0x2003, Bytes(464)).payload.data()) + 368;
    }
    camera::UploadStats stats() { return one->uploads().at(0); }
    bool kept_nothing() { return std::filesystem::is_empty(folder.path()); }

    Folder folder;
    OneCamera one;
};

TEST(Upload, BringsTheCameraBackWithNewFirmware) {
    for (const std::string next : {"", "NEXT_1"}) {
        Uploads test(next);
        Session session = log_in(*test.one);
        const Bytes file = pattern(200'001);
        Wire wire = test.upload(file.size(), file);
        EXPECT_EQ(wire.reads_command().state, 0);
        EXPECT_EQ(test.stats().checksum, camera::checksum_of(file)) << "of whatever pieces";
        EXPECT_NE(test.stats().checksum, camera::checksum_of(slice(file, 0, 200'000)));
        EXPECT_TRUE(test.stats().complete && test.stats().answered);
        EXPECT_EQ(test.folder.read("127.0.0.1-1.bin"), file);
        test.one.pass_ms(99);
        EXPECT_TRUE(test.one->running());
        test.one.pass_ms(1);
        EXPECT_TRUE(session.wire.sees_close());
        test.one.pass_ms(499);
        EXPECT_FALSE(test.one->running());
        test.one.pass_ms(1);
        EXPECT_EQ(test.firmware_name(), next.empty() ? "LW_20_BTAMC_1.0.1" : next);
        EXPECT_EQ(test.one->stats().reboots, 1U);
        EXPECT_EQ(test.one->stats().uploads, 1U);
        test.upload(1, Bytes(1)).reads_command();
        test.one->stop();
        test.one.pass_ms(1000);
        EXPECT_EQ(test.one->stats().reboots, 1U) << "one that is stopped stays so";
    }
}

TEST(Upload, ThatBreaksOffLeavesNothingBehind) {
    Uploads test;
    {
        Wire wire = test.upload(1000, Bytes(999));
        ASSERT_TRUE(test.one->wait(
            [&](const auto&) { return !test.one->uploads().empty() && test.stats().received == 999; }));
        EXPECT_FALSE(wire.has_bytes()) << "the last byte is missing";
        EXPECT_FALSE(test.kept_nothing());
    }
    ASSERT_TRUE(test.one->wait([&](const auto&) { return !test.stats().open; }));
    test.one.pass_ms(1000);
    EXPECT_FALSE(test.stats().complete || test.stats().answered);
    EXPECT_TRUE(test.kept_nothing());
    EXPECT_EQ(test.one->stats().reboots, 0U);
}

TEST(Upload, OfTheWrongLengthOrWithoutRoomIsAFailure) {
    Uploads test;
    Message halves = upload_header(5);
    halves.buffer_num = 2;
    connect_to(*test.one).sends(halves);
    ASSERT_TRUE(test.one->wait([](const auto& stats) { return stats.malformed == 1; }));
    EXPECT_EQ(test.upload(0, {}).reads_command().state, 4);
    EXPECT_EQ(test.upload(10, Bytes(11)).reads_command().state, 4);
    std::filesystem::remove_all(test.folder.path());
    EXPECT_EQ(test.upload(10, Bytes(10)).reads_command().state, 5);
    test.one.pass_ms(1000);
    EXPECT_EQ(test.one->stats().failed_uploads, 3U);
    EXPECT_EQ(test.one->stats().reboots, 0U);
}

}  // namespace
}  // namespace lenswire::test
