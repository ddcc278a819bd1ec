// Cameras that misbehave on request, and the texts that request it.
#include "camera/serve/faults.h"

#include <gtest/gtest.h>

#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::AnswerFault;
using camera::StreamFault;
using camera::StreamFaultKind;

TEST(FaultText, NamesWhatGoesWrong) {
    std::string error;
    const auto answer = [&](const char* text) {
        return std::get<AnswerFault>(*camera::parse_fault(text, &error));
    };
    const auto stream = [&](const char* text) {
        return std::get<StreamFault>(*camera::parse_fault(text, &error));
    };
    EXPECT_EQ(answer("refuse-login").code, 0x0000);
    EXPECT_EQ(answer("refuse-login=7").state, 7);
    EXPECT_EQ(answer("late=1500:0x1004*2").delay_ms, 1500);
    EXPECT_EQ(answer("late=1500:0x1004*2").code, 0x1004);
    EXPECT_EQ(answer("late=1500:0x1004*2").times, 2U);
    EXPECT_EQ(answer("answer-length=-4").length_delta, -4);
    EXPECT_FALSE(answer("silent").code.has_value());
    EXPECT_EQ(stream("stall=500@25").kind, StreamFaultKind::kStall);
    EXPECT_EQ(stream("stall=500@25").value, 500);
    EXPECT_EQ(stream("stall=500@25").at_frame, 25U);
    EXPECT_EQ(stream("close*0").times, 0U);
    const auto upload = std::get<camera::UploadFault>(*camera::parse_fault("upload-close=500*2", &error));
    EXPECT_EQ(upload.close_at, 500U);
    EXPECT_EQ(upload.times, 2U);
    for (const char* wrong : {"",
                              "nonsense",
                              "late",
                              "late=",
                              "late=-1",
                              "late=1=2",
                              "late=1x",
                              "silent=1",
                              "silent@3",
                              "stall:1",
                              "stall=500@",
                              "stall=500@-1",
                              "close@99999999999999999999",
                              "answer-flag=65536",
                              "refuse-login:0x1004",
                              "close*-1",
                              "upload-slow=0",
                              "upload-silent@1",
                              "upload-late",
                              "wrong-length=4194304"}) {
        EXPECT_FALSE(camera::parse_fault(wrong, &error).has_value()) << wrong;
        EXPECT_TRUE(error.starts_with(std::string(wrong) + ": ")) << error;
    }
}

// What a stream with one fault at frame 2 sends: whole packets, then perhaps a part of one, then perhaps the
// end.
struct Seen {
    int whole = 0;
    size_t rest = 0;
    bool closed = false;
};

Seen watch_faulty_stream(const StreamFault& fault) {
    OneCamera one(small_streams(5));
    one->add_fault(fault);
    const Session session = log_in(*one);
    Wire wire = open_stream(*one, session);
    EXPECT_TRUE(one->wait([&](const camera::CameraStats&) { return one->streams()[0].ended; }));
    Seen seen;
    seen.closed = !one->streams()[0].open;
    const uint64_t whole = one->streams()[0].video_frames;
    for (; static_cast<uint64_t>(seen.whole) < whole; ++seen.whole) read_packet(wire);
    for (; wire.has_bytes(); ++seen.rest) wire.reads(1);
    return seen;
}

