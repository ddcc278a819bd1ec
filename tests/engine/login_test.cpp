// A login as the camera sees it on the wire, and everything that can go wrong with one.
#include <unistd.h>

#include <thread>
#include <vector>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

// DES in ECB mode under default_serial(), made with another implementation of the cipher.
const Bytes kEncrypted12345 = {0x19, 0x28, 0xD6, 0xD4, 0xAA, 0x89, 0x90, 0x41, 0x5F, 0xFE, 0x00,
                               0x09, 0x4C, 0xCA, 0x91, 0xBC, 0x5F, 0xFE, 0x00, 0x09, 0x4C, 0xCA,
                               0x91, 0xBC, 0x5F, 0xFE, 0x00, 0x09, 0x4C, 0xCA, 0x91, 0xBC};
const char kLongPassword[] = "abcdefghijklmnopqrstuvwxyz012345";  // 32 characters, no room for a NUL
const Bytes kEncryptedLong = {0xC0, 0x8B, 0x42, 0x21, 0x7A, 0x83, 0x70, 0xC9, 0xC9, 0x42, 0x6B,
                              0xD4, 0xEF, 0x5A, 0x38, 0x26, 0x4D, 0x18, 0x32, 0xDB, 0xEA, 0x84,
                              0x2E, 0x2D, 0x73, 0xF9, 0x5E, 0xF0, 0xFA, 0x01, 0x4C, 0x72};
const Bytes kEncryptedSerial = {0x28, 0x19, 0x29, 0xBD, 0x78, 0x6C, 0xCC, 0x25};

// The 108 bytes of a login request.
Bytes login_request(const std::string& user, const Bytes& password) {
    return Bytes{0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 76, 0, 0, 0, 1, 0, 0, 0} + Bytes(12) +
           padded(bytes_of(user), 32) + password + Bytes(4) + kEncryptedSerial;
}

class Login : public EngineTest {
  protected:
    // Ends a login from the host's side once it has asked so many times whether to go on.
    void gives_up_after(int questions) {
        host().when(Service::kStreamUsedNum, [questions](int, int) {
            if (host().calls(Service::kStreamUsedNum) > questions) host().stream_used_num = 0;
        });
    }
};

// What comes right behind the login reply belongs to the event loop. No output has a password.
TEST_F(Login, SaysOnTheWireWhatTheCameraExpects) {
    const struct {
        std::string user;
        std::string password;
        std::string sent_user;
        Bytes sent_password;
    } cases[] = {
        {"admin", "12345", "admin", kEncrypted12345},
        // A user that fills its field loses the last character to the NUL.
        {std::string(32, 'u'), kLongPassword, std::string(31, 'u'), kEncryptedLong},
        {"", kLongPassword, "", kEncryptedLong},
    };
    ScriptedCamera camera;
    host().has_channel(0, {.address = "127.0.0.1", .armed = true});
    Capture capture;
    StreamConn* unit = nullptr;
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& row = cases[i];
        auto served = std::async(std::launch::async, [&] {
            Wire wire = camera.accepts();
            EXPECT_EQ(answers_serial_request(wire), (Bytes{0, 0, 1, 1, 1, 1, 0, 0} + Bytes(24)));
            EXPECT_EQ(wire.reads(108), login_request(row.sent_user, row.sent_password));
            wire.sends(command(0x0000, {}, 0, 1).bytes() + command(0x0009, {0, 0, 1}).bytes());
            EXPECT_TRUE(host().motion_calls.waits_for(i + 1));
        });
        EXPECT_EQ(login(unit = PC_CreateNew(), camera, credentials(row.user, row.password)), 0);
    }
    host().stream_used_num = 0;
    EXPECT_EQ(login(unit, camera, credentials("admin", kLongPassword)), -1);
    PC_Delete(unit);
    EXPECT_THAT(capture.out() + capture.err(), Not(HasSubstr(kLongPassword)));
    EXPECT_EQ(host().dumped_count(kLongPassword), 0);
}

