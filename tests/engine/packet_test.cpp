// Packets out of the host's ring and into its frame queue, played without the receive loop.
#include <unistd.h>

#include <cstring>
#include <ctime>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

// Behind a packet, so many bytes must have come before it is taken out.
constexpr size_t kBehind = LENSWIRE_BYTES_BEHIND_PACKET;
constexpr int kChannel = 200;

// Any packet whose delivery is not looked at.
Bytes filler() {
    return Packet{.payload = pattern(kBehind)}.bytes();
}

// One stream's objects and counters, as the receive loop would hand them on.
class Stream {
  public:
    explicit Stream(uint32_t capacity = 1 << 16) : buffer_(capacity) {}

    int receives() {
        return RecvStreamToPacketBuf(kChannel, 0, &frame_no, pair_.ours(), frame_rate, &bit_rate,
                                     buffer_.object(), frames_.object(), &video_frame_no, &audio_frame_no,
                                     &frame_count, &width, &height);
    }
    int receives(const Bytes& bytes) {
        camera().sends(bytes);
        return receives();
    }
    // As many receives as it takes.
    void receives_all(const Bytes& bytes) {
        camera().sends(bytes);
        while (waiting_bytes(pair_.ours()) > 0) {
            if (receives() != 1) {
                ADD_FAILURE() << "the stream failed";
                return;
            }
        }
    }
    // A whole packet, without a socket.
    void delivers(const Packet& packet) {
        buffer_.holds(packet.payload);
        EXPECT_EQ(
            PacketToFrameQueue(packet.bytes().data(), 0, buffer_.object(), frames_.object(), frames_.object(),
                               0, &video_frame_no, &audio_frame_no, &frame_count, &width, &height, kChannel),
            0);
        EXPECT_EQ(buffer_.ring().fill, 0u);
    }
    Wire& camera() { return pair_.theirs(); }
    Pair& pair() { return pair_; }
    ReceiveBuffer& buffer() { return buffer_; }
    FakeStream& queue() { return frames_; }
    std::vector<Frame> frames() const { return frames_.frames(); }
    Frame last() const { return frames_.frames().back(); }

    int32_t frame_no = -7, audio_frame_no = -7;  // nobody touches these
    int32_t video_frame_no = 0, bit_rate = 0, frame_count = 0, width = 0, height = 0;
    int frame_rate = 0;

  private:
    Pair pair_;
    ReceiveBuffer buffer_;
    FakeStream frames_;
};

class Packets : public HostTest {
  protected:
    Packets() {
        ucAudioTypeFlag[kChannel] = 0;
        uFreamCount[kChannel] = uFreamType[kChannel] = 0;
    }
    Stream stream_;
};

TEST_F(Packets, AVideoFrameHeadSaysWhatThePacketSaid) {
    const Bytes payload = pattern(1000);
    stream_.video_frame_no = 0x1FFFE;
    const int64_t before = time(nullptr);
    EXPECT_EQ(stream_.receives(Packet{.frame_type = 3,
                                      .codec = 1,
                                      .time_stamp = 0xA1A2A3A4,
                                      .width = 0x1234,
                                      .height = 0x5678,
                                      .frame_rate = 300,
                                      .attr = 0xABCD,
                                      .filler = 0x77,
                                      .info_bits = 0xF000003E,
                                      .payload = payload}
                                   .bytes() +
                               filler()),
              1);
    ASSERT_EQ(stream_.frames().size(), 1u);
    const Bytes head = stream_.last().head;
    constexpr uint8_t x = kUntouched;
    EXPECT_EQ(slice(head, 0, 4), (Bytes{0, 0, 0xFE, 0xFF}));
    const int64_t came = u32_at(head, 4);
    EXPECT_TRUE(before <= came && came <= time(nullptr) + 1 && u32_at(head, 8) < 1000000u);
    EXPECT_EQ(slice(head, 12, 24), (Bytes{0xA4, 0xA3, 0xA2, 0xA1, 3,          0, x, x, 3,    x,    0x2A, 0,
                                          0x34, 0x12, 0x78, 0x56, 300 & 0xFF, 0, x, x, 0xE8, 0x03, 0,    0}));
    EXPECT_EQ(stream_.last().payload, payload);
    EXPECT_THAT((std::vector{stream_.video_frame_no, stream_.frame_count, stream_.width, stream_.height,
                             stream_.bit_rate, stream_.frame_no, stream_.audio_frame_no}),
                ElementsAre(0x1FFFF, 1, 0x1234, 0x5678, 1032, -7, -7));
}

