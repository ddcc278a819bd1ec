// Cruise lines: memory, database and camera in step.
#include <atomic>
#include <cstring>
#include <thread>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

constexpr int kTable = 62;
constexpr uint16_t kOption = 0x0020;
constexpr uint16_t kSetLine = 0x0025;
constexpr uint16_t kGetLine = 0x0026;

CruiseLine line_record(uint8_t number, uint8_t enable, uint8_t mark = 0) {
    CruiseLine line{};
    line.ucLineNo = number;
    line.ucEnable = enable;
    line.reserved2[0] = mark;
    return line;
}

Bytes bytes_of_line(const CruiseLine& line) {
    const auto* start = reinterpret_cast<const uint8_t*>(&line);
    return Bytes(start, start + sizeof line);
}

Bytes three_lines(uint8_t enabled0, uint8_t enabled1, uint8_t enabled2) {
    return bytes_of_line(line_record(0, enabled0, 10)) + bytes_of_line(line_record(1, enabled1, 11)) +
           bytes_of_line(line_record(2, enabled2, 12));
}

Bytes table(size_t channel, size_t line) {
    const uint8_t* start = gp_private_ptzCruise + channel * 1170 + line * 390;
    return Bytes(start, start + 390);
}

// What was written to the database for a channel, line by line.
FakeHost::Written written(uint32_t channel, const std::vector<CruiseLine>& lines) {
    FakeHost::Written written;
    for (const CruiseLine& line : lines) written.emplace_back(channel, bytes_of_line(line));
    return written;
}

void fill_table(int channel, const Bytes& lines) {
    host().has_record(kTable, static_cast<uint32_t>(channel), lines);
    EXPECT_EQ(Private_ptzInitCruiseInfo(static_cast<uint32_t>(channel)), 1170);
}

// The flags of a channel's lines in memory.
std::vector<int> flags(uint32_t channel) {
    std::vector<int> flags;
    for (uint32_t line = 0; line < 3; ++line)
        flags.push_back(Private_Get_EnableFlagFromMemory(channel, line));
    return flags;
}

// -- Memory and database, without a camera.

class CruiseTable : public HostTest {};

TEST_F(CruiseTable, LoadsTheChannelsThatTheHostShows) {
    std::memset(gp_private_ptzCruise, 0x55, 74880);
    for (uint32_t channel : {0u, 1u, 2u}) host().has_record(kTable, channel, pattern(1170, channel));
    host().shows_channels(2);
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    EXPECT_EQ(table(0, 0) + table(0, 1) + table(0, 2), pattern(1170, 0));
    EXPECT_EQ(table(1, 0) + table(1, 1) + table(1, 2), pattern(1170, 1));
    EXPECT_EQ(table(2, 0), Bytes(390));
    EXPECT_EQ(table(63, 2), Bytes(390));
    EXPECT_EQ(host().database_calls(kTable, 2), 2);

    host().shows_channels(1000);
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    EXPECT_EQ(host().database_calls(kTable, 2), 2 + 64);
    host().shows_channels(-1);
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    EXPECT_EQ(host().database_calls(kTable, 2), 2 + 64);
    EXPECT_EQ(table(0, 0), Bytes(390));
}

TEST_F(CruiseTable, KeepsWhatADatabaseDoesNotReturn) {
    fill_table(3, three_lines(0, 1, 0));
    host().fails_database(kTable, 2);
    EXPECT_EQ(Private_ptzInitCruiseInfo(3), -1);
    EXPECT_EQ(table(3, 1), bytes_of_line(line_record(1, 1, 11)));
}

