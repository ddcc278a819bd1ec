// What a camera can encode, and what it is set to, stream by stream.
#include <cstring>
#include <regex>
#include <sstream>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

constexpr uint16_t kRecordsCode = 0x1002;
constexpr uint16_t kScopeCode = 0x1102;

Bytes record(uint8_t type, uint8_t flag = 0) {
    Bytes bytes = pattern(32, type);
    bytes[1] = type;
    bytes[30] = flag;
    return bytes;
}

// Records by their types and flags: "0 2/1" is one of type 0 and one of type 2 with flag 1, "-" none.
Bytes joined(const std::string& text) {
    Bytes bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t slash = word.find('/');
        const int flag = slash == std::string::npos ? 0 : std::stoi(word.substr(slash + 1));
        bytes =
            bytes + (word == "-" ? repeated('u', 32)
                                 : record(static_cast<uint8_t>(std::stoi(word)), static_cast<uint8_t>(flag)));
    }
    return bytes;
}

// An answer with one 32-byte buffer for each record, or with these records over and over in the buffers that
// it announces, as a sum of 32 bits counts them.
Message records(const std::string& text, Product product = {}) {
    const Bytes all = joined(text);
    if (product.number == 0) product = {static_cast<uint32_t>(all.size() / 32), 32};
    Bytes payload;
    const uint32_t length = product.number * product.size;
    while (payload.size() < length) payload = payload + all;
    return announcing(kRecordsCode, product, padded(payload, length));
}

Message scope_answer(const std::string& text) {
    return command(kScopeCode, Bytes{7, 0x5C, 7} + bytes_of(text) + Bytes{0});
}

class Encoding : public SettingsTest {
  protected:
    Encoding() { std::memset(&scope_, 0xAA, sizeof scope_); }

    int both(int channel = 0) {
        return Private_Protocol_GetEncodingPropert(channel, ip(), &scope_, array_.data());
    }
    // Both at once: the answers come when both requests are there.
    int answers_both(const Message& first, const Message& second) {
        std::future<int> result = starts([this] { return both(0x105); });
        EXPECT_EQ(wire_.reads_command().bytes(),
                  command(kScopeCode, Bytes{5} + Bytes(1026), 0, kLoginId).bytes());
        EXPECT_EQ(wire_.reads_command().bytes(),
                  command(kRecordsCode, Bytes{0, 0x33} + Bytes(30), 0, kLoginId).bytes());
        wire_.sends(first);
        wire_.sends(second);
        return result.get();
    }

    Bytes array_ = repeated('u', 96 + 8);
    EncodingScope scope_;
};

// -- Records.

const std::string kOperation = "Private_Protocol_GetEncodingProperty";

std::string filed_only(int count) {
    return line(kOperation, "Process_EncodingType failed k=" + std::to_string(count));
}
std::string skipped(int type, int times = 1) {
    std::string text =
        line("Process_EncodingType", "encoding type error ucStreamType=" + std::to_string(type)) +
        line(kOperation, "Process_EncodingType ret !=0");
    return times == 1 ? text : text + skipped(type, times - 1);
}

