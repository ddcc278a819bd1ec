// A client's states, stepped by hand.
#include <arpa/inet.h>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

class StateMachine : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        // Nobody but the test serves a client in PC_STATE_READY.
        stops_thread(PC_G_EventLoopSwitch);
        client_ = PC_CreateCmdClient0();
        ASSERT_NE(client_, nullptr);
        PC_SetDefaultTimerLength(client_);
        client_->sockFd = pair_.gives_ours();
    }

    Pair pair_;
    CmdClient* client_ = nullptr;
};

TEST_F(StateMachine, EnteringAStateStartsItsTimer) {
    EXPECT_THAT(client_->ulTimerLen, ElementsAre(10000, 100000, 100000, 100000, 100000, 100000, 100000, 0));
    for (int state = 0; state < 8; ++state) client_->ulTimerLen[state] = 50 + static_cast<uint32_t>(state);
    for (int state = 0; state < 8; ++state) {
        client_->ulTimer = 1;
        EXPECT_EQ(PC_SetCBState(client_, state), 0);
        EXPECT_EQ(client_->ucClientState, state);
        EXPECT_EQ(client_->ulTimer, 50u + static_cast<uint32_t>(state));
    }
    // Entered anew, a state starts its timer anew.
    client_->ulTimer = 1;
    EXPECT_EQ(PC_SetCBState(client_, 7), 0);
    EXPECT_EQ(client_->ulTimer, 57u);

    Capture capture;
    for (int bad : {8, -1, 255, 256}) EXPECT_EQ(PC_SetCBState(client_, bad), -1);
    EXPECT_EQ(client_->ucClientState, 7);
    EXPECT_EQ(client_->ulTimer, 57u);
    EXPECT_EQ(capture.out(),
              "State(8) Error!\nState(4294967295) Error!\nState(255) Error!\nState(256) Error!\n");
}

TEST_F(StateMachine, AStepOfAReadySocketDependsOnTheState) {
    const struct {
        int before;
        int result;
        int after;
        uint32_t timer;  // of 100 before the step
        const char* out;
    } cases[] = {
        {PC_STATE_IDLE, -1, PC_STATE_IDLE, 100, "Unmown status[0] recv packet, bypass it\n"},
        {PC_STATE_CONNECTING, 0, PC_STATE_CONNECTED, 99, ""},
        {PC_STATE_LOGINING, 0, PC_STATE_LOGINED, 99, ""},
        {PC_STATE_LOGINED, 0, PC_STATE_READY, 99, ""},
        {PC_STATE_READY, -1, PC_STATE_READY, 100, "Unmown status[5] recv packet, bypass it\n"},
        {PC_STATE_SPARE, -1, PC_STATE_SPARE, 100, ""},
        {PC_STATE_TIMEOUT, -1, PC_STATE_TIMEOUT, 100, ""},
    };
    for (const auto& row : cases) {
        for (uint32_t& length : client_->ulTimerLen) length = 100;
        PC_SetCBState(client_, row.before);
        Capture capture;
        EXPECT_EQ(PC_TaskProc(client_), row.result) << row.before;
        EXPECT_EQ(client_->ucClientState, row.after) << row.before;
        EXPECT_EQ(client_->ulTimer, row.timer) << row.before;
        EXPECT_EQ(capture.out(), row.out);
    }
}

TEST_F(StateMachine, WithoutAConnectionAStepFails) {
    PC_Exit(client_);
    PC_SetCBState(client_, PC_STATE_CONNECTED);
    Capture capture;
    EXPECT_EQ(PC_TaskProc(client_), -1);
    EXPECT_EQ(capture.out(), "illegal socket fd[-1]\n");
    EXPECT_EQ(client_->ulTimer, 100000u);
    client_->sockFd = SK_ConnectTo(inet_addr("127.0.0.1"), refused_port());
    EXPECT_EQ(PC_TaskProc(client_), -3);
    EXPECT_EQ(client_->ulTimer, 99999u);
    EXPECT_EQ(client_->ucClientState, PC_STATE_CONNECTED);
}

