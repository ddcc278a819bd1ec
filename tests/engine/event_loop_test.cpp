// What logged-in cameras send: cut into messages wherever the network cuts it, and handed on.
#include <arpa/inet.h>

#include <atomic>
#include <random>
#include <thread>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

Message motion(uint8_t state) {
    return command(0x0009, {0, 0, state});
}

std::vector<int> motion_states() {
    std::vector<int> states;
    for (const MotionCall& call : host().motion_calls()) states.push_back(call.status);
    return states;
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

TEST_F(EventLoopByHand, AMessageCutAtAnyByteIsDispatchedOnce) {
    const Bytes message = motion(1).bytes();
    for (size_t cut = 1; cut < message.size(); ++cut) {
        receives(slice(message, 0, cut));
        EXPECT_EQ(client_->ulRecvRemainLen, cut);
        EXPECT_EQ(host().motion_calls().size(), cut - 1) << "dispatched before it was whole";
        receives(slice(message, cut, message.size()));
        EXPECT_EQ(client_->ulRecvRemainLen, 0u);
        EXPECT_EQ(host().motion_calls().size(), cut);
    }
}

TEST_F(EventLoopByHand, MessagesOfOneReadAreDispatchedInOrder) {
    receives(motion(1).bytes() + motion(0).bytes() + announcing(0x0009, {3, 1}, {0, 0, 1}).bytes() +
             slice(motion(2).bytes(), 0, 33));
    EXPECT_THAT(motion_states(), ElementsAre(1, 0, 1));
    receives(slice(motion(2).bytes(), 33, 2));
    EXPECT_THAT(motion_states(), ElementsAre(1, 0, 1, 2));
}

// Random messages, cut at random places, against the list of what was sent.
TEST_F(EventLoopByHand, AnyCutOfAnyMessagesGivesTheSameMessages) {
    std::mt19937 random(20240607);
    const auto below = [&](size_t bound) {
        return std::uniform_int_distribution<size_t>(0, bound - 1)(random);
    };
    Bytes sent;
    std::vector<int> expected;
    for (int i = 0; i < 300; ++i) {
        const size_t size = below(4) == 0 ? below(4065) : below(200);
        if (below(3) == 0) {
            Bytes payload = pattern(size);
            if (payload.size() < 3) payload.resize(3);
            payload[2] = static_cast<uint8_t>(i);
            expected.push_back(payload[2]);
            sent = sent + command(0x0009, payload).bytes();
        } else {
            // Payloads of these look like headers of pushes.
            Bytes payload;
            while (payload.size() < size) payload = payload + motion(0xEE).bytes();
            payload.resize(size);
            sent = sent + command(below(2) == 0 ? 0x0006 : 0x0102, payload).bytes();
        }
    }
    size_t at = 0;
    while (at < sent.size()) {
        const size_t piece = below(5) == 0 ? 1 + below(40) : 1 + below(4096);
        receives(slice(sent, at, piece));
        at += piece;
    }
    EXPECT_EQ(motion_states(), expected);
    EXPECT_EQ(client_->ulRecvRemainLen, 0u);
}

TEST_F(EventLoopByHand, AMessageOf4096BytesPassesAnd4097DropTheRead) {
    Bytes payload(4064);
    payload[2] = 9;
    receives(command(0x0009, payload).bytes());
    EXPECT_THAT(motion_states(), ElementsAre(9));

    const uint32_t address = camera_.address();
    char expected[200];
    for (const Product& row : kOverLong) {
        // Whole messages before the bad one go with it, and so do kept bytes.
        receives(slice(motion(3).bytes(), 0, 10));
        Capture capture;
        receives(slice(motion(3).bytes(), 10, 100) + motion(4).bytes() +
                 announcing(0x0009, row, {0, 0, 5}).bytes());
        EXPECT_EQ(client_->ulRecvRemainLen, 0u);
        EXPECT_EQ(occurrences(capture.err(), "(max cmd size is 4096)\n"), 1);
        if (row.size == 4065) {
            snprintf(expected, sizeof expected, "#############channel ip:0x%08x,recv cmd:0x9 size:4097(max",
                     address);
            EXPECT_THAT(capture.err(), HasSubstr(expected));
        }
    }
    EXPECT_EQ(motion_states().size(), 1u);
    // The next read starts from scratch.
    receives(motion(6).bytes());
    EXPECT_THAT(motion_states(), ElementsAre(9, 6));
}

// A product that wraps to nothing is a message without payload, as everywhere.
TEST_F(EventLoopByHand, AProductThatWrapsToNothingIsAHeaderAlone) {
    receives(announcing(0x0006, {0x10000, 0x10000}).bytes() + motion(1).bytes());
    EXPECT_THAT(motion_states(), ElementsAre(1));
}

TEST_F(EventLoopByHand, ShortPayloadsReadNothingOfTheNextMessage) {
    // Each followed by a header whose bytes would read as motion.
    Message follower = command(0x0006);
    follower.tag1 = follower.tag2 = 1;
    follower.flag = 0x0101;
    for (size_t size = 0; size < 3; ++size) {
        receives(command(0x0009, repeated(1, size)).bytes() + follower.bytes());
    }
    EXPECT_THAT(motion_states(), Each(0));

    receives(command(0x0101, {0xAA, 0xBB, 0xCC}).bytes() + follower.bytes());
    const Bytes serial(client_->serialNum, client_->serialNum + 8);
    EXPECT_THAT(serial, testing::AnyOf(default_serial(), Bytes{0xAA, 0xBB, 0xCC, 0, 0, 0, 0, 0}));
}

TEST_F(EventLoopByHand, LoginMessagesUpdateTheClient) {
    receives(command(0x0000, {}, 0, 0x51525354).bytes() + command(0x0101, pattern(12)).bytes());
    EXPECT_EQ(client_->ulLoginId, 0x51525354u);
    EXPECT_EQ(Bytes(client_->serialNum, client_->serialNum + 8), slice(pattern(12), 0, 8));
    EXPECT_EQ(client_->ucClientState, PC_STATE_READY);
}

TEST_F(EventLoopByHand, HeartbeatsAndStreamAnswersAreIgnoredAndStrangersReported) {
    Capture capture;
    receives(command(0x0006, pattern(8)).bytes() + command(0x0102, pattern(32)).bytes());
    EXPECT_EQ(capture.out() + capture.err(), "");
    receives(command(0x1004, pattern(36)).bytes());
    EXPECT_THAT(capture.out(),
                HasSubstr("recv data  j=128,pCmd->usCmd=1004,pCmd->ucState =0,ip=127.0.0.1\n"));
}

TEST_F(EventLoopByHand, AnswersGoToTheRequestThatWaits) {
    RecvSendSlot* good = Prv_PacketMsg(0x1004, 0, 1, camera_.address());
    RecvSendSlot* bad = Prv_PacketMsg(0x1023, 0, 1, camera_.address());
    const Message answer = command(0x1004, pattern(36));
    receives(command(0x1023, {}, 1).bytes() + answer.bytes());
    EXPECT_EQ(Prv_GetCond_Property(good, 0), 0);
    EXPECT_EQ(Bytes(good->recvData, good->recvData + 68), answer.bytes());
    EXPECT_EQ(Prv_GetCond_Property(bad, 0), -1);
    EXPECT_EQ(host().dumped_count("cmd 1023 state 1 is error ip is 127.0.0.1"), 1);
    prv_destroy_msg(good);
    prv_destroy_msg(bad);
}

TEST_F(EventLoopByHand, OnlyReadyClientsAreRead) {
    for (int state = 0; state < 8; ++state) {
        PC_SetCBState(client_, state);
        host().reset();
        host().has_channel(0, {.address = "127.0.0.1", .armed = true});
        receives(motion(1).bytes());
        const bool ready = state == PC_STATE_READY;
        EXPECT_EQ(host().motion_calls().size(), ready ? 1u : 0u) << state;
        while (waiting_bytes(client_->sockFd) > 0) {
            Bytes dropped(4096);
            int length = 4096;
            PC_RecvCmd1(client_->sockFd, dropped.data(), &length);
        }
    }
}

TEST_F(EventLoopByHand, APassWithoutAnythingToReadEnds) {
    PC_SingleStep();
    PC_Delete(unit_);
    PC_SingleStep();
    EXPECT_TRUE(wire_.sees_close());
}

// The library's own loop, with pieces in any order of arrival.
class EventLoop : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        host().has_channel(0, {.address = "127.0.0.1", .armed = true});
        host().has_channel(1, {.address = "127.0.0.2", .armed = true});
    }
};