TEST_F(CruiseTable, RefusesChannelsAndLinesOutOfRange) {
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    const CruiseLine good = line_record(1, 1);
    for (const auto& [channel, number] : {std::pair{64u, 1u},
                                          {65u, 1u},
                                          {0x80000000u, 1u},
                                          {UINT32_MAX, 1u},
                                          {0u, 3u},
                                          {0u, 4u},
                                          {0u, 128u},
                                          {0u, 255u}}) {
        SCOPED_TRACE(testing::Message() << channel << " " << number);
        CruiseLine line = line_record(static_cast<uint8_t>(number), 1);
        EXPECT_EQ(Private_Get_EnableFlagFromMemory(channel, number), -1);
        EXPECT_EQ(Private_ChangeCruiseLineParam(channel, number, &line), -1);
        EXPECT_EQ(Private_ChangeCruiseLineParam(channel, 1, &line), -1);
        EXPECT_EQ(Private_ChangeCruiseLineParam(channel, number, &good), -1);
        EXPECT_EQ(Private_ChangeCruiseParamToDB(channel, &line), -1);
        Private_ChangeCruiseLineEnableFlag(channel, number, 1);
        EXPECT_EQ(Private_ChangeCruiseParamToMemory(channel, &line), -1);
        EXPECT_EQ(Private_GetPtzCruiseAllPreset(channel, &line), -1);
        EXPECT_EQ(Private_SetPtzCruiseAllPreset(channel, &line, 1), -1);
        EXPECT_EQ(Private_StartPtzCruiseLine(channel, number, 1), -1);
        if (channel == 0) continue;
        EXPECT_EQ(Private_ptzInitCruiseInfo(channel), -1);
        EXPECT_EQ(Get_Private_EnableFlagFromMemory(channel), -1);
        EXPECT_EQ(Private_GetPtzCruiseChannel(channel), -1);
        EXPECT_EQ(Private_StartPtzCruiseLine(channel, 1, 0), -1);
    }
    EXPECT_EQ(Bytes(gp_private_ptzCruise, gp_private_ptzCruise + 74880), Bytes(74880));
    EXPECT_EQ(host().database_calls(kTable, 1), 0);
}

TEST_F(CruiseTable, PutsALineInItsOwnPlace) {
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    CruiseLine line = line_record(2, 1);
    std::memset(line.points, 0x5A, sizeof line.points);
    EXPECT_EQ(Private_ChangeCruiseLineParam(63, 2, &line), 0);
    Bytes expected(74880);
    std::memcpy(expected.data() + 63 * 1170 + 2 * 390, &line, 390);
    EXPECT_EQ(Bytes(gp_private_ptzCruise, gp_private_ptzCruise + 74880), expected);
    Private_ChangeCruiseLineEnableFlag(63, 2, 0x102);
    EXPECT_EQ(Private_Get_EnableFlagFromMemory(63, 2), 2);
    EXPECT_EQ(host().database_calls(kTable, 1), 0);
}

TEST_F(CruiseTable, AnEditKeepsOneLineEnabled) {
    const struct {
        Bytes before;
        CruiseLine edit;
        std::vector<int> after;
        std::vector<CruiseLine> disabled = {};  // and stored before the edited one
    } cases[] = {
        {three_lines(1, 0, 0), line_record(2, 1, 99), {0, 0, 1}, {line_record(0, 0, 10)}},
        {three_lines(0, 1, 0), line_record(0, 0, 99), {0, 1, 0}},
        {three_lines(0, 1, 0), line_record(1, 1, 99), {0, 1, 0}},
        {three_lines(0, 1, 0), line_record(1, 0, 99), {0, 0, 0}},
        {three_lines(0, 0, 0), line_record(1, 1, 99), {0, 1, 0}},
        {three_lines(0, 3, 0), line_record(2, 7, 99), {0, 0, 7}, {line_record(1, 0, 11)}},
        // A line is stored under its number, whatever stood in its place.
        {Bytes(390) + bytes_of_line(line_record(9, 1, 11)) + Bytes(390),
         line_record(0, 1),
         {1, 0, 0},
         {line_record(1, 0, 11)}},
    };
    for (const auto& row : cases) {
        fill_table(7, row.before);
        EXPECT_EQ(Private_ChangeCruiseParamToMemory(7, &row.edit), 0);
        EXPECT_EQ(flags(7), row.after);
        EXPECT_EQ(table(7, row.edit.ucLineNo), bytes_of_line(row.edit));
        std::vector<CruiseLine> stored = row.disabled;
        stored.push_back(row.edit);
        EXPECT_EQ(host().takes_written(kTable), written(7, stored));
    }
    EXPECT_EQ(Private_ChangeCruiseParamToDB(8, &cases[0].edit), 390);
    EXPECT_EQ(host().record(kTable, 8), bytes_of_line(cases[0].edit));
}

