// One message on a socket: sent whole, read whole, and refused when anything about it is wrong.
#include <sys/socket.h>

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
    Bytes message = command(0x1005, pattern(4064)).bytes();
    size_t whole_messages = 0;
    int length = 4096;
    while (PC_SendCmd(pair.ours(), message.data(), &length) == 0) {
        ++whole_messages;
        ASSERT_LT(whole_messages, 100000u);
        length = 4096;
    }
    EXPECT_EQ(length, 0);
    pair.closes_ours();
    size_t arrived = 0;
    uint8_t buffer[65536];
    ssize_t got;
    while ((got = recv(pair.theirs().descriptor(), buffer, sizeof buffer, 0)) > 0)
        arrived += static_cast<size_t>(got);
    EXPECT_GE(arrived, whole_messages * 4096);
    EXPECT_LT(arrived, (whole_messages + 1) * 4096);
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

TEST(ReceiveCommand, AMessageCutAtAnyByteIsRefused) {
    const Bytes message = command(0x4141, repeated('H', 40)).bytes();
    for (size_t cut = 1; cut < message.size(); ++cut) {
        Pair pair;
        pair.theirs().sends(slice(message, 0, cut));
        if (cut != 32) pair.theirs().closes();  // a late rest of a payload is not waited for
        Capture capture;
        const Received received = receive(PC_RecvCmd, pair.ours());
        EXPECT_EQ(received.result, -1) << cut;
        EXPECT_EQ(received.length, 0) << cut;
        const std::string out = unnumbered(capture.out());
        const std::string socket = std::to_string(pair.ours());
        if (cut < 32) {
            EXPECT_THAT(out,
                        HasSubstr("File: src/pteClient, Line: N: ************ len is ARG_HEAD_LEN != len : " +
                                  std::to_string(cut) + ", sock : " + socket));
        } else if (cut > 32) {
            EXPECT_THAT(out, HasSubstr("PRIVATE_LOG src/pteClient-PC_RecvCmd-N: PC_RecvCmd  len=" +
                                       std::to_string(cut - 32) + ",*pLen="));
            EXPECT_THAT(out, HasSubstr("pCmd->ulBufferNum*pCmd->ulBufferSize=40 sock"));
            EXPECT_EQ(occurrences(out, "H"), static_cast<int>(cut - 32 + occurrences(out, "ARG_H")));
        } else {
            EXPECT_THAT(capture.err(), HasSubstr("33333333 socket=" + socket + "  ,  "));
        }
        EXPECT_EQ(occurrences(out, "GG"), 0) << "bytes that never came were logged: " << out;
    }
}

TEST(ReceiveCommand, RefusesOverLongMessagesBeforeTheirPayload) {
    for (const Product& product : kOverLong) {
        Pair pair;
        pair.theirs().sends(announcing(0x1004, product, pattern(100)));
        Capture capture;
        const Received received = receive(PC_RecvCmd, pair.ours());
        EXPECT_EQ(received.result, -1) << product.number << " x " << product.size;
        EXPECT_EQ(received.length, 0);
        EXPECT_EQ(slice(received.buffer, 32, 4064), repeated('G', 4064));
        EXPECT_EQ(waiting_bytes(pair.ours()), 100);
        EXPECT_THAT(capture.out(),
                    HasSubstr("PC_RecvCmd  *pLen=4096,pCmd->ulBufferNum*pCmd->ulBufferSize=" +
                              std::to_string(product.number * product.size) + ",pCmd->usCmd=1004"));
    }
    // Longer than the caller's buffer, though not than a message may be.
    Pair pair;
    pair.theirs().sends(command(0x1004, pattern(36)));
    const Received received = receive(PC_RecvCmd, pair.ours(), 67);
    EXPECT_EQ(received.result, -1);
    EXPECT_EQ(slice(received.buffer, 32, 35), repeated('G', 35));
}

// What is logged of a broken message is a text as far as it came, whatever the bytes.
TEST(ReceiveCommand, ABrokenMessageIsLoggedInPrintableCharacters) {
    const Bytes bytes = {'%', 's', 0x1B, '[', '\n', 0xE9, 0x7F, '~', ' '};
    for (const Bytes& broken : {bytes, announcing(0x1004, {1, 40}, bytes).bytes()}) {
        Pair pair;
        pair.theirs().sends(broken);
        Capture capture;
        EXPECT_EQ(receive(PC_RecvCmd, pair.ours()).result, -1);
        EXPECT_THAT(capture.out(), HasSubstr(" : %s.[...~ \n"));
    }
}

TEST(ReceiveCommand, NothingThereAndStreamPacketsFailSilently) {
    Pair pair;
    Message packet = command(0x1004, pattern(4));
    packet.flag = 1;
    Capture capture;
    for (const Bytes& bytes : {Bytes(), packet.bytes()}) {
        pair.theirs().sends(bytes);
        const Received received = receive(PC_RecvCmd, pair.ours());
        EXPECT_EQ(received.result, -1);
        EXPECT_EQ(received.length, 0);
    }
    EXPECT_EQ(capture.out() + capture.err(), "");
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

}  // namespace
}  // namespace lenswire::test
