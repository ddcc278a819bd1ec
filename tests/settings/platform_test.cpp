// Which platform a camera is of: by its device type, or else by its property block.
#include "settings/settings.h"

namespace lenswire::test {
namespace {

// The family's device types, from the first to the last of each run of them.
constexpr std::pair<int, int> kFamily[] = {{81, 81},   {130, 132}, {134, 135}, {137, 138}, {140, 143},
                                           {150, 151}, {153, 154}, {156, 163}, {182, 183}, {202, 202},
                                           {209, 211}, {215, 215}, {221, 222}, {230, 235}, {241, 241}};

Message device_info(int type) {
    Bytes info = pattern(464);
    info[1] = static_cast<uint8_t>(type);
    return command(0x2003, info);
}

Message property_block(uint8_t byte27) {
    Bytes block = repeated(1, 1024);
    block[27] = byte27;
    return command(0x2012, block);
}

using Platform = SettingsTest;

int platform() {
    return Private_Protocol_GetPlatFormType(kChannel);
}

TEST_F(Platform, IsOfTheFamilyByItsDeviceTypeOrElseByItsPropertyBlock) {
    for (int type = 0; type < 256; ++type) {
        bool in_family = false;
        for (const auto& [first, last] : kFamily) in_family |= first <= type && type <= last;
        std::vector<Message> answers = {device_info(type)};
        if (!in_family) answers.push_back(property_block(static_cast<uint8_t>(type % 3)));
        EXPECT_EQ(runs(platform, answers).result, in_family || type % 3 == 1 ? 1 : 0) << type;
    }
}

TEST_F(Platform, NeedsACamera) {
    host().has_channel(1, Channel{.address = "0.0.0.0"});
    uint8_t out[1024];
    Capture capture;
    EXPECT_EQ(Private_Protocol_GetPlatFormType(1), 0);
    EXPECT_EQ(Prv_Get_IPC_PropertyParam(1, out), -1);
    EXPECT_EQ(Prv_Get_IPC_PropertyParam(2, out), -1);
    EXPECT_EQ(unnumbered(capture.out()),
              line("Private_Protocol_GetPlatFormType", "IP  error\n") +
                  line("Prv_Get_IPC_PropertyParam", "IP  error\n") +
                  line("Prv_Get_IPC_PropertyParam", "DbMainMsgChannelInfo   get channel failed\n"));
    EXPECT_EQ(Private_Protocol_GetPlatFormType(2), 0);
    EXPECT_FALSE(camera_was_asked());
}

}  // namespace
}  // namespace lenswire::test