// Lines of one channel edited, loaded and read by several threads: whatever is read was written as a whole.
TEST_F(CruiseTable, TearsNoLineBetweenThreads) {
    constexpr uint32_t kOne = 9;
    fill_table(kOne, three_lines(0, 0, 0));
    std::atomic<bool> over{false};
    std::vector<std::thread> writers;
    for (uint8_t fill : {uint8_t{0x11}, uint8_t{0xEE}}) {
        writers.emplace_back([fill, &over] {
            while (!over) {
                CruiseLine line = line_record(2, 1);
                std::memset(line.points, fill, sizeof line.points);
                Private_ChangeCruiseParamToMemory(kOne, &line);
                Private_ChangeCruiseLineEnableFlag(kOne, 2, fill);
                Private_ChangeCruiseLineParam(kOne, 2, &line);
            }
        });
    }
    // A stop stores the lines as the table has them, this one last.
    int torn = 0;
    for (int round = 0; round < 300; ++round) {
        const Timewarp warp;
        Private_StartPtzCruiseLine(kOne, 0, 0);
        CruiseLine line;
        const Bytes stored = host().record(kTable, kOne);
        ASSERT_EQ(stored.size(), sizeof line);
        std::memcpy(&line, stored.data(), sizeof line);
        const auto* points = reinterpret_cast<const uint8_t*>(line.points);
        for (size_t i = 1; i < sizeof line.points; ++i) torn += points[i] != points[0];
    }
    over = true;
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(torn, 0);
}

// -- With a camera.

class Cruise : public SettingsTest {
  protected:
    // One command of each kind as it is expected on the wire.
    static Message started(uint8_t operation, uint8_t number) {
        Bytes payload(20);
        payload[1] = operation;
        payload[4] = number;
        return command(kOption, payload, 0, kLoginId);
    }
    void has_fisheye(int byte) {
        Channel channel = host().channel(kChannel);
        channel.fisheye = byte;
        host().has_channel(kChannel, channel);
    }
};

CruisePoint point(uint8_t used, uint8_t time, uint8_t speed, uint16_t preset) {
    CruisePoint point{};
    std::memset(&point, 0x77, sizeof point);  // the host's bytes are not sent
    point.ucUsed = used;
    point.ucTime = time;
    point.ucSpeed = speed;
    point.usPreset = preset;
    return point;
}

TEST_F(Cruise, SendsTheUsedPointsOfALineInTheirPlaces) {
    for (const auto& [fisheye, ptz] : {std::pair{0, 0}, {0x12, 2}, {0x23, 4}, {0x300, 0}}) {
        has_fisheye(fisheye);
        CruiseLine line = line_record(1, 0, 99);
        line.points[0] = point(1, 10, 200, 1);
        line.points[1] = point(1, 0, 9, 2);
        line.points[2] = point(0, 9, 9, 3);
        line.points[3] = point(2, 9, 9, 4);
        line.points[31] = point(1, 43, 255, 0x1FF);
        const auto [result, requests] =
            sends([&] { return Private_SetPtzCruiseAllPreset(kChannel, &line, 0); });
        EXPECT_EQ(result, 0);
        Bytes expected(980);
        expected[0] = static_cast<uint8_t>(ptz);
        expected[1] = 1;
        const Bytes first = {expected[0], 1, 0, 0, 1, 0, 60, 0, 200};
        const Bytes last = {expected[0], 1, 31, 0, 1, 0xFE, 2, 0, 255};
        std::copy(first.begin(), first.end(), expected.begin() + 68);
        std::copy(last.begin(), last.end(), expected.begin() + 68 + 31 * 28);
        EXPECT_EQ(requests[0].command, kSetLine);
        EXPECT_EQ(requests[0].payload, expected);
        EXPECT_EQ(table(kChannel, 1), bytes_of_line(line));
        EXPECT_EQ(host().takes_written(kTable), written(kChannel, {line}));
    }
}