TEST_F(EventLoop, AConnectionThatTheCameraClosedCostsNothing) {
    ScriptedCamera closing("127.0.0.1"), resetting("127.0.0.3"), living("127.0.0.2");
    LoggedIn closed = new_login(closing);
    LoggedIn reset = new_login(resetting);
    LoggedIn alive = new_login(living);
    const int socket = closed.unit->pCmdClient->sockFd;
    Capture capture;
    closed.wire.closes();
    reset.wire.resets();
    for (int i = 1; i <= 50; ++i) {
        alive.wire.sends(motion(static_cast<uint8_t>(i)));
        ASSERT_TRUE(host().motion_calls.waits_for(static_cast<size_t>(i)));
    }
    EXPECT_EQ(peek(closed.unit->pCmdClient->ucClientState), PC_STATE_READY);
    EXPECT_EQ(peek(closed.unit->pCmdClient->sockFd), socket);
    EXPECT_TRUE(is_open(socket));
    EXPECT_LT(capture.out().size() + capture.err().size(), 500u) << capture.out();
    // It is served again once it is logged in anew.
    closed.wire = logs_in(closed.unit, closing);
    closed.wire.sends(motion(77));
    ASSERT_TRUE(host().motion_calls.waits_for(51));
    EXPECT_EQ(host().motion_calls().back().status, 77);
}

