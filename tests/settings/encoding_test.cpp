// What a camera can encode, and what it is set to, stream by stream.
#include <cstring>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

using testing::HasSubstr;

constexpr uint16_t kRecordsCode = 0x1002;
constexpr uint16_t kScopeCode = 0x1102;

Bytes record(uint8_t type, uint8_t flag = 0) {
    Bytes bytes = pattern(32, type);
    bytes[1] = type;
    bytes[30] = flag;
    return bytes;
}

// An answer with one 32-byte buffer for each record.
Message records(const std::vector<Bytes>& list) {
    Bytes payload;
    for (const Bytes& one : list) payload = payload + one;
    return announcing(kRecordsCode, {static_cast<uint32_t>(list.size()), 32}, payload);
}

Message scope_answer(const std::string& text) {
    return command(kScopeCode, Bytes{7, 0x5C, 7} + bytes_of(text) + Bytes{0});
}

class Encoding : public SettingsTest {
  protected:
    Encoding() { std::memset(&scope_, 0xAA, sizeof scope_); }

    int scope_of(const Message& answer) {
        return runs([this] { return Private_Protocol_GetEncodingScope(0, ip(), &scope_); }, {answer}).result;
    }
    int records_of(const Message& answer, int (*get)(uint32_t, void*)) {
        return runs([this, get] { return get(ip(), array_.data()); }, {answer}).result;
    }

    Bytes array_ = repeated('u', 96 + 8);
    EncodingScope scope_;
};

// -- Records.

const std::string kOperation = "Private_Protocol_GetEncodingProperty";

std::string filed_only(int count) {
    return line(kOperation, "Process_EncodingType failed k=" + std::to_string(count));
}
std::string skipped(int type) {
    return line("Process_EncodingType", "encoding type error ucStreamType=" + std::to_string(type)) +
           line(kOperation, "Process_EncodingType ret !=0");
}

TEST_F(Encoding, FilesRecordsByTheirStreamType) {
    const Bytes none = repeated('u', 32);
    const struct {
        Message answer;
        int result;
        std::string lines;
        Bytes array;
    } cases[] = {
        {records({record(0), record(1), record(2)}), 0, "", record(0) + record(1) + record(2)},
        {records({record(2), record(0)}), 0, "", record(0) + none + record(2)},
        {records({record(0), record(1), record(7)}), 0, skipped(7), record(0) + record(1) + none},
        {records({record(1, 1), record(1, 2)}), 0, "", none + record(1, 2) + none},
        {records({record(2)}), -1, filed_only(1), none + none + record(2)},
        {records({record(3), record(255)}), -1, skipped(3) + skipped(255) + filed_only(0),
         none + none + none},
        // The request is all that the buffer then holds.
        {records({}), -1, skipped(0x33) + filed_only(0), none + none + none},
        // Counts above what was received, and products that wrap.
        {announcing(kRecordsCode, {20, 5}, record(0) + record(1) + record(2) + Bytes(4)), 0, "",
         record(0) + record(1) + record(2)},
        {announcing(kRecordsCode, {4, 16}, record(0) + record(1)), 0, "", record(0) + record(1) + none},
        {announcing(kRecordsCode, {2, 16}, record(0)), -1, filed_only(1), record(0) + none + none},
        {announcing(kRecordsCode, {20, 1}, pattern(20)), -1, filed_only(0), none + none + none},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        array_ = repeated('u', 96 + 8);
        Capture capture;
        EXPECT_EQ(records_of(cases[i].answer, Private_Protocol_GetEncodingProperty), cases[i].result);
        EXPECT_EQ(unnumbered(capture.out()), cases[i].lines);
        EXPECT_EQ(array_, cases[i].array + repeated('u', 8));
    }
}

TEST_F(Encoding, OnlyOneGetRefusesManyRecords) {
    const std::vector<Bytes> many(21, record(0));
    Capture capture;
    EXPECT_EQ(records_of(records(many), Private_Protocol_GetEncodingProperty), -1);
    EXPECT_EQ(capture.out(), kOperation + ":$$$$$$$$$$$$$$pCmd->ulBufferNum is illegal\n");
    EXPECT_EQ(array_, repeated('u', 96 + 8));
    EXPECT_EQ(records_of(records(many), Private_Protocol_GetEncodingProperty1), 0);
}