TEST_F(Packets, VideoHeadsByCodecFrameTypeAndRate) {
    const struct {
        Packet packet;
        int measured_rate;
        uint8_t type_in_head, code_in_head, rate_in_head;
        const char* name = "H264";
    } cases[] = {
        {{.codec = 1}, 0, 0, 3, 0, "H265"},
        {{.frame_type = 1, .codec = 2}, 0, 1, 0, 0},
        {{.frame_type = 2, .codec = 3}, 0, 0, 2, 0, "JPEG"},
        {{.frame_type = 3, .codec = 4, .frame_rate = 25}, 0, 3, 4, 25},
        {{.frame_type = 4, .codec = 5, .frame_rate = 300}, 0, 0, 5, 44, "H265"},
        {{.frame_type = 255, .codec = 6, .frame_rate = 25}, 30, 0, 0, 30},
        {{.codec = 3, .frame_rate = 25}, -1, 0, 2, 25, "JPEG"},
        {{.codec = 16, .frame_rate = 25}, 300, 0, 0, 44},
        {{.codec = 5}, 0, 0, 5, 0, "H265"},
        {{.codec = 255}, 0, 0, 0, 0},
    };
    for (const auto& row : cases) {
        stream_.frame_rate = row.measured_rate;
        stream_.receives_all(row.packet.bytes() + filler());
        const Bytes head = stream_.last().head;
        EXPECT_EQ((Bytes{head[16], head[20], head[28]}),
                  (Bytes{row.type_in_head, row.code_in_head, row.rate_in_head}))
            << int{row.packet.codec};
        Bytes info(128, kUntouched);
        std::memcpy(info.data() + 8, row.name, 5);
        EXPECT_EQ(stream_.queue().private_info(), info) << int{row.packet.codec};
        stream_.buffer().ring().fill = 0;
    }
}

TEST_F(Packets, AnAudioFrameHasAPrefixAndSharesTheSequence) {
    const Bytes payload = pattern(160);
    constexpr uint8_t x = kUntouched;
    for (const auto& [codec, kind] : {std::pair<uint8_t, uint8_t>{16, 1}, {0, 2}, {17, 2}}) {
        stream_.width = stream_.height = stream_.frame_count = 0;
        stream_.video_frame_no = 5;
        stream_.receives_all(Packet{.video = false, .codec = codec, .width = 9, .payload = payload}.bytes() +
                             filler());
        const Frame frame = stream_.last();
        EXPECT_EQ(slice(frame.head, 0, 4), (Bytes{1, 0, 5, 0}));
        EXPECT_EQ(slice(frame.head, 12, 24),
                  (Bytes{x, x, x, x, x, x, x, x, kind, 1, 0, 1, x, x, x, x, x, x, x, x, 164, 0, 0, 0}));
        EXPECT_EQ(frame.payload, (Bytes{0x00, 0x01, 0xA0, 0x00} + payload));
        EXPECT_EQ(stream_.video_frame_no, 6);
        EXPECT_EQ(stream_.frame_count + stream_.width, 0);
        Bytes info(128, kUntouched);
        put_u32(info, 72, kind);
        EXPECT_EQ(stream_.queue().private_info(), info);
        stream_.buffer().ring().fill = 0;
    }
}

