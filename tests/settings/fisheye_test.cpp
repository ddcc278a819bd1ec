// Fisheye cameras: asked without a login, and what their type means for a channel.
#include <cstring>
#include <numeric>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

// A camera that nobody logs in to: it accepts, reads one request and does what the test says.
class Fisheye : public HostTest {
  protected:
    void SetUp() override { descriptors_ = open_descriptors(); }
    void TearDown() override {
        EXPECT_EQ(open_descriptors(), descriptors_) << "a connection was left open";
        HostTest::TearDown();
    }

    HostCameraRecord record(uint8_t channel = 3) const {
        HostCameraRecord record{};
        record.ucChannelNo = channel;
        std::strcpy(record.szIpAddr, camera_.address_text().c_str());
        record.ulPort = static_cast<uint32_t>(camera_.port());
        return record;
    }

    // Runs an operation while the camera answers with these bytes, or hangs up when there are none.
    int asks(const std::function<int()>& operation, const Bytes& answer) {
        std::future<int> result = std::async(std::launch::async, operation);
        Wire wire = camera_.accepts();
        request_ = wire.reads_command();
        answer.empty() ? wire.closes() : wire.sends(answer);
        return result.get();
    }

    int gets(const Bytes& answer) {
        const auto get = [this, ip = camera_.address_text()] {
            return Private_Fish_Protocol_EYE_PROPERTY0(0x103, ip.c_str(), camera_.port(), out_.data());
        };
        return asks(get, answer);
    }

    int descriptors_ = 0;
    ScriptedCamera camera_;
    Message request_;
    Bytes out_ = repeated('u', 64);
};

TEST_F(Fisheye, TellsItsPropertyWithoutALogin) {
    // Neither the state nor the rest of a short answer is looked at.
    for (const auto& [length, state] : {std::pair<size_t, uint16_t>{100, 0}, {2, 5}, {0, 5}}) {
        EXPECT_EQ(gets(command(0x1063, pattern(length), state).bytes()), 0);
        EXPECT_EQ(out_, slice(pattern(length) + Bytes(64), 0, 64));
        EXPECT_EQ(request_.bytes(), command(0x1063, Bytes{3} + Bytes(63)).bytes());
    }
}

TEST_F(Fisheye, RefusesWhatIsNoAnswer) {
    const Message other = command(0x1064, pattern(64));
    for (const Bytes& bad : {other.bytes(), Bytes(), announcing(0x1063, {1, 64}, {1, 2, 3}).bytes(),
                             announcing(0x1063, {2, 0x7FFFFFF0}).bytes(), Bytes{1, 2, 3}}) {
        Capture capture;
        EXPECT_EQ(gets(bad), -1);
        EXPECT_EQ(
            occurrences(capture.out(), "++++++++++++++[259]PC_GetStream type:4196 len:96+++++++++++++++\n"),
            bad == other.bytes() ? 1 : 0);
    }
    EXPECT_EQ(Private_Fish_Protocol_EYE_PROPERTY0(1, "127.0.0.1", refused_port(), out_.data()), -1);
    EXPECT_EQ(out_, repeated('u', 64));
}

TEST_F(Fisheye, WaitsForASilentCameraUntilTheContextStops) {
    ScriptedCamera busy("127.0.0.1", 0);
    const Wire queued(SK_ConnectTo(busy.address(), busy.port()));  // takes the one place there is
    const std::tuple<ScriptedCamera*, bool, bool, long> cases[] = {{&camera_, true, false, 3000},
                                                                   {&camera_, false, true, 3000},
                                                                   {&camera_, true, true, 100},
                                                                   {&busy, true, false, 5000},
                                                                   {&busy, true, true, 100}};
    for (const auto& [camera, runs, stops, waited_ms] : cases) {
        Timewarp warp;
        poke(PC_G_EventLoopSwitch, runs);
        if (stops) warp.meanwhile = [] { poke(PC_G_EventLoopSwitch, 0); };
        EXPECT_EQ(Private_Fish_Protocol_EYE_PROPERTY0(1, "127.0.0.1", camera->port(), out_.data()), -1);
        EXPECT_EQ(std::accumulate(warp.selected_ms.begin(), warp.selected_ms.end(), 0L), waited_ms);
        EXPECT_EQ(out_, repeated('u', 64));
        poke(PC_G_EventLoopSwitch, 0);
        EXPECT_TRUE(camera == &busy || camera_.accepts().reads_command().command == 0x1063);
    }
    const Timewarp warp;
    EXPECT_EQ(SK_SelectWaitReadable(queued.descriptor(), 1050), -1);
    EXPECT_THAT(warp.selected_ms, ElementsAre(1050)) << "seconds and milliseconds add up";
}

