// One message on a socket: sent whole, read whole, and refused when anything about it is wrong.
#include <arpa/inet.h>

#include <regex>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

// Calls with a buffer of exactly the announced length, so that a sanitizer sees a byte beyond it.
struct Received {
    int result;
    int length;
    Bytes buffer;
};
Received receive(int (*function)(int, void*, int*), int socket, int capacity = 4096) {
    Received received{
        .result = 0, .length = capacity, .buffer = repeated('G', static_cast<size_t>(capacity))};
    received.result = function(socket, received.buffer.data(), &received.length);
    return received;
}

TEST(SendCommand, SendsExactlyTheMessageThatTheHeaderAnnounces) {
    const struct {
        Message message;
        size_t on_the_wire;
    } cases[] = {{command(0x0006), 32},
                 {announcing(0x1004, {0, 212}), 32},
                 {announcing(0x1004, {0x10000, 0x10000}), 32},  // the product wraps to nothing
                 {command(0x1005, pattern(36)), 68},
                 {announcing(0x1004, {3, 32}, pattern(96)), 128},
                 {command(0x1005, pattern(4064)), 4096}};
    for (const auto& row : cases) {
        Pair pair;
        Bytes buffer = in_buffer(row.message);
        int length = 4096;
        EXPECT_EQ(PC_SendCmd(pair.ours(), buffer.data(), &length), 0);
        EXPECT_EQ(length, static_cast<int>(row.on_the_wire));
        EXPECT_EQ(pair.theirs().reads(row.on_the_wire), slice(buffer, 0, row.on_the_wire));
        EXPECT_FALSE(pair.theirs().has_bytes());
    }
}

TEST(SendCommand, RefusesBadArgumentsAndOverLongMessagesWithoutSending) {
    Pair pair;
    const Message command36 = command(0x1005, pattern(36));
    const Bytes good = command36.bytes();
    const auto sends = [&](const Message& message, int length) {
        return PC_SendCmd(pair.ours(), in_buffer(message).data(), &length);
    };
    int length = 68;
    Capture capture;
    EXPECT_EQ(PC_SendCmd(-1, good.data(), &length), -1);
    EXPECT_EQ(PC_SendCmd(pair.ours(), nullptr, &length), -1);
    EXPECT_EQ(PC_SendCmd(pair.ours(), good.data(), nullptr), -1);
    for (int bad : {4097, 67, 31, 0, -1, -4096, INT32_MIN, INT32_MAX})
        EXPECT_EQ(sends(command36, bad), -1) << bad;
    for (const Product& product : kOverLong) EXPECT_EQ(sends(announcing(0x1004, product), 4096), -1);
    EXPECT_FALSE(pair.theirs().has_bytes());
    const std::string out = unnumbered(capture.out());
    const std::string line = "PRIVATE_LOG src/pteClient-PC_SendCmd-N: ******";
    EXPECT_THAT(out, HasSubstr(line + "input param error ****** sockFd =-1,"));
    EXPECT_THAT(out, HasSubstr(line + "input param error ****** \n"));
    EXPECT_THAT(out, HasSubstr(line + "******sendLen=68 ,*pLen=67\n"));
    // A closed peer is an error and no signal.
    pair.theirs().closes();
    EXPECT_EQ(PC_SendCmd(pair.ours(), good.data(), &length), -1);
    EXPECT_EQ(length, 68);
}

TEST(SendCommand, AFullSocketFailsAndNothingMoreIsSent) {
    Pair pair;
    const Bytes message = command(0x1005, pattern(4064)).bytes();
    int whole_messages = 0, length = 4096;
    for (; PC_SendCmd(pair.ours(), message.data(), &length) == 0; length = 4096)
        ASSERT_LT(++whole_messages, 100000);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(waiting_bytes(pair.theirs().descriptor()) / 4096, whole_messages);
}

TEST(ReceiveCommand, ReadsOneMessageAndLeavesTheNext) {
    Pair pair;
    const Bytes messages[] = {command(0x0006).bytes(), announcing(0x1004, {0, 212}).bytes(),
                              command(0x1004, pattern(36)).bytes(), command(0x1004, pattern(4064)).bytes(),
                              announcing(0x1004, {4, 8}, pattern(32)).bytes()};
    for (const Bytes& message : messages) pair.theirs().sends(message);
    for (const Bytes& message : messages) {
        const Received received = receive(PC_RecvCmd, pair.ours());
        EXPECT_EQ(received.result, 0);
        EXPECT_EQ(received.length, static_cast<int>(message.size()));
        EXPECT_EQ(slice(received.buffer, 0, message.size()), message);
        EXPECT_EQ(slice(received.buffer, message.size(), 4096), repeated('G', 4096 - message.size()));
    }
}