TEST_F(Packets, APacketIsTakenOutOnceMoreThan32BytesAreBehindIt) {
    stream_.queue().has_private_info(false);  // a host without gets its frames, too
    const Bytes next = Packet{.video = false, .payload = pattern(50, 2)}.bytes();
    const struct {
        Bytes bytes;
        size_t frames;
        int32_t bit_rate;
    } steps[] = {{Packet{.payload = pattern(100)}.bytes(), 0, 0},
                 {slice(next, 0, 32), 0, 0},
                 {slice(next, 32, 1), 1, 132},
                 {slice(next, 33, 100), 1, 132},
                 {filler(), 2, 214}};
    for (const auto& step : steps) {
        EXPECT_EQ(stream_.receives(step.bytes), 1);
        EXPECT_EQ(stream_.frames().size(), step.frames);
        EXPECT_EQ(stream_.bit_rate, step.bit_rate);
    }
    EXPECT_EQ(stream_.queue().private_info(), Bytes(128, kUntouched));
}

TEST_F(Packets, ARingMayBecomeExactlyFull) {
    const Bytes sent = Packet{.payload = pattern(500 - 65)}.bytes() + slice(filler(), 0, 33);
    Stream fits(500);  // 65 bytes more than the payload are just enough
    EXPECT_EQ(fits.receives(sent), 1);
    EXPECT_EQ(fits.frames().size(), 1u);

    // A ring that can never hold its packet, or no packet at all, is told so once.
    Stream too_small(499), no_header(20), unusable;
    EXPECT_EQ(too_small.receives(sent), 1);
    EXPECT_EQ(too_small.buffer().ring().fill, 499u);
    EXPECT_EQ(no_header.receives(filler()), 1);
    unusable.buffer().ring().unusable = true;
    Capture capture;
    EXPECT_EQ(too_small.receives(), -1);
    EXPECT_EQ(no_header.receives(), -1);
    EXPECT_EQ(unusable.receives(filler()), -1);
    EXPECT_EQ(too_small.frames().size(), 0u);
    EXPECT_THAT(capture.out(),
                testing::ContainsRegex("^#{25}recvLen =0.* \r\n#{25}recvLen =0.* \r\n#{25}recvLen =65536"));
    const std::string line =
        "[src/pteClient:RecvStreamToPacketBuf:N]:channel:200,stream:0,the ring is full with ";
    EXPECT_EQ(unnumbered(capture.err()),
              line + "499 bytes, its packet needs 500 \n" + line + "20 bytes, its packet needs 65 \n");
}

TEST_F(Packets, AWrongFlagFailsTheStreamAndKeepsWhatCameBefore) {
    for (uint16_t flag : {0, 2, 0x101, 0xFFFF}) {
        Stream stream;
        Capture capture;
        const Bytes wrong = Packet{.flag = flag, .payload = pattern(40)}.bytes();
        EXPECT_EQ(stream.receives(Packet{.payload = pattern(10)}.bytes() + wrong + filler()), -1);
        EXPECT_EQ(stream.frames().size(), 1u);
        EXPECT_EQ(capture.out(),
                  "*************stream header error! fd:" + std::to_string(stream.pair().ours()) +
                      ", pHeadinfo->ulFlag : " + std::to_string(flag) + "**************\n");
        EXPECT_EQ(stream.bit_rate, 42);
    }
    // A header is looked at once more than 32 bytes are there.
    Stream stream;
    EXPECT_EQ(stream.receives(Packet{.flag = 0}.bytes()), 1);
    EXPECT_EQ(stream.receives(Bytes{1}), -1);
}

