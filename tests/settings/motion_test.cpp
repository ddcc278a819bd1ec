// Motion: what a camera reports by itself, and how detection is switched off.
#include "settings/settings.h"

namespace lenswire::test {
namespace {

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

class MotionPush : public HostTest {
  protected:
    MotionPush() {
        const std::pair<Service, const char*> noted[] = {
            {Service::kSetMotionStatus, "set"}, {Service::kSnapMotion, "snap"}, {Service::kAlarm, "alarm"}};
        for (const auto& [service, name] : noted) {
            host().when(service, [this, name = std::string(name)](int first, int second) {
                done_ += name + " " + std::to_string(first) + " " + std::to_string(second) + ", ";
            });
        }
    }
    // What a push with these bytes behind its header, of which this many are its payload, makes of the host.
    std::string push(const Bytes& bytes, size_t length = 4, int result = 0) {
        const Bytes message =
            padded(command(9, slice(bytes, 0, length)).bytes() + slice(bytes, length, 4 - length), 4096);
        done_.clear();
        EXPECT_EQ(Prv_IPCTriggingMtionDetetion(message.data(), kCamera), result);
        return done_;
    }
    std::optional<Bytes> last_data() const { return host().motion_calls().back().data; }

    std::string done_;
};

TEST_F(MotionPush, GivesAnArmedChannelTheCamerasStateAndItsData) {
    host().has_channel(7, bound_to("127.0.0.1", true));
    EXPECT_EQ(push({0xAA, 0xBB, 1, 0xCC}), "set 7 1, snap 7 1, ");
    EXPECT_EQ(last_data(), pattern(88, 3));
    EXPECT_EQ(push({0, 0, 2, 0}, 3), "set 7 2, ") << "only motion starts snapshots";
    EXPECT_EQ(push({1, 1, 0, 1}), "set 7 0, ");
    for (size_t too_short : {0, 2}) EXPECT_EQ(push({1, 1, 1, 1}, too_short), "set 7 0, ");
}

TEST_F(MotionPush, EndsTheMotionOfAnUnarmedChannelWithOneAlarm) {
    host().has_channel(63, bound_to("127.0.0.1", false, 1));
    EXPECT_EQ(push({0, 0, 1, 0}), "alarm 0 0, set 63 0, snap 63 0, ");
    EXPECT_EQ(host().alarms()[0].record, (Bytes{2, 63, 0, 0}));
    EXPECT_EQ(last_data(), std::nullopt);
    EXPECT_EQ(push({0, 0, 1, 0}), "") << "the state is clear";
}

TEST_F(MotionPush, ReachesEveryChannelOfTheCameraAndNoOtherUntilOneHasNoData) {
    for (int channel : {0, 2, 3, 4, 63, 64}) host().has_channel(channel, bound_to("127.0.0.1", true));
    host().has_channel(1, bound_to("127.0.0.2", true));
    const auto differs = [](int channel, auto member, auto value) {
        Channel description = host().channel(channel);
        description.*member = value;
        host().has_channel(channel, description);
    };
    differs(2, &Channel::protocol, 3);
    differs(3, &Channel::bound, 0);
    differs(4, &Channel::bound, 2);
    host().has_channel(5, bound_to("127.0.0.1", 2, 2));  // neither armed nor in motion: both would be 1
    host().has_channel(62, bound_to("127.0.0.1", false, 0));
    EXPECT_EQ(push({0, 0, 1, 0}), "set 0 1, snap 0 1, set 4 1, snap 4 1, set 63 1, snap 63 1, ");
    differs(4, &Channel::motion_data, Bytes());
    Capture capture;
    EXPECT_EQ(push({0, 0, 1, 0}, 4, -1), "set 0 1, snap 0 1, ");
    EXPECT_EQ(unnumbered(capture.out()), line("Prv_IPCTriggingMtionDetetion", "channel 4 data read error"));
}

TEST_F(MotionPush, AHostMaySetTheStateOfChannelsUpTo64) {
    Bytes data = pattern(88);
    for (const auto& [channel, result] : {std::pair{64u, 0}, {65u, -1}, {UINT32_MAX, -1}}) {
        EXPECT_EQ(Private_VideoMDSetStatus(channel, 1, data.data()), result);
    }
    EXPECT_EQ(done_, "set 64 1, snap 64 1, ");
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
    const auto [channel, status, data] = host().motion_calls()[0];
    EXPECT_EQ(std::tuple(channel, status, *data), std::tuple(kChannel, 0, Bytes(88)));
    EXPECT_THAT(host().snap_calls(), IsEmpty());
}

TEST_F(CloseMotion, StopsAtTheFirstStepThatFails) {
    const std::string unreadable = line("Prv_CloseMD", "channel 5 databaseOperate read error");
    const std::string unsent = line("Prv_SetIPCMtionDetetionConfigure", " Prv_Send_Cmd failed") +
                               line("Prv_CloseMD", "Prv_SetIPCMtionDetetionConfigure error");
    const auto has_record = [this] { host().has_record(kMotionTable, kChannel, record_); };
    const std::tuple<std::function<void()>, size_t, std::string> cases[] = {
        {[] {}, 0, unreadable},
        {[&] { has_record(), host().fails_database(kMotionTable, 1); }, 1, unreadable},
        {[&] { loses_camera(); }, 0, unsent},
    };
    for (const auto& [fails, commands, text] : cases) {
        fails();
        Capture capture;
        EXPECT_EQ(sends([&] { return Prv_CloseMD(kChannel, ip()); }, commands).result, -1);
        EXPECT_THAT(unnumbered(capture.out()), testing::EndsWith(text));
    }
    EXPECT_THAT(host().motion_calls(), IsEmpty());
    EXPECT_EQ(host().record(kMotionTable, kChannel), record_);
    EXPECT_EQ(host().database_calls(kMotionTable, 1), 1) << "only the failed write";
}

// -- Headers and the extended alarm property.

TEST(CommandHeader, IsFilledInAndKeepsWhatItDoesNotName) {
    Bytes header = pattern(33, 7);
    const Bytes expected = Bytes{0, 0, 1, 1, 0x34, 0x12} + slice(header, 6, 6) +
                           Bytes{0x30, 2, 0, 0, 3, 0, 0, 0} + slice(header, 20, 13);
    EXPECT_EQ(cmd_packet(header.data(), 0x1234, 3, 560), 0);
    EXPECT_EQ(header, expected);
}

using AlarmProperty = SettingsTest;

TEST_F(AlarmProperty, GoesToADottedAddressWithItsSecondByteSetEvenWhenItCannotBeSent) {
    const std::string unsent = line("prv_set_alarm_property_ex", " Prv_Send_Cmd failed");
    const std::string here = camera_.address_text();
    Bytes marked = pattern(560);
    marked[1] = 1;
    for (const auto& [address, attempts, sent] :
         {std::tuple(here, 20, 1), {"127.9.9.9", 20, 0}, {"0.0.0.0", 20, 0}, {here, -1, 0}}) {
        Bytes record = pattern(560);
        Capture capture;
        const auto call = [&, to = address.c_str(), tries = attempts] {
            return prv_set_alarm_property_ex(to, record.data(), tries);
        };
        const auto [result, requests] = sends(call, static_cast<size_t>(sent));
        EXPECT_EQ(result, sent - 1);
        EXPECT_THAT(unnumbered(capture.out()), testing::EndsWith(sent == 1 ? "" : unsent)) << address;
        for (const Message& request : requests)
            EXPECT_EQ(request.bytes(), command(0x1057, marked, 0, kLoginId).bytes());
        EXPECT_EQ(record, marked);
    }
    EXPECT_EQ(prv_get_alarm_property_ex(), 0);
}

}  // namespace
}  // namespace lenswire::test
