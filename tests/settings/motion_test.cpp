// Motion: what a camera reports by itself, and how detection is switched off.
#include "settings/settings.h"

namespace lenswire::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const uint32_t kCamera = 0x0100007F;  // 127.0.0.1 as it stands on the wire
constexpr int kMotionTable = 21;

Channel bound_to(const std::string& address, int armed, int motion = 0) {
    Channel channel;
    channel.address = address;
    channel.armed = armed;
    channel.motion = motion;
    channel.motion_data = pattern(88, 3);
    channel.result = 88;
    return channel;
}

int push(Bytes payload) {
    return Prv_IPCTriggingMtionDetetion(command(9, std::move(payload)).bytes().data(), kCamera);
}

class MotionPush : public HostTest {};

TEST_F(MotionPush, GivesAnArmedChannelTheCamerasStateAndItsData) {
    host().has_channel(7, bound_to("127.0.0.1", true));
    EXPECT_EQ(push({0xAA, 0xBB, 1, 0xCC}), 0);
    EXPECT_EQ(push({0, 0, 2}), 0);
    EXPECT_EQ(push({1, 1, 0, 1}), 0);
    const auto calls = host().motion_calls();
    ASSERT_EQ(calls.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(calls[i].channel, 7);
        EXPECT_EQ(calls[i].status, (std::vector{1, 2, 0}[i]));
        EXPECT_EQ(calls[i].data, pattern(88, 3));
    }
    EXPECT_THAT(host().snap_calls(), ElementsAre(Pair(7, 1))) << "only motion starts snapshots";
    EXPECT_THAT(host().alarms(), IsEmpty());
}

TEST_F(MotionPush, ReadsAsNoMotionWhatIsTooShort) {
    host().has_channel(0, bound_to("127.0.0.1", true));
    Bytes message = command(9, {1, 1}).bytes();
    message.resize(4096, 1);  // what came after it in the receive buffer
    EXPECT_EQ(Prv_IPCTriggingMtionDetetion(message.data(), kCamera), 0);
    EXPECT_EQ(push({}), 0);
    ASSERT_EQ(host().motion_calls().size(), 2u);
    for (const MotionCall& call : host().motion_calls()) EXPECT_EQ(call.status, 0);
}

TEST_F(MotionPush, EndsTheMotionOfAnUnarmedChannelWithOneAlarm) {
    host().has_channel(63, bound_to("127.0.0.1", false, 1));
    std::vector<Service> order;
    for (const Service service : {Service::kSnapMotion, Service::kSetMotionStatus, Service::kAlarm}) {
        host().when(service, [&, service](int, int) { order.push_back(service); });
    }
    EXPECT_EQ(push({0, 0, 1}), 0);
    EXPECT_THAT(order, ElementsAre(Service::kAlarm, Service::kSetMotionStatus, Service::kSnapMotion));
    ASSERT_EQ(host().alarms().size(), 1u);
    EXPECT_EQ(host().alarms()[0].queue, 0);
    EXPECT_EQ(host().alarms()[0].record, (Bytes{2, 63, 0, 0}));
    ASSERT_EQ(host().motion_calls().size(), 1u);
    EXPECT_EQ(host().motion_calls()[0].status, 0);
    EXPECT_EQ(host().motion_calls()[0].data, std::nullopt);
    EXPECT_THAT(host().snap_calls(), ElementsAre(Pair(63, 0)));
    EXPECT_EQ(push({0, 0, 1}), 0);
    EXPECT_EQ(host().alarms().size(), 1u) << "the state is clear, a second push queues nothing";
}

TEST_F(MotionPush, ReachesEveryChannelOfTheCameraAndNoOther) {
    host().has_channel(0, bound_to("127.0.0.1", true));
    host().has_channel(1, bound_to("127.0.0.2", true));
    Channel other_protocol = bound_to("127.0.0.1", true);
    other_protocol.protocol = 3;
    host().has_channel(2, other_protocol);
    Channel unbound = bound_to("127.0.0.1", true);
    unbound.bound = false;
    host().has_channel(3, unbound);
    Channel bound_otherwise = bound_to("127.0.0.1", true);
    bound_otherwise.bound = 2;
    host().has_channel(4, bound_otherwise);
    host().has_channel(5, bound_to("127.0.0.1", 2, 2));  // neither armed nor in motion: both would be 1
    host().has_channel(62, bound_to("127.0.0.1", false, 0));
    host().has_channel(63, bound_to("127.0.0.1", true));
    host().has_channel(64, bound_to("127.0.0.1", true));
    EXPECT_EQ(push({0, 0, 1}), 0);
    EXPECT_THAT(host().snap_calls(), ElementsAre(Pair(0, 1), Pair(4, 1), Pair(63, 1)));
    EXPECT_EQ(host().motion_calls().size(), 3u);
    EXPECT_THAT(host().alarms(), IsEmpty());
}

TEST_F(MotionPush, EndsAtTheFirstChannelWithoutData) {
    Channel broken = bound_to("127.0.0.1", true);
    broken.motion_data.clear();
    host().has_channel(1, bound_to("127.0.0.1", true));
    host().has_channel(2, broken);
    host().has_channel(3, bound_to("127.0.0.1", true));
    Capture capture;
    EXPECT_EQ(push({0, 0, 1}), -1);
    EXPECT_EQ(unnumbered(capture.out()), line("Prv_IPCTriggingMtionDetetion", "channel 2 data read error"));
    EXPECT_THAT(host().snap_calls(), ElementsAre(Pair(1, 1)));
}

