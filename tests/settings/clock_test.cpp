// Clocks and time zones.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

class ClockTest : public SettingsTest {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC0", 1);
        tzset();
        SettingsTest::SetUp();
        std::strcpy(record_.szIpAddr, camera_.address_text().c_str());
    }

    // What is sent when it is this many seconds after the epoch.
    IpcTimeInfo sent_at(time_t moment) {
        Timewarp warp;
        warp.moment = moment;
        const auto [result, requests] = sends([&] { return Prv_SetIPCTimeAndDate(&record_); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(requests[0].command, 0x1001);
        EXPECT_EQ(requests[0].payload.size(), sizeof(IpcTimeInfo));
        IpcTimeInfo info{};
        std::memcpy(&info, requests[0].payload.data(), std::min(requests[0].payload.size(), sizeof info));
        return info;
    }

    HostCameraRecord record_{};
};

// 2024-02-29 10:45:07, a Thursday.
constexpr time_t kMoment = 1709203507;

TEST_F(ClockTest, SendsTheRecordersTimeAndItsZone) {
    host().is_in({.name = "GMT", .result = 0x561234, .hours = 0, .minutes = 30, .camera_index = 0x1AB});
    std::vector<int> asked;
    host().when(Service::kZone, [&](int index, int) { asked.push_back(index); });
    const IpcTimeInfo info = sent_at(kMoment);
    EXPECT_EQ(record_bytes(info),
              (Bytes{0xE8, 7, 2, 29, 10, 45, 7, 0, 0xAB, 0, 0, 0} + bytes_of("time.nist.gov") + Bytes(187)));
    EXPECT_EQ(asked, (std::vector{0x12, 0x12})) << "the hours, then the camera's index, of bits 8 to 15";
}

TEST_F(ClockTest, ShiftsTheTimeBackByTheZoneAndAddsTheCorrection) {
    const struct {
        const char* zone;
        uint8_t correction;  // hours, signed
        const char* sent;
        time_t moment = kMoment;
        const char* process_zone = "UTC0";
    } cases[] = {
        {"GMT", 0, "2024-2-29 10:45:7"},
        {"GMT", 0, "2024-2-29 5:45:7", kMoment, "EST5"},
        {"GMT", 0, "2039-9-18 23:6:40", 2200000000},
        {"GMT+08:00", 0, "2024-2-29 2:45:7"},
        {"GMT+08:00", 8, "2024-2-29 10:45:7"},
        {"GMT+05:30", 0, "2024-2-29 5:45:7"},   // 05:15 and the zone's 30
        {"GMT-03:30", 0, "2024-2-29 14:45:7"},  // 14:15
        {"GMT+11:00", 0, "2024-2-28 23:45:7"},
        {"GMT-14:00", 0, "2024-3-1 0:45:7"},
        {"GMT+10:00", 0xFF, "2024-2-29 23:45:7"},  // 0 - 1: a day back is not
        {"GMT+11:00", 1, "2024-2-28 24:45:7"},     // 23 + 1 stays 24
        {"GMT+10:00", 0xE8, "2024-2-29 0:45:7"},   // 0 - 24 = 232
        {"GMT+10:00", 0xE7, "2024-2-29 231:45:7"},
        {"GMT-00:14", 0, "2024-2-29 10:73:7"},  // 10:59 and 14, without a carry
        {"UTC+08:00", 0, "2024-2-29 10:45:7"},  // no zone that is understood
        {"GMT+x", 0, "2024-2-29 11:45:7"},      // no number: -1
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.zone);
        setenv("TZ", row.process_zone, 1);
        host().is_in({.name = row.zone, .hours = row.correction});
        const IpcTimeInfo info = sent_at(row.moment);
        char text[64];
        snprintf(text, sizeof text, "%u-%u-%u %u:%u:%u", info.usYear, info.ucMonth, info.ucDay, info.ucHour,
                 info.ucMinute, info.ucSecond);
        EXPECT_STREQ(text, row.sent);
    }
    // Nobody lives there.
    for (const char* zone : {"GMT+9999999", "GMT-9999999", "GMT+0:999999", "GMT-9:99999", "GMT+-999999"}) {
        host().is_in({.name = zone});
        EXPECT_STREQ(sent_at(kMoment).szNtpServer, "time.nist.gov");
    }
}