TEST_F(EventLoop, APushChangesEveryChannelOfItsCamera) {
    host().has_channel(5, {.address = "127.0.0.1", .armed = true});
    host().has_channel(6, {.address = "127.0.0.1", .motion = 1});
    host().has_channel(7, {.address = "127.0.0.1", .motion = 0});
    host().has_channel(8, {.address = "127.0.0.1", .protocol = 3, .armed = true});
    host().has_channel(9, {.address = "127.0.0.1", .bound = false, .armed = true});
    ScriptedCamera camera;
    LoggedIn login = new_login(camera);
    login.wire.sends(motion(1));
    ASSERT_TRUE(host().motion_calls.waits_for(3));
    stops_engine();
    std::vector<std::pair<int, int>> set;
    for (const MotionCall& call : host().motion_calls()) set.emplace_back(call.channel, call.status);
    EXPECT_THAT(set, ElementsAre(std::pair(0, 1), std::pair(5, 1), std::pair(6, 0)));
    EXPECT_THAT(host().snap_calls(), ElementsAre(std::pair(0, 1), std::pair(5, 1), std::pair(6, 0)));
    ASSERT_EQ(host().alarms().size(), 1u);
    EXPECT_EQ(host().alarms()[0].record, (Bytes{2, 6, 0, 0}));
}

// The host may send commands from inside its motion services, log in another camera, or delete the very
// unit that is being served.
TEST_F(EventLoop, TheHostMayCallBackFromInsideItsServices) {
    ScriptedCamera camera("127.0.0.1"), other("127.0.0.2");
    LoggedIn pushing = new_login(camera, 1);
    StreamConn* second = PC_CreateNew();
    std::future<Wire> served = other.logs_in_next(2);
    host().when(Service::kSetMotionStatus, [&](int, int status) {
        if (status == 1) {
            Bytes message = command(0x1005, pattern(36)).bytes();
            message.resize(4096);
            EXPECT_EQ(Prv_Send_Cmd(camera.address(), message.data(), message.data(), 20), 0);
            const LoginInfo info = credentials();
            EXPECT_EQ(PC_Login(second, other.address(), other.port(), &info, 0, 0), 0);
        } else if (status == 2) {
            PC_Delete(pushing.unit);
        }
    });
    pushing.wire.sends(motion(1));
    EXPECT_EQ(pushing.wire.reads_command().payload, pattern(36));
    Wire second_wire = served.get();
    pushing.wire.sends(motion(2).bytes() + command(0x0000, {}, 0, 99).bytes() + motion(3).bytes());
    EXPECT_TRUE(pushing.wire.sees_close());
    second_wire.sends(motion(4));
    ASSERT_TRUE(wait_until([] { return !motion_states().empty() && motion_states().back() == 4; }));
    EXPECT_THAT(motion_states(), ElementsAre(1, 2, 4)) << "a message of a client that is gone";
    EXPECT_EQ(PC_CreateNew()->pCmdClient->ulLoginId, 0u);
}

