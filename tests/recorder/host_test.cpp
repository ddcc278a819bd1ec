// The host services as the library calls them, by name.
#include "recorder/host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "lenswire/host_services.h"
#include "recorder/support/failure.h"
#include "support/capture.h"
#include "support/folder.h"

namespace lenswire::recorder {
namespace {

using testing::Each;
using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

enum { kWriteIt = 1, kReadIt = 2 };

CameraAddress camera(const std::string& place) {
    return camera_addresses({"admin:secret@127.0.0." + place}, "").front();
}

// What the library is told of a channel's camera: "IP PORT USER PASSWORD", or nothing.
std::string camera_of(int channel) {
    struct {
        char password[64], user[64], ip[64];
    } texts;  // what is written last lies before the others
    int port = 0;
    if (DbMainMsgChannelInfo(channel, texts.ip, &port, texts.user, texts.password) != 0) return "";
    return std::string(texts.ip) + " " + std::to_string(port) + " " + texts.user + " " + texts.password;
}

int database(int table, int operation, int32_t key, Bytes& buffer) {
    return databaseOperate(table, operation, &key, sizeof key, buffer.data(),
                           static_cast<int>(buffer.size()));
}
int write(int table, int32_t key, Bytes record) {
    return database(table, kWriteIt, key, record);
}
// A whole record of a table; empty when there is none.
Bytes read(int table, int32_t key, size_t size) {
    Bytes buffer(size, 0xEE);
    return database(table, kReadIt, key, buffer) == static_cast<int>(size) ? buffer : Bytes();
}

Bytes cruise_line(uint8_t line, uint8_t fill) {
    Bytes record(390, fill);
    record[0] = line;
    return record;
}

TEST(HostServices, AnswerWithoutAHostWithFailure) {
    ASSERT_EQ(Host::current(), nullptr);
    Bytes buffer(450);
    int port = 0;
    char text[64];
    uint8_t byte = 0;
    StreamRequest request{};
    request.ulType = STREAM_REQ_RESTART;
    EXPECT_THAT(
        (std::vector{DbMainMsgChannelInfo(0, text, &port, text, text), database(17, kReadIt, 0, buffer),
                     motion_data_copy(0, buffer.data()), VideoMDSetStatus(0, 1, nullptr), snapSetMotion(0, 1),
                     streamInsertAlarmToAlarmQueue(0, buffer.data()), GetTimeZone(text, &port, &port),
                     Private_Protocol_GetRequestFromQueue(&request), GetTimeZoneTime(0, &byte, &byte),
                     networkInsertMessageToQueue(0, 0, &request, 3),
                     Private_Protocol_SetRecvBit(0, 0, 1, 0, 0), libVideoInfoSetNetworkParam(0, 0, 0, 1, 0)}),
        Each(-1));
    EXPECT_THAT((std::vector{configGetDisplayNum(), get_channel_protocol(0), get_channel_bindstatus(0),
                             is_channel_fish_eye(0), VideoMDGetStatus(0), MD_Disarming_Time(0)}),
                Each(0));
    EXPECT_EQ(networkGetRunFlag(0, 0), 4);
}

TEST(HostServices, TellWhichCameraAChannelHas) {
    Host host;
    EXPECT_EQ(configGetDisplayNum(), 0);
    const std::pair<const char*, int> cameras[] = {{"1:80", 0}, {"2:90", 1}, {"2:90/1", 2}, {"1:80", 0}};
    for (const auto& [place, channel] : cameras)
        EXPECT_EQ(host.store.bind_camera(camera(place)), channel) << place;
    EXPECT_EQ(camera_of(1), "127.0.0.2 90 admin secret");
    EXPECT_EQ(DbMainMsgChannelInfo(1, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(configGetDisplayNum(), 3);
    EXPECT_EQ(get_channel_protocol(1), 4);
    EXPECT_EQ(get_channel_bindstatus(2), 1);
    for (const int channel : {-1, 3}) {
        EXPECT_EQ(get_channel_bindstatus(channel) + get_channel_protocol(channel), 0);
        EXPECT_EQ(camera_of(channel), "");
    }
    CameraAddress long_one = camera("4:80");
    long_one.password = std::string(100, 'p');
    EXPECT_EQ(camera_of(host.store.bind_camera(long_one)), "127.0.0.4 80 admin " + std::string(63, 'p'));
    for (int i = 4; i < 192; ++i) EXPECT_EQ(host.store.bind_camera(camera("3:" + std::to_string(i))), i);
    EXPECT_THROW(host.store.bind_camera(camera("3:192")), Failure);
    EXPECT_EQ(configGetDisplayNum(), 64) << "as many as the library's tables know";
}

TEST(HostServices, ReadAndWriteChannelRecords) {
    Host host;
    for (const char* place : {"1:80", "2:80"}) host.store.bind_camera(camera(place));
    Bytes expected(450);
    expected[97] = 1;
    std::memcpy(expected.data() + 100, "127.0.0.2", 9);
    expected[186] = 4;
    EXPECT_EQ(read(17, 1, 450), expected);
    expected[192] = 0x13;
    expected[108] = '9';
    ASSERT_EQ(write(17, 1, expected), 450);
    EXPECT_EQ(is_channel_fish_eye(1), 0x13);
    EXPECT_EQ(is_channel_fish_eye(0) + is_channel_fish_eye(2), 0);
    EXPECT_EQ(camera_of(1), "127.0.0.9 80 admin secret") << "the record's address counts";
    Bytes all = read(17, 0, 450);
    all.insert(all.end(), expected.begin(), expected.end());
    all.resize(28'800);
    EXPECT_EQ(read(17, 250, 28'800), all);
    EXPECT_TRUE(read(17, 250, 28'799).empty() && read(17, 2, 450).empty());
    EXPECT_EQ(write(17, 2, expected), -1);
}

TEST(HostServices, KeepCruiseLinesByTheirOwnNumberAndReadThemInOrder) {
    const test::Folder folder;
    Host host(folder.path("recorder.db"));
    const Bytes two = cruise_line(2, 0x22), other = cruise_line(1, 0x33), empty = cruise_line(1, 0);
    Bytes lines = cruise_line(0, 0x11);
    EXPECT_THAT((std::vector{write(62, 5, two), write(62, 5, lines), write(62, 6, other)}), Each(390));
    for (const Bytes& line : {empty, two}) lines.insert(lines.end(), line.begin(), line.end());
    EXPECT_EQ(read(62, 5, 1170), lines);
    EXPECT_EQ(write(62, 5, cruise_line(3, 0)), -1) << "there is no line 3";
    // As if the disk were full: the library is told, and the statement is fit for the next attempt.
    Database disk(folder.path("recorder.db"));
    disk.execute("CREATE TRIGGER full BEFORE INSERT ON cruise_lines BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_EQ(write(62, 5, other), -1);
    EXPECT_EQ(read(62, 5, 1170), lines) << "what was there stays";
    disk.execute("DROP TRIGGER full");
    EXPECT_EQ(write(62, 5, other), 390);
    EXPECT_EQ(read(62, 5, 1170)[391], 0x33);
}

TEST(HostServices, KeepRecordsOfTheirTablesAndRefuseWhatNoTableHas) {
    Host host;
    host.store.bind_camera(camera("1:80"));
    const int sizes[][4] = {{17, 450, 450}, {21, 88, 88, 1}, {24, 9, 9}, {62, 1170, 390}};
    for (const auto& [table, size, written, first_byte] : sizes) {
        SCOPED_TRACE(table);
        Bytes buffer(static_cast<size_t>(size));
        EXPECT_EQ(database(table, kReadIt, 0, buffer), size);
        int32_t key = 0;
        uint8_t* bytes = buffer.data();
        EXPECT_THAT((std::vector{database(table, 0, 0, buffer), database(table, 3, 0, buffer),
                                 database(table, kReadIt, -1, buffer), database(table, kWriteIt, -1, buffer),
                                 databaseOperate(table, 2, &key, 3, bytes, size),
                                 databaseOperate(table, 2, &key, 4, bytes, size - 1),
                                 databaseOperate(table, 1, &key, 4, bytes, written - 1),
                                 databaseOperate(table, 2, nullptr, 4, bytes, size),
                                 databaseOperate(table, 2, &key, 4, nullptr, size),
                                 databaseOperate(table, 2, &key, 4, bytes, -1),
                                 databaseOperate(table, 2, &key, -1, bytes, size)}),
                    Each(-1));
        if (size > 88) continue;
        EXPECT_EQ(buffer[0], first_byte) << "motion detection is on at first";
        buffer.assign(buffer.size(), 0x55);
        EXPECT_EQ(write(table, 5, buffer), size);
        EXPECT_EQ(read(table, 5, buffer.size()), buffer);
    }
    Bytes motion(88);
    EXPECT_EQ(motion_data_copy(5, motion.data()), 0);
    EXPECT_EQ(motion, Bytes(88, 0x55));
    EXPECT_EQ(motion_data_copy(5, nullptr), -1);
    EXPECT_TRUE(read(18, 0, 2000).empty());
}

TEST(HostServices, RememberInADatabaseFileButNoPassword) {
    const test::Folder folder;
    const std::string file = folder.path("recorder.db");
    const Bytes line = cruise_line(1, 0x44);
    {
        Host host(file);
        for (const char* place : {"1:80", "2:80"}) host.store.bind_camera(camera(place));
        EXPECT_EQ(write(62, 1, line), 390);
    }
    const Bytes bytes = folder.read("recorder.db");
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_THAT(text, testing::HasSubstr("127.0.0.2"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("secret")));

    Host host(file);
    EXPECT_EQ(get_channel_bindstatus(1), 0) << "not in use until it is named again";
    EXPECT_EQ(host.store.bind_camera(camera("2:80")), 1) << "it keeps its channel";
    EXPECT_EQ(host.store.bind_camera(camera("3:80")), 2) << "channel 0 is another's";
    const Bytes lines = read(62, 1, 1170);
    EXPECT_EQ(Bytes(lines.begin() + 390, lines.begin() + 780), line);
    EXPECT_THROW(Host{folder.path()}, Failure) << "a folder is no database";
    EXPECT_THROW(Host{folder.write("text", Bytes(1000, 'x'))}, Failure);
}

TEST(HostServices, HandRequestsOverInOrderAndTakeNothingButRestarts) {
    struct : RestartListener {
        void restart_wanted(int, int) override {}
    } listener;
    Host host;
    StreamRequest request{}, restart{};
    restart.ulType = STREAM_REQ_RESTART;
    for (const StreamRequestType type : {STREAM_REQ_OPEN, STREAM_REQ_CLOSE}) host.requests.post(type, {});
    for (const uint32_t type : {STREAM_REQ_OPEN, STREAM_REQ_CLOSE}) {
        EXPECT_EQ(Private_Protocol_GetRequestFromQueue(&request), 0);
        EXPECT_EQ(request.ulType, type);
    }
    EXPECT_EQ(networkInsertMessageToQueue(1, 0, &restart, 3), -1) << "nobody listens";
    host.set_restart_listener(&listener);
    EXPECT_THAT(
        (std::vector{
            networkInsertMessageToQueue(1, 2, &restart, 2), networkInsertMessageToQueue(1, 2, nullptr, 3),
            networkInsertMessageToQueue(1, 2, &request, 3), Private_Protocol_GetRequestFromQueue(nullptr),
            Private_Protocol_GetRequestFromQueue(&request)}),
        Each(-1));
}

TEST(HostServices, KnowTheStreamsThatAreRecorded) {
    struct Notes : NoteTaker {
        void take(std::vector<Note>) override {}
        std::optional<Trouble> trouble() const override { return {}; }
    } notes;
    const SystemClock clock;
    const UtcAnchor anchor(0, 0);
    Host host;
    FrameWorker worker;
    const auto add = [&](int channel, int stream) -> RecorderStream& {
        return host.add_stream(std::make_unique<RecorderStream>(channel, stream, worker, Recording::Target{},
                                                                clock, anchor, notes));
    };
    add(3, 0);
    RecorderStream& stream = add(3, 1);
    EXPECT_EQ(networkGetStreamUsedNum(3, 1), 0) << "nobody logs in for it";
    stream.allow_login_for(std::chrono::hours(1));
    EXPECT_EQ(networkGetStreamUsedNum(3, 1), 1);
    stream.allow_login_for(std::chrono::seconds(0));
    EXPECT_EQ(networkGetStreamUsedNum(3, 1), 0) << "the time is over";
    EXPECT_EQ(networkGetStreamUsedNum(4, 0), 1) << "a login that is not for a stream";
    EXPECT_EQ(networkGetRunFlag(3, 1), 1);
    host.stop_logins();
    EXPECT_EQ(networkGetRunFlag(3, 1), 4);

    EXPECT_EQ(networkGetStreampPrivateInfo(3, 1), &stream.private_info());
    EXPECT_EQ(networkGetStreampPrivateInfo(3, 2), nullptr);
    EXPECT_EQ(Private_Protocol_SetRecvBit(3, 1, 70'000, 0, 0), 0);
    EXPECT_EQ(libVideoInfoSetNetworkParam(3, 1, 0, 25, 0), 0);
    EXPECT_EQ(stream.bytes_per_second(), 70'000);
    EXPECT_EQ(stream.frames_per_second(), 25);

    // Frames go on and their buffers come back, of which there is room for a thousand.
    DevChannelInfo info{};
    stream.describe(info, nullptr);
    for (int i = 0; i < 1100; ++i) {
        void* frame = nullptr;
        ASSERT_TRUE(test::wait_until([&] { return frame = streamGetFrameQueueBuffer(info.pStream, 7000); }))
            << i;
        std::memset(frame, 0, sizeof(StreamFrameHead));
        streamFrameQueueLock(info.pStream);
        EXPECT_EQ(streamInsertFrameToFrameQueue(info.pStream, frame), 0);
        steramFrameQueueUnlock(info.pStream);
    }
}

TEST(HostServices, CountMotionAndAlarmsOfAChannel) {
    Host host;
    const auto events = [&host] {
        std::vector<std::string> lines;
        while (const auto event = host.motion.next_event()) lines.push_back(*event);
        return lines;
    };
    EXPECT_EQ(MD_Disarming_Time(2), 1);
    EXPECT_EQ(VideoMDSetStatus(2, 1, nullptr) + VideoMDSetStatus(2, 1, nullptr) + snapSetMotion(2, 1), 0);
    EXPECT_EQ(VideoMDGetStatus(2), 1);
    EXPECT_EQ(host.motion.counts(2).motions, 1u) << "it began once";
    EXPECT_TRUE(host.motion.counts(2).motion && host.motion.counts(2).snapshots);
    EXPECT_EQ(VideoMDSetStatus(2, 0, nullptr), 0);
    host.motion.set_armed(2, false);
    EXPECT_FALSE(host.motion.counts(2).motion || MD_Disarming_Time(2));
    for (const uint8_t type : {2, 40, 7})
        streamInsertAlarmToAlarmQueue(0, std::array{type, uint8_t{2}, uint8_t{0}, uint8_t{1}}.data());
    EXPECT_EQ(host.motion.counts(2).alarms, 3u);
    EXPECT_THAT(events(),
                ElementsAre("motion on channel 2", "motion ended on channel 2", "alarm: motion on channel 2",
                            "alarm: firmware upgrade failed on channel 2", "alarm of type 7 on channel 2"));
    for (int i = 0; i <= 1000; ++i)
        VideoMDSetStatus(5, i % 2, nullptr), VideoMDSetStatus(4, i == 1000, nullptr);
    const auto kept = events();
    EXPECT_EQ(kept.size(), 1000u) << "the newest, when nobody shows them";
    EXPECT_EQ(kept.back(), "motion on channel 4");
    for (const int channel : {-1, 192, 1000}) {
        EXPECT_THAT((std::vector{VideoMDSetStatus(channel, 1, nullptr), snapSetMotion(channel, 1)}),
                    Each(-1));
        EXPECT_EQ(VideoMDGetStatus(channel) + MD_Disarming_Time(channel), 0);
    }
}

TEST(HostServices, GiveZonesWhosePartsAddUpToTheirOffset) {
    Host host;
    host.store.set_current_zone("GMT-03:30");
    char name[12] = {};
    int a = 0, b = 0;
    uint8_t hours = 9, minutes = 9;
    const auto index = static_cast<uint32_t>(GetTimeZone(name, &a, &b)) >> 8;
    EXPECT_STREQ(name, "GMT-03:30");
    EXPECT_EQ(GetTimeZoneTime(index, &hours, &minutes), 0);
    EXPECT_THAT((std::vector<int>{a, b, static_cast<int8_t>(hours), minutes}), ElementsAre(-4, 30, -4, 30));
    EXPECT_EQ(GetIpcTimeZoneMap(index), 17u);
    EXPECT_EQ(GetTimeZoneTime(255, &hours, &minutes), -1);
}

TEST(HostServices, CountTheLibrarysMemoryAndShowItsLines) {
    Host host;
    void* memory = MeMalloc(4096, __FILE__, __LINE__);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(host.library_allocations, 1);
    MeFree(memory, __FILE__, __LINE__);
    MeFree(nullptr, __FILE__, __LINE__);
    EXPECT_EQ(host.library_allocations, 0);
    EXPECT_EQ(MeMalloc(-1, __FILE__, __LINE__), nullptr);
    EXPECT_LT(uptime(), 3600u) << "counted from this program's start";
    const test::Capture capture;
    EXPECT_EQ(dump_printf("file.c", "place", 7, "%d of %s", 3, std::string(600, 'x').c_str()), 605);
    EXPECT_EQ(capture.err(), "[file.c:place:7]:3 of " + std::string(506, 'x') + "\n");
}

}  // namespace
}  // namespace lenswire::recorder