TEST_F(ClockTest, GoesOnWithoutAZone) {
    host().is_in({.name = "", .result = -1, .hours = 0, .camera_index = 9});
    Capture capture;
    const IpcTimeInfo info = sent_at(kMoment);
    EXPECT_EQ(100 * info.ucHour + info.ucTimeZone, 1009);
    EXPECT_EQ(unnumbered(capture.err()), error("Prv_SetIPCTimeAndDate", "**********Get timezome err****** "));
}

TEST_F(ClockTest, NeedsACamera) {
    host().is_in({.name = "GMT"});
    Capture capture;
    std::strcpy(record_.szIpAddr, "0.0.0.0");
    EXPECT_EQ(Prv_SetIPCTimeAndDate(&record_), -1);
    EXPECT_EQ(unnumbered(capture.out()), line("Prv_SetIPCTimeDate", "input paramers error"));
    std::memset(record_.szIpAddr, '9', sizeof record_.szIpAddr);
    record_.ulPort = 0x39393939;
    EXPECT_EQ(Prv_SetIPCTimeAndDate(&record_), -1);
    EXPECT_FALSE(camera_was_asked());
}

TEST(TimeRecord, IsCompletedInPlace) {
    const struct {
        uint8_t mode, hour, correction;
        int minutes;
        uint8_t mode_after, hour_after, minute_after;
    } cases[] = {{0, 0, 0xFF, 0, 0, 23, 200},      {0, 23, 1, 0, 0, 24, 200}, {0, 200, 31, 100, 0, 231, 44},
                 {0, 200, 32, -1, 0, 0, 199},      {1, 5, 3, 0, 2, 5, 200},   {2, 5, 3, 55, 2, 5, 255},
                 {255, 5, 3, INT_MAX, 255, 5, 199}};
    for (const auto& row : cases) {
        host().reset();
        host().is_in({.name = "", .hours = row.correction});
        const Bytes rest = pattern(212, 5);
        const auto record = [&](uint8_t hour, uint8_t minute, uint8_t mode) {
            return slice(rest, 0, 4) + Bytes{hour, minute, rest[6], mode, rest[8]};
        };
        Bytes time = record(row.hour, 200, row.mode) + slice(rest, 9, 203);
        EXPECT_EQ(Prv_TimInfoPacket(time.data(), row.minutes), 0);
        EXPECT_EQ(time, record(row.hour_after, row.minute_after, row.mode_after) + Bytes{0} +
                            slice(rest, 10, 2) + bytes_of("time.nist.gov") + Bytes{0} + slice(rest, 26, 186));
    }
}

// Half hours from 12 hours west of Greenwich, the numbers read as scanf would.
TEST(ZoneIndex, FollowsGmtASignAndTwoNumbers) {
    const std::pair<const char*, int> cases[] = {
        {"UTC+01:00", -1}, {"", -1},          {"gmt+1", -1},         {"GM T", -1},      {"GMT", 0},
        {"GMT+08:00", 40}, {"GMT-05:30", 13}, {"GMT+ 8:\t30", 41},   {"GMT+1:-30", 27}, {"GMT+1 :30", 26},
        {"GMT+", 22},      {"GMT-x", 26},     {"x GMT-3:00:30", 18}, {"+1GMT", 26},     {"GMT-1+2", 28},
        {"GMT+-2", 20},    {"GMT- -2:0", 28}};
    Capture capture;
    for (const auto& [zone, index] : cases) EXPECT_EQ(TZ_Process(zone), index) << zone;
    EXPECT_EQ(occurrences(unnumbered(capture.out()), line("TZ_Process", "TZ_Process format error")), 4);
    EXPECT_EQ(TZ_Process(nullptr), -1);
}

}  // namespace
}  // namespace lenswire::test