TEST_F(Cruise, StartsAnEnabledLineAndStopsAnother) {
    for (const auto& [enable, operation] : {std::pair{1, 0x29}, {0, 0x2E}, {2, 0x2E}}) {
        const CruiseLine line = line_record(2, static_cast<uint8_t>(enable));
        const auto [result, requests] =
            sends([&] { return Private_SetPtzCruiseAllPreset(kChannel, &line, 1); }, 2);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(requests[0].payload[2], enable);
        EXPECT_EQ(requests[1].bytes(), started(static_cast<uint8_t>(operation), 2).bytes());
    }
    const CruiseLine line = line_record(0, 1);
    EXPECT_EQ(sends([&] { return Private_SetPtzCruiseAllPreset(kChannel, &line, 2); }).result, 0);
}

TEST_F(Cruise, KeepsALineThatTheCameraDidNotGetAndSaysSo) {
    const CruiseLine enabled = line_record(2, 1);
    const CruiseLine disabled = line_record(2, 0);
    const auto reloads = [] {
        host().has_record(kTable, kChannel, three_lines(0, 0, 1));
        return Private_GetPtzCruiseChannel(kChannel);
    };
    const struct {
        std::function<int()> call;
        int failing;  // the first send is the line's, the second the operation's
        int result = -1;
    } cases[] = {
        {[&] { return Private_SetPtzCruiseAllPreset(kChannel, &enabled, 1); }, 1},
        {[&] { return Private_SetPtzCruiseAllPreset(kChannel, &enabled, 1); }, 2},
        {[&] { return Private_SetPtzCruiseAllPreset(kChannel, &disabled, 1); }, 2},
        {reloads, 1},
        {reloads, 2},
        {[] { return Private_StartPtzCruiseLine(kChannel, 2, 1); }, 2, 0},
    };
    for (const auto& row : cases) {
        Capture quiet;
        Timewarp warp;
        warp.failing_send = row.failing;
        EXPECT_EQ(sends(row.call, static_cast<size_t>(row.failing - 1)).result, row.result);
        EXPECT_EQ(warp.failing_send, 0);
        const FakeHost::Written stored = host().takes_written(kTable);
        ASSERT_FALSE(stored.empty());
        EXPECT_EQ(stored.back(), std::pair(uint32_t{kChannel}, table(kChannel, 2)));
    }
    Capture capture;
    EXPECT_EQ(Private_SetPtzCruiseAllPreset(9, &enabled, 1), -1);
    EXPECT_EQ(table(9, 2), Bytes(390));
    EXPECT_EQ(unnumbered(capture.out()),
              line("Private_SetPtzCruiseAllPreset", "DbMainMsgChannelInfo  get channel failed\n"));
}

TEST_F(Cruise, StartsOneLineInsteadOfAnotherAndStopsAll) {
    const struct {
        Bytes before;
        uint32_t line;
        int start;
        std::vector<long> slept_us;
        std::vector<int> after;
        std::vector<CruiseLine> stored;  // a line that starts a second time, as it is sent
    } cases[] = {
        {three_lines(1, 0, 0),
         1,
         1,
         {2000},
         {0, 1, 0},
         {line_record(0, 0, 10), line_record(1, 1, 11), line_record(1, 1, 11)}},
        // Nobody ever stored this channel.
        {Bytes(1170), 2, 1, {}, {0, 0, 1}, {line_record(2, 1), line_record(2, 1)}},
        {three_lines(1, 1, 1),
         77,
         2,
         {500000},
         {0, 0, 0},
         {line_record(0, 0, 10), line_record(1, 0, 11), line_record(2, 0, 12)}},
        {Bytes(1170), 0, 0, {500000}, {0, 0, 0}, {line_record(0, 0), line_record(1, 0), line_record(2, 0)}},
    };
    for (const auto& row : cases) {
        fill_table(kChannel, row.before);
        const Timewarp warp;
        const bool starts = row.start == 1;
        const auto [result, requests] =
            sends([&] { return Private_StartPtzCruiseLine(kChannel, row.line, row.start); }, starts ? 2 : 0);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(warp.slept_us, row.slept_us);
        EXPECT_EQ(flags(kChannel), row.after);
        EXPECT_EQ(host().takes_written(kTable), written(kChannel, row.stored));
        if (!starts) continue;
        EXPECT_EQ(slice(requests[0].payload, 1, 2), (Bytes{static_cast<uint8_t>(row.line), 1}));
        EXPECT_EQ(requests[1].bytes(), started(0x29, static_cast<uint8_t>(row.line)).bytes());
    }
}

