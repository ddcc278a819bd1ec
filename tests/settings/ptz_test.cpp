// Pan, tilt, zoom: speed, operations and presets, by recorder channel.
#include "settings/settings.h"

namespace lenswire::test {
namespace {

constexpr uint16_t kGet = 0x1031;
constexpr uint16_t kSet = 0x1030;
constexpr uint16_t kOption = 0x0020;

class Ptz : public SettingsTest {
  protected:
    void has_fisheye(uint8_t byte) {
        Bytes record(450, 0xFF);
        record[192] = byte;
        host().has_record(17, kChannel, record);
    }
    // One option goes out for the operation.
    void sends_option(const std::function<int()>& operation, int result, int code, int argument) {
        const auto exchanged = sends(operation);
        EXPECT_EQ(exchanged.result, result);
        const Bytes option = {1, uint8_t(code), 0, 0, uint8_t(argument)};
        EXPECT_EQ(exchanged.requests[0].bytes(), command(kOption, option + Bytes(15), 0, kLoginId).bytes());
    }
};

TEST_F(Ptz, SetsASpeedAndKeepsTheRest) {
    constexpr std::pair<int, int> kCases[] = {{-1, kChannel}, {0x00, kChannel}, {0x12, 2}, {0x1F, 15},
                                              {0x23, 4},      {0x03, 4},        {0x2F, 16}};
    for (const auto& [fisheye, ptz] : kCases) {
        if (fisheye >= 0) has_fisheye(static_cast<uint8_t>(fisheye));  // without a record: an ordinary camera
        std::future<int> result = starts([] { return Private_SetPtzSpeed(kChannel, 0x1FE); });
        EXPECT_EQ(wire_.reads_command().command, kGet);
        wire_.sends(command(kGet, pattern(24)));
        const Message set = wire_.reads_command();
        EXPECT_EQ(result.get(), 0);
        EXPECT_EQ(set.command, kSet);
        EXPECT_EQ(set.payload, (Bytes{static_cast<uint8_t>(ptz), 0xFE} + slice(pattern(24), 2, 22)));
    }
}

TEST_F(Ptz, NeedsThePropertyAndACamera) {
    Capture quiet;
    EXPECT_EQ(runs([] { return Private_SetPtzSpeed(kChannel, 9); }, {command(kGet, {}, 1)}).result, -1);
    Capture capture;
    EXPECT_EQ(Private_SetPtzSpeed(9, 9), -1);
    EXPECT_EQ(Private_PtzCmd(9, 1, 2, 3), -1);
    const char* const text = "DbMainMsgChannelInfo  get channel failed\n";
    EXPECT_EQ(unnumbered(capture.out()), line("Private_SetPtzSpeed", text) + line("Private_PtzCmd", text));
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Ptz, SendsOperationsWithTheSecondArgumentUnlessItIsNothing) {
    constexpr std::array<int, 5> kCases[] = {{7, 3, 7, 7, 7},     {7, 3, 0, 7, 3},     {0x1FF, 0, 0, 0xFF, 0},
                                             {1, 0x102, 0, 1, 2}, {1, 3, 0x100, 1, 0}, {1, 3, -1, 1, 255}};
    for (const auto& [operation, first, second, code, argument] : kCases) {
        const auto call = [=] { return Private_PtzCmd(kChannel, operation, first, second); };
        sends_option(call, 0, code, argument);
    }
}

TEST_F(Ptz, CountsPresetsFromZeroOnTheWire) {
    for (const auto& [number, index] : {std::pair{1, 0}, {2, 1}, {256, 255}, {0, 255}, {257, 0}}) {
        const auto preset = static_cast<uint16_t>(number);
        sends_option([&] { return Private_SetPreset(kChannel, &preset); }, 4, 0x2C, index);
        sends_option([&] { return Private_RecallPreset(kChannel, &preset); }, 4, 0x28, index);
    }
}

TEST_F(Ptz, ReportsNoFailureOfASend) {
    loses_camera();
    const uint16_t preset = 1;
    Capture capture;
    EXPECT_EQ(Private_PtzCmd(kChannel, 1, 2, 3), 0);
    EXPECT_EQ(Private_SetPreset(kChannel, &preset), 4);
    EXPECT_EQ(Private_RecallPreset(9, &preset), 4);
    EXPECT_EQ(occurrences(unnumbered(capture.out()), line("Private_PTZ_OPTION", " Prv_Send_Cmd failed")), 2);
}

}  // namespace
}  // namespace lenswire::test