TEST_F(Encoding, LooksAtNoMoreRecordsThanWereReceived) {
    const std::string k = line("Private_Protocol_GetEncodingProperty1", "Process_EncodingType failed k=");
    const std::string skip = line("Process_EncodingType", "encoding type error ucStreamType=9") +
                             line("Private_Protocol_GetEncodingProperty1", "Process_EncodingType ret !=0");
    const struct {
        uint32_t number, size;
        size_t received;
        int looked_at;
    } cases[] = {
        {127, 32, 4064, 127}, {4064, 1, 4064, 127}, {0x08000001, 32, 32, 1}, {0x80000003, 32, 96, 3}};
    for (const auto& row : cases) {
        Bytes payload;
        while (payload.size() < row.received) payload = payload + record(9);
        Capture capture;
        EXPECT_EQ(records_of(announcing(kRecordsCode, {row.number, row.size}, payload),
                             Private_Protocol_GetEncodingProperty1),
                  -1);
        EXPECT_EQ(occurrences(unnumbered(capture.out()), skip), row.looked_at) << row.number;
    }
    Capture quiet;
    EXPECT_EQ(runs([&] { return Private_Protocol_GetEncodingProperty1(ip(), nullptr); },
                   {records({record(0), record(1)})})
                  .result,
              -1);
}

TEST_F(Encoding, CondensesTheFlagsToAMask) {
    const struct {
        std::vector<Bytes> records;
        int mask;
    } cases[] = {{{record(0, 1), record(2, 1)}, 5},
                 {{record(1, 1)}, 2},
                 {{record(0, 1), record(1, 1), record(2, 1)}, 7},
                 {{record(3, 1), record(255, 1)}, 0},
                 {{record(0, 0)}, 0},
                 {{}, 0},
                 {{record(0, 0xFF)}, 0xFC},
                 {{record(2, 0x80), record(2, 1)}, 0x81}};
    for (const auto& row : cases) {
        EXPECT_EQ(runs([] { return static_cast<int>(Private_Protocol_GetStreamType(kChannel)); },
                       {records(row.records)})
                      .result,
                  row.mask);
    }
}

TEST_F(Encoding, HasNoMaskForUnusableChannels) {
    const std::string unknown =
        line("Private_Protocol_GetStreamType", "DbMainMsgChannelInfo   get channel failed\n");
    const std::string refused = line("Private_Protocol_GetStreamType", "parameter pass error!");
    Channel nowhere;
    nowhere.address = "0.0.0.0";
    host().has_channel(1, nowhere);
    host().has_channel(-1, host().channel(kChannel));
    host().has_channel(64, host().channel(kChannel));
    host().shows_channels(64);
    Capture capture;
    EXPECT_EQ(Private_Protocol_GetStreamType(9), 255u);
    EXPECT_EQ(unnumbered(capture.out()), unknown);
    for (int channel : {1, -1, 64}) EXPECT_EQ(Private_Protocol_GetStreamType(channel), 255u);
    EXPECT_EQ(unnumbered(capture.out()), unknown + refused + refused + refused);
    EXPECT_FALSE(camera_was_asked());
}

// -- Scope.

TEST_F(Encoding, ReadsAScope) {
    EXPECT_EQ(scope_of(scope_answer("H264:1x2;@H264:1x2,H265:3x4;")), 0);
    for (const EncodingScopeEntry& entry : scope_.entries) EXPECT_EQ(entry.ucCapability, 0x5C);
    EXPECT_EQ(scope_.entries[0].ulSizes, 1u);
    EXPECT_EQ(scope_.entries[2].slots[0].usWidth, 3);
    EXPECT_STREQ(scope_.entries[2].slots[0].szCodec, "H265");
    EXPECT_EQ(scope_.entries[3].ulSizes, 0xAAAAAAAA);
}

TEST_F(Encoding, AScopeWithoutTextHasItsCapabilityOnly) {
    for (const Message& answer :
         {scope_answer(""), command(kScopeCode, {7, 0x5C}), command(kScopeCode, {7, 0x5C, 7})}) {
        std::memset(&scope_, 0xAA, sizeof scope_);
        EXPECT_EQ(scope_of(answer), 0);
        for (EncodingScopeEntry& entry : scope_.entries) {
            EXPECT_EQ(entry.ucCapability, 0x5C);
            entry.ucCapability = 0xAA;
        }
        const auto* bytes = reinterpret_cast<const uint8_t*>(&scope_);
        EXPECT_EQ(Bytes(bytes, bytes + sizeof scope_), repeated(0xAA, sizeof scope_));
    }
}

TEST_F(Encoding, FailsOnAScopeWhoseTextMakesNoSense) {
    Capture capture;
    EXPECT_EQ(scope_of(command(kScopeCode, repeated('Z', 4064))), -1);
    EXPECT_EQ(unnumbered(capture.out()),
              line("Parse_EncodingResolution",
                   "input resolution error   resolution is  :  " + std::string(1024, 'Z') + " \n") +
                  line("Private_Protocol_GetEncodingScope", "Parse_EncodingResolution error\n"));
}

