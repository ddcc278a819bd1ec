// Requests from the host's queue and the slots that they open and close.
#include <fcntl.h>

#include <cstring>
#include <deque>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

constexpr int kSlots = LENSWIRE_STREAM_SLOTS;

int open_slots() {
    int count = 0;
    for (const int32_t& fd : arrayfd) count += peek(fd) != 0;
    return count;
}

// Streams on sockets on which nothing arrives. The host's clock stands still, so none is restarted.
class StreamSlots : public EngineTest {
  protected:
    StreamSlots() { unit_.pCmdClient = &client_; }

    StreamRequest request(int channel, int stream, int socket) {
        unit_.sockFd = socket;
        return open_request(channel, stream, &unit_, buffer_, frames_);
    }
    void takes(const StreamRequest& request) {
        host().posts(request);
        ASSERT_TRUE(host().waits_for_requests_taken());
    }
    void opens(int channel, int stream, int socket) { takes(request(channel, stream, socket)); }
    void closes(int channel, int stream) { takes(stream_request(STREAM_REQ_CLOSE, channel, stream)); }

    CmdClient client_{};
    StreamConn unit_{};
    ReceiveBuffer buffer_;
    FakeStream frames_;
    Pair pairs_[3];
};

TEST_F(StreamSlots, AnOpenRequestFillsTheLowestSlotAndPublishesItsSocketLast) {
    buffer_.ring().fill = 99;
    // As if the slot had been used before.
    int32_t* const zeroed[] = {bitrate, framecount, framerate, videoFrameNo, startNo, frameNo, audioFrameNo};
    for (int32_t* table : zeroed) table[0] = 55;
    nodatatime[0] = tv1[0] = 55;
    host().clock.set(4000);
    StreamRequest open = request(12, 1, pairs_[0].ours());
    std::memset(open.info.reserved4, 0x5A, sizeof open.info.reserved4);
    std::memset(open.info.reserved48, 0x6B, sizeof open.info.reserved48);
    unit_.pCmdClient = nullptr;  // is reported, and opened
    Capture capture;
    takes(open);
    ASSERT_EQ(peek(arrayfd[0]), pairs_[0].ours());
    EXPECT_EQ(unnumbered(capture.err()), "[src/pteClient:PC_GetQueueThread:N]:holy shit.... \n");
    EXPECT_EQ(open_slots(), 1);
    EXPECT_EQ(std::memcmp(&devchannelinfo[0], &open.info, sizeof open.info), 0);
    for (const int32_t* table : zeroed) EXPECT_EQ(peek(table[0]), 0);
    EXPECT_EQ(peek(tv1[0]), 4000);
    EXPECT_EQ(peek(nodatatime[0]), 4000);
    EXPECT_EQ(buffer_.ring().fill, 0u);
}

TEST_F(StreamSlots, TheHundredAndNinetyThirdIsDroppedUntilASlotIsFree) {
    std::vector<int> sockets;
    for (int i = 0; i < kSlots + 2; ++i) sockets.push_back(fcntl(pairs_[0].ours(), F_DUPFD_CLOEXEC, 100));
    std::vector<StreamConn> units(sockets.size());
    for (size_t i = 0; i < sockets.size(); ++i) {
        units[i] = {.sockFd = sockets[i], .pCmdClient = &client_, .reserved = {}};
        StreamRequest open = request(static_cast<int>(i), 0, 0);
        open.info.pStreamConn = &units[i];
        host().posts(open);
    }
    ASSERT_TRUE(host().waits_for_requests_taken());
    for (int i = 0; i < kSlots; ++i) EXPECT_EQ(peek(arrayfd[i]), sockets[static_cast<size_t>(i)]);
    closes(kSlots, 0);  // was never opened
    EXPECT_EQ(open_slots(), kSlots);
    closes(77, 0);
    EXPECT_EQ(peek(arrayfd[77]), 0);
    EXPECT_EQ(open_slots(), kSlots - 1);
    opens(kSlots + 1, 0, sockets.back());
    EXPECT_EQ(peek(arrayfd[77]), sockets.back());
    EXPECT_EQ(host().restarts.size(), 0u);
    for (int socket : sockets) EXPECT_TRUE(is_open(socket));
    stops_engine();
    for (int socket : sockets) close(socket);
}

TEST_F(StreamSlots, ClosingTakesTheLowerOfTwoSlotsOfOneStream) {
    opens(4, 0, pairs_[0].ours());
    opens(4, 1, pairs_[1].ours());
    opens(4, 0, pairs_[2].ours());
    EXPECT_EQ(open_slots(), 3);
    const int32_t counters_before = peek(tv1[0]);
    closes(4, 0);
    EXPECT_THAT((std::vector{peek(arrayfd[0]), peek(arrayfd[1]), peek(arrayfd[2])}),
                ElementsAre(0, pairs_[1].ours(), pairs_[2].ours()));
    EXPECT_EQ(peek(tv1[0]), counters_before);
    EXPECT_EQ(devchannelinfo[0].ucChannelNo, 4) << "the record of a freed slot stays";
    closes(4, 2);
    closes(5, 0);
    EXPECT_EQ(open_slots(), 2);
    closes(4, 1);
    EXPECT_EQ(open_slots(), 1);
    EXPECT_TRUE(is_open(pairs_[0].ours()));
    EXPECT_EQ(host().restarts.size(), 0u);
}

TEST_F(StreamSlots, OtherRequestsAreIgnored) {
    opens(1, 0, pairs_[0].ours());
    StreamRequest other = request(1, 0, pairs_[0].ours());
    for (uint32_t type : {2u, 3u, 4u, 0x100u, 0xFFFFFFFFu}) {
        other.ulType = type;
        takes(other);
    }
    EXPECT_EQ(open_slots(), 1);
}

TEST_F(StreamSlots, UnusableOpenRequestsAreRefused) {
    std::vector<StreamRequest> unusable(3, request(33, 1, pairs_[0].ours()));
    unusable[0].info.pStreamConn = nullptr;
    unusable[1].info.pRecvBuf = nullptr;
    unusable[2].info.pStream = nullptr;
    std::deque<StreamConn> units;
    for (const int socket : {-1, 0, 1024, INT32_MIN, INT32_MAX}) {
        units.push_back({.sockFd = socket, .pCmdClient = nullptr, .reserved = {}});
        unusable.push_back(open_request(33, 1, &units.back(), buffer_, frames_));
    }
    for (size_t i = 0; i < unusable.size(); ++i) {
        SCOPED_TRACE(i);
        Capture capture;
        takes(unusable[i]);
        EXPECT_EQ(open_slots(), 0);
        ASSERT_EQ(host().restarts.size(), i + 1);
        const RestartMessage restart = host().restarts().back();
        EXPECT_THAT((std::vector{restart.channel, restart.stream, restart.kind}), ElementsAre(33, 1, 3));
        EXPECT_EQ(occurrences(capture.err(), "\n"), 1) << capture.err();
    }
}

TEST_F(StreamSlots, TheQueueThreadFinishesItsBurstWhenItIsStopped) {
    const StreamRequest first = request(1, 0, pairs_[0].ours());
    host().when(Service::kGetRequest, [&](int, int) {
        if (host().calls(Service::kGetRequest) != 100) return;
        for (int i = 0; i < 5; ++i) host().posts(first);
        poke(PC_G_RecvQueue, 0);
    });
    ASSERT_TRUE(wait_until([] { return host().calls(Service::kGetRequest) > 100; }));
    stops_engine();
    EXPECT_EQ(open_slots(), 5);
}

}  // namespace
}  // namespace lenswire::test
