// The host services as the library calls them, by name.
#include "recorder/host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <numeric>

#include "lenswire/host_services.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

using testing::Each;
using testing::ElementsAre;

CameraAddress camera(const std::string& ip, int port = 8000, int channel = 0) {
    return camera_addresses(
               {"admin:secret@" + ip + ":" + std::to_string(port) + "/" + std::to_string(channel)}, "")
        .front();
}

int database(int table, int operation, int32_t key, std::vector<uint8_t>& buffer) {
    return databaseOperate(table, operation, &key, sizeof key, buffer.data(),
                           static_cast<int>(buffer.size()));
}

std::vector<uint8_t> cruise_line(uint8_t line, uint8_t fill) {
    std::vector<uint8_t> record(390, fill);
    record[0] = line;
    return record;
}

TEST(HostServices, AnswerWithoutAHostWithFailure) {
    ASSERT_EQ(Host::current(), nullptr);
    std::vector<uint8_t> buffer(450);
    int port = 0;
    char text[64];
    StreamRequest request;
    EXPECT_EQ(DbMainMsgChannelInfo(0, text, &port, text, text), -1);
    EXPECT_EQ(database(17, 2, 0, buffer), -1);
    EXPECT_EQ(configGetDisplayNum(), 0);
    EXPECT_EQ(Private_Protocol_GetRequestFromQueue(&request), -1);
    EXPECT_EQ(networkInsertMessageToQueue(0, 0, &request, 3), -1);
    EXPECT_EQ(networkGetRunFlag(0, 0), 4);
    EXPECT_EQ(ring_free_size_ex(nullptr), 0);
    EXPECT_EQ(ring_get_start_buf(nullptr), nullptr);
    EXPECT_EQ(streamGetFrameQueueBuffer(nullptr, 10), nullptr);
    EXPECT_EQ(streamInsertAlarmToAlarmQueue(0, nullptr), -1);
    MeFree(MeMalloc(10, "", 0), "", 0);
}

TEST(HostServices, TellWhichCameraAChannelHas) {
    Host host;
    EXPECT_EQ(host.store.bind_camera(camera("127.0.0.1")), 0);
    EXPECT_EQ(host.store.bind_camera(camera("127.0.0.2", 9000)), 1);
    EXPECT_EQ(host.store.bind_camera(camera("127.0.0.2", 9000, 1)), 2) << "another channel of it";
    EXPECT_EQ(host.store.bind_camera(camera("127.0.0.1")), 0) << "the same again";
    char ip[64], user[64], password[64];
    int port = 0;
    ASSERT_EQ(DbMainMsgChannelInfo(1, ip, &port, user, password), 0);
    EXPECT_STREQ(ip, "127.0.0.2");
    EXPECT_EQ(port, 9000);
    EXPECT_STREQ(user, "admin");
    EXPECT_STREQ(password, "secret");
    EXPECT_EQ(configGetDisplayNum(), 3);
    EXPECT_EQ(get_channel_protocol(1), 4);
    EXPECT_EQ(get_channel_bindstatus(2), 1);
    EXPECT_EQ(get_channel_bindstatus(3), 0);
    EXPECT_EQ(DbMainMsgChannelInfo(3, ip, &port, user, password), -1);
    EXPECT_EQ(DbMainMsgChannelInfo(-1, ip, &port, user, password), -1);
}

