// Cruise lines: memory, database and camera in step.
#include <atomic>
#include <cstring>

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

// The three lines of a channel by their flags, none for a channel that nobody ever stored. Their numbers are
// wrong: a line is known by its place.
Bytes lines(const std::string& flags) {
    Bytes lines;
    for (size_t i = 0; i < flags.size(); ++i) {
        const auto n = static_cast<uint8_t>(i);
        lines = lines + record_bytes(line_record(n + 9, static_cast<uint8_t>(flags[i] - '0'), n + 10));
    }
    return padded(lines, 1170);
}

Bytes whole_table() {
    return Bytes(gp_private_ptzCruise, gp_private_ptzCruise + 74880);
}

Bytes table(size_t channel, size_t line) {
    return slice(whole_table(), channel * 1170 + line * 390, 390);
}

// What is written to the database for lines of such a channel: numbers and flags, as "21" for line 2.
FakeHost::Written written(uint32_t channel, const std::string& text, bool marked = true) {
    FakeHost::Written written;
    for (size_t i = 0; i + 1 < text.size(); i += 3) {
        const auto number = static_cast<uint8_t>(text[i] - '0');
        const uint8_t mark = marked ? number + 10 : 0;
        const CruiseLine line = line_record(number, static_cast<uint8_t>(text[i + 1] - '0'), mark);
        written.emplace_back(channel, record_bytes(line));
    }
    return written;
}

void fill_table(uint32_t channel, const Bytes& lines) {
    host().has_record(kTable, channel, lines);
    EXPECT_EQ(Private_ptzInitCruiseInfo(channel), 1170);
}

// The flags of a channel's lines in memory.
std::string flags(uint32_t channel) {
    std::string flags;
    for (uint32_t line : {0, 1, 2}) flags += std::to_string(Private_Get_EnableFlagFromMemory(channel, line));
    return flags;
}

// -- Memory and database, without a camera.

class CruiseTable : public HostTest {};

TEST_F(CruiseTable, LoadsTheChannelsThatTheHostShows) {
    std::memset(gp_private_ptzCruise, 0x55, 74880);
    for (uint32_t channel : {0u, 1u, 2u}) host().has_record(kTable, channel, pattern(1170, channel));
    host().displayed = 2;
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    EXPECT_EQ(whole_table(), pattern(1170, 0) + pattern(1170, 1) + Bytes(62 * 1170));
    for (const auto& [shown, calls] : {std::pair{1000, 2 + 64}, {-1, 2 + 64}}) {
        host().displayed = shown;
        EXPECT_EQ(Private_ptzCruiseInit(), 0);
        EXPECT_EQ(host().database_calls(kTable, 2), calls);
    }
    EXPECT_EQ(whole_table(), Bytes(74880));
}

TEST_F(CruiseTable, KeepsWhatADatabaseDoesNotReturn) {
    fill_table(3, lines("020"));
    host().fails_database(kTable, 2);
    host().when(Service::kDatabase, [](int, int) { Private_ChangeCruiseLineEnableFlag(3, 0, 7); });
    EXPECT_EQ(Private_ptzInitCruiseInfo(3), -1);
    EXPECT_EQ(Private_GetPtzCruiseChannel(3), -1);
    EXPECT_EQ(flags(3), "720") << "nor what changed meanwhile";
}