// -- Both at once.

TEST_F(Encoding, AsksForScopeAndRecordsAtOnceAndTakesTheAnswersInAnyOrder) {
    for (const bool records_first : {false, true}) {
        std::future<int> result =
            starts([&] { return Private_Protocol_GetEncodingPropert(0x105, ip(), &scope_, array_.data()); });
        const Message first = wire_.reads_command();
        const Message second = wire_.reads_command();
        EXPECT_EQ(first.command, kScopeCode);
        Bytes expected(1027);
        expected[0] = 5;
        EXPECT_EQ(first.payload, expected);
        EXPECT_EQ(second.command, kRecordsCode);
        expected.assign(32, 0);
        expected[1] = 0x33;
        EXPECT_EQ(second.payload, expected);
        const Message scope = scope_answer("H264:7x8;@");
        const Message list = records({record(0), record(1)});
        wire_.sends(records_first ? list : scope);
        wire_.sends(records_first ? scope : list);
        EXPECT_EQ(result.get(), 0);
        EXPECT_EQ(scope_.entries[0].slots[0].usWidth, 7);
        EXPECT_EQ(slice(array_, 0, 64), record(0) + record(1));
    }
}

TEST_F(Encoding, GivesBothSlotsBackWhateverFails) {
    const std::string name = "Private_Protocol_GetEncodingPropert";
    const std::string no_answer = line(name, "get cond and property failed pCmd->usCmd =1002");
    const Message scope = scope_answer("H264:7x8;@");
    Message bad_flag = records({record(0), record(1)});
    bad_flag.flag = 3;
    const struct {
        Message scope, list;
        std::string line;
    } cases[] = {
        {command(kScopeCode, {}, 5), records({}), no_answer},
        {scope_answer("JUNK"), records({}), line(name, "Parse_EncodingResolution error\n")},
        {scope, command(kRecordsCode, {}, 5), no_answer},
        {scope, bad_flag, line(name, "ulBufferNum =2 ulFlag=3  ERROR")},
        {scope, records({record(0)}), line(name, "Process_EncodingType failed k=1")},
    };
    for (const auto& row : cases) {
        Capture capture;
        std::future<int> result =
            starts([&] { return Private_Protocol_GetEncodingPropert(0, ip(), &scope_, array_.data()); });
        wire_.reads_command();
        wire_.reads_command();
        wire_.sends(row.list);
        wire_.sends(row.scope);
        EXPECT_EQ(result.get(), -1);
        EXPECT_THAT(unnumbered(capture.out()), testing::EndsWith(row.line));
        EXPECT_EQ(g_rs_num, 0);
    }
    for (int refused : {1, 2}) {
        Capture capture;
        host().refuses_allocation(refused);
        EXPECT_EQ(Private_Protocol_GetEncodingPropert(0, ip(), &scope_, array_.data()), -1);
        EXPECT_EQ(occurrences(unnumbered(capture.out()), line(name, "cond init failed")), 1);
        EXPECT_EQ(g_rs_num, 0);
    }
    EXPECT_FALSE(camera_was_asked());
    Capture capture;
    const Timewarp warp;
    EXPECT_EQ(Private_Protocol_GetEncodingPropert(0, ip(), &scope_, array_.data()), -1);
    EXPECT_THAT(warp.waited_s, testing::ElementsAre(10)) << "for the scope";
    loses_camera();
    EXPECT_EQ(Private_Protocol_GetEncodingPropert(261, ip(), &scope_, array_.data()), -1);
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
            Bytes whole = late.bytes();
            whole.resize(4096);
            Private_Protocol_RecvProcess(whole.data(), ip());
        }
    });
    std::future<int> result =
        starts([&] { return Private_Protocol_GetEncodingPropert(3, ip(), &scope_, array_.data()); });
    EXPECT_EQ(wire_.reads_command().bytes(),
              command(kScopeCode, Bytes{3} + Bytes(1026), 0, kLoginId).bytes());
    wire_.reads_command();
    wire_.sends(records({record(0), record(1)}));
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
        // Later records are not read, and the count of them does not matter.
        EXPECT_EQ(runs([&] { return Private_Fish_Protocol_GetEncodingProperty(0, ip(), array.data()); },
                       {announcing(0x1061, {3, 256}, one + pattern(512, 5))})
                      .result,
                  0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(slice(array, static_cast<size_t>(i) * 256, 256), i < copies ? one : repeated('u', 256));
        }
        EXPECT_EQ(slice(array, 768, 8), repeated('u', 8));
    }
}

}  // namespace
}  // namespace lenswire::test
