// The context and its tables: started once, handed out once, given back whole.

#include <set>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

class Context : public EngineTest {};

TEST(ContextBeforeItsStart, HasNothingToHandOut) {
    EXPECT_EQ(PC_CreateNew(), nullptr);
    EXPECT_EQ(PC_CreateCmdClient0(), nullptr);
}

TEST(ContextStartAndStop, HappenOnceAndLeaveNothing) {
    const int threads = thread_count();
    const int descriptors = open_descriptors();
    ASSERT_EQ(PC_InitCtx(), 0);
    EXPECT_EQ(PC_InitCtx(), 0);
    EXPECT_EQ(thread_count(), threads + 3);
    {
        Capture capture;
        EXPECT_EQ(PC_UnInitCtx(), 0);
        EXPECT_EQ(occurrences(capture.out(), "+++++++++PC_RecvStreamLoop thread exit+++++++++\n"), 1);
    }
    EXPECT_TRUE(wait_until([&] { return thread_count() == threads; }));
    EXPECT_EQ(PC_G_EventLoopSwitch + PC_G_RecvStreamLoopSwitch + PC_G_RecvQueue, 0);
    EXPECT_EQ(PC_InitCtx(), 0);
    EXPECT_EQ(thread_count(), threads);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(host().live_allocations(), 0);
}

TEST_F(Context, TheTablesHandOut192ClientsAnd256Units) {
    std::set<StreamConn*> units;
    std::set<CmdClient*> clients;
    for (int i = 0; i < 256; ++i) {
        StreamConn* unit = PC_CreateNew();
        ASSERT_NE(unit, nullptr) << i;
        EXPECT_EQ(unit->sockFd, -1);
        units.insert(unit);
        ASSERT_EQ(unit->pCmdClient != nullptr, i < 192) << i;
        if (unit->pCmdClient == nullptr) continue;
        EXPECT_EQ(unit->pCmdClient->sockFd, -1);
        EXPECT_EQ(unit->pCmdClient->ucClientState, PC_STATE_IDLE);
        clients.insert(unit->pCmdClient);
    }
    EXPECT_EQ(units.size(), 256u);
    EXPECT_EQ(clients.size(), 192u);
    Capture capture;
    EXPECT_EQ(PC_CreateCmdClient0(), nullptr);
    EXPECT_EQ(PC_CreateNew(), nullptr);
    EXPECT_EQ(unnumbered(capture.err()), "[src/pteClient:PC_CreateNew:N]:no client units now \n");
    // What is given back is handed out again.
    StreamConn* given_back = *std::next(units.begin(), 100);
    CmdClient* its_client = given_back->pCmdClient;
    PC_Delete(given_back);
    EXPECT_EQ(PC_CreateNew(), given_back);
    EXPECT_EQ(given_back->pCmdClient, its_client);
}

TEST_F(Context, DeletingAUnitClosesItsControlSocketAndKeepsNoPassword) {
    Pair control, stream;
    StreamConn* unit = PC_CreateNew();
    StreamConn* other = PC_CreateNew();
    CmdClient* client = unit->pCmdClient;
    poke(client->sockFd, control.gives_ours());
    client->LoginInfo = credentials("admin", "secret");
    client->ulLoginId = 5;
    client->ulRecvRemainLen = 12;
    poke(unit->sockFd, stream.ours());
    other->pCmdClient->LoginInfo = credentials("admin", "other");

    EXPECT_EQ(PC_Delete(unit), 0);
    EXPECT_TRUE(control.theirs().sees_close());
    EXPECT_TRUE(is_open(stream.ours()));
    EXPECT_EQ(unit->pCmdClient, nullptr);
    EXPECT_THAT(record_bytes(client->LoginInfo), Each(0));
    EXPECT_EQ(client->ulLoginId, 0u);
    EXPECT_EQ(client->ulRecvRemainLen, 0u);
    EXPECT_STREQ(other->pCmdClient->LoginInfo.szPassword, "other");

    Capture capture;
    StreamConn foreign{};
    for (StreamConn* unknown : {unit, &foreign, static_cast<StreamConn*>(nullptr)}) PC_Delete(unknown);
    EXPECT_EQ(occurrences(unnumbered(capture.err()), "[src/pteClient:PC_Delete:N]:pClient ="), 3);
    EXPECT_EQ(occurrences(capture.err(), " not found,holy shit \n"), 3);
}

TEST_F(Context, AClientThatIsNotOfTheTableIsLeftAlone) {
    Pair control;
    CmdClient foreign{};
    foreign.sockFd = control.ours();
    StreamConn* unit = PC_CreateNew();
    unit->pCmdClient = &foreign;
    PC_Delete(unit);
    EXPECT_EQ(foreign.sockFd, control.ours());
    EXPECT_TRUE(is_open(control.ours()));

    // Nor is a client freed that was freed before.
    unit = PC_CreateNew();
    StreamConn* twin = PC_CreateNew();
    CmdClient* shared = twin->pCmdClient = unit->pCmdClient;
    PC_Delete(unit);
    poke(shared->sockFd, control.ours());
    PC_Delete(twin);
    EXPECT_TRUE(is_open(control.ours()));
}

TEST_F(Context, ExitClosesOnlyDescriptorsAboveZeroAndStoppingNone) {
    Pair pair, control, stream;
    CmdClient* client = PC_CreateCmdClient0();
    PC_Exit(nullptr);
    for (int fd : {-1, 0}) {
        poke(client->sockFd, fd);
        PC_Exit(client);
        EXPECT_EQ(client->sockFd, fd);
    }
    EXPECT_TRUE(is_open(0));
    PC_SetCBState(client, PC_STATE_LOGINED);
    poke(client->sockFd, pair.gives_ours());
    PC_Exit(client);
    EXPECT_EQ(client->sockFd, -1);
    EXPECT_EQ(client->ucClientState, PC_STATE_LOGINED);
    EXPECT_TRUE(pair.theirs().sees_close());

    StreamConn* unit = PC_CreateNew();
    poke(unit->sockFd, stream.ours());
    poke(client->sockFd, control.ours());
    stops_engine();
    EXPECT_TRUE(is_open(stream.ours()));
    EXPECT_TRUE(is_open(control.ours()));
    EXPECT_EQ(unit->pCmdClient, nullptr);
    EXPECT_EQ(client->sockFd, 0);
}

}  // namespace
}  // namespace lenswire::test