TEST(StreamFaults, BreakOffWhereTheyWereTold) {
    const size_t part = 32 + camera::synthetic_length(*small_streams().streams[0].synthetic, 2) / 2;
    const struct {
        StreamFaultKind kind;
        int64_t value;
        int whole;
        size_t rest;
        bool closed;
    } cases[] = {
        {StreamFaultKind::kStop, 0, 2, part, false}, {StreamFaultKind::kCloseMid, 0, 2, part, true},
        {StreamFaultKind::kClose, 0, 2, 0, true},    {StreamFaultKind::kStall, 0, 2, 0, false},
        {StreamFaultKind::kStall, 1, 5, 0, false},   {StreamFaultKind::kOneByte, 0, 5, 0, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(static_cast<int>(each.kind));
        const Seen seen = watch_faulty_stream({.kind = each.kind, .at_frame = 2, .value = each.value});
        EXPECT_EQ(seen.whole, each.whole);
        EXPECT_EQ(seen.rest, each.rest);
        EXPECT_EQ(seen.closed, each.closed);
    }
}

TEST(StreamFaults, LieInTheHeaderOfOnePacket) {
    for (const bool flag : {true, false}) {
        OneCamera one(small_streams(4));
        one->add_fault(StreamFault{.kind = flag ? StreamFaultKind::kBadFlag : StreamFaultKind::kWrongLength,
                                   .at_frame = 1,
                                   .value = flag ? 9 : -10});
        const Session session = log_in(*one);
        Wire wire = open_stream(*one, session);
        for (uint64_t i = 0; i < 4; ++i) {
            const ReadPacket packet = read_packet(wire);
            EXPECT_EQ(u16_at(packet.head, 0), flag && i == 1 ? 9 : 1);
            const size_t length = camera::synthetic_length(*small_streams().streams[0].synthetic, i);
            EXPECT_EQ(packet.payload.size(), !flag && i == 1 ? length - 10 : length);
            if (!flag && i == 1) wire.reads(10);
        }
        Wire healthy = open_stream(*one, session);
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(u16_at(read_packet(healthy).head, 0), 1) << "a fault happens once";
    }
}

TEST(StreamFaults, AResetIsNoOrderlyEnd) {
    OneCamera one(small_streams());
    one->add_fault(StreamFault{.kind = StreamFaultKind::kReset});
    const Session session = log_in(*one);
    Wire wire = connect_to(*one);
    wire.sends(command(0x0102, Bytes(4), 0, session.login_id));
    EXPECT_TRUE(wire.sees_close());
}

const Bytes kImage = pattern(36);

// The bytes that come back for a get of the image settings under a fault, `length` of them.
Bytes spoiled_answer(const AnswerFault& fault, size_t length) {
    OneCamera one;
    one->set_record(0x1004, kImage);
    Session session = log_in(*one);
    one->add_fault(fault);
    session.sends(0x1004, Bytes(36));
    return session.wire.reads(length);
}

TEST(AnswerFaults, SpoilTheBytesOfAnAnswer) {
    const Bytes right = spoiled_answer({.code = 0x1001, .state = 9}, 68);
    ASSERT_EQ(slice(right, 32, 36), kImage) << "a fault of another command changes nothing";
    Bytes flag = right, state = right, code = right, longer = right, num = right;
    flag[0] = 1;
    state[6] = 2;
    code[4] = 0x77;
    longer[12] = 40;
    num[16] = 0xFF;
    EXPECT_EQ(slice(spoiled_answer({.flag = 1}, 68), 0, 8), slice(flag, 0, 8));
    EXPECT_EQ(slice(spoiled_answer({.state = 2}, 68), 0, 8), slice(state, 0, 8));
    EXPECT_EQ(slice(spoiled_answer({.answer_code = 0x1077}, 68), 0, 8), slice(code, 0, 8));
    EXPECT_EQ(slice(spoiled_answer({.length_delta = 4}, 68), 12, 8), slice(longer, 12, 8));
    EXPECT_EQ(slice(spoiled_answer({.buffer_num = 0xFF}, 68), 12, 8), slice(num, 12, 8));
    EXPECT_EQ(slice(spoiled_answer({.garbage = 5}, 73), 68, 5), repeated(0xA5, 5));
    EXPECT_EQ(slice(spoiled_answer({.piece = 1}, 68), 32, 36), kImage);
    EXPECT_EQ(slice(spoiled_answer({.payload = Bytes{1, 2}}, 34), 32, 2), (Bytes{1, 2}));
}

TEST(AnswerFaults, LateAnswersAreOvertaken) {
    OneCamera one;
    Session session = log_in(*one);
    one->add_fault(AnswerFault{.code = 0x1004, .times = 1, .delay_ms = 3'600'000});
    one->add_fault(AnswerFault{.code = 0x1006, .delay_ms = 5});
    session.sends(0x1004, Bytes(36));
    EXPECT_EQ(session.asks(0x1006, Bytes(118)).command, 0x1006);
    EXPECT_EQ(session.asks(0x1023, Bytes(228)).command, 0x1023);
    EXPECT_EQ(session.asks(0x1004, Bytes(36)).command, 0x1004) << "only the first one is that late";
}

TEST(AnswerFaults, SilenceAndHalfAnswers) {
    OneCamera one;
    Session session = log_in(*one);
    one->add_fault(AnswerFault{.code = 0x1004, .silent = true});
    one->add_fault(AnswerFault{.code = 0x1006, .cut_at = 40, .close_after = true});
    session.sends(0x1004, Bytes(36));
    EXPECT_EQ(session.asks(0x1023, Bytes(228)).command, 0x1023);
    session.sends(0x1006, Bytes(118));
    EXPECT_EQ(session.wire.reads(40).size(), 40U);
    EXPECT_TRUE(session.wire.sees_close());
}

TEST(AnswerFaults, ARefusedLoginCanBeHealed) {
    OneCamera one;
    one->add_fault(*camera::parse_fault("refuse-login=5", nullptr));
    EXPECT_EQ(log_in(*one).state, 5);
    EXPECT_EQ(one->stats().control_open, 0U);
    one->clear_faults();
    EXPECT_EQ(log_in(*one).state, 0);
}

TEST(AnswerFaults, AStreamWaitsForItsLateAnswer) {
    OneCamera one(small_streams(1));
    const Session session = log_in(*one);
    one->add_fault(AnswerFault{.code = 0x0102, .delay_ms = 5, .piece = 7, .piece_gap_ms = 1});
    Wire wire = open_stream(*one, session);
    EXPECT_EQ(u16_at(read_packet(wire).head, 0), 1);
}

}  // namespace
}  // namespace lenswire::test
