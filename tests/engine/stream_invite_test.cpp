// Inviting a stream on a connection of its own.

#include "engine/engine.h"

namespace lenswire::test {
namespace {

class StreamInvitation : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        LoggedIn login = new_login(camera_, 0x55667788);
        unit_ = login.unit;
        control_ = std::move(login.wire);
    }

    struct Invited {
        int result;
        Bytes out;
        Bytes request;
        Wire wire;
    };
    // Invites while the camera reads the request and answers it.
    Invited invites(const Bytes& answer, int channel = 3, int stream = 1) {
        Invited invited{.result = 1, .out = repeated('G', 32), .request = {}, .wire = {}};
        auto served = std::async(std::launch::async, [&] {
            invited.wire = camera_.accepts();
            invited.request = invited.wire.reads(36);
            if (answer.empty()) {
                invited.wire.closes();
            } else {
                invited.wire.sends(answer);
            }
        });
        invited.result = PC_GetStream(unit_, channel, stream, invited.out.data());
        served.get();
        return invited;
    }

    ScriptedCamera camera_;
    StreamConn* unit_ = nullptr;
    Wire control_;
};

TEST_F(StreamInvitation, AsksForOneStreamAndHandsTheAnswerBack) {
    const Bytes answer = pattern(32);
    const Invited invited =
        invites(command(0x0102, answer, 1).bytes(), 256 + 3, 512 + 1);  // its state does not matter
    EXPECT_EQ(invited.result, 0);
    EXPECT_EQ(invited.out, answer);
    EXPECT_EQ(invited.request,
              (Bytes{0, 0, 1, 1, 2, 1, 0, 0, 0x88, 0x77, 0x66, 0x55, 4, 0, 0, 0, 1, 0, 0, 0} + Bytes(12) +
               Bytes{3, 1, 0, 0}));
    EXPECT_GT(unit_->sockFd, 0);
    EXPECT_NE(unit_->sockFd, unit_->pCmdClient->sockFd);
}

TEST_F(StreamInvitation, AnswersOfAnyLengthGive32Bytes) {
    for (size_t size : {0u, 1u, 31u, 33u, 100u, 4064u}) {
        const Invited invited = invites(command(0x0102, pattern(size)).bytes());
        EXPECT_EQ(invited.result, 0) << size;
        EXPECT_EQ(invited.out, padded(pattern(size), 32)) << size;
    }
}

TEST_F(StreamInvitation, OtherAnswersFailAndTheSocketStays) {
    Message packet = command(0x0102, pattern(32));
    packet.flag = 1;
    for (const Bytes& answer : {command(0x1004, pattern(32)).bytes(), Bytes(), pattern(20), packet.bytes(),
                                announcing(0x0102, {1, 4065}, pattern(32)).bytes()}) {
        Capture capture;
        const Invited invited = invites(answer);
        EXPECT_EQ(invited.result, -1);
        EXPECT_EQ(invited.out, repeated('G', 32));
        EXPECT_TRUE(is_open(unit_->sockFd));
        if (answer.size() == 64 && answer[5] == 0x10) {
            EXPECT_EQ(capture.out(), "++++++++++++++[3][1]PC_GetStream type:4100 len:64+++++++++++++++\n");
        }
    }
}

TEST_F(StreamInvitation, OnceMoreReplacesTheSocket) {
    Invited first = invites(command(0x0102, pattern(32)).bytes());
    Invited second = invites(command(0x0102, pattern(32)).bytes());
    EXPECT_EQ(second.result, 0);
    EXPECT_TRUE(first.wire.sees_close());
    second.wire.sends(pattern(5));
    EXPECT_TRUE(wait_until([&] { return waiting_bytes(unit_->sockFd) == 5; }));
}

TEST_F(StreamInvitation, EndsWithItsUnitAlsoWhenThatIsTakenAgain) {
    Bytes out = repeated('G', 32);
    auto inviting = std::async(std::launch::async, [&] { return PC_GetStream(unit_, 0, 0, out.data()); });
    Wire wire = camera_.accepts();
    wire.reads(36);
    PC_Delete(unit_);
    ASSERT_EQ(PC_CreateNew(), unit_);
    poke(unit_->sockFd, 0x7000);  // somebody else's already
    wire.sends(command(0x0102, pattern(32)));
    EXPECT_EQ(inviting.get(), -1);
    EXPECT_TRUE(wire.sees_close());
    EXPECT_EQ(unit_->sockFd, 0x7000);
    EXPECT_EQ(out, repeated('G', 32));
}

TEST_F(StreamInvitation, ACameraThatNeverAnswersOrListensFails) {
    Bytes out = repeated('G', 32);
    EXPECT_EQ(PC_GetStream(unit_, 0, 0, out.data()), -1);  // the connection is made by the system alone
    EXPECT_EQ(camera_.accepts().reads(36).size(), 36u);
    camera_.stops_listening();
    EXPECT_EQ(PC_GetStream(unit_, 0, 0, out.data()), -1);
    EXPECT_EQ(out, repeated('G', 32));
}

TEST_F(StreamInvitation, BadArgumentsChangeNothing) {
    Pair pair;
    Bytes out = repeated('G', 32);
    unit_->sockFd = pair.ours();
    StreamConn clientless{};
    clientless.sockFd = pair.ours();
    EXPECT_THAT(
        (std::vector{PC_GetStream(nullptr, 0, 0, out.data()), PC_GetStream(unit_, -1, 0, out.data()),
                     PC_GetStream(unit_, 0, -1, out.data()), PC_GetStream(&clientless, 0, 0, out.data())}),
        Each(-1));
    EXPECT_EQ(clientless.sockFd, pair.ours());
    EXPECT_EQ(unit_->sockFd, pair.ours());
    pair.theirs().sends(pattern(1));
    EXPECT_EQ(waiting_bytes(pair.ours()), 1) << "another socket has its number";
    EXPECT_EQ(out, repeated('G', 32));
}

}  // namespace
}  // namespace lenswire::test
