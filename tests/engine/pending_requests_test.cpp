// The table that brings a camera's answer to the thread that asked.
#include <arpa/inet.h>

#include <atomic>
#include <cstring>
#include <map>
#include <thread>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

constexpr int kCommand = 0x1004;
const uint32_t kCamera = inet_addr("10.1.2.3");
const uint32_t kOtherCamera = inet_addr("10.1.2.4");

RecvSendSlot* const kTableFull = reinterpret_cast<RecvSendSlot*>(1);

int receive(const Message& message, uint32_t camera = kCamera) {
    return Private_Protocol_RecvProcess(in_buffer(message).data(), camera);
}

Bytes content(const RecvSendSlot* slot, size_t count = 4096) {
    return Bytes(slot->recvData, slot->recvData + count);
}

// The result that has been posted by now, -1 also when nothing has.
int posted(RecvSendSlot* slot) {
    return Prv_GetCond_Property(slot, 0);
}

RecvSendSlot* asks(int code = kCommand, uint32_t camera = kCamera) {
    return Init_Cond_Msg(code, 0, camera);
}

class PendingRequests : public HostTest {
  protected:
    void SetUp() override { ASSERT_EQ(Prv_cmd_Init(), 0); }
    void TearDown() override {
        EXPECT_EQ(g_rs_num, 0);
        EXPECT_EQ(Prv_cmd_Delectl(), 0);
        HostTest::TearDown();
    }
};

TEST_F(PendingRequests, TheStateOfAnAnswerDecidesBetweenSuccessAndError) {
    const struct {
        int code;
        uint16_t state;
        int result;
    } cases[] = {{kCommand, 0, 0}, {kCommand, 1, -1},     {kCommand, 2, -1}, {kCommand, 0x100, -1},
                 {0x1058, 0, 0},   {0x1058, 2, 0},        {0x1058, 1, -1},   {0x1058, 3, -1},
                 {0x1057, 2, -1},  {kCommand, 0xFFFF, -1}};
    for (const auto& row : cases) {
        RecvSendSlot* slot = Init_Cond_Msg(row.code, 0, kCamera);
        // Posted before the wait begins, so a wait of 20 seconds ends at once.
        EXPECT_EQ(receive(command(static_cast<uint16_t>(row.code), pattern(4), row.state)), 0);
        EXPECT_EQ(slot->ucPosted, 1) << std::hex << row.code << " " << row.state;
        EXPECT_EQ(Prv_GetCond_Property(slot, 20), row.result) << std::hex << row.code << " " << row.state;
        prv_destroy_msg(slot);
    }
    EXPECT_EQ(host().dumped_count("state 2 is error ip is 10.1.2.3"), 2);
}

TEST_F(PendingRequests, CommandCodeAndAddressBothMustMatch) {
    prv_destroy_msg(asks(kCommand + 1));  // of a released request nothing is left
    RecvSendSlot* slot = asks();
    Capture capture;
    EXPECT_EQ(receive(command(kCommand, pattern(8)), kOtherCamera), 0);
    EXPECT_EQ(Prv_CmdStaRgt(in_buffer(command(kCommand + 1, pattern(8))).data(), kCamera), -1);
    EXPECT_EQ(Prv_CmdStaErr(in_buffer(command(kCommand, {}, 1)).data(), kOtherCamera), -1);
    EXPECT_EQ(slot->ucPosted, 0);
    EXPECT_EQ(posted(slot), -1);
    EXPECT_EQ(content(slot), Bytes(4096));
    EXPECT_EQ(host().dumped_count("pthread_cond_timedwait time out"), 1);
    EXPECT_THAT(unnumbered(capture.out()),
                HasSubstr("PRI_LOG src/privateConfigure-Prv_CmdStaRgt-N: recv data  j=128,pCmd->usCmd=1004,"
                          "pCmd->ucState =0,ip=10.1.2.4\n"));
    EXPECT_EQ(host().dumped_count("recv data is error j=128,pCmd->usCmd=1004,pCmd->ucState =1,ip=10.1.2.4"),
              1);
    prv_destroy_msg(slot);
}

