// The ways of a recorder through the library, from one end to the other over real connections.
#include <cstring>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

using testing::Each;

// One camera that serves its control connection and streams, and a host that uses all of it.
TEST_F(EngineTest, LoginRequestLivePicturesAndMotionReachTheRecorder) {
    ScriptedCamera camera;
    host().has_channel(2, {.address = camera.address_text(), .port = camera.port(), .motion = 1});
    LoggedIn login = new_login(camera, 0x0C0FFEE0);

    // A request and its answer.
    RecvSendSlot* slot = Prv_PacketMsg(0x1004, 0, 5, camera.address());
    ASSERT_NE(slot, nullptr);
    const Bytes request = command(0x1004, pattern(36)).bytes();
    std::memcpy(slot->recvData, request.data(), request.size());
    EXPECT_EQ(Prv_Send_Cmd(camera.address(), slot->recvData, slot->recvData, 20), 0);
    const Message asked = login.wire.reads_command();
    EXPECT_EQ(asked.login_id, 0x0C0FFEE0u);
    EXPECT_EQ(asked.payload, pattern(36));
    const Bytes answer = command(0x1004, pattern(36, 2), 0, 0x0C0FFEE0).bytes();
    login.wire.sends(slice(answer, 0, 50));
    login.wire.sends(slice(answer, 50, 100));
    EXPECT_EQ(Prv_GetCond_Property(slot, 20), 0);
    EXPECT_EQ(Bytes(slot->recvData, slot->recvData + answer.size()), answer);
    prv_destroy_msg(slot);

    // Two streams, each on a connection of its own.
    ReceiveBuffer buffer(1 << 20);
    FakeStream frames;
    auto served = std::async(std::launch::async, [&] {
        Wire wire = camera.accepts();
        wire.reads(36);
        wire.sends(command(0x0102, pattern(32, 3)));
        return wire;
    });
    uint8_t description[32];
    ASSERT_EQ(PC_GetStream(login.unit, 2, 0, description), 0);
    Wire stream = served.get();
    host().posts_open(2, 0, login.unit, buffer, frames);
    std::vector<Bytes> sent;
    for (uint32_t i = 0; i < 100; ++i) {
        sent.push_back(pattern(1000 + 37 * i, i));
        stream.sends(Packet{.frame_type = 1, .codec = 1, .time_stamp = i * 40, .payload = sent.back()});
    }
    stream.sends(Packet{.payload = pattern(1)});
    ASSERT_TRUE(frames.waits_for_frames(100));
    const std::vector<Frame> received = frames.frames();
    for (uint32_t i = 0; i < 100; ++i) {
        EXPECT_EQ(u16_at(received[i].head, 2), i);
        EXPECT_EQ(u32_at(received[i].head, 12), i * 40);
        ASSERT_EQ(received[i].payload, sent[i]) << i;
    }

    // Motion that the host is not armed for becomes an alarm.
    login.wire.sends(command(0x0009, {0, 0, 1}));
    ASSERT_TRUE(host().waits_for_alarms(1));
    EXPECT_EQ(host().alarms()[0].record, (Bytes{2, 2, 0, 0}));

    // A camera that dies and comes back.
    stream.closes();
    ASSERT_TRUE(wait_until([] { return host().restart_count() == 1; }));
    login.wire = logs_in(login.unit, camera, 8);
    served = std::async(std::launch::async, [&] {
        Wire wire = camera.accepts();
        EXPECT_EQ(u32_at(wire.reads(36), 8), 8u);
        wire.sends(command(0x0102, pattern(32, 3)));
        return wire;
    });
    ASSERT_EQ(PC_GetStream(login.unit, 2, 0, description), 0);
    stream = served.get();
    host().posts_open(2, 0, login.unit, buffer, frames);
    stream.sends(Packet{.payload = pattern(5000)}.bytes() + Packet{.payload = pattern(1)}.bytes());
    ASSERT_TRUE(frames.waits_for_frames(101));
    EXPECT_EQ(frames.frames().back().payload, pattern(5000));
    host().posts_close(2, 0);
    ASSERT_TRUE(host().waits_for_requests_taken());
    const int stream_socket = login.unit->sockFd;
    PC_Delete(login.unit);
    EXPECT_TRUE(login.wire.sees_close());
    EXPECT_TRUE(is_open(stream_socket));
}

}  // namespace
}  // namespace lenswire::test