TEST_F(Login, LeavesAClientThatIsReadyAndNamesItsStreamToTheHost) {
    std::vector<std::pair<int, int>> asked;
    for (Service service : {Service::kStreamUsedNum, Service::kRunFlag}) {
        host().when(service, [&](int channel, int stream) { asked.emplace_back(channel, stream); });
    }
    ScriptedCamera camera;
    StreamConn* unit = PC_CreateNew();
    CmdClient* client = unit->pCmdClient;
    host().clock.set(4711);
    auto served = camera.logs_in_next(0xFEEDF00D);
    EXPECT_EQ(login(unit, camera, credentials(), 17, 2), 0);
    const Wire wire = served.get();
    EXPECT_THAT((std::vector<uint32_t>{client->ucClientState, client->ulLoginStep, client->ulLoginId,
                                       client->ulLoginUptime, client->ulIpAddr, client->ulPort}),
                ElementsAre(PC_STATE_READY, 4, 0xFEEDF00D, 4711, camera.address(), camera.port()));
    EXPECT_EQ(Bytes(client->serialNum, client->serialNum + 8), default_serial());
    EXPECT_GT(client->sockFd, 0);
    EXPECT_THAT(asked, Each(std::pair(17, 2)));
    EXPECT_GE(asked.size(), 2u);
}

TEST_F(Login, ThatFailsLeavesAnIdleClient) {
    const struct {
        const char* what;
        int questions;  // of the host, that want it
        int result;
        void (*serves)(ScriptedCamera&);
        bool fails = false;  // a step of it; so do those after it
    } cases[] = {
        {"the host does not want it", 0, -1, [](ScriptedCamera& camera) { camera.accepts(); }},
        {"the camera hangs up", 10, -1, [](ScriptedCamera& camera) { camera.accepts().reads(32); }},
        // As if the reply never came.
        {"the camera refuses", 30, -4,
         [](ScriptedCamera& camera) {
             Wire wire = camera.accepts();
             answers_serial_request(wire);
             answers_login(wire, 8, 1);
             host().run_flag = 4;
             EXPECT_TRUE(wire.sees_close());
         }},
        {"a step fails", 4, -1, [](ScriptedCamera& camera) { EXPECT_TRUE(camera.accepts().sees_close()); },
         true},
        {"nobody listens", 4, -3, [](ScriptedCamera&) {}},
    };
    const std::string timed_out =
        "[src/pteClient:PcInviteStream:N]:channel 5 stream 1 wait private respone time out ";
    const char* const failed = "RTSP_TaskProc Failed, error line: N, error file: src/pteClient\n";
    ScriptedCamera camera;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        host().reset();
        gives_up_after(row.questions);
        if (row.result == -3) camera.stops_listening();
        auto served = std::async(std::launch::async, [&] { row.serves(camera); });
        StreamConn* unit = PC_CreateNew();
        Capture capture;
        host().when(Service::kRunFlag, [&](int, int) {
            if (row.fails && host().calls(Service::kRunFlag) == 2)
                PC_SetCBState(unit->pCmdClient, PC_STATE_TIMEOUT);
        });
        EXPECT_EQ(login(unit, camera, credentials(), 5, 1), row.result);
        served.get();
        EXPECT_EQ(unit->pCmdClient->ucClientState, PC_STATE_IDLE);
        EXPECT_EQ(unit->pCmdClient->sockFd, -1);
        EXPECT_EQ(host().stream_used_num == 0, row.result != -4);
        EXPECT_THAT(unnumbered(capture.out()), HasSubstr(timed_out + (row.questions == 0 ? "0 \n" : "")));
        EXPECT_TRUE(!row.fails || occurrences(unnumbered(capture.err()), failed) == 3);
    }
}

TEST_F(Login, WithoutArgumentsOrClientsFailsAtOnce) {
    ScriptedCamera camera;
    const LoginInfo info = credentials();
    StreamConn* unit = PC_CreateNew();
    EXPECT_EQ(PC_Login(nullptr, camera.address(), camera.port(), &info, 0, 0), -1);
    EXPECT_EQ(PC_Login(unit, camera.address(), camera.port(), nullptr, 0, 0), -1);
    EXPECT_EQ(unit->pCmdClient->ulIpAddr, 0u);

    while (PC_CreateCmdClient0() != nullptr) continue;
    StreamConn* clientless = PC_CreateNew();
    ASSERT_NE(clientless, nullptr);
    Capture capture;
    EXPECT_EQ(login(clientless, camera), -1);
    EXPECT_EQ(clientless->pCmdClient, nullptr);
    EXPECT_EQ(unnumbered(capture.err()), "[src/pteClient:PC_Login:N]:add client failed \n");
    // As soon as a client is free, the login takes it.
    CmdClient* freed = unit->pCmdClient;
    PC_Delete(unit);
    auto served = camera.logs_in_next();
    EXPECT_EQ(login(clientless, camera), 0);
    EXPECT_EQ(clientless->pCmdClient, freed);
}