TEST_F(PendingRequests, OnlyTheFirstAnswerCountsButLaterPayloadReplacesTheBytes) {
    const Bytes request = command(kCommand, pattern(16, 9)).bytes();
    const Message second = command(kCommand, pattern(16, 2));
    for (uint16_t first_state : {0, 1}) {
        RecvSendSlot* slot = asks();
        std::memcpy(slot->recvData, request.data(), request.size());
        EXPECT_EQ(receive(command(kCommand, {}, first_state)), 0);
        EXPECT_EQ(content(slot, 48), request);
        EXPECT_EQ(receive(command(kCommand, {}, 1)), 0);
        EXPECT_EQ(receive(second), 0);
        EXPECT_EQ(posted(slot), -first_state);
        EXPECT_EQ(content(slot, 48), second.bytes());
        prv_destroy_msg(slot);
    }
}

TEST_F(PendingRequests, TwoWaitersForOneKeyAreServedInTheOrderOfTheirSlots) {
    RecvSendSlot* first = asks();
    RecvSendSlot* second = asks();
    ASSERT_LT(first, second);
    EXPECT_EQ(receive(command(kCommand, pattern(8, 1))), 0);
    EXPECT_EQ(receive(command(kCommand, pattern(8, 2))), 0);
    EXPECT_EQ(posted(first), 0);
    EXPECT_EQ(posted(second), -1);
    prv_destroy_msg(first);
    const Message third = command(kCommand, pattern(8, 3));
    EXPECT_EQ(receive(third), 0);
    EXPECT_EQ(posted(second), 0);
    EXPECT_EQ(content(second, 40), third.bytes());
    prv_destroy_msg(second);
}

TEST_F(PendingRequests, TheTableTakes128AndReportsThe129th) {
    for (int i = 0; i < 128; ++i) ASSERT_EQ(asks(kCommand + i), &g_recvsendlist[i]);
    EXPECT_EQ(g_rs_num, 128);
    EXPECT_EQ(asks(), kTableFull);
    EXPECT_EQ(host().dumped_count("g_recvsenddata is full,add again \n"), 1);
    // Room that is made while a request waits is the next taken, and only that.
    host().when(Service::kDump, [](int, int) {
        if (g_rs_num == 128) prv_destroy_msg(&g_recvsendlist[77]);
    });
    EXPECT_EQ(Prv_PacketMsg(kCommand, 0, 5, kCamera), &g_recvsendlist[77]);
    EXPECT_EQ(host().dumped_count("###############please wait*********************"), 1);
    EXPECT_EQ(asks(), kTableFull);
    for (RecvSendSlot& taken : g_recvsendlist) prv_destroy_msg(&taken);
}

// A host whose allocator and logger make requests of their own, which are answered and released.
TEST_F(PendingRequests, TheHostMayCallBackFromInsideItsServices) {
    std::map<Service, int> calls;
    for (const Service service : {Service::kMalloc, Service::kFree, Service::kDump}) {
        host().when(service, [&calls, service](int, int) {
            if (calls[service]++ > 0) return;
            RecvSendSlot* inner = asks(0x2000, kOtherCamera);
            EXPECT_EQ(receive(command(0x2000, pattern(8)), kOtherCamera), 0);
            EXPECT_EQ(posted(inner), 0);
            prv_destroy_msg(inner);
        });
    }
    RecvSendSlot* outer = asks();
    EXPECT_EQ(receive(command(kCommand, {}, 1)), 0);  // reported
    EXPECT_EQ(posted(outer), -1);
    prv_destroy_msg(outer);
    EXPECT_EQ(calls.size(), 3u);
}

