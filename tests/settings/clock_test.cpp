// Clocks and time zones.
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>

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
        const FrozenTime frozen(moment);
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
    IpcTimeInfo expected{};
    expected.usYear = 2024;
    expected.ucMonth = 2;
    expected.ucDay = 29;
    expected.ucHour = 10;
    expected.ucMinute = 45;
    expected.ucSecond = 7;
    expected.ucTimeZone = 0xAB;
    std::strcpy(expected.szNtpServer, "time.nist.gov");
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
    EXPECT_EQ(asked, (std::vector{0x12, 0x12})) << "the hours, then the camera's index, of bits 8 to 15";
}

TEST_F(ClockTest, FollowsTheZoneOfTheProcessAndGoesOnAfter2038) {
    host().is_in({.name = "GMT", .hours = 0});
    const struct {
        const char* zone;
        time_t moment;
        int year, day, hour;
    } cases[] = {{"EST5", kMoment, 2024, 29, 5}, {"UTC0", 2200000000, 2039, 18, 23}};
    for (const auto& row : cases) {
        setenv("TZ", row.zone, 1);
        const IpcTimeInfo info = sent_at(row.moment);
        EXPECT_EQ(info.usYear, row.year);
        EXPECT_EQ(info.ucDay, row.day);
        EXPECT_EQ(info.ucHour, row.hour);
    }
}

TEST_F(ClockTest, ShiftsTheTimeBackByTheZoneAndAddsTheCorrection) {
    const struct {
        const char* zone;
        uint8_t correction;  // hours, signed
        int day, hour, minute;
    } cases[] = {
        {"GMT", 0, 29, 10, 45},           {"GMT+08:00", 0, 29, 2, 45},
        {"GMT+08:00", 8, 29, 10, 45},     {"GMT+05:30", 0, 29, 5, 45},  // 05:15 and the zone's 30
        {"GMT-03:30", 0, 29, 14, 45},                                   // 14:15
        {"GMT+11:00", 0, 28, 23, 45},     {"GMT-14:00", 0, 1, 0, 45},
        {"GMT+10:00", 0xFF, 29, 23, 45},                                 // 0 - 1: a day back is not
        {"GMT+11:00", 1, 28, 24, 45},                                    // 23 + 1 stays 24
        {"GMT+10:00", 0xE8, 29, 0, 45},                                  // 0 - 24 = 232
        {"GMT+10:00", 0xE7, 29, 231, 45}, {"GMT+00:40", 0, 29, 10, 45},  // 10:05 and 40
        {"GMT+00:44", 0, 29, 10, 45},     {"GMT-00:20", 0, 29, 11, 25},
        {"GMT-00:14", 0, 29, 10, 73},  // 10:59 and 14, without a carry
        {"UTC+08:00", 0, 29, 10, 45},  // no zone that is understood
        {"GMT+", 0, 29, 11, 45},       // no number: -1
        {"GMT+x", 0, 29, 11, 45},         {"GMT-", 0, 29, 9, 45},
        {"GMT+-3", 0, 29, 13, 45},        {"+2GMT-5", 0, 29, 8, 45},  // the first '+', wherever it is
        {"GMT+1:", 0, 29, 9, 45},         {"GMT+1 :30", 0, 29, 9, 45},
        {"GMT+1: 3", 0, 29, 9, 45},  // 09:42 and 3
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.zone);
        host().is_in({.name = row.zone, .hours = row.correction});
        const IpcTimeInfo info = sent_at(kMoment);
        EXPECT_EQ(info.ucDay, row.day);
        EXPECT_EQ(info.ucHour, row.hour);
        EXPECT_EQ(info.ucMinute, row.minute);
        EXPECT_EQ(info.ucSecond, 7);
    }
}

TEST_F(ClockTest, StandsZonesThatNobodyLivesIn) {
    for (const char* zone : {"GMT+9999999", "GMT-9999999", "GMT+0:999999", "GMT-9:99999", "GMT+-999999"}) {
        host().is_in({.name = zone});
        EXPECT_STREQ(sent_at(kMoment).szNtpServer, "time.nist.gov");
    }
}

TEST_F(ClockTest, GoesOnWithoutAZone) {
    host().is_in({.name = "", .result = -1, .hours = 0, .minutes = 0, .camera_index = 9});
    Capture capture;
    const IpcTimeInfo info = sent_at(kMoment);
    EXPECT_EQ(info.ucHour, 10);
    EXPECT_EQ(info.ucTimeZone, 9);
    EXPECT_EQ(unnumbered(capture.err()), error("Prv_SetIPCTimeAndDate", "**********Get timezome err****** "));
}

