// What logged-in cameras send: cut into messages wherever the network cuts it, and handed on.
#include <thread>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

std::vector<int> motion_states() {
    std::vector<int> states;
    for (const MotionCall& call : host().motion_calls()) states.push_back(call.status);
    return states;
}

// Waits for a push with that state, and nothing behind it.
bool comes_last(int state) {
    return wait_until([&] { return !motion_states().empty() && motion_states().back() == state; });
}

// One camera logged in, its channel armed so that the host sees every push. The test makes the passes.
class EventLoopByHand : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        host().has_channel(0, {.address = "127.0.0.1", .armed = true});
        LoggedIn login = new_login(camera_);
        unit_ = login.unit;
        wire_ = std::move(login.wire);
        client_ = unit_->pCmdClient;
        stops_thread(PC_G_EventLoopSwitch);
    }

    // One pass over exactly these bytes.
    void receives(const Bytes& bytes) {
        wire_.sends(bytes);
        ASSERT_TRUE(
            wait_until([&] { return waiting_bytes(client_->sockFd) == static_cast<int>(bytes.size()); }));
        PC_SingleStep();
    }

    ScriptedCamera camera_;
    StreamConn* unit_ = nullptr;
    CmdClient* client_ = nullptr;
    Wire wire_;
};

TEST_F(EventLoopByHand, MessagesOfOneReadAreDispatchedInOrder) {
    // A product that wraps to nothing is a message without payload, as everywhere.
    receives(motion(1).bytes() + announcing(0x0006, {0x10000, 0x10000}).bytes() + motion(0).bytes() +
             announcing(0x0009, {3, 1}, {0, 0, 1}).bytes() + slice(motion(2).bytes(), 0, 33));
    EXPECT_EQ(client_->ulRecvRemainLen, 33u);
    EXPECT_THAT(motion_states(), ElementsAre(1, 0, 1));
    receives(slice(motion(2).bytes(), 33, 2));
    EXPECT_THAT(motion_states(), ElementsAre(1, 0, 1, 2));
    receives(command(0x0000, {}, 0, 0x51525354).bytes() + command(0x0101, pattern(12)).bytes());
    EXPECT_EQ(client_->ulLoginId, 0x51525354u);
    EXPECT_EQ(Bytes(client_->serialNum, client_->serialNum + 8), slice(pattern(12), 0, 8));
    EXPECT_EQ(client_->ucClientState, PC_STATE_READY);
    // A short one reads nothing of the message behind it.
    receives(command(0x0101, {0xAA, 0xBB, 0xCC}).bytes() + command(0x0006, repeated(9, 5)).bytes());
    EXPECT_THAT(client_->serialNum, ElementsAre(0xAA, 0xBB, 0xCC, 0, 0, 0, 0, 0));
}

TEST_F(EventLoopByHand, AMessageOf4096BytesPassesAnd4097DropTheRead) {
    Bytes payload(4064);
    payload[2] = 9;
    receives(slice(command(0x0009, payload).bytes(), 0, 4095));
    receives(Bytes(1));
    EXPECT_THAT(motion_states(), ElementsAre(9));
    // Whole messages before the bad one go with it, and so do kept bytes; the next read starts from scratch.
    receives(slice(motion(3).bytes(), 0, 10));
    Capture capture;
    receives(slice(motion(3).bytes(), 10, 100) + motion(4).bytes() + announcing(0x0009, {1, 4065}).bytes());
    EXPECT_EQ(capture.err(),
              "#############channel ip:0x0100007f,recv cmd:0x9 size:4097(max cmd size is 4096)\n");
    EXPECT_EQ(client_->ulRecvRemainLen, 0u);
    receives(motion(6).bytes());
    EXPECT_THAT(motion_states(), ElementsAre(9, 6));
}

TEST_F(EventLoopByHand, AnswersGoToTheRequestThatWaitsAndStrangersAreReported) {
    PC_SingleStep();  // with nothing to read, ends
    RecvSendSlot* good = Prv_PacketMsg(0x1004, 0, 1, camera_.address());
    RecvSendSlot* bad = Prv_PacketMsg(0x1023, 0, 1, camera_.address());
    const Message answer = command(0x1004, pattern(36));
    Capture capture;
    receives(command(0x0006, pattern(8)).bytes() + command(0x0102, pattern(32)).bytes() +
             command(0x1023, {}, 1).bytes() + answer.bytes());
    EXPECT_EQ(capture.out() + capture.err(), "");
    EXPECT_EQ(Prv_GetCond_Property(good, 0), 0);
    EXPECT_EQ(Bytes(good->recvData, good->recvData + 68), answer.bytes());
    EXPECT_EQ(Prv_GetCond_Property(bad, 0), -1);
    EXPECT_EQ(host().dumped_count("cmd 1023 state 1 is error ip is 127.0.0.1"), 1);
    prv_destroy_msg(good);
    prv_destroy_msg(bad);
    receives(answer.bytes());
    EXPECT_THAT(capture.out(),
                HasSubstr("recv data  j=128,pCmd->usCmd=1004,pCmd->ucState =0,ip=127.0.0.1\n"));
}

