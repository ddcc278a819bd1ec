// The receive loop over its slots: frames, statistics, and streams that fail or fall silent. The clock is
// the host's and moves only when a test moves it.
#include <memory>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

Packet video(uint32_t seed, size_t size = 100) {
    return {.width = 640, .height = 360, .frame_rate = 25, .payload = pattern(size, seed)};
}
// Pushes the packet before it out; delivered itself, as audio, only when more follows.
const Bytes kTail = Packet{.video = false, .payload = pattern(1)}.bytes();

class ReceiveLoop : public EngineTest {
  protected:
    struct Stream {
        Stream(int channel, int number) : channel(channel), number(number) {}
        Wire& camera() { return pair.theirs(); }

        int channel, number;
        Pair pair;
        ReceiveBuffer buffer{1 << 16};
        FakeStream queue;
        StreamConn unit{};
        int socket = pair.ours();
        int slot = -1;
    };

    // A stream's objects stay until the loop has ended, as a host keeps them.
    Stream* unopened_stream(int channel, int number = 0) {
        Stream* stream = streams_.emplace_back(std::make_unique<Stream>(channel, number)).get();
        stream->unit.sockFd = stream->socket;
        stream->unit.pCmdClient = &client_;
        return stream;
    }
    Stream* new_stream(int channel, int number = 0) {
        Stream* stream = unopened_stream(channel, number);
        opens(*stream);
        return stream;
    }
    // For a stream that the host has been told is over.
    void frees(const Stream* stream) {
        std::erase_if(streams_, [&](const auto& owned) { return owned.get() == stream; });
    }
    void opens(Stream& stream) {
        host().posts_open(stream.channel, stream.number, &stream.unit, stream.buffer, stream.queue);
        ASSERT_TRUE(host().waits_for_requests_taken());
        for (int i = 0; i < LENSWIRE_STREAM_SLOTS; ++i) {
            if (peek(arrayfd[i]) == stream.socket) stream.slot = i;
        }
        ASSERT_GE(stream.slot, 0);
    }
    void closes(int channel) {
        host().posts_close(channel, 0);
        ASSERT_TRUE(host().waits_for_requests_taken());
    }
    static bool is_open_slot(const Stream& stream) { return peek(arrayfd[stream.slot]) == stream.socket; }
    // A frame through a stream: the loop has made a pass since the call.
    void makes_a_pass(Stream& stream) {
        const size_t before = stream.queue.frames.size();
        stream.camera().sends(video(1).bytes() + kTail);
        ASSERT_TRUE(stream.queue.frames.waits_for(before + 1));
    }
    void waits_for_restart(const Stream& stream, size_t count = 1) {
        ASSERT_TRUE(wait_until([&] { return host().restarts.size() >= count && !is_open_slot(stream); }));
        const RestartMessage restart = host().restarts()[count - 1];
        EXPECT_THAT((std::vector{restart.channel, restart.stream, restart.kind}),
                    ElementsAre(stream.channel, stream.number, 3));
        EXPECT_EQ(record_bytes(restart.request), record_bytes(stream_request(STREAM_REQ_RESTART, 0, 0)));
    }

    CmdClient client_{};
    std::vector<std::unique_ptr<Stream>> streams_;
};

TEST_F(ReceiveLoop, ASilentStreamIsRestartedAfterMoreThanFiveSeconds) {
    // Also where the clock, or its signed reading, wraps.
    size_t restarts = 0;
    for (uint32_t start : {1000u, 0xFFFFFFFDu, 0x7FFFFFFDu, 0x80000000u}) {
        host().clock.set(start);
        auto silent = new_stream(40, 1);
        auto living = new_stream(41);
        host().clock.advance(5);
        makes_a_pass(*living);
        makes_a_pass(*living);
        EXPECT_EQ(host().restarts.size(), restarts) << start;
        Capture capture;
        host().clock.advance(1);
        waits_for_restart(*silent, ++restarts);
        EXPECT_EQ(peek(nodatatime[silent->slot]), static_cast<int32_t>(start + 6));
        makes_a_pass(*living);
        EXPECT_EQ(host().restarts.size(), restarts) << "told twice";
        closes(41);
        EXPECT_THAT(
            unnumbered(capture.err()),
            testing::AnyOf("[src/pteClient:PC_RecvStreamLoop:N]:PostRestartMessageToQueue1.....[ch=40]"
                           "[streamNo=1]............. \n",
                           "[src/pteClient:PC_RecvStreamLoop:N]:channel:40,stream:1,"
                           "PostRestartMessageToQueue3.................. \n"));
    }
}