TEST_F(MotionPush, AHostMaySetTheStateOfChannelsUpTo64) {
    Bytes data = pattern(88);
    EXPECT_EQ(Private_VideoMDSetStatus(64, 1, data.data()), 0);
    EXPECT_EQ(Private_VideoMDSetStatus(65, 1, data.data()), -1);
    EXPECT_EQ(Private_VideoMDSetStatus(UINT32_MAX, 1, data.data()), -1);
    ASSERT_EQ(host().motion_calls().size(), 1u);
    EXPECT_THAT(host().snap_calls(), ElementsAre(Pair(64, 1)));
}

// -- Switching detection off: camera, host record, host state.

class CloseMotion : public SettingsTest {
  protected:
    Bytes record_ = pattern(88, 9);
};

TEST_F(CloseMotion, SwitchesOffTheCameraTheRecordAndTheState) {
    host().has_record(kMotionTable, kChannel, record_);
    const auto [result, requests] = sends([&] { return Prv_CloseMD(kChannel, ip()); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(requests[0].command, 0x100B);
    Bytes expected(168);
    expected[3] = record_[7];
    std::copy_n(record_.begin() + 8, 72, expected.begin() + 8);
    EXPECT_EQ(requests[0].payload, expected);
    record_[0] = 0;
    EXPECT_EQ(host().record(kMotionTable, kChannel), record_);
    ASSERT_EQ(host().motion_calls().size(), 1u);
    EXPECT_EQ(host().motion_calls()[0].channel, kChannel);
    EXPECT_EQ(host().motion_calls()[0].status, 0);
    EXPECT_EQ(host().motion_calls()[0].data, Bytes(88));
    EXPECT_THAT(host().snap_calls(), IsEmpty());
}

TEST_F(CloseMotion, StopsAtTheFirstStepThatFails) {
    const std::string unreadable = line("Prv_CloseMD", "channel 5 databaseOperate read error");
    {
        Capture capture;
        EXPECT_EQ(Prv_CloseMD(kChannel, ip()), -1) << "no record";
        EXPECT_EQ(unnumbered(capture.out()), unreadable);
        EXPECT_FALSE(camera_was_asked());
    }
    host().has_record(kMotionTable, kChannel, record_);
    host().fails_database(kMotionTable, 1);
    {
        Capture capture;
        EXPECT_EQ(sends([&] { return Prv_CloseMD(kChannel, ip()); }).result, -1);
        EXPECT_EQ(unnumbered(capture.out()), unreadable);
        EXPECT_THAT(host().motion_calls(), IsEmpty());
    }
    loses_camera();
    Capture capture;
    EXPECT_EQ(Prv_CloseMD(kChannel, ip()), -1);
    EXPECT_THAT(unnumbered(capture.out()),
                testing::EndsWith(line("Prv_SetIPCMtionDetetionConfigure", " Prv_Send_Cmd failed") +
                                  line("Prv_CloseMD", "Prv_SetIPCMtionDetetionConfigure error")));
    EXPECT_EQ(host().record(kMotionTable, kChannel), record_);
    EXPECT_EQ(host().database_calls(kMotionTable, 1), 1) << "only the failed write of before";
}

// -- Headers and the extended alarm property.

TEST(CommandHeader, IsFilledInAndKeepsWhatItDoesNotName) {
    Bytes header = pattern(33, 7);
    Bytes expected = header;
    const Bytes filled = {0, 0, 1, 1, 0x34, 0x12};
    std::copy(filled.begin(), filled.end(), expected.begin());
    put_u32(expected, 12, 560);
    put_u32(expected, 16, 3);
    EXPECT_EQ(cmd_packet(header.data(), 0x1234, 3, 560), 0);
    EXPECT_EQ(header, expected);
}

using AlarmProperty = SettingsTest;

TEST_F(AlarmProperty, GoesToADottedAddressWithItsSecondByteSet) {
    Bytes record = pattern(560);
    const auto [result, requests] =
        sends([&] { return prv_set_alarm_property_ex(camera_.address_text().c_str(), record.data(), 20); });
    EXPECT_EQ(result, 0);
    Bytes expected = pattern(560);
    expected[1] = 1;
    EXPECT_EQ(requests[0].bytes(), [&] {
        Message message = command(0x1057, expected, 0, kLoginId);
        return message.bytes();
    }());
    EXPECT_EQ(record, expected);
    EXPECT_EQ(prv_get_alarm_property_ex(), 0);
}

TEST_F(AlarmProperty, MarksTheRecordEvenWhenItCannotBeSent) {
    const std::string unsent = line("prv_set_alarm_property_ex", " Prv_Send_Cmd failed");
    const struct {
        const char* address;
        int attempts;
    } cases[] = {{"127.9.9.9", 20}, {"0.0.0.0", 20}, {"127.9.9.9", -1}};
    for (const auto& row : cases) {
        Bytes record = pattern(560);
        Capture capture;
        EXPECT_EQ(prv_set_alarm_property_ex(row.address, record.data(), row.attempts), -1);
        EXPECT_THAT(unnumbered(capture.out()), testing::EndsWith(unsent)) << row.address;
        EXPECT_EQ(record[1], 1);
    }
}

}  // namespace
}  // namespace lenswire::test