TEST_F(StateMachine, ATimerThatRunsOutEndsTheAttempt) {
    PC_SetCBState(client_, PC_STATE_CONNECTED);
    client_->ulLoginStep = 9;  // a step of the login that does nothing
    client_->ulTimer = 3;
    const struct {
        int result;
        uint32_t timer;
        int state;
    } steps[] = {{0, 2, PC_STATE_CONNECTED},
                 {0, 1, PC_STATE_CONNECTED},
                 {-1, 0, PC_STATE_TIMEOUT},
                 {-1, 0, PC_STATE_TIMEOUT}};
    for (const auto& step : steps) {
        EXPECT_EQ(PC_TaskProc(client_), step.result);
        EXPECT_EQ(client_->ulTimer, step.timer);
        EXPECT_EQ(client_->ucClientState, step.state);
    }
    // No timer, no expiry.
    PC_SetCBState(client_, PC_STATE_CONNECTED);
    client_->ulTimer = 0;
    EXPECT_EQ(PC_TaskProc(client_), 0);
    EXPECT_EQ(client_->ulTimer, 0u);

    for (int state = 0; state < 8; ++state) {
        PC_SetCBState(client_, state);
        EXPECT_EQ(PC_TimerProc(client_), state <= PC_STATE_READY ? -1 : 0) << state;
        EXPECT_EQ(client_->ucClientState, state <= PC_STATE_READY ? PC_STATE_TIMEOUT : state) << state;
    }
}

TEST_F(StateMachine, TheLoginExchangeTakesOneStepAnAdvance) {
    Wire& camera = pair_.theirs();
    const auto steps = [&](int result, uint32_t step) {
        EXPECT_EQ(PC_TaskProc(client_), result);
        EXPECT_EQ(client_->ulLoginStep, step);
    };
    const Bytes foreign = command(0x0009, {0, 0, 1}).bytes();
    client_->LoginInfo = credentials();
    PC_SetCBState(client_, PC_STATE_CONNECTED);
    steps(0, 1);
    steps(0, 1);  // nothing has come
    camera.reads(32);
    camera.sends(foreign + command(0x0006).bytes() + foreign +
                 command(0x0101, default_serial(), 1).bytes());  // its state does not matter
    steps(0, 1);
    steps(0, 2);
    EXPECT_EQ(Bytes(client_->serialNum, client_->serialNum + 8), default_serial());
    steps(-4, 3);
    // Nothing but refusals and foreign messages: the step stays, and the result says what is awaited.
    steps(-4, 3);
    camera.sends(command(0x0000, {}, 1, 8));
    steps(-4, 3);
    camera.sends(command(0x0006).bytes() + foreign);
    steps(-4, 3);
    EXPECT_EQ(client_->ulLoginId, 0u);
    camera.sends(command(0x0006));
    answers_login(camera, 0xCAFE);
    Capture capture;
    steps(0, 4);
    EXPECT_EQ(client_->ulLoginId, 0xCAFEu);
    EXPECT_EQ(client_->ucClientState, PC_STATE_LOGINED);
    EXPECT_THAT(unnumbered(capture.out()),
                HasSubstr("File: src/pteClient, Line: N: connect success! id is 51966,ip=0x00000000\n"));
}

TEST_F(StateMachine, AShortSerialNumberReadsAsZeroBeyondItsEnd) {
    PC_SetCBState(client_, PC_STATE_CONNECTED);
    PC_TaskProc(client_);
    // The bytes of the next message must not become part of the key.
    pair_.theirs().sends(command(0x0101, {0xAA, 0xBB, 0xCC}).bytes() + repeated(0x55, 64));
    EXPECT_EQ(PC_TaskProc(client_), 0);
    EXPECT_EQ(client_->ulLoginStep, 2u);
    EXPECT_THAT(client_->serialNum, ElementsAre(0xAA, 0xBB, 0xCC, 0, 0, 0, 0, 0));
}

TEST_F(StateMachine, AHeartbeatIsAHeaderWithTheLoginIdentifier) {
    client_->ulLoginId = 0x0A0B0C0D;
    EXPECT_EQ(PC_SendHeartbeat(client_), 0);
    EXPECT_EQ(pair_.theirs().reads(32), (Bytes{0, 0, 1, 1, 6, 0, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A} + Bytes(20)));
    EXPECT_FALSE(pair_.theirs().has_bytes());
    pair_.theirs().closes();
    EXPECT_EQ(PC_SendHeartbeat(client_), -1);
    PC_Exit(client_);
    EXPECT_EQ(PC_SendHeartbeat(client_), -1);
    EXPECT_EQ(PC_SendHeartbeat(nullptr), -1);
}

}  // namespace
}  // namespace lenswire::test