TEST_F(Login, OnceMoreOnTheSameUnitReplacesTheConnection) {
    ScriptedCamera first, second;
    StreamConn* unit = PC_CreateNew();
    Wire old = logs_in(unit, first, 1);
    // Part of a message waits for its rest, which never comes on that connection.
    host().has_channel(0, {.address = "127.0.0.1", .armed = true});
    const int old_socket = unit->pCmdClient->sockFd;
    old.sends(slice(command(0x0009, {0, 0, 7}).bytes(), 0, 20));
    EXPECT_TRUE(wait_until([&] { return waiting_bytes(old_socket) == 0; }));

    Wire fresh = logs_in(unit, second, 2);
    EXPECT_TRUE(old.sees_close());
    EXPECT_EQ(unit->pCmdClient->ulLoginId, 2u);
    EXPECT_EQ(unit->pCmdClient->ulPort, static_cast<uint32_t>(second.port()));
    fresh.sends(command(0x0009, {0, 0, 1}));
    ASSERT_TRUE(host().motion_calls.waits_for(1));
    EXPECT_EQ(host().motion_calls()[0].status, 1);
}

// select watches descriptors up to 1023.
TEST_F(Login, ADescriptorOf1024IsTooLargeAnd1023IsNot) {
    if (!limits_descriptors(1100)) GTEST_SKIP() << "no descriptor above 1023 is allowed here";
    ScriptedCamera camera;
    StreamConn* unit = PC_CreateNew();
    std::vector<int> taken;
    Capture capture;
    for (int next = 0; next < 1023;) taken.push_back(next = dup(STDERR_FILENO));

    ASSERT_EQ(taken.back(), 1023);
    EXPECT_EQ(login(unit, camera), -1);
    EXPECT_EQ(unit->pCmdClient->sockFd, -1);
    EXPECT_THAT(capture.err(), HasSubstr("socket 1024 is too big"));
    camera.accepts();  // the end of what was just given up

    close(1023);
    taken.pop_back();
    auto served = camera.logs_in_next();
    EXPECT_EQ(login(unit, camera), 0);
    EXPECT_EQ(unit->pCmdClient->sockFd, 1023);
    served.get();
    for (int descriptor : taken) close(descriptor);
}

// A unit that is given back while its login is under way, at last from inside a question of the host: the
// login ends, and whoever takes the slot next has it for himself.
TEST_F(Login, EndsWhenItsUnitIsDeletedMeanwhile) {
    ScriptedCamera silent, other;
    StreamConn* unit = PC_CreateNew();
    CmdClient* client = unit->pCmdClient;
    std::thread inviting([&] { EXPECT_LT(login(unit, silent), 0); });
    Wire wire = silent.accepts();
    wire.reads(32);
    PC_Delete(unit);
    EXPECT_TRUE(wire.sees_close());
    StreamConn* next = PC_CreateNew();
    ASSERT_EQ(next->pCmdClient, client);
    Wire fresh = logs_in(next, other, 6);
    inviting.join();
    EXPECT_EQ(client->ucClientState, PC_STATE_READY);
    EXPECT_EQ(client->ulLoginId, 6u);
    EXPECT_EQ(client->ulPort, static_cast<uint32_t>(other.port()));
    EXPECT_EQ(PC_SendHeartbeat(client), 0);
    EXPECT_EQ(fresh.reads_command().login_id, 6u);

    host().when(Service::kRunFlag, [&](int, int) { PC_Delete(next); });
    EXPECT_LT(login(next, silent), 0);
    EXPECT_TRUE(silent.accepts().sees_close());
    EXPECT_EQ(PC_CreateNew(), next);
}

}  // namespace
}  // namespace lenswire::test