TEST_F(CruiseTable, RefusesChannelsAndLinesOutOfRange) {
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    const CruiseLine good = line_record(1, 1);
    constexpr std::pair<uint32_t, uint32_t> kCases[] = {{64, 1}, {65, 1}, {0x80000000, 1}, {UINT32_MAX, 1},
                                                        {0, 3},  {0, 4},  {0, 128},        {0, 255}};
    for (const auto& [channel, number] : kCases) {
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
    EXPECT_EQ(whole_table(), Bytes(74880));
    EXPECT_EQ(host().database_calls(kTable, 1), 0);
}

TEST_F(CruiseTable, PutsALineInItsOwnPlace) {
    EXPECT_EQ(Private_ptzCruiseInit(), 0);
    CruiseLine line = line_record(2, 1);
    std::memset(line.points, 0x5A, sizeof line.points);
    EXPECT_EQ(Private_ChangeCruiseLineParam(63, 2, &line), 0);
    Bytes expected(74880);
    std::memcpy(expected.data() + 63 * 1170 + 2 * 390, &line, 390);
    EXPECT_EQ(whole_table(), expected);
    Private_ChangeCruiseLineEnableFlag(63, 2, 0x102);
    EXPECT_EQ(Private_Get_EnableFlagFromMemory(63, 2), 2);
    EXPECT_EQ(host().database_calls(kTable, 1), 0);
    EXPECT_EQ(Private_ChangeCruiseParamToDB(8, &line), 390);
    EXPECT_EQ(host().record(kTable, 8), record_bytes(line));
}

// Lines of one channel edited and read by two threads: whatever is read was written as a whole.
TEST_F(CruiseTable, TearsNoLineBetweenThreads) {
    constexpr uint32_t kOne = 9;
    fill_table(kOne, lines("000"));
    std::atomic<bool> over{false};
    std::future<void> writer = std::async(std::launch::async, [&over] {
        CruiseLine line = line_record(2, 1);
        for (int fill = 0x11; !over; fill ^= 0xFF) {
            std::memset(line.points, fill, sizeof line.points);
            Private_ChangeCruiseLineParam(kOne, 2, &line);
            Private_ChangeCruiseParamToMemory(kOne, &line);
            Private_ChangeCruiseLineEnableFlag(kOne, 2, fill);
        }
    });
    // A stop stores the lines as the table has them, this one last.
    int torn = 0;
    for (int round = 0; round < 300; ++round) {
        const Timewarp warp;
        Private_StartPtzCruiseLine(kOne, 0, 0);
        const Bytes stored = host().record(kTable, kOne);
        const Bytes points = slice(stored, offsetof(CruiseLine, points), sizeof CruiseLine::points);
        torn += points != repeated(points[0], points.size());
    }
    over = true;
    writer.get();
    EXPECT_EQ(torn, 0);
}

// -- With a camera.

class Cruise : public SettingsTest {
  protected:
    // Requests as text: "L21" is line 2 with flag 1, "29:2" is operation 0x29 for line 2.
    static std::string text_of(const std::vector<Message>& requests) {
        std::string text;
        for (const Message& request : requests) {
            const Bytes& sent = request.payload;
            const bool is_line = request.command == kSetLine;
            char word[16];
            snprintf(word, sizeof word, is_line ? "L%d%d " : "%X:%d ", sent[1], sent[is_line ? 2 : 4]);
            text += word;
            if (is_line) continue;
            const Bytes option = Bytes{0, sent[1], 0, 0, sent[4]} + Bytes(15);
            EXPECT_EQ(request.bytes(), command(kOption, option, 0, kLoginId).bytes());
        }
        return text;
    }
    void has_fisheye(int byte) {
        Channel channel = host().channel(kChannel);
        channel.fisheye = byte;
        host().has_channel(kChannel, channel);
    }
};

CruisePoint point(uint8_t used, uint8_t time, uint8_t speed, uint16_t preset, int rest = 0x77) {
    CruisePoint point{};
    std::memset(&point, rest, sizeof point);  // the host's bytes are not sent
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
        EXPECT_EQ(table(kChannel, 1), record_bytes(line));
        EXPECT_EQ(host().takes_written(kTable), (FakeHost::Written{{kChannel, record_bytes(line)}}));
    }
}