TEST_F(Encoding, FilesRecordsByTheirStreamType) {
    const struct {
        Message answer;
        int result;
        std::string lines;
        std::string array;
        bool unlimited = false;  // in the number of records: the other of the two gets
    } cases[] = {
        {records("0 1 2"), 0, "", "0 1 2"},
        {records("2 0"), 0, "", "0 - 2"},
        {records("0 1 7"), 0, skipped(7), "0 1 -"},
        {records("1/1 1/2"), 0, "", "- 1/2 -"},
        {records("2"), -1, filed_only(1), "- - 2"},
        {records("3 255"), -1, skipped(3) + skipped(255) + filed_only(0), "- - -"},
        // The request is all that the buffer then holds.
        {records(""), -1, skipped(0x33) + filed_only(0), "- - -"},
        // Counts above what was received, and products that wrap.
        {records("0 1 2", {20, 5}), 0, "", "0 1 2"},
        {records("0 1", {4, 16}), 0, "", "0 1 -"},
        {records("0", {2, 16}), -1, filed_only(1), "0 - -"},
        {records("0", {20, 1}), -1, filed_only(0), "- - -"},
        {records("0", {21, 32}), -1, kOperation + ":$$$$$$$$$$$$$$pCmd->ulBufferNum is illegal\n", "- - -"},
        {records("0", {21, 32}), 0, "", "0 - -", true},
        {records("9", {127, 32}), -1, skipped(9, 127) + filed_only(0), "- - -", true},
        {records("9", {4064, 1}), -1, skipped(9, 127) + filed_only(0), "- - -", true},
        {records("9", {0x08000001, 32}), -1, skipped(9) + filed_only(0), "- - -", true},
        {records("9", {0x80000003, 32}), -1, skipped(9, 3) + filed_only(0), "- - -", true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        array_ = repeated('u', 96 + 8);
        auto* const get =
            cases[i].unlimited ? Private_Protocol_GetEncodingProperty1 : Private_Protocol_GetEncodingProperty;
        Capture capture;
        EXPECT_EQ(runs([&] { return get(ip(), array_.data()); }, {cases[i].answer}).result, cases[i].result);
        EXPECT_EQ(std::regex_replace(unnumbered(capture.out()), std::regex("Property1-"), "Property-"),
                  cases[i].lines);
        EXPECT_EQ(array_, joined(cases[i].array) + repeated('u', 8));
    }
}

TEST_F(Encoding, CondensesTheFlagsToAMask) {
    const std::pair<const char*, uint32_t> cases[] = {
        {"0/1 2/1", 5}, {"1/1", 2}, {"0/1 1/1 2/1", 7}, {"3/1 255/1", 0},
        {"0/0", 0},     {"", 0},    {"0/255", 0xFC},    {"2/128 2/1", 0x81}};
    for (const auto& [list, mask] : cases) {
        uint32_t result = 99;
        runs([&result] { return static_cast<int>(result = Private_Protocol_GetStreamType(kChannel)); },
             {records(list)});
        EXPECT_EQ(result, mask) << list;
    }
}

TEST_F(Encoding, HasNoMaskForUnusableChannels) {
    const auto text = [](const char* what) { return line("Private_Protocol_GetStreamType", what); };
    const std::string refused = text("parameter pass error!");
    host().has_channel(1, Channel{.address = "0.0.0.0"});
    for (int channel : {-1, 64}) host().has_channel(channel, host().channel(kChannel));
    host().displayed = 64;
    Capture capture;
    for (int channel : {9, 1, -1, 64}) EXPECT_EQ(Private_Protocol_GetStreamType(channel), 255u);
    EXPECT_EQ(unnumbered(capture.out()),
              text("DbMainMsgChannelInfo   get channel failed\n") + refused + refused + refused);
    EXPECT_FALSE(camera_was_asked());
}

// -- Scope.

TEST_F(Encoding, ReadsAScope) {
    const std::string z(1024, 'Z');
    const std::string bad =
        line("Parse_EncodingResolution", "input resolution error   resolution is  :  " + z + " \n") +
        line("Private_Protocol_GetEncodingScope", "Parse_EncodingResolution error\n");
    constexpr int kNone = 0xAAAA;
    const struct {
        Message answer;
        int result, width;  // the width of the third entry's first slot
        std::string out = "";
    } cases[] = {
        {scope_answer("H264:1x2;@H264:1x2,H265:3x4;"), 0, 3},
        // Without a text it has its capability only.
        {scope_answer(""), 0, kNone},
        {command(kScopeCode, {7, 0x5C}), 0, kNone},
        {command(kScopeCode, {7, 0x5C, 7}), 0, kNone},
        {command(kScopeCode, Bytes{7, 0x5C} + repeated('Z', 4062)), -1, kNone, bad},
    };
    for (const auto& row : cases) {
        std::memset(&scope_, 0xAA, sizeof scope_);
        Capture capture;
        const auto gets = [this] { return Private_Protocol_GetEncodingScope(0, ip(), &scope_); };
        EXPECT_EQ(runs(gets, {row.answer}).result, row.result);
        EXPECT_EQ(unnumbered(capture.out()), row.out);
        EXPECT_EQ(scope_.entries[2].slots[0].usWidth, row.width);
        for (EncodingScopeEntry& entry : scope_.entries) {
            EXPECT_EQ(std::exchange(entry.ucCapability, 0xAA), 0x5C);
        }
        EXPECT_EQ(record_bytes(scope_) == repeated(0xAA, sizeof scope_), row.width == kNone);
    }
}

// -- Both at once.

TEST_F(Encoding, AsksForScopeAndRecordsAtOnceAndTakesTheAnswersInAnyOrder) {
    const Message scope = scope_answer("H264:7x8;@");
    const Message list = records("0 1");
    for (const bool records_first : {false, true}) {
        EXPECT_EQ(answers_both(records_first ? list : scope, records_first ? scope : list), 0);
        EXPECT_EQ(scope_.entries[0].slots[0].usWidth, 7);
        EXPECT_EQ(slice(array_, 0, 64), joined("0 1"));
    }
}

TEST_F(Encoding, GivesBothSlotsBackWhateverFails) {
    const std::string name = "Private_Protocol_GetEncodingPropert";
    const std::string no_answer = line(name, "get cond and property failed pCmd->usCmd =1002");
    const Message scope = scope_answer("H264:7x8;@");
    Message bad_flag = records("0 1");
    bad_flag.flag = 3;
    const std::tuple<Message, Message, std::string> cases[] = {
        {command(kScopeCode, {}, 5), records(""), no_answer},
        {scope_answer("JUNK"), records(""), line(name, "Parse_EncodingResolution error\n")},
        {scope, command(kRecordsCode, {}, 5), no_answer},
        {scope, bad_flag, line(name, "ulBufferNum =2 ulFlag=3  ERROR")},
        {scope, records("0"), line(name, "Process_EncodingType failed k=1")},
    };
    for (const auto& [scope_sent, list, text] : cases) {
        Capture capture;
        EXPECT_EQ(answers_both(list, scope_sent), -1);
        EXPECT_THAT(unnumbered(capture.out()), testing::EndsWith(text));
        EXPECT_EQ(g_rs_num, 0);
    }
    Capture capture;
    for (int refused : {1, 2}) {
        host().refuses_allocation(refused);
        EXPECT_EQ(both(), -1);
        EXPECT_EQ(occurrences(unnumbered(capture.out()), line(name, "cond init failed")), refused);
        EXPECT_EQ(g_rs_num, 0);
    }
    EXPECT_FALSE(camera_was_asked());
    const Timewarp warp;
    EXPECT_EQ(both(), -1);
    EXPECT_THAT(warp.waited_s, ElementsAre(10)) << "for the scope";
    loses_camera();
    EXPECT_EQ(both(261), -1);
    EXPECT_THAT(unnumbered(capture.out()),
                testing::EndsWith(line(name, " Prv_Send_Cmd failed channel : 261\n")));
}

// Late answers to an abandoned request land in the slot of the next one before that is built: they answer it,
// but show neither in what goes out nor behind the text of the last of them.
TEST_F(Encoding, LateAnswersTearNoRequestAndLeaveNoTextBehind) {
    const std::string stale = std::string(900, ' ') + "@H264:1x1,H264:9x9;";
    int number = 0;
    host().when(Service::kMalloc, [&](int, int) {
        if (++number != 2) return;  // the scope's slot is taken, the records' about to be
        for (const Message& late : {scope_answer(stale), command(kScopeCode, bytes_of("???H264:5x6;@"))}) {
            Private_Protocol_RecvProcess(in_buffer(late).data(), ip());
        }
    });
    std::future<int> result = starts([this] { return both(3); });
    EXPECT_EQ(wire_.reads_command().payload, Bytes{3} + Bytes(1026));
    wire_.reads_command();
    wire_.sends(records("0 1"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(scope_.entries[0].slots[0].usWidth, 5);
    EXPECT_EQ(scope_.entries[1].ulSizes, 0u);
    EXPECT_EQ(scope_.entries[3].ulSizes, 0xAAAAAAAA);
}

// -- Fisheye records.

TEST_F(Encoding, CopiesAFisheyeRecordAsOftenAsItSaysButNotMoreThanItFits) {
    for (const auto& [count, copies] : {std::pair{0, 1}, {1, 2}, {2, 3}, {3, 3}, {255, 3}}) {
        Bytes one = pattern(256, 4);
        one[1] = static_cast<uint8_t>(count);
        Bytes array = repeated('u', 768 + 8);
        Bytes expected = array;
        for (int i = 0; i < copies; ++i) std::copy(one.begin(), one.end(), expected.begin() + i * 256);
        // Later records are not read, and the count of them does not matter.
        const auto get = [&] { return Private_Fish_Protocol_GetEncodingProperty(0, ip(), array.data()); };
        EXPECT_EQ(runs(get, {announcing(0x1061, {3, 256}, one + pattern(512, 5))}).result, 0);
        EXPECT_EQ(array, expected);
    }
}

}  // namespace
}  // namespace lenswire::test
