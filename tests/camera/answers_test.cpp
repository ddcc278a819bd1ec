// What a camera answers, pushes and keeps, and how it stops and comes back.
#include <gtest/gtest.h>

#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::CameraStats;
using camera::Command;

TEST(Camera, AnswersHeartbeatsUnlessToldNotTo) {
    OneCamera one;
    Session session = log_in(*one);
    EXPECT_EQ(session.asks(0x0006).command, 0x0006);
    OneCamera quiet({.answer_heartbeats = false});
    Session other = log_in(*quiet);
    other.sends(0x0006);
    EXPECT_EQ(other.asks(0x1004, Bytes(36)).command, 0x1004);
    EXPECT_EQ(quiet->stats().heartbeats, 1U);
}

TEST(Camera, PushesMotionToEveryLoggedInConnection) {
    OneCamera one;
    Session first = log_in(*one);
    Session second = log_in(*one);
    Wire stranger = connect_to(*one);
    EXPECT_EQ(one->push_motion(1), 2U);
    for (Session* session : {&first, &second}) {
        const Message push = session->wire.reads_command();
        EXPECT_EQ(push.command, 0x0009);
        ASSERT_GE(push.payload.size(), 3U);
        EXPECT_EQ(push.payload[2], 1);
    }
    EXPECT_FALSE(stranger.has_bytes());
}

TEST(Camera, PushesMotionOnASchedule) {
    OneCamera one({.motion_every_ms = 20});
    Session session = log_in(*one);
    const uint8_t first = session.wire.reads_command().payload.at(2);
    EXPECT_EQ(session.wire.reads_command().payload.at(2), first ^ 1);
    EXPECT_EQ(session.wire.reads_command().payload.at(2), first);
}

TEST(Camera, TakesMessagesInAnyPiecesAndRemembersThem) {
    OneCamera one;
    Session session = log_in(*one);
    const Bytes two = command(0x1005, pattern(36), 0, session.login_id).bytes() +
                      command(0x1004, Bytes(36), 0, session.login_id).bytes();
    for (size_t at = 0; at < two.size(); ++at) session.wire.sends(slice(two, at, 1));
    EXPECT_EQ(session.wire.reads_command().payload, pattern(36)) << "what was set is what a get answers";
    ASSERT_TRUE(one->wait_received(0x1005, 1));
    EXPECT_EQ(one->received(0x1005)[0].payload, pattern(36));
    EXPECT_EQ(one->received().size(), 4U);
}

TEST(Camera, DropsAConnectionThatSendsAnOverLongMessage) {
    for (const auto& [size, num] : {std::pair{4065U, 1U}, std::pair{0x10000U, 0xFFFFU}}) {
        OneCamera one;
        Session session = log_in(*one);
        Message message = command(0x1005, {}, 0, session.login_id);
        message.buffer_size = size;
        message.buffer_num = num;
        session.wire.sends(message);
        EXPECT_TRUE(session.wire.sees_close());
        EXPECT_EQ(one->stats().malformed, 1U);
    }
}

TEST(Camera, HooksReplaceAnswers) {
    OneCamera one;
    Session session = log_in(*one);
    one->on_command(0x1004, [&](const Command& request) -> std::optional<Command> {
        one->push_motion(1);
        Command answer = camera::answer_to(request, {1, 2, 3});
        answer.state = 77;
        return answer;
    });
    session.sends(0x1004, Bytes(36));
    EXPECT_EQ(session.wire.reads_command().command, 0x0009);
    const Message answer = session.wire.reads_command();
    EXPECT_EQ(answer.state, 77);
    EXPECT_EQ(answer.payload, (Bytes{1, 2, 3}));
    one->on_command(0x1004, nullptr);
    EXPECT_EQ(session.asks(0x1004, Bytes(36)).state, 0);
}

TEST(Camera, TellsItsFisheyeTypeWithoutALogin) {
    OneCamera one;
    Wire wire = connect_to(*one);
    wire.sends(command(0x1063, Bytes(64)));
    const Message answer = wire.reads_command();
    EXPECT_EQ(answer.command, 0x1063);
    EXPECT_EQ(answer.payload.size(), 64U);
    EXPECT_EQ(one->stats().wrong_login_ids, 0U);
}

TEST(Camera, ThatWasStoppedRefusesAndComesBackOnItsPort) {
    OneCamera one;
    Session session = log_in(*one);
    const uint16_t port = one->port();
    one->stop();
    EXPECT_TRUE(session.wire.sees_close());
    EXPECT_FALSE(connect_to(*one).connected());
    std::string error;
    ASSERT_TRUE(one->start(&error)) << error;
    EXPECT_EQ(one->port(), port);
    EXPECT_EQ(log_in(*one).state, 0);
}

TEST(Camera, RestartsByItself) {
    OneCamera one;
    Session session = log_in(*one);
    one->restart_in(5);
    EXPECT_TRUE(session.wire.sees_close());
    ASSERT_TRUE(one->wait([&](const CameraStats&) { return one->running(); }));
    EXPECT_EQ(log_in(*one).state, 0);
}

TEST(Farm, ServesManyCamerasOnTheirOwnAddresses) {
    camera::CameraFarm farm(2);
    for (uint32_t i = 0; i < 20; ++i) {
        auto config = small_streams(3);
        config.address = camera::address_above("127.0.0.250", i);
        config.number = i;
        std::string error;
        ASSERT_NE(farm.add(config, &error), nullptr) << error;
    }
    EXPECT_EQ(farm[19].address(), "127.0.1.13");
    for (uint32_t i = 0; i < 20; ++i) {
        const Session session = log_in(farm[i]);
        Wire wire = open_stream(farm[i], session);
        uint32_t seed = 0;
        uint32_t index = 0;
        ASSERT_TRUE(camera::synthetic_matches(read_packet(wire).payload, &seed, &index));
        EXPECT_EQ(seed, camera::synthetic_seed(i, 0, 0));
    }
}

TEST(Farm, SaysWhyACameraCannotListen) {
    OneCamera one;
    std::string error;
    EXPECT_EQ(one.farm.add({.port = one->port()}, &error), nullptr);
    EXPECT_NE(error.find("Address already in use"), std::string::npos) << error;
    EXPECT_EQ(one.farm.add({.address = "camera.example"}, &error), nullptr);
    EXPECT_EQ(camera::address_above("255.255.255.250", 6), "");
    EXPECT_EQ(camera::address_above("127.0.0", 1), "");
}

}  // namespace
}  // namespace lenswire::test