// A unit taken away by one host thread, and its client logged in anew, while the event loop is inside a
// service for it: what was read of the old connection stays with it.
TEST_F(EventLoop, AUnitMayBeDeletedWhileItsPushIsBeingHandled) {
    ScriptedCamera camera, other("127.0.0.2");
    LoggedIn login = new_login(camera);
    CmdClient* client = login.unit->pCmdClient;
    std::promise<void> inside, go_on;
    host().when(Service::kSetMotionStatus, [&](int channel, int) {
        if (channel != 0) return;
        inside.set_value();
        go_on.get_future().wait();
    });
    login.wire.sends(motion(1).bytes() + command(0x0000, {}, 0, 99).bytes() +
                     command(0x0101, Bytes(8, 0x99)).bytes());
    inside.get_future().wait();
    PC_Delete(login.unit);
    EXPECT_TRUE(login.wire.sees_close());
    StreamConn* next = PC_CreateNew();
    ASSERT_EQ(next->pCmdClient, client);
    Wire wire = logs_in(next, other, 7);
    go_on.set_value();
    wire.sends(motion(5));
    ASSERT_TRUE(host().motion_calls.waits_for(2));
    EXPECT_EQ(Bytes(client->serialNum, client->serialNum + 8), default_serial());
    EXPECT_EQ(peek(client->ulLoginId), 7u) << "a message of the deleted client reached the next one";
}

// The number of a closed descriptor soon belongs to another socket of the process: whoever has it next
// keeps every byte of it.
TEST_F(EventLoop, ADescriptorNumberThatChangesHandsIsNotRead) {
    ScriptedCamera camera;
    StreamConn* unit = PC_CreateNew();
    for (int round = 0; round < 8; ++round) {
        Wire wire = logs_in(unit, camera);
        const int socket = unit->pCmdClient->sockFd;
        // The loop is kept busy on the old connection until it goes.
        wire.sends(motion(1).bytes() + motion(2).bytes() + slice(motion(3).bytes(), 0, 30));
        if (round % 2 == 0) {
            PC_Delete(unit);
            unit = nullptr;
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
        if (unit == nullptr) unit = PC_CreateNew();
        Wire again = logs_in(unit, camera);
        again.sends(motion(100));
        ASSERT_TRUE(wait_until([] { return !motion_states().empty() && motion_states().back() == 100; }));
        for (const Pair& pair : pairs) EXPECT_EQ(waiting_bytes(pair.ours()), 35);
        host().reset();
        host().has_channel(0, {.address = "127.0.0.1", .armed = true});
    }
}

// Logins, deletions and deliveries of several threads beside a loop that is kept busy. The sanitizers
// judge; here nothing may hang or get lost.
TEST_F(EventLoop, ManyThreadsInviteDeleteAndDeliver) {
    constexpr int kThreads = 3, kRounds = 4;
    ScriptedCamera cameras[kThreads];
    std::atomic<bool> done{false};
    std::thread delivering([&] {
        while (!done) {
            Bytes message = command(0x0006).bytes();
            message.resize(4096);
            Private_Protocol_CMDDelivery(cameras[0].address(), message.data(), message.data(), 1);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> threads;
    Capture capture;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < kRounds; ++round) {
                StreamConn* unit = PC_CreateNew();
                // Deliveries may come into the middle of the login: the camera passes over them.
                auto served = std::async(std::launch::async, [&] {
                    Wire wire = cameras[thread].accepts();
                    Message request;
                    do request = wire.reads_command();
                    while (request.command != 0x0101);
                    wire.sends(command(0x0101, default_serial()));
                    do request = wire.reads_command();
                    while (request.command != 0x0000);
                    wire.sends(command(0x0000, {}, 0, 1).bytes() + motion(1).bytes());
                    return wire;
                });
                const LoginInfo info = credentials();
                EXPECT_EQ(PC_Login(unit, cameras[thread].address(), cameras[thread].port(), &info, thread, 0),
                          0);
                Wire wire = served.get();
                for (int i = 0; i < 20; ++i) wire.sends(motion(2));
                PC_SendHeartbeat(unit->pCmdClient);
                PC_Delete(unit);
                EXPECT_TRUE(wire.sees_close());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    done = true;
    delivering.join();
}

}  // namespace
}  // namespace lenswire::test
