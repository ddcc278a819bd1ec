// What a camera answers, pushes and keeps, whom it lets in, and how it stops and comes back.
#include <gtest/gtest.h>

#include "camera/wire/login.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::LoginVerdict;

TEST(Camera, AnswersHeartbeatsUnlessToldNotTo) {
    for (const bool answer : {true, false}) {
        OneCamera one({.answer_heartbeats = answer});
        Session session = log_in(*one);
        session.send(0x0006);
        EXPECT_EQ(session.ask(0x1004, Bytes(36)).command, answer ? 0x0006 : 0x1004);
        EXPECT_EQ(one->stats().heartbeats, 1U);
    }
}

TEST(Camera, PushesMotionToWhoIsLoggedInAndOnAScheduleWhileItDetectsAny) {
    OneCamera one({.motion_every_ms = 40});
    Session session = log_in(*one);
    Wire stranger = connect_to(*one);
    Tape tape(one);
    EXPECT_EQ(tape.record(session.wire, 100), "40:36 60:36 80:36 100:36");
    const Bytes begins = command(0x0009, {0, 0, 1, 0}).bytes(), ends = command(0x0009, Bytes(4)).bytes();
    EXPECT_EQ(tape.bytes, begins + ends + begins + ends);
    one->set_record(0x100A, Bytes(168));
    EXPECT_EQ(tape.record(session.wire, 100), "");
    EXPECT_EQ(one->push_motion(1), 1U);
    EXPECT_EQ(session.wire.reads(36), begins);
    EXPECT_FALSE(stranger.has_bytes());
    EXPECT_EQ(one->stats().motion_pushes, 5U);
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
    for (size_t i = 0; i < camera::kMostCommandsKept; ++i) session.ask(0x0006);
    EXPECT_EQ(one->received().size(), camera::kMostCommandsKept) << "the last ones are kept";
    EXPECT_TRUE(one->received(0x1005).empty());
    EXPECT_EQ(one->stats().malformed, 0U);
}

TEST(Camera, CountsMessagesThatNoRecorderShouldSend) {
    const std::tuple<const char*, void (*)(Message&), uint32_t> cases[] = {
        // and the connections left
        {"too long", [](Message& m) { m.buffer_size = 4065; }, 0},
        {"the longest", [](Message& m) { m.payload.resize(m.buffer_size = 4064); }, 1},
        {"product", [](Message& m) { m.buffer_size = 0x10000, m.buffer_num = 0xFFFF; }, 0},
        {"flag", [](Message& m) { m.flag = 1; }, 1},
        {"reserved bytes", [](Message& m) { m.reserved[11] = 1; }, 1},
        {"payload", [](Message& m) { m.payload.push_back(m.buffer_size++ & 0); }, 1},
    };
    for (const auto& [what, spoil, left] : cases) {
        SCOPED_TRACE(what);
        OneCamera one;
        Session session = log_in(*one);
        Message message = command(0x1005, Bytes(36), 0, session.login_id);
        spoil(message);
        session.wire.sends(message);
        ASSERT_TRUE(one->wait([](const auto& stats) { return stats.malformed == 1; }));
        EXPECT_EQ(one->stats().connections_open, left);
    }
}

TEST(Login, RefusesWrongCredentialsAndRecordsWithoutASerial) {
    const std::string password = "0123456789abcdefghijklmnopqrstuv";  // fills its field, without a NUL
    OneCamera one({.user = "operator", .password = password});
    for (const auto& [user, typed] : {std::pair{"operator", "wrong"},
                                      {"admin", password.c_str()},
                                      {"operator", "0123456789abcdefghijklmnopqrstu"}})
        EXPECT_EQ(log_in(*one, user, typed).state, 1) << user << " " << typed;
    Wire wire = connect_to(*one);
    wire.sends(command(0x0000, Bytes(76)));
    EXPECT_EQ(wire.reads_command().state, 1);
    EXPECT_EQ(one->stats().refused_logins, 4U);
    for (const size_t size : {75, 76, 77}) {
        EXPECT_EQ(camera::check_login(Bytes(size), {1, 2}, "", ""),
                  size == 76 ? LoginVerdict::kWrongProof : LoginVerdict::kMalformed);
    }
    const Session first = log_in(*one, "operator", password), second = log_in(*one, "operator", password);
    EXPECT_EQ(first.state, 0);
    EXPECT_NE(first.login_id, second.login_id);
    EXPECT_EQ(one->stats().control_open, 2U);
    EXPECT_EQ(one->stats().logins, 2U);
}

// The identifier of the camera's other connection proves nothing on a control connection, but does on a
// stream.
TEST(Login, CommandsAndStreamsNeedItsIdentifier) {
    for (const bool require_login : {true, false}) {
        auto config = small_streams(1);
        config.require_login = require_login;
        OneCamera one(config);
        Session session = log_in(*one);
        {
            Session other = log_in(*one);
            EXPECT_EQ(ask_for_stream(*one, other).reads_command().state, 0);
            std::swap(other.login_id, session.login_id);
            EXPECT_EQ(session.ask(0x1004, Bytes(36)).state, require_login ? 2 : 0);
            std::swap(session.login_id, other.login_id);
            EXPECT_EQ(session.ask(0x1004, Bytes(36)).state, 0);
            other.wire.closes();
            ASSERT_TRUE(one->wait([](const auto& stats) { return stats.control_open == 1; }));
            EXPECT_EQ(ask_for_stream(*one, other).reads_command().state, require_login ? 2 : 0);
        }
        Session nobody{.wire = connect_to(*one)};
        EXPECT_EQ(nobody.ask(0x1004, Bytes(36)).state, require_login ? 2 : 0) << "0 is no identifier";
        EXPECT_EQ(nobody.ask(0x1063, Bytes(64)).state, 0) << "the fisheye type needs no login";
        EXPECT_EQ(one->stats().wrong_login_ids, 3U);
    }
}

TEST(Farm, GivesEachCameraAnAddressAndSaysWhyOneCannotListen) {
    OneCamera one;
    std::string error;
    EXPECT_EQ(one.farm.add({.port = one->port()}, &error), nullptr);
    EXPECT_NE(error.find("Address already in use"), std::string::npos) << error;
    EXPECT_EQ(one.farm.add({.address = "camera.example"}, &error), nullptr);
    EXPECT_EQ(camera::address_above("127.0.0.250", 19), "127.0.1.13");
    EXPECT_EQ(camera::address_above("255.255.255.250", 5), "255.255.255.255");
    EXPECT_EQ(camera::address_above("255.255.255.250", 6), "");
    EXPECT_EQ(camera::address_above("127.0.0", 1), "");
}

}  // namespace
}  // namespace lenswire::test