// What is logged of a broken message is a text as far as it came, whatever the bytes.
TEST(ReceiveCommand, RefusesWhatIsNoWholeMessageAndLogsWhatCame) {
    const Bytes text = {'%', 's', 0x1B, '[', '\n', 0xE9, 0x7F, '~', ' '};
    const std::string head = "File: src/pteClient, Line: N: ************ len is ARG_HEAD_LEN != len : ";
    const std::string log = "PRIVATE_LOG src/pteClient-PC_RecvCmd-N: PC_RecvCmd  ";
    const std::string forty = ",*pLen=4096,pCmd->ulBufferNum*pCmd->ulBufferSize=40 sock : S  errno : ";
    Message packet = command(0x1004, pattern(4));
    packet.flag = 1;
    struct Row {
        Bytes sent;
        std::string out;
        int left = 0;
    };
    std::vector<Row> rows = {
        {{}, ""},
        {packet.bytes(), "", 4},
        {text, head + "9, sock : S, buf : %s.[...~ \n\n"},
        {repeated('H', 31), head + "31, sock : S, buf : " + std::string(31, 'H') + "\n\n"},
        {announcing(0x1004, {1, 40}, text).bytes(), log + "len=9" + forty + "0 pBuff : %s.[...~ \n"},
        // A late rest is not waited for.
        {announcing(0x1004, {1, 40}).bytes(),
         log + "len=-1" + forty + "11 pBuff : \n33333333 socket=S  ,  Resource temporarily unavailable \n"},
    };
    for (const Product& product : kOverLong) {
        const std::string length = std::to_string(product.number * product.size);
        const std::string out =
            log + "*pLen=4096,pCmd->ulBufferNum*pCmd->ulBufferSize=" + length + ",pCmd->usCmd=1004\n";
        rows.push_back({announcing(0x1004, product, pattern(100)).bytes(), out, 100});
    }
    for (const Row& row : rows) {
        SCOPED_TRACE(row.out);
        Pair pair;
        pair.theirs().sends(row.sent);
        Capture capture;
        const Received received = receive(PC_RecvCmd, pair.ours());
        EXPECT_EQ(received.result, -1);
        EXPECT_EQ(received.length, 0);
        EXPECT_EQ(waiting_bytes(pair.ours()), row.left);
        const std::regex socket("(sock : |socket=)[0-9]+");
        EXPECT_EQ(std::regex_replace(unnumbered(capture.out() + capture.err()), socket, "$1S"), row.out);
    }
    // Longer than the caller's buffer, though not than a message may be.
    Pair pair;
    pair.theirs().sends(command(0x1004, pattern(36)));
    EXPECT_EQ(receive(PC_RecvCmd, pair.ours(), 67).result, -1);
}

TEST(ReceiveCommand, RefusesBadArgumentsWithoutReading) {
    Pair pair;
    pair.theirs().sends(command(0x0006));
    Bytes buffer(4096);
    for (const auto function : {PC_RecvCmd, PC_RecvCmd1}) {
        int length = 4096;
        Capture capture;
        EXPECT_EQ(function(-1, buffer.data(), &length), -1);
        EXPECT_EQ(length, 4096);
        EXPECT_EQ(function(pair.ours(), nullptr, &length), -1);
        EXPECT_EQ(function(pair.ours(), buffer.data(), nullptr), -1);
        for (int bad : {4097, 0, -1, INT32_MIN}) {
            length = bad;
            EXPECT_EQ(function(pair.ours(), buffer.data(), &length), -1) << bad;
            EXPECT_EQ(length, bad);
        }
        EXPECT_EQ(unnumbered(capture.out()), "File: src/pteClient, Line: N: ************ sockFd < 0\n");
        EXPECT_EQ(waiting_bytes(pair.ours()), 32);
    }
}

TEST(ReceiveWhateverIsThere, GivesBytesNothingOrTheEnd) {
    Pair pair;
    const Bytes sent = pattern(5000);
    const auto receives = [&](int result, int capacity, size_t at, int length) {
        const Received received = receive(PC_RecvCmd1, pair.ours(), capacity);
        EXPECT_EQ(received.result, result);
        EXPECT_EQ(received.length, length);
        const size_t count = result == 0 ? static_cast<size_t>(length) : 0;
        EXPECT_EQ(slice(received.buffer, 0, count), slice(sent, at, count));
    };
    receives(1, 4096, 0, 4096);
    pair.theirs().sends(sent);
    receives(0, 100, 0, 100);
    receives(0, 4096, 100, 4096);
    receives(0, 4096, 4196, 804);
    pair.theirs().closes();
    receives(-1, 4096, 0, 0);
}

