// Cameras that misbehave on request: what is typed, and what a recorder sees of it.
#include "camera/serve/faults.h"

#include <gtest/gtest.h>

#include <sstream>

#include "recorder_side.h"

namespace lenswire::test {
namespace {

const Bytes kBeat = command(0x0006).bytes();
const Bytes kImage = command(0x1004, pattern(36)).bytes();
const Bytes kUploaded = command(0x2002).bytes();

struct Row {
    std::string fault;
    std::string seen;
    size_t at = 0;  // where the bytes begin to differ from those of a sound camera
    Bytes bytes = {};
};

void add_fault(OneCamera& one, const std::string& text) {
    std::string error;
    const auto fault = camera::parse_fault(text, &error);
    ASSERT_TRUE(fault.has_value()) << error;
    one->add_fault(*fault);
}

// The first row is a sound camera. `ask` sends what the camera answers and returns where.
template <typename Ask>
void expect_rows(const std::vector<Row>& rows, const camera::CameraConfig& config, Ask ask) {
    Bytes sound;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.fault);
        OneCamera one(config);
        one->set_record(0x1004, pattern(36));
        Session session = log_in(*one);
        std::istringstream faults(row.fault);
        for (std::string fault; faults >> fault;) add_fault(one, fault);
        Tape tape(one);
        Wire other;
        EXPECT_EQ(tape.record(ask(one, session, other), 200), row.seen);
        for (size_t at = 0; at + 4 <= tape.bytes.size(); ++at) {
            if (u32_at(tape.bytes, at) == session.login_id) put_u32(tape.bytes, at, 0);
        }
        if (row.fault.empty()) sound = row.bytes.empty() ? tape.bytes : row.bytes;
        const Bytes expected =
            slice(sound, 0, row.at) + row.bytes + slice(sound, row.at + row.bytes.size(), 9999);
        EXPECT_EQ(tape.bytes, slice(expected, 0, tape.bytes.size()));
    }
}

TEST(Faults, AreExplainedByExamplesThatHold) {
    std::istringstream help(camera::faults_help());
    std::string error;
    for (std::string line; std::getline(help, line);) {
        if (!line.starts_with("  ")) continue;
        EXPECT_TRUE(camera::parse_fault(line.substr(2, line.find(' ', 2) - 2), &error)) << error;
    }
}

TEST(Faults, OfAnswers) {
    const std::vector<Row> rows = {
        {"", "0:68 0:32", 0, kImage + kBeat},
        {"silent", ""},
        {"silent*1", "0:32", 0, kBeat},
        {"silent:0x1004", "0:32", 0, kBeat},
        {"late=150", "150:68 150:32"},
        {"late=150:0x1004*1", "0:32 150:68", 0, kBeat + kImage},
        {"late=150:0x1004 late=50:0x0006", "50:32 150:68", 0, kBeat + kImage},
        {"dribble=3:0x0006", "0:68 0:1 " + every(3, 3, 31, "1")},
        {"dribble:0x0006", "0:68 0:1 " + every(1, 1, 31, "1")},
        {"dribble=0:0x1004", "0:1*68 0:32"},
        {"answer-flag=1:0x1004", "0:68 0:32", 0, {1, 0}},
        {"answer-state=770:0x1004", "0:68 0:32", 6, {2, 3}},
        {"answer-length=-4:0x1004", "0:68 0:32", 12, {32}},
        {"answer-length=260:0x0006", "0:68 0:32", 68 + 12, {4, 1, 0, 0, 1}},
        {"garbage=5:0x1004", "0:73 0:32", 68, repeated(0xA5, 5) + kBeat},
        {"cut-answer=40:0x1004", "0:40 0:32", 40, kBeat},
        {"close-answer:0x1004", "0:68 0:closed"},
        {"close-answer:0x1005", "0:68 0:32"},
    };
    expect_rows(rows, {}, [](OneCamera&, Session& session, Wire&) -> Wire& {
        session.wire.sends(command(0x1004, Bytes(36), 0, session.login_id).bytes() +
                           command(0x0006, {}, 0, session.login_id).bytes());
        return session.wire;
    });
}