TEST_F(Cruise, SendsTheEnabledLineAgainAfterAReload) {
    host().has_record(kTable, kChannel, three_lines(2, 0, 1));
    const auto requests = sends([] { return Private_GetPtzCruiseChannel(kChannel); }, 2).requests;
    EXPECT_EQ(requests[0].payload[1], 2);
    EXPECT_EQ(requests[1].bytes(), started(0x29, 2).bytes());

    host().has_record(kTable, kChannel, three_lines(0, 2, 0));
    EXPECT_EQ(Private_GetPtzCruiseChannel(kChannel), 1170) << "only a flag of 1 counts";
    host().fails_database(kTable, 2);
    EXPECT_EQ(Private_GetPtzCruiseChannel(kChannel), -1);
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Cruise, ReadsTheCamerasVersionOfALine) {
    has_fisheye(0x12);
    Bytes answer = repeated(0xEE, 980);
    const auto entry = [&](int i) { return answer.begin() + 68 + i * 28; };
    for (int i = 0; i < 32; ++i) entry(i)[4] = 0;
    answer[1] = 2;
    const Bytes first = {9, 9, 9, 9, 1, 0, 61, 9, 0x34, 0x12, 0, 0};
    const Bytes timeless = {9, 9, 9, 9, 1, 5, 0};
    const Bytes last = {9, 9, 9, 9, 1, 255, 5, 9, 7};
    std::copy(first.begin(), first.end(), entry(0));
    std::copy(timeless.begin(), timeless.end(), entry(1));
    std::copy(last.begin(), last.end(), entry(31));
    entry(2)[4] = 2;

    Bytes record = repeated('u', 390 + 8);
    record[0] = 2;
    const auto [result, requests] = runs(
        [&] { return Private_GetPtzCruiseAllPreset(kChannel, record.data()); }, {command(kGetLine, answer)});
    EXPECT_EQ(result, 390);
    Bytes asked(980);
    asked[0] = 2;
    asked[1] = 2;
    EXPECT_EQ(requests[0].payload, asked);
    CruiseLine expected = line_record(2, 0);
    expected.points[0].ucUsed = 1;
    expected.points[0].ucTime = 10;
    expected.points[0].ucSpeed = 0x34;
    expected.points[0].usPreset = 1;
    expected.points[31].ucUsed = 1;
    expected.points[31].ucSpeed = 7;
    expected.points[31].usPreset = 256;
    EXPECT_EQ(record, bytes_of_line(expected) + repeated('u', 8));
    EXPECT_EQ(table(kChannel, 2), Bytes(390)) << "memory and database stay";
    EXPECT_EQ(host().database_calls(kTable, 1), 0);
}

TEST_F(Cruise, LeavesTheLineAloneWhenTheCameraDoesNotTell) {
    Bytes record = repeated('u', 390);
    record[0] = 1;
    const Bytes before = record;
    Capture capture;
    EXPECT_EQ(runs([&] { return Private_GetPtzCruiseAllPreset(kChannel, record.data()); },
                   {command(kGetLine, {}, 1)})
                  .result,
              -1);
    EXPECT_EQ(Private_GetPtzCruiseAllPreset(9, record.data()), -1);
    EXPECT_EQ(capture.out(),
              "get cond and property failed pCmd->usCmd =26 DbMainMsgChannelInfo\t get channel "
              "failed\n channelNo:9");
    EXPECT_EQ(record, before);
}

}  // namespace
}  // namespace lenswire::test