TEST_F(PendingRequests, BadArgumentsAreRefused) {
    const Bytes message = in_buffer(command(kCommand, pattern(4)));
    Capture capture;
    EXPECT_EQ(asks(-1), nullptr);
    EXPECT_EQ(Init_Cond_Msg(kCommand, -1, kCamera), nullptr);
    EXPECT_EQ(Prv_PacketMsg(-1, 0, 5, kCamera), nullptr);
    EXPECT_EQ(Prv_PacketMsg(kCommand, -1, 5, kCamera), nullptr);
    EXPECT_EQ(Prv_PacketMsg(kCommand, 0, -1, kCamera), nullptr);
    for (const int result :
         {Prv_GetCond_Property(nullptr, 1), cond_post(nullptr), cond_post_error(nullptr),
          prv_destroy_msg(nullptr), Prv_CmdStaRgt(nullptr, kCamera), Prv_CmdStaErr(nullptr, kCamera),
          Private_Protocol_RecvProcess(nullptr, kCamera), Private_Protocol_RecvProcess(message.data(), 0)})
        EXPECT_EQ(result, -1);
    EXPECT_EQ(occurrences(capture.out(), "PRI_LOG src/privateConfigure-"), 13);
    RecvSendSlot* slot = asks();
    EXPECT_EQ(Prv_GetCond_Property(slot, -1), -1);
    prv_destroy_msg(slot);
}

// As a context does that stops.
TEST_F(PendingRequests, AnErrorMayBePostedToEverySlot) {
    RecvSendSlot* answered = asks();
    RecvSendSlot* released = asks();
    RecvSendSlot* waiting = asks();
    prv_destroy_msg(released);
    EXPECT_EQ(receive(command(kCommand)), 0);
    for (RecvSendSlot& slot : g_recvsendlist) {
        const bool taken = &slot == answered || &slot == waiting;
        EXPECT_EQ(cond_post_error(&slot), taken ? 0 : -1);
        EXPECT_EQ(cond_post(&slot), taken ? 0 : -1);
    }
    EXPECT_EQ(posted(waiting), -1);
    EXPECT_EQ(posted(answered), 0) << "the first answer counts";
    EXPECT_EQ(cond_post(kTableFull), -1);
    prv_destroy_msg(answered);
    prv_destroy_msg(waiting);
    EXPECT_EQ(released->ucPosted, 0);
}

// A header may announce any product; of what it announces a whole message is read and no more.
TEST_F(PendingRequests, AnOverLongAnswerIsCutToAWholeMessage) {
    for (const Product& product : kOverLong) {
        RecvSendSlot* slot = asks();
        const Bytes answer = announcing(kCommand, product, pattern(4064)).bytes();
        EXPECT_EQ(Prv_CmdStaRgt(answer.data(), kCamera), 0);
        EXPECT_EQ(posted(slot), 0) << product.number << " x " << product.size;
        EXPECT_EQ(content(slot), answer);
        prv_destroy_msg(slot);
    }
}

// A camera that answers one command over and over, while a host thread takes and releases slots for that
// one and for another: the other slot is never written or posted.
TEST_F(PendingRequests, AReleasedSlotIsNeverAnsweredForItsNextOwner) {
    std::atomic<bool> done{false};
    std::thread event_loop([&] {
        const Bytes answer = in_buffer(command(kCommand, repeated(0xAB, 4064)));
        const Bytes refusal = in_buffer(command(kCommand, {}, 1));
        while (!done) {
            Private_Protocol_RecvProcess(answer.data(), kCamera);
            Private_Protocol_RecvProcess(refusal.data(), kCamera);
        }
    });
    Capture capture;
    for (int i = 0; i < 3000 && !HasFailure(); ++i) {
        RecvSendSlot* asked = asks();
        if (i % 2 == 0) posted(asked);
        prv_destroy_msg(asked);
        RecvSendSlot* other = asks(0x1023);
        EXPECT_EQ(other, asked);
        EXPECT_EQ(posted(other), -1) << "round " << i;
        EXPECT_TRUE(content(other) == Bytes(4096)) << "round " << i;
        prv_destroy_msg(other);
    }
    done = true;
    event_loop.join();
}

}  // namespace
}  // namespace lenswire::test