TEST_F(ClockTest, NeedsACamera) {
    host().is_in({.name = "GMT"});
    Capture capture;
    HostCameraRecord nowhere{};
    std::strcpy(nowhere.szIpAddr, "0.0.0.0");
    EXPECT_EQ(Prv_SetIPCTimeAndDate(&nowhere), -1);
    EXPECT_EQ(unnumbered(capture.out()), line("Prv_SetIPCTimeDate", "input paramers error"));
    HostCameraRecord endless{};
    std::memset(endless.szIpAddr, '9', sizeof endless.szIpAddr);
    endless.ulPort = 0x39393939;
    EXPECT_EQ(Prv_SetIPCTimeAndDate(&endless), -1);
    EXPECT_FALSE(camera_was_asked());
}

TEST(TimeRecord, IsCompletedInPlace) {
    const struct {
        uint8_t mode, hour, correction;
        int minutes;
        uint8_t mode_after, hour_after, minute_after;
    } cases[] = {
        {0, 0, 0xFF, 0, 0, 23, 200},
        {0, 23, 1, 0, 0, 24, 200},
        {0, 200, 31, 100, 0, 231, 44},
        {0, 200, 32, -1, 0, 0, 199},
        {1, 5, 3, 0, 2, 5, 200},
        {2, 5, 3, 55, 2, 5, 255},
        {255, 5, 3, std::numeric_limits<int>::max(), 255, 5, 199},
    };
    for (const auto& row : cases) {
        host().reset();
        host().is_in({.name = "", .hours = row.correction});
        Bytes record = pattern(212, 5);
        Bytes expected = record;
        record[4] = row.hour;
        record[5] = 200;
        record[7] = row.mode;
        expected[4] = row.hour_after;
        expected[5] = row.minute_after;
        expected[7] = row.mode_after;
        expected[9] = 0;
        const std::string server("time.nist.gov", 14);
        std::copy(server.begin(), server.end(), expected.begin() + 12);
        EXPECT_EQ(Prv_TimInfoPacket(record.data(), row.minutes), 0);
        EXPECT_EQ(record, expected);
    }
}

TEST(ZoneIndex, CountsHalfHours) {
    const struct {
        const char* zone;
        int index;
    } cases[] = {{"GMT-12:00", 0},  {"GMT+08:00", 40}, {"GMT+05:30", 35}, {"GMT-03:30", 17},
                 {"GMT+05:45", 35}, {"GMT+5:45", 35},  {"GMT", 0},        {"GMT+0", 24},
                 {"GMT-0:0", 24},   {"GMT+", 22},      {"GMT-x", 26},     {"xGMT+13:01", 51},
                 {"+1 GMT", 26},    {"GMT-1+2", 28},   {"GMT+ 3:-1", 31}, {"GMT+3 :30", 30},
                 {"GMT--3", 30}};
    for (const auto& row : cases) EXPECT_EQ(TZ_Process(row.zone), row.index) << row.zone;
    Capture capture;
    EXPECT_EQ(TZ_Process(nullptr), -1);
    EXPECT_EQ(capture.out(), "");
    for (const char* zone : {"UTC+01:00", "", "gmt+1", "GM T"}) EXPECT_EQ(TZ_Process(zone), -1) << zone;
    EXPECT_EQ(occurrences(unnumbered(capture.out()), line("TZ_Process", "TZ_Process format error")), 4);
}

TEST(ZoneIndex, AgreesWithScanfOnTextsThatMakeNoSense) {
    std::mt19937 random(11);
    Capture quiet;
    static const char* const kPieces[] = {"GMT", "+", "-", ":", "0", "1", "30", "08", " ", "\t", "x", "GMT+"};
    for (int round = 0; round < 5000; ++round) {
        std::string zone = round % 2 == 0 ? "GMT" : "";
        for (size_t left = random() % 7; left > 0; --left) zone += kPieces[random() % std::size(kPieces)];
        int expected = -1;
        if (zone.find("GMT") != std::string::npos) {
            const bool plus = zone.find('+') != std::string::npos;
            const size_t sign = zone.find(plus ? '+' : '-');
            int hours = -1;
            int minutes = 0;
            expected = 0;
            if (sign != std::string::npos) {
                sscanf(zone.c_str() + sign, plus ? "+%d:%d" : "-%d:%d", &hours, &minutes);
                const int half_hours = 2 * hours + (minutes != 0 ? 1 : 0);
                expected = plus ? 24 + half_hours : 24 - half_hours;
            }
        }
        EXPECT_EQ(TZ_Process(zone.c_str()), expected) << zone;
    }
}

}  // namespace
}  // namespace lenswire::test