// -- A command finds its camera's control connection by address alone.

const uint32_t kCamera = inet_addr("10.1.2.3");

class Delivery : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        stops_thread(PC_G_EventLoopSwitch);  // the clients are the test's own
    }
    // A client with that address and socket, in a state in which nobody else uses it.
    CmdClient* client_of(uint32_t address, int socket, uint32_t login_id = 0) {
        CmdClient* client = PC_CreateNew()->pCmdClient;
        client->ulIpAddr = address;
        client->sockFd = socket;
        client->ulLoginId = login_id;
        return client;
    }
    static int delivers(Bytes& message, int time = 20, uint32_t address = kCamera) {
        return Prv_Send_Cmd(address, message.data(), message.data(), time);
    }
};

TEST_F(Delivery, StampsTheLoginIdentifierIntoTheMessage) {
    Pair pair;
    CmdClient* client = client_of(kCamera, pair.gives_ours(), 0xA0B1C2D3);
    PC_SetCBState(client, PC_STATE_CONNECTED);  // one that is logging in gets commands, too
    const Bytes stamped = command(0x1005, pattern(36), 0, 0xA0B1C2D3).bytes();
    Bytes buffer = in_buffer(command(0x1005, pattern(36), 0, 55));
    EXPECT_EQ(delivers(buffer, 0), -1) << "a budget of no attempts sends and fails";
    EXPECT_EQ(delivers(buffer, 1), 0);
    EXPECT_EQ(pair.theirs().reads(136), stamped + stamped);
    EXPECT_FALSE(pair.theirs().has_bytes());
    EXPECT_EQ(u32_at(buffer, 8), 0xA0B1C2D3);

    pair.theirs().closes();
    Capture capture;
    EXPECT_EQ(delivers(buffer), -1);
    EXPECT_THAT(
        unnumbered(capture.out()),
        HasSubstr("PRIVATE_LOG src/pteClient-Private_Protocol_CMDDelivery-N: send error\nsend error\n"));
}

TEST_F(Delivery, TheFirstClientOfAnAddressIsTheOne) {
    Pair other, first, second;
    client_of(inet_addr("10.1.2.4"), other.gives_ours());
    CmdClient* client = client_of(kCamera, first.ours());
    client_of(kCamera, second.gives_ours());
    Bytes buffer = in_buffer(command(0x1004));
    EXPECT_EQ(delivers(buffer), 0);
    EXPECT_EQ(first.theirs().reads_command().command, 0x1004);

    // Even when it has no socket and the second has one. Without a client nothing is sent.
    client->sockFd = -1;
    const Bytes before = buffer;
    Capture capture;
    EXPECT_EQ(Private_Protocol_CMDDelivery(inet_addr("10.1.2.9"), buffer.data(), buffer.data(), 10), -1);
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(Private_Protocol_CMDDelivery(kCamera, buffer.data(), buffer.data(), 10), -1);
    EXPECT_EQ(capture.out() + capture.err(), "");
    EXPECT_EQ(delivers(buffer), -1);
    EXPECT_EQ(unnumbered(capture.out()),
              "PRI_LOG src/privateConfigure-Prv_Send_Cmd-N:  Private_Protocol_CMDDelivery failed,\tk=0,"
              "ip=10.1.2.3\n");
    EXPECT_FALSE(second.theirs().has_bytes());
    EXPECT_FALSE(other.theirs().has_bytes());
}

TEST_F(Delivery, RefusesBadArguments) {
    Bytes buffer = in_buffer(command(0x1004));
    Capture capture;
    uint8_t* const bytes = buffer.data();
    EXPECT_THAT((std::vector{Private_Protocol_CMDDelivery(0, bytes, bytes, 1),
                             Private_Protocol_CMDDelivery(kCamera, nullptr, bytes, 1),
                             Private_Protocol_CMDDelivery(kCamera, bytes, nullptr, 1),
                             Private_Protocol_CMDDelivery(kCamera, bytes, bytes, -1)}),
                Each(-1));
    EXPECT_EQ(occurrences(capture.out(), ": input para error ip="), 4);
}

}  // namespace
}  // namespace lenswire::test