// Found silent by a pass that has just served another stream, for which the time went by meanwhile.
TEST_F(ReceiveLoop, FoundSilentBesideAnotherTheChannelLosesItsAudioFlag) {
    auto living = new_stream(51);
    auto silent = new_stream(50);
    ASSERT_LT(living->slot, silent->slot);
    ucAudioTypeFlag[50] = ucAudioTypeFlag[51] = 1;
    host().when(Service::kInsertFrame, [](int, int) {
        if (host().calls(Service::kInsertFrame) == 1) host().clock.advance(6);
    });
    Capture capture;
    living->camera().sends(video(1).bytes() + kTail);
    waits_for_restart(*silent);
    stops_engine();
    EXPECT_EQ(unnumbered(capture.err()),
              "[src/pteClient:PC_RecvStreamLoop:N]:channel:50,stream:0,"
              "PostRestartMessageToQueue3.................. \n");
    EXPECT_EQ(ucAudioTypeFlag[50], 0);
    EXPECT_EQ(ucAudioTypeFlag[51], 1);
}

TEST_F(ReceiveLoop, AStreamThatFailsIsRestartedAtOnce) {
    const struct {
        void (*fails)(Stream&);
        size_t frames;  // what stood in the ring before the end is delivered
    } cases[] = {
        {[](Stream& stream) { stream.camera().closes(); }, 1},
        {[](Stream& stream) { stream.camera().sends(command(0x1004, pattern(8))); }, 2},
        {[](Stream& stream) { stream.camera().sends(slice(video(1, 100000).bytes(), 0, 70000)); }, 2},
    };
    size_t restarts = 0;
    for (const auto& row : cases) {
        SCOPED_TRACE(restarts);
        auto failing = new_stream(60);
        makes_a_pass(*failing);
        Capture capture;
        row.fails(*failing);
        waits_for_restart(*failing, ++restarts);
        EXPECT_EQ(failing->queue.frames.size(), row.frames);
        EXPECT_TRUE(is_open(failing->socket));
        EXPECT_THAT(unnumbered(capture.err()), HasSubstr("[src/pteClient:PC_RecvStreamLoop:N]:PostRestart"
                                                         "MessageToQueue2.................. \n"));
    }
}