TEST_F(Packets, TheEndOfTheStreamAndErrorsFailAndNothingThereDoesNot) {
    Capture capture;
    EXPECT_EQ(stream_.receives(), 0);
    EXPECT_EQ(capture.out() + capture.err(), "");
    stream_.camera().closes();
    EXPECT_EQ(stream_.receives(), -1);

    dup2(STDERR_FILENO, stream_.pair().ours());  // no socket
    EXPECT_EQ(stream_.receives(), -1);
    const std::string line = "[src/pteClient:RecvStreamToPacketBuf:N]:PostRestartMessageToQueue";
    EXPECT_EQ(unnumbered(capture.err()), line + "4.................. \n" + line + "5.................. \n");
}

// Payloads that hold whole packets of their own: nothing of a dropped frame may be taken for a header.
TEST_F(Packets, AFrameWithoutABufferIsDroppedWhole) {
    Bytes hostile;
    while (hostile.size() < 700) hostile = hostile + Packet{.codec = 3, .payload = pattern(20)}.bytes();
    const Bytes packets[] = {Packet{.payload = pattern(300, 1)}.bytes(), Packet{.payload = hostile}.bytes(),
                             Packet{.video = false, .payload = hostile}.bytes(),
                             Packet{.payload = pattern(0)}.bytes(),
                             Packet{.payload = pattern(400, 2)}.bytes()};
    Bytes sent;
    for (const Bytes& packet : packets) sent = sent + packet;
    for (uint32_t start : {0u, 800u, 1100u, 1400u, 1900u}) {  // the ring's end lies across each part
        for (size_t piece : {1u, 7u, 64u, 4096u}) {
            Stream stream(2048);
            stream.buffer().starts_at(start);
            stream.queue().refuses_buffers(1, 3);
            for (size_t at = 0; at < sent.size(); at += piece) stream.receives_all(slice(sent, at, piece));
            stream.receives_all(filler());
            ASSERT_EQ(stream.frames().size(), 2u) << start << " " << piece;
            EXPECT_EQ(stream.frames()[0].payload, pattern(300, 1));
            EXPECT_EQ(stream.last().payload, pattern(400, 2));
            EXPECT_EQ(stream.bit_rate, static_cast<int32_t>(sent.size()));
            EXPECT_EQ(u16_at(stream.last().head, 2), 1);
        }
    }
}

TEST_F(Packets, AFrameOfMoreThanAMegabyteIsTakenWhole) {
    Stream stream(4 << 20);
    stream.delivers({.payload = pattern(1500000)});
    EXPECT_TRUE(stream.last().payload == pattern(1500000));
}

// Delivers one packet after the other, audio (a) or video (v), and returns the channel's audio flag after
// each.
TEST_F(Packets, TheAudioFlagFollowsThirtyFrames) {
    const auto delivers = [&](const std::string& kinds) {
        std::string flags;
        for (char kind : kinds) {
            stream_.delivers({.video = kind == 'v', .payload = pattern(8)});
            flags += ucAudioTypeFlag[kChannel] != 0 ? '1' : '0';
        }
        return flags;
    };
    const auto video = [](size_t count) { return std::string(count, 'v'); };
    const auto on = [](size_t count) { return std::string(count, '1'); };

    EXPECT_EQ(delivers("vvvvv"), "00000");
    EXPECT_EQ(uFreamCount[kChannel], 1u) << "without audio the span does not grow";
    // Audio at the first place of a span alone: the flag goes once thirty frames have been counted.
    EXPECT_EQ(delivers("a" + video(30)), on(30) + "0");
    // Audio at a later place keeps it for another span.
    EXPECT_EQ(delivers("avvva" + video(25)), on(30));
    EXPECT_EQ(uFreamType[kChannel], 8u);
    EXPECT_EQ(delivers(video(31)), on(30) + "0");
    // A frame that is dropped does not count.
    EXPECT_EQ(delivers("a" + video(28)), on(29));
    stream_.queue().refuses_buffers(0, 5);
    EXPECT_EQ(delivers("vvavv"), on(5));
    EXPECT_EQ(uFreamCount[kChannel], 29u);
    EXPECT_EQ(delivers("vv"), "10");
}

}  // namespace
}  // namespace lenswire::test