TEST_F(Cruise, KeepsTableDatabaseAndCameraInStep) {
    const auto edits = [](uint8_t number, uint8_t flag) {
        const CruiseLine line = line_record(number, flag, number + 10);
        return [line] { return Private_ChangeCruiseParamToMemory(kChannel, &line); };
    };
    const auto sets = [](uint8_t number, uint8_t flag, int start) {
        const CruiseLine line = line_record(number, flag, number + 10);
        return [line, start] { return Private_SetPtzCruiseAllPreset(kChannel, &line, start); };
    };
    const auto starts = [](uint32_t line, int start) {
        return [line, start] { return Private_StartPtzCruiseLine(kChannel, line, start); };
    };
    const auto reloads = [] {
        std::memset(gp_private_ptzCruise, 0, 74880);
        return Private_GetPtzCruiseChannel(kChannel);
    };
    const struct {
        const char* before;
        std::function<int()> call;
        int result;
        std::string sent, after, stored;
        long slept_us = 0;
        int failing = 0;  // the first send is the line's, the second the operation's
    } cases[] = {
        // An edit keeps one line enabled.
        {"100", edits(2, 1), 0, "", "001", "00 21"},
        {"010", edits(0, 0), 0, "", "010", "00"},
        {"010", edits(1, 1), 0, "", "010", "11"},
        {"010", edits(1, 0), 0, "", "000", "10"},
        {"000", edits(1, 1), 0, "", "010", "11"},
        {"030", edits(2, 7), 0, "", "007", "10 27"},
        // The camera starts an enabled line and stops another.
        {"000", sets(2, 1, 1), 0, "L21 29:2 ", "001", "21"},
        {"000", sets(2, 0, 1), 0, "L20 2E:2 ", "000", "20"},
        {"000", sets(2, 2, 1), 0, "L22 2E:2 ", "002", "22"},
        {"000", sets(0, 1, 2), 0, "L01 ", "100", "01"},
        // One line starts instead of another, stored a second time as it is sent; a stop is of all lines.
        {"100", starts(1, 1), 0, "L11 29:1 ", "010", "00 11 11", 2000},
        {"", starts(2, 1), 0, "L21 29:2 ", "001", "21 21"},
        {"111", starts(77, 2), 0, "", "000", "00 10 20", 500000},
        {"", starts(0, 0), 0, "", "000", "00 10 20", 500000},
        // After a reload, too, but only a flag of 1 counts.
        {"201", reloads, 0, "L21 29:2 ", "001", "00 21"},
        {"020", reloads, 1170, "", "020", ""},
        // What the camera did not get is kept.
        {"000", sets(2, 1, 1), -1, "", "001", "21", 0, 1},
        {"000", sets(2, 1, 1), -1, "L21 ", "001", "21", 0, 2},
        {"000", sets(2, 0, 1), -1, "L20 ", "000", "20", 0, 2},
        {"001", reloads, -1, "", "001", "21", 0, 1},
        {"001", reloads, -1, "L21 ", "001", "21", 0, 2},
        {"000", starts(2, 1), 0, "L21 ", "001", "21 21", 0, 2},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const auto& row = cases[i];
        fill_table(kChannel, lines(row.before));
        Capture quiet;
        Timewarp warp;
        warp.failing_send = row.failing;
        const auto commands = static_cast<size_t>(std::count(row.sent.begin(), row.sent.end(), ' '));
        const auto [result, requests] = sends(row.call, commands);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(text_of(requests), row.sent);
        EXPECT_EQ(warp.failing_send, 0);
        EXPECT_EQ(warp.slept_us, row.slept_us > 0 ? std::vector{row.slept_us} : std::vector<long>());
        EXPECT_EQ(flags(kChannel), row.after);
        EXPECT_EQ(host().takes_written(kTable), written(kChannel, row.stored, row.before[0] != 0));
    }
}

TEST_F(Cruise, ReadsTheCamerasVersionOfALine) {
    has_fisheye(0x12);
    Bytes answer = repeated(0xEE, 980);
    answer[1] = 2;
    const auto has_point = [&answer](int i, const Bytes& bytes) {
        std::copy(bytes.begin(), bytes.end(), answer.begin() + 68 + i * 28);
    };
    for (int i = 0; i < 32; ++i) has_point(i, {9, 9, 9, 9, uint8_t(i == 2 ? 2 : 0)});
    has_point(0, {9, 9, 9, 9, 1, 0, 61, 9, 0x34, 0x12, 0, 0});
    has_point(1, {9, 9, 9, 9, 1, 5, 0});  // timeless
    has_point(31, {9, 9, 9, 9, 1, 255, 5, 9, 7});

    Bytes record = repeated('u', 390 + 8);
    record[0] = 2;
    const auto [result, requests] = runs(
        [&] { return Private_GetPtzCruiseAllPreset(kChannel, record.data()); }, {command(kGetLine, answer)});
    EXPECT_EQ(result, 390);
    EXPECT_EQ(requests[0].payload, (Bytes{2, 2} + Bytes(978)));
    CruiseLine expected = line_record(2, 0);
    expected.points[0] = point(1, 10, 0x34, 1, 0);
    expected.points[31] = point(1, 0, 7, 256, 0);
    EXPECT_EQ(record, record_bytes(expected) + repeated('u', 8));
    EXPECT_EQ(table(kChannel, 2), Bytes(390)) << "memory and database stay";
    EXPECT_EQ(host().database_calls(kTable, 1), 0);
}

TEST_F(Cruise, LeavesTheLineAloneWhenTheCameraDoesNotTell) {
    Bytes record = Bytes{1} + repeated('u', 389);
    const Bytes before = record;
    Capture capture;
    const auto gets = [&] { return Private_GetPtzCruiseAllPreset(kChannel, record.data()); };
    EXPECT_EQ(runs(gets, {command(kGetLine, {}, 1)}).result, -1);
    EXPECT_EQ(Private_GetPtzCruiseAllPreset(9, record.data()), -1);
    EXPECT_EQ(Private_SetPtzCruiseAllPreset(9, record.data(), 1), -1);
    EXPECT_EQ(whole_table(), Bytes(74880));
    EXPECT_EQ(unnumbered(capture.out()),
              "get cond and property failed pCmd->usCmd =26 DbMainMsgChannelInfo\t get channel failed\n "
              "channelNo:9" +
                  line("Private_SetPtzCruiseAllPreset", "DbMainMsgChannelInfo  get channel failed\n"));
    EXPECT_EQ(record, before);
}

}  // namespace
}  // namespace lenswire::test