// 64 bytes are the answer to the request; a packet of 210 bytes has a header of 32.
TEST(Faults, OfStreams) {
    const std::string two = "0:64 0:567 40:210 ", rest = " 120:210 160:210";
    const std::vector<Row> rows = {
        {"", two + "80:210" + rest},
        {"stop@2", two + "80:121"},
        {"close-mid@2", two + "80:121 80:closed"},
        {"close@2", two + "80:closed"},
        {"close", "0:64 0:closed"},
        {"reset@2", two + "80:reset"},
        {"stall@2", "0:64 0:567 40:210"},
        {"stall=36@2", two + "116:210 156:210 196:210"},
        {"one-byte@2", two + "80:1*210 120:1*210 160:1*210"},
        {"bad-flag=777@1", two + "80:210" + rest, 64 + 567, {9, 3}},
        {"bad-flag@1", two + "80:210" + rest, 64 + 567, {0}},
        {"wrong-length=-2@1", two + "80:210" + rest, 64 + 567 + 4, {0x01, 0x2C}},  // 176 << 6 | 1
        {"late=52:0x0102", "52:64 52:567 92:210 132:210 172:210"},
        {"dribble=1:0x0102", "0:1 " + every(1, 1, 63, "1") + " 63:567 104:210 144:210 184:210"},
    };
    const auto ask = [](OneCamera& one, Session& session, Wire& wire) -> Wire& {
        return wire = ask_for_stream(*one, session);
    };
    expect_rows(rows, small_streams(5), ask);
    auto unpaced = small_streams(5);
    unpaced.streams[0].pace = camera::Pace::kUnpaced;
    expect_rows({{"", "0:64 0:567 0:210*4"}, {"stall=36@2", "0:64 0:567 0:210 36:210*3"}}, unpaced, ask);
}

TEST(Faults, OfUploads) {
    const std::string sound = "0:32 100:closed";  // it reboots
    const std::vector<Row> rows = {
        {"", sound, 0, kUploaded},
        {"upload-fail", "0:32", 6, {1, 0}},
        {"upload-fail=770", "0:32", 6, {2, 3}},
        {"upload-late=50", "50:32 150:closed"},
        {"upload-late=50 upload-fail=770 upload-babble=1 upload-full=501", "0:32 50:32", 0,
         kBeat + command(0x2002, {}, 770).bytes()},
        {"upload-silent", ""},
        {"upload-close=500", "0:closed"},
        {"upload-close=501", sound},
        {"upload-full=499", "0:32", 6, {5, 0}},
        {"upload-full", "0:32", 6, {5, 0}},
        {"upload-full=500", sound},
        {"upload-slow=5000", "100:32 200:closed"},
        {"upload-babble=3", "0:32*2 20:32 40:32 100:closed", 0, kBeat + kUploaded + kBeat + kBeat},
    };
    camera::CameraConfig config;
    config.reboot_ms = 3'600'000;
    expect_rows(rows, config, [](OneCamera& one, Session&, Wire& wire) -> Wire& {
        wire = connect_to(*one);
        wire.sends(upload_header(500));
        for (int half = 0; half < 2; ++half) {
            one.farm.settle();
            wire.sends(pattern(250));
        }
        return wire;
    });
}

TEST(Faults, HappenSoManyTimes) {
    for (const auto& [text, times] : {std::pair{"close", 1}, {"close*2", 2}, {"close*0", 3}}) {
        OneCamera one(small_streams(1));
        add_fault(one, text);
        const Session session = log_in(*one);
        int ended = 0;
        for (int i = 0; i < 3; ++i) {
            const Wire wire = open_stream(*one, session);
            one.farm.settle();
            ended += one->streams()[i].video_frames == 0 ? 1 : 0;
        }
        EXPECT_EQ(ended, times) << text;
    }
}

TEST(Faults, TextsThatAreNoneAreRepeatedWithAReason) {
    std::istringstream texts(
        "= nonsense late late= late=-1 late=1=2 late=1x silent=1 silent@3 stall:1 stall=500@ stall=500@-1 "
        "close@99999999999999999999 answer-flag=65536 refuse-login:0x1004 close*-1 close*4294967296 "
        "upload-slow=0 upload-silent@1 upload-late wrong-length=4194304");
    for (std::string wrong; texts >> wrong;) {
        std::string error;
        EXPECT_FALSE(camera::parse_fault(wrong, &error).has_value()) << wrong;
        EXPECT_TRUE(error.starts_with(wrong + ": ")) << error;
    }
}

}  // namespace
}  // namespace lenswire::test