TEST_F(ReceiveLoop, RatesAreReportedOnceMoreThanTwoSecondsHavePassed) {
    auto stream = new_stream(70, 1);
    Wire& camera = stream->camera();
    const Notes<Frame>& frames = stream->queue.frames;
    const Bytes partial = slice(kTail, 0, 1), rest = slice(kTail, 1, 32);  // completes no packet
    size_t reports = 0;
    const auto expects = [&](int bytes_per_second, int frame_rate) {
        ASSERT_TRUE(host().network_params.waits_for(++reports));
        const Statistics rate = host().receive_rates().back(), param = host().network_params().back();
        EXPECT_THAT((std::vector{rate.channel, rate.stream, rate.bytes_per_second, rate.width, rate.height}),
                    ElementsAre(70, 1, bytes_per_second, 640, 360));
        EXPECT_THAT(
            (std::vector{param.channel, param.stream, param.kind, param.frame_rate, param.bytes_per_second}),
            ElementsAre(70, 1, 2, frame_rate, bytes_per_second));
    };
    for (uint32_t i = 0; i < 29; ++i) camera.sends(video(i, 268));
    camera.sends(kTail);
    ASSERT_TRUE(frames.waits_for(29));
    // Two seconds are not enough, three are: 29 frames, one of each pass, and the tails of the first two.
    host().clock.advance(2);
    makes_a_pass(*stream);
    makes_a_pass(*stream);
    EXPECT_EQ(host().receive_rates.size(), 0u);
    host().clock.advance(1);
    camera.sends(partial);
    expects((29 * 300 + 2 * (132 + 33)) / 3, 31 / 3);
    // An interval without video keeps the rate of the one before and counts every byte.
    camera.sends(rest + Packet{.video = false, .payload = pattern(468)}.bytes() + kTail);
    ASSERT_TRUE(frames.waits_for(29 + 4 + 3));
    host().clock.advance(4);
    camera.sends(partial);
    expects((33 + 33 + 500) / 4, 31 / 3);
    // The measured rate is what frames carry from then on.
    camera.sends(rest + video(3).bytes() + kTail);
    ASSERT_TRUE(frames.waits_for(29 + 4 + 3 + 3));
    EXPECT_EQ(frames().back().head[28], 31 / 3);
    // A stream that fails reports its rates, too.
    host().clock.advance(3);
    camera.closes();
    waits_for_restart(*stream);
    expects((33 + 132 + 33) / 3, 31 / 3);
    stops_engine();
    EXPECT_EQ(startNo[stream->slot], 29 + 4 + 3 + 3);
}

// A host that answers the restart message at once: it frees the stream's objects and opens the next one,
// which gets the same slot, and even the same descriptor number, before the call returns.
TEST_F(ReceiveLoop, ASlotReopenedFromInsideTheRestartCallIsLeftAlone) {
    const auto ends = [](Wire& camera) { camera.finishes(); };
    const auto falls_silent = [](Wire&) { host().clock.advance(6); };
    const auto fails_late = [](Wire& camera) {
        host().clock.advance(3);
        camera.sends(command(0x1004, pattern(8)));
    };
    size_t restarts = 0;
    for (void (*fails)(Wire&) : {+ends, +falls_silent, +fails_late}) {
        auto stream = new_stream(80);
        const int slot = stream->slot;
        makes_a_pass(*stream);
        Wire camera = std::move(stream->camera());  // outlives the stream
        Stream* next = nullptr;
        std::promise<void> reopened;
        host().when(Service::kInsertMessage, [&](int, int) {
            frees(stream);
            next = new_stream(80);
            reopened.set_value();
        });
        fails(camera);
        reopened.get_future().wait();
        host().when(Service::kInsertMessage, nullptr);
        EXPECT_EQ(next->slot, slot);
        makes_a_pass(*next);
        makes_a_pass(*next);
        EXPECT_TRUE(is_open_slot(*next));
        EXPECT_EQ(host().restarts.size(), ++restarts);
        EXPECT_EQ(u16_at(next->queue.frames()[0].head, 2), 0);
        closes(80);
    }
}

// The slot changes hands around a delivery, and the stream that held it fails in the same call.
TEST_F(ReceiveLoop, ASlotReopenedDuringADeliveryIsLeftAlone) {
    Stream* stream = new_stream(90);
    Stream* next = unopened_stream(91);
    const int slot = stream->slot;
    host().when(Service::kInsertFrame, [&](int, int) {
        if (host().calls(Service::kInsertFrame) > 1) return;
        host().posts_close(90, 0);
        host().posts_open(91, 0, &next->unit, next->buffer, next->queue);
        // The queue thread may take them now, or once the delivery is over.
        wait_until([&] { return peek(arrayfd[slot]) == next->socket; }, std::chrono::milliseconds(100));
    });
    stream->camera().sends(video(1).bytes() + command(0x1004, pattern(100)).bytes());
    ASSERT_TRUE(wait_until([&] { return peek(arrayfd[slot]) == next->socket; }));
    next->slot = slot;
    makes_a_pass(*next);
    makes_a_pass(*next);
    EXPECT_TRUE(is_open_slot(*next));
    for (const RestartMessage& restart : host().restarts()) EXPECT_EQ(restart.channel, 90);
}

}  // namespace
}  // namespace lenswire::test
