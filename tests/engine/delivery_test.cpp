// A command finds its camera's control connection by address alone.
#include <arpa/inet.h>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

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
    Pair first, second, other;
    client_of(inet_addr("10.1.2.4"), other.gives_ours());
    CmdClient* client = client_of(kCamera, first.gives_ours());
    client_of(kCamera, second.ours());
    Bytes buffer = in_buffer(command(0x1004));
    EXPECT_EQ(delivers(buffer), 0);
    EXPECT_EQ(first.theirs().reads_command().command, 0x1004);

    // Even when it has no socket and the second has one. Without a client nothing is sent.
    const int socket = client->sockFd;
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
    client->sockFd = socket;
    EXPECT_FALSE(second.theirs().has_bytes());
    EXPECT_FALSE(other.theirs().has_bytes());
    second.gives_ours();
}

TEST_F(Delivery, BadArgumentsAndOverLongMessagesAreRefused) {
    Pair pair;
    client_of(kCamera, pair.gives_ours());
    Bytes buffer = in_buffer(command(0x1004));
    Capture capture;
    uint8_t* const bytes = buffer.data();
    EXPECT_THAT((std::vector{Private_Protocol_CMDDelivery(0, bytes, bytes, 1),
                             Private_Protocol_CMDDelivery(kCamera, nullptr, bytes, 1),
                             Private_Protocol_CMDDelivery(kCamera, bytes, nullptr, 1),
                             Private_Protocol_CMDDelivery(kCamera, bytes, bytes, -1)}),
                Each(-1));
    EXPECT_EQ(occurrences(capture.out(), ": input para error ip="), 4);
    for (const Product& product : kOverLong) {
        buffer = in_buffer(announcing(0x1005, product, pattern(64)));
        EXPECT_EQ(delivers(buffer), -1) << product.number << " x " << product.size;
    }
    EXPECT_FALSE(pair.theirs().has_bytes());
}

}  // namespace
}  // namespace lenswire::test
