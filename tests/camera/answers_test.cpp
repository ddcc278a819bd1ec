// What a camera answers, pushes and keeps, whom it lets in, and how it stops and comes back.
#include <gtest/gtest.h>

#include "camera/wire/login.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::Command;
using camera::DesBlock;
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

TEST(Camera, PushesMotionToEveryLoggedInConnection) {
    OneCamera one;
    Session sessions[] = {log_in(*one), log_in(*one)};
    Wire stranger = connect_to(*one);
    one.farm.settle();
    EXPECT_EQ(one->push_motion(1), 2U);
    EXPECT_EQ(one->stats().motion_pushes, 2U);
    for (Session& session : sessions) {
        EXPECT_EQ(session.wire.reads(36), command(0x0009, {0, 0, 1, 0}).bytes());
    }
    EXPECT_FALSE(stranger.has_bytes());
}

TEST(Camera, PushesMotionOnAScheduleWhileItDetectsAny) {
    OneCamera one({.motion_every_ms = 40});
    Session session = log_in(*one);
    Tape tape(one);
    EXPECT_EQ(tape.record(session.wire, 100), "40:36 60:36 80:36 100:36");
    const Bytes states = {tape.bytes[34], tape.bytes[36 + 34], tape.bytes[72 + 34], tape.bytes[108 + 34]};
    EXPECT_EQ(states, (Bytes{1, 0, 1, 0}));
    one->set_record(0x100A, Bytes(168));
    EXPECT_EQ(tape.record(session.wire, 100), "");
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
        {"first tag", [](Message& m) { m.tag1 = 2; }, 1},
        {"second tag", [](Message& m) { m.tag2 = 0; }, 1},
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

TEST(Camera, HooksReplaceAnswers) {
    OneCamera one;
    Session session = log_in(*one);
    one->on_command(0x1004, [&](const Command& request) -> std::optional<Command> {
        one->push_motion(1);
        return camera::answer_to(request, {1, 2, 3}, 77);
    });
    session.send(0x1004, Bytes(36));
    EXPECT_EQ(session.wire.reads_command().command, 0x0009);
    const Message answer = session.wire.reads_command();
    EXPECT_EQ(answer.state, 77);
    EXPECT_EQ(answer.payload, (Bytes{1, 2, 3}));
    one->on_command(0x1004, nullptr);
    EXPECT_EQ(session.ask(0x1004, Bytes(36)).state, 0);
}

TEST(Camera, StopsAndComesBackOnItsPort) {
    OneCamera one;
    Session session = log_in(*one);
    const uint16_t port = one->port();
    one->restart_in(50);
    EXPECT_TRUE(session.wire.sees_close());
    one.pass_ms(49);
    EXPECT_FALSE(one->running());
    EXPECT_FALSE(connect_to(*one).connected());
    one.pass_ms(1);
    EXPECT_EQ(one->port(), port);
    EXPECT_EQ(u16_at(log_in(*one).ask(0x1006, Bytes(118)).payload, 28), port);
    one->stop();
    EXPECT_FALSE(connect_to(*one).connected());
    std::string error;
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(one->start(&error)) << error;
    EXPECT_EQ(log_in(*one).state, 0);
}

Bytes hex(const std::string& text) {
    Bytes bytes;
    for (size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

// 300 times over, the last block and the one before are the next block and its key.
TEST(Cipher, AChainOfBlocksEndsWhereAnotherProgramsDoes) {
    DesBlock key, block;
    std::ranges::copy(hex("133457799bbcdff1"), key.begin());
    std::ranges::copy(hex("0123456789abcdef"), block.begin());
    for (int i = 0; i < 300; ++i) {
        const DesBlock next = camera::des_encrypt(block, key);
        EXPECT_EQ(camera::des_decrypt(next, key), block);
        key = std::exchange(block, next);
    }
    EXPECT_EQ(Bytes(block.begin(), block.end()), hex("94e7b23cd2569cad"));
}

// Logins of "admin" for the serial number a1b2c3d4e5f60718, encrypted with another program.
TEST(LoginCheck, JudgesRecordsComputedElsewhere) {
    const std::string proof = "281929bd786ccc25", wrong_proof = "281929bd786ccc24";
    const std::string sesame = "3886f0a60ebb47c09554bb7fb9c421265ffe00094cca91bc5ffe00094cca91bc00000000";
    const std::string thirty_two = "eb7c25345ab4a7655bda92b8adbf28682f3d09f68e0846782177adb8105557d800000000";
    const std::tuple<std::string, std::string, std::string, LoginVerdict> cases[] = {
        {sesame + proof, "admin", "sesame-street-77", LoginVerdict::kAccepted},
        {sesame + proof, "admin", "sesame-street-7", LoginVerdict::kWrongPassword},
        {sesame + proof, "admin", "sesame-street-777", LoginVerdict::kWrongPassword},
        {sesame + proof, "root", "sesame-street-77", LoginVerdict::kWrongUser},
        {sesame + wrong_proof, "admin", "sesame-street-77", LoginVerdict::kWrongProof},
        {sesame + proof + "00", "admin", "sesame-street-77", LoginVerdict::kMalformed},
        {sesame + "281929bd786ccc", "admin", "sesame-street-77", LoginVerdict::kMalformed},
        // A password that fills its field has no NUL.
        {thirty_two + proof, "admin", "0123456789abcdefghijklmnopqrstuv", LoginVerdict::kAccepted},
    };
    DesBlock serial;
    std::ranges::copy(hex("a1b2c3d4e5f60718"), serial.begin());
    for (const auto& [rest, user, password, verdict] : cases) {
        const Bytes record = bytes_of("admin") + Bytes(27) + hex(rest);
        EXPECT_EQ(camera::check_login(record, serial, user, password), verdict) << user << " " << password;
    }
}

TEST(Login, RefusesWrongCredentialsAndRecordsWithoutASerial) {
    OneCamera one({.user = "operator", .password = "right"});
    EXPECT_EQ(log_in(*one, "operator", "wrong").state, 1);
    EXPECT_EQ(log_in(*one, "admin", "right").state, 1);
    Wire wire = connect_to(*one);
    wire.sends(command(0x0000, Bytes(76)));
    EXPECT_EQ(wire.reads_command().state, 1);
    EXPECT_EQ(one->stats().refused_logins, 3U);
    const Session first = log_in(*one, "operator", "right"), second = log_in(*one, "operator", "right");
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
        Wire wire = open_stream(farm[i], log_in(farm[i]));
        EXPECT_EQ(u32_at(read_packet(wire).payload, 8), i << 16) << "the seed";
    }
}

TEST(Farm, SaysWhyACameraCannotListen) {
    OneCamera one;
    std::string error;
    EXPECT_EQ(one.farm.add({.port = one->port()}, &error), nullptr);
    EXPECT_NE(error.find("Address already in use"), std::string::npos) << error;
    EXPECT_EQ(one.farm.add({.address = "camera.example"}, &error), nullptr);
    EXPECT_EQ(camera::address_above("255.255.255.250", 5), "255.255.255.255");
    EXPECT_EQ(camera::address_above("255.255.255.250", 6), "");
    EXPECT_EQ(camera::address_above("127.0.0", 1), "");
}

}  // namespace
}  // namespace lenswire::test