TEST_F(EventLoopByHand, OnlyReadyClientsAreRead) {
    for (int state = 0; state < 8; ++state) {
        PC_SetCBState(client_, state);
        receives(motion(1).bytes());
        EXPECT_EQ(host().motion_calls.takes().size(), state == PC_STATE_READY ? 1u : 0u) << state;
        Bytes dropped(4096);
        int length = 4096;
        PC_RecvCmd1(client_->sockFd, dropped.data(), &length);
    }
}

// The library's own loop.
class EventLoop : public EngineTest {
  protected:
    EventLoop() {
        host().has_channel(0, {.address = "127.0.0.1", .armed = true});
        host().has_channel(1, {.address = "127.0.0.2", .armed = true});
    }
};

// From inside its motion services the host may send commands, take the very unit away that is being served,
// by itself or by another thread, and log the same client in anew: what was read of the old connection stays
// with it.
TEST_F(EventLoop, TheHostMayCallBackFromInsideItsServices) {
    ScriptedCamera camera("127.0.0.1"), other("127.0.0.2");
    for (const std::launch by : {std::launch::deferred, std::launch::async}) {
        LoggedIn pushing = new_login(camera, 1);
        CmdClient* client = pushing.unit->pCmdClient;
        StreamConn* next = nullptr;
        std::future<Wire> served = other.logs_in_next(7);
        host().when(Service::kSetMotionStatus, [&](int, int status) {
            if (status != 1) return;
            Bytes message = in_buffer(command(0x1005, pattern(36)));
            EXPECT_EQ(Prv_Send_Cmd(camera.address(), message.data(), message.data(), 20), 0);
            std::async(by, [&] { PC_Delete(pushing.unit); }).get();
            next = PC_CreateNew();
            EXPECT_EQ(next->pCmdClient, client);
            EXPECT_EQ(login(next, other), 0);
        });
        pushing.wire.sends(motion(1).bytes() + command(0x0000, {}, 0, 99).bytes() +
                           command(0x0101, Bytes(8, 0x99)).bytes() + motion(3).bytes());
        EXPECT_EQ(pushing.wire.reads_command().payload, pattern(36));
        EXPECT_TRUE(pushing.wire.sees_close());
        Wire wire = served.get();
        wire.sends(motion(4));
        ASSERT_TRUE(comes_last(4));
        EXPECT_THAT(motion_states(), ElementsAre(1, 4)) << "a message of a client that is gone";
        EXPECT_EQ(Bytes(client->serialNum, client->serialNum + 8), default_serial());
        EXPECT_EQ(peek(client->ulLoginId), 7u) << "a message of the deleted client reached the next one";
        host().motion_calls.takes();
        PC_Delete(next);
    }
}

TEST_F(EventLoop, ADescriptorNumberThatChangesHandsIsNotRead) {
    ScriptedCamera camera;
    for (bool deletes : {true, false}) {
        StreamConn* unit = PC_CreateNew();
        Wire wire = logs_in(unit, camera);
        const int socket = unit->pCmdClient->sockFd;
        // The loop is kept busy on the old connection until it goes.
        wire.sends(motion(1).bytes() + motion(2).bytes() + slice(motion(3).bytes(), 0, 30));
        if (deletes) {
            PC_Delete(unit);
            unit = PC_CreateNew();
        } else {
            PC_Exit(unit->pCmdClient);
        }
        Pair pairs[3];
        bool taken_over = false;
        for (Pair& pair : pairs) {
            taken_over |= pair.ours() == socket || pair.theirs().descriptor() == socket;
            pair.theirs().sends(motion(9));
        }
        EXPECT_TRUE(taken_over);
        Wire again = logs_in(unit, camera);
        again.sends(motion(deletes ? 100 : 101));
        ASSERT_TRUE(comes_last(deletes ? 100 : 101));
        for (const Pair& pair : pairs) EXPECT_EQ(waiting_bytes(pair.ours()), 35);
    }
}

// Logins, pushes and deletions of several threads at once. The sanitizers judge; here nothing may hang or get
// lost.
TEST_F(EventLoop, ManyThreadsInviteAndDelete) {
    constexpr int kThreads = 3, kRounds = 4;
    ScriptedCamera cameras[kThreads];
    Capture capture;
    std::vector<std::thread> threads;
    for (ScriptedCamera& camera : cameras) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                LoggedIn pushing = new_login(camera);
                for (int i = 0; i < 20; ++i) pushing.wire.sends(motion(2));
                PC_SendHeartbeat(pushing.unit->pCmdClient);
                PC_Delete(pushing.unit);
                EXPECT_TRUE(pushing.wire.sees_close());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace lenswire::test