TEST_F(Fisheye, ATypeFollowsFromTheCamerasTypeAndTheHostsWishes) {
    constexpr int kAny = 77;
    const std::array<int, 5> cases[] = {
        {0, kAny, kAny, 1, -1}, {0, kAny, kAny, 0, 1}, {0, 2, 5, 2, 1},       {1, 2, 0, 1, -1},
        {1, 2, 5, 0, 2},        {1, 1, 5, 0, -1},      {1, 1, 0, 0, 2},       {1, 1, 0, 2, 2},
        {2, 3, 1, 1, -1},       {2, 3, 0, 1, 0},       {2, 3, 9, 0, 0},       {2, 1, 3, 0, 3},
        {2, 1, 4, 0, -1},       {2, 1, -1, 0, -1},     {2, 1, 0, 1, 3},       {3, 4, 9, 1, 0},
        {3, 1, 0, 1, 4},        {3, 1, 1, 0, -1},      {4, kAny, kAny, 1, 0}, {255, 4, 9, 1, 0},
    };
    for (const auto& [reported, type, number, flag, result] : cases) {
        Bytes property = pattern(64);
        property[1] = static_cast<uint8_t>(reported);
        const HostCameraRecord camera = record();
        const auto call = [&, type = type, number = number, flag = flag] {
            return GetFishType(&camera, type, number, flag);
        };
        EXPECT_EQ(asks(call, command(0x1063, property).bytes()), result)
            << testing::PrintToString(std::tuple(reported, type, number, flag));
        EXPECT_EQ(request_.payload[0], 3);
    }
}

TEST_F(Fisheye, HasNoTypeWhenItDoesNotTell) {
    const HostCameraRecord camera = record();
    Capture capture;
    EXPECT_EQ(asks([&] { return GetFishType(&camera, 1, 0, 0); }, command(0x1064, pattern(64)).bytes()), -1);
    EXPECT_THAT(unnumbered(capture.out()), testing::EndsWith("PRIVATE_LOG src/pteClient-GetFishType-N: "
                                                             "Private_Protocol_GetEncodingScope failed\n"));
    HostCameraRecord endless = record();
    std::memset(endless.szIpAddr, '1', sizeof endless.szIpAddr);  // no NUL before the port
    endless.ulPort = 0x31313131;
    EXPECT_EQ(GetFishType(&endless, 1, 0, 0), -1);
}

TEST_F(Fisheye, ShowsTheTwoNibblesOfTheHostsByte) {
    const HostCameraRecord camera = record(200);
    uint8_t high = 77;
    uint8_t low = 78;
    EXPECT_EQ(GetFiashEve(&camera, &high, &low), -1) << "no such record";
    Bytes channel(450, 0xFF);
    const std::array<int, 3> cases[] = {{0, 77, 78}, {0x13, 1, 3}};
    for (const auto& [byte, expected_high, expected_low] : cases) {
        channel[192] = static_cast<uint8_t>(byte);
        host().has_record(17, 200, channel);
        EXPECT_EQ(GetFiashEve(&camera, &high, &low), 450);
        EXPECT_EQ(high, expected_high);
        EXPECT_EQ(low, expected_low);
    }
}

}  // namespace
}  // namespace lenswire::test