TEST(HostServices, ReadAndWriteChannelRecords) {
    Host host;
    host.store.bind_camera(camera("127.0.0.1"));
    host.store.bind_camera(camera("127.0.0.2"));
    std::vector<uint8_t> record(450);
    ASSERT_EQ(database(17, 2, 1, record), 450);
    EXPECT_EQ(record[97], 1);
    EXPECT_STREQ(reinterpret_cast<char*>(record.data()) + 100, "127.0.0.2");
    EXPECT_EQ(record[186], 4);
    record[192] = 0x13;
    ASSERT_EQ(database(17, 1, 1, record), 450);
    EXPECT_EQ(is_channel_fish_eye(1), 0x13);
    EXPECT_EQ(is_channel_fish_eye(0), 0);

    std::vector<uint8_t> all(28'800, 0xEE);
    ASSERT_EQ(database(17, 2, 250, all), 28'800);
    EXPECT_STREQ(reinterpret_cast<char*>(all.data()) + 100, "127.0.0.1");
    EXPECT_EQ(all[450 + 192], 0x13);
    EXPECT_THAT(std::vector(all.begin() + 900, all.end()), Each(0)) << "channels without a camera";
    EXPECT_EQ(database(17, 2, 2, record), -1);
    EXPECT_EQ(database(17, 1, 2, record), -1);
}

TEST(HostServices, KeepCruiseLinesByTheirOwnNumberAndReadThemInOrder) {
    Host host;
    auto two = cruise_line(2, 0x22), zero = cruise_line(0, 0x11), other = cruise_line(1, 0x33);
    EXPECT_EQ(database(62, 1, 5, two), 390);
    EXPECT_EQ(database(62, 1, 5, zero), 390);
    EXPECT_EQ(database(62, 1, 6, other), 390);
    std::vector<uint8_t> expected = zero;
    const std::vector<uint8_t> empty = cruise_line(1, 0);
    expected.insert(expected.end(), empty.begin(), empty.end());
    expected.insert(expected.end(), two.begin(), two.end());
    std::vector<uint8_t> lines(1170, 0xEE);
    ASSERT_EQ(database(62, 2, 5, lines), 1170);
    EXPECT_EQ(lines, expected);
    auto three = cruise_line(3, 0);
    EXPECT_EQ(database(62, 1, 5, three), -1) << "there is no line 3";
}

TEST(HostServices, RefuseWhatNoTableHas) {
    Host host;
    host.store.bind_camera(camera("127.0.0.1"));
    std::vector<uint8_t> buffer(2000);
    const int sizes[][2] = {{17, 450}, {21, 88}, {24, 9}, {62, 1170}};
    for (const auto& [table, size] : sizes) {
        SCOPED_TRACE(table);
        buffer.resize(static_cast<size_t>(size));
        EXPECT_EQ(database(table, 2, 0, buffer), size);
        buffer.resize(static_cast<size_t>(size - 1));
        EXPECT_EQ(database(table, 2, 0, buffer), -1) << "too short";
        EXPECT_EQ(database(table, 3, 0, buffer), -1);
        EXPECT_EQ(database(table, 2, -1, buffer), -1);
        int32_t key = 0;
        EXPECT_EQ(databaseOperate(table, 2, &key, 3, buffer.data(), size), -1);
        EXPECT_EQ(databaseOperate(table, 2, nullptr, 4, buffer.data(), size), -1);
        EXPECT_EQ(databaseOperate(table, 2, &key, 4, nullptr, size), -1);
        EXPECT_EQ(databaseOperate(table, 2, &key, 4, buffer.data(), -1), -1);
    }
    buffer.resize(2000);
    EXPECT_EQ(database(18, 2, 0, buffer), -1);
}

TEST(HostServices, RememberInADatabaseFileButNoPassword) {
    const std::string file = testing::TempDir() + "lenswire-host-test.db";
    std::filesystem::remove(file);
    auto line = cruise_line(1, 0x44);
    {
        Host host(file);
        host.store.bind_camera(camera("127.0.0.1"));
        host.store.bind_camera(camera("127.0.0.2"));
        EXPECT_EQ(database(62, 1, 1, line), 390);
    }
    std::string bytes(std::filesystem::file_size(file), '\0');
    FILE* stream = std::fopen(file.c_str(), "rb");
    ASSERT_EQ(std::fread(bytes.data(), 1, bytes.size(), stream), bytes.size());
    std::fclose(stream);
    EXPECT_NE(bytes.find("127.0.0.2"), std::string::npos);
    EXPECT_EQ(bytes.find("secret"), std::string::npos);

    Host host(file);
    EXPECT_EQ(get_channel_bindstatus(1), 0) << "not in use until it is named again";
    EXPECT_EQ(host.store.bind_camera(camera("127.0.0.2")), 1) << "it keeps its channel";
    EXPECT_EQ(host.store.bind_camera(camera("127.0.0.3")), 2) << "channel 0 is another's";
    std::vector<uint8_t> lines(1170);
    ASSERT_EQ(database(62, 2, 1, lines), 1170);
    EXPECT_EQ(std::vector(lines.begin() + 390, lines.begin() + 780), line);
    std::filesystem::remove(file);
    EXPECT_THROW(Host(testing::TempDir()), Failure) << "a folder is no database";
}

TEST(HostServices, HandRequestsOverInOrder) {
    Host host;
    StreamRequest request{};
    EXPECT_EQ(Private_Protocol_GetRequestFromQueue(&request), -1);
    DevChannelInfo info{};
    for (uint8_t channel = 0; channel < 3; ++channel) {
        info.ucChannelNo = channel;
        host.requests.post(channel == 1 ? STREAM_REQ_CLOSE : STREAM_REQ_OPEN, info);
    }
    for (uint8_t channel = 0; channel < 3; ++channel) {
        ASSERT_EQ(Private_Protocol_GetRequestFromQueue(&request), 0);
        EXPECT_EQ(request.info.ucChannelNo, channel);
        EXPECT_EQ(request.ulType, channel == 1u ? 1u : 0u);
    }
    EXPECT_EQ(Private_Protocol_GetRequestFromQueue(&request), -1);
}

TEST(HostServices, PassRestartMessagesOnAndNothingElse) {
    struct Listener : RestartListener {
        std::vector<std::pair<int, int>> wanted;
        void restart_wanted(int channel, int stream) override { wanted.emplace_back(channel, stream); }
    } listener;
    Host host;
    StreamRequest message{};
    message.ulType = STREAM_REQ_RESTART;
    EXPECT_EQ(networkInsertMessageToQueue(1, 0, &message, 3), -1) << "nobody listens";
    host.set_restart_listener(&listener);
    EXPECT_EQ(networkInsertMessageToQueue(1, 2, &message, 3), 0);
    EXPECT_EQ(networkInsertMessageToQueue(1, 2, &message, 2), -1);
    message.ulType = STREAM_REQ_OPEN;
    EXPECT_EQ(networkInsertMessageToQueue(1, 2, &message, 3), -1);
    EXPECT_THAT(listener.wanted, ElementsAre(std::pair(1, 2)));
}

struct NoNotes : NoteTaker {
    void take(std::vector<Note>) override {}
    std::optional<Trouble> trouble() const override { return std::nullopt; }
};

TEST(HostServices, EndLoginsWhoseTimeIsOver) {
    const UtcAnchor anchor(0, 0);
    NoNotes notes;
    Host host;
    FrameWorker worker;
    RecorderStream& stream =
        host.add_stream(std::make_unique<RecorderStream>(3, 1, worker, Recording::Target{}, anchor, notes));
    EXPECT_EQ(networkGetStreamUsedNum(3, 1), 0) << "nobody logs in for it";
    stream.allow_login_for(std::chrono::hours(1));
    EXPECT_NE(networkGetStreamUsedNum(3, 1), 0);
    EXPECT_NE(networkGetStreamUsedNum(4, 0), 0) << "a login that is not for a stream";
    EXPECT_NE(networkGetRunFlag(3, 1), 4);
    host.stop_logins();
    EXPECT_EQ(networkGetRunFlag(3, 1), 4);
}

TEST(HostServices, CountMotionAndAlarmsOfAChannel) {
    Host host;
    EXPECT_EQ(MD_Disarming_Time(2), 1);
    EXPECT_EQ(VideoMDSetStatus(2, 1, nullptr), 0);
    EXPECT_EQ(VideoMDSetStatus(2, 1, nullptr), 0);
    EXPECT_EQ(snapSetMotion(2, 1), 0);
    EXPECT_EQ(VideoMDGetStatus(2), 1);
    EXPECT_EQ(host.motion.counts(2).motions, 1u) << "it began once";
    EXPECT_TRUE(host.motion.counts(2).snapshots);
    EXPECT_EQ(VideoMDSetStatus(2, 0, nullptr), 0);
    host.motion.set_armed(2, false);
    EXPECT_EQ(MD_Disarming_Time(2), 0);
    uint8_t motion_alarm[4] = {2, 2, 0, 0}, upgrade_alarm[4] = {40, 1, 0, 1};
    EXPECT_EQ(streamInsertAlarmToAlarmQueue(0, motion_alarm), 0);
    EXPECT_EQ(streamInsertAlarmToAlarmQueue(0, upgrade_alarm), 0);
    EXPECT_EQ(host.motion.counts(2).alarms, 1u);
    std::vector<std::string> events;
    while (const auto event = host.motion.next_event()) events.push_back(*event);
    EXPECT_THAT(events,
                ElementsAre("motion on channel 2", "motion ended on channel 2", "alarm: motion on channel 2",
                            "alarm: firmware upgrade failed on channel 1"));
    for (const int channel : {-1, 192, 1000}) {
        EXPECT_EQ(VideoMDSetStatus(channel, 1, nullptr), -1);
        EXPECT_EQ(VideoMDGetStatus(channel), 0);
        EXPECT_EQ(MD_Disarming_Time(channel), 0);
    }
}

TEST(HostServices, GiveZonesWhosePartsAddUpToTheirOffset) {
    struct Case {
        const char* name;
        int hours, minutes, camera;
    };
    for (const Case& c :
         {Case{"GMT+08:00", 8, 0, 40}, Case{"GMT+05:45", 5, 45, 35}, Case{"GMT-03:30", -4, 30, 17},
          Case{"GMT-12:00", -12, 0, 0}, Case{"GMT+00:00", 0, 0, 24}, Case{"GMT-05:00", -5, 0, 14}}) {
        SCOPED_TRACE(c.name);
        Host host;
        host.store.set_current_zone(c.name);
        char name[12] = {};
        int a = 0, b = 0;
        const int result = GetTimeZone(name, &a, &b);
        ASSERT_GE(result, 0);
        EXPECT_STREQ(name, c.name);
        const auto index = static_cast<uint32_t>(result) >> 8;
        uint8_t hours = 0, minutes = 0;
        EXPECT_EQ(GetTimeZoneTime(index, &hours, &minutes), 0);
        EXPECT_EQ(static_cast<int8_t>(hours), c.hours);
        EXPECT_EQ(minutes, c.minutes);
        EXPECT_EQ(GetIpcTimeZoneMap(index), static_cast<uint32_t>(c.camera));
    }
    Host host;
    EXPECT_THROW(host.store.set_current_zone("GMT+25:00"), Failure);
    uint8_t hours = 9, minutes = 9;
    EXPECT_EQ(GetTimeZoneTime(255, &hours, &minutes), -1);
    EXPECT_EQ(hours, 0);
}

TEST(HostServices, CountTheLibrarysMemory) {
    Host host;
    void* memory = MeMalloc(4096, __FILE__, __LINE__);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(host.library_allocations, 1);
    MeFree(memory, __FILE__, __LINE__);
    MeFree(nullptr, __FILE__, __LINE__);
    EXPECT_EQ(host.library_allocations, 0);
    EXPECT_EQ(MeMalloc(-1, __FILE__, __LINE__), nullptr);
}

}  // namespace
}  // namespace lenswire::recorder
