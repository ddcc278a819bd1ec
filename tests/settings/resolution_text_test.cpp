// The resolution-list text: a small language of its own.
#include <cstring>
#include <regex>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

// A scope full of the host's bytes.
struct Scope {
    Scope() { std::memset(&record, 0xAA, sizeof record); }
    EncodingScope record;

    const EncodingScopeEntry& entry(int i) const { return record.entries[i]; }
    Bytes bytes(int i) const { return record_bytes(record.entries[i]); }
    bool untouched(int i) const { return bytes(i) == repeated(0xAA, sizeof(EncodingScopeEntry)); }
    // The number of sizes, the sizes and the names that were written over the host's bytes; they are lists of
    // their own.
    std::string text(int i) const {
        std::string text = entry(i).ulSizes == 0xAAAAAAAA ? "" : std::to_string(entry(i).ulSizes) + ": ";
        for (const ResolutionSlot& slot : entry(i).slots) {
            if (slot.usWidth == 0xAAAA) break;
            text += std::to_string(slot.usWidth) + "x" + std::to_string(slot.usHeight) + " ";
        }
        for (const ResolutionSlot& slot : entry(i).slots) {
            if (static_cast<uint8_t>(slot.szCodec[0]) == 0xAA) break;
            text += slot.szCodec + std::string(" ");
        }
        return text;
    }
};

Bytes payload_of(const std::string& text) {
    return Bytes{9, 0x5C, 9} + bytes_of(text) + Bytes{0};
}

int parse(Scope& scope, const std::string& text) {
    return Parse_EncodingResolution(&scope.record, payload_of(text).data());
}

TEST(ResolutionText, FillsInTheEntriesOfThreeStreamModesAndLeavesThoseWithoutAListAlone) {
    const std::string single = line("Parse_EncodingResolution_Get", "resolution only have single stream\n");
    const std::string bad =
        line("Parse_EncodingResolution", "input resolution error   resolution is  :  MJPG:.[640x480.; \n");
    const struct {
        const char* text;
        const std::vector<std::string> entries;
        std::string out = "";
    } cases[] = {
        {"H264:1920x1080;H264:1280x720;@H264:1920x1080,H264:640x360;H264:1280x720,H264:640x360;@"
         "H264:1920x1080,H264:640x360,H264:320x240;",
         {"2: 1920x1080 1280x720 H264 ", "2: 1920x1080 1280x720 H264 ", "1: 640x360 H264 ",
          "1: 1920x1080 H264 ", "1: 640x360 H264 ", "1: 320x240 H264 "}},
        {"H265:2592x1944;H264:2592x1944;H264:1920x1080;@H265:2592x1944,H264:704x576;",
         {"2: 2592x1944 1920x1080 H265 H264 ", "1: 2592x1944 H265 ", "1: 704x576 H264 ", "", "", ""}},
        // Numbers of any length are kept by their low sixteen bits.
        {"H264:65537x65538;H264:1x2;H264:99999999999999999999x1;H264:-99999999999999999999x-2;@",
         {"3: 1x2 65535x1 0x65534 H264 ", "0: ", "0: ", "", "", ""}},
        {"H264:1920x1080;", {"0: ", "0: ", "0: ", "", "", ""}, single},
        {"MJPG:\x1B[640x480\n;", {"", "", "", "", "", ""}, bad},
    };
    for (const auto& row : cases) {
        Scope scope;
        Capture capture;
        EXPECT_EQ(parse(scope, row.text), row.out == bad ? -1 : 0);
        EXPECT_EQ(unnumbered(capture.out()), row.out);
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(scope.text(i), row.entries[static_cast<size_t>(i)]);
            EXPECT_EQ(slice(scope.bytes(i), 0, 16), repeated(0xAA, 16));
            EXPECT_EQ(slice(scope.bytes(i), 244, 44), repeated(0xAA, 44));
        }
    }
}

TEST(ResolutionText, IsSplitAtItsFirstTwoAts) {
    // A "Z" is a text longer than anything a message holds, for whoever has texts of its own; it is cut.
    const std::regex z("Z");
    const std::tuple<const char*, int, const char*> cases[] = {
        {"", 0, "? ? ?"},      {"abc", 0, "? ? ?"},         {"a@b", 0, "a b ?"}, {"a@b@c", 1, "a b c"},
        {"a@@", 1, "a  "},     {"a@b@c@d@", 1, "a b c@d@"}, {"@b@", 1, " b "},   {"a@", 0, "a  ?"},
        {"Z@b@Z", 1, "Z b Z"}, {"a@Z", 0, "a Z ?"}};
    for (const auto& [text, result, expected] : cases) {
        SCOPED_TRACE(text);
        char lists[3][1024] = {"?", "?", "?"};
        Capture quiet;
        EXPECT_EQ(Parse_EncodingResolution_Get(std::regex_replace(text, z, std::string(5000, 'z')).c_str(),
                                               lists[0], lists[1], lists[2]),
                  result);
        EXPECT_EQ(std::string(lists[0]) + " " + lists[1] + " " + lists[2],
                  std::regex_replace(expected, z, std::string(1023, 'z')));
    }
    char list[1024];
    EXPECT_EQ(Parse_EncodingResolution_Get(nullptr, list, list, list), -1);
    EXPECT_EQ(Parse_EncodingResolution_Get("a@b", nullptr, list, list), -1);
    EXPECT_EQ(Parse_EncodingResolution_Get("a@b", list, nullptr, list), -1);
    EXPECT_EQ(Parse_EncodingResolution_Get("a@b@c", list, list, nullptr), -1);
}

TEST(ResolutionText, EndsWithThePayload) {
    std::string text = "H264:1x1;@H264:2x2,H264:3x3;@";
    text.resize(1024 - 9, ' ');
    text += "H264:4x44H264:5x5,H264:6x6;";  // cut between the two fours
    const Bytes exactly =
        slice(Bytes{0, 1, 0} + bytes_of(text), 0, 1027);  // a byte further belongs to nobody
    Scope scope;
    EXPECT_EQ(Parse_EncodingResolution(&scope.record, exactly.data()), 0);
    EXPECT_EQ(scope.text(1), "1: 2x2 H264 ");
    EXPECT_EQ(scope.text(3), "0: ") << "the list has neither an end nor a comma";
}

TEST(ResolutionText, AFullEntryTakesNoMore) {
    Scope scope;
    EncodingScopeEntry& entry = scope.record.entries[2];
    uint32_t sizes = 0;
    uint32_t names = 0;
    for (int i = 0; i < 40; ++i)
        Parse_FiltRes(&sizes, &names, &entry, i, i, ("C" + std::to_string(i)).c_str());
    EXPECT_EQ(std::pair(sizes, names), std::pair(16u, 16u));
    EXPECT_EQ(slice(scope.bytes(2), 240, 48), repeated(0xAA, 48));
    EXPECT_TRUE(scope.untouched(3));

    uint32_t beyond = 0xFFFFFFFF;
    EXPECT_EQ(Parse_FiltRes(&beyond, &beyond, &entry, 999, 999, "XXXX"), 0);
    sizes = names = 0;
    EXPECT_EQ(Parse_FiltRes(&sizes, &names, &scope.record.entries[3], 1, 1, "wwwwwwwwwwwwwwww"), 0);
    EXPECT_EQ(scope.text(3), "1x1 wwwwwwwww ");
}

// Lists of one, two and three streams, each read as scanf would with "%04s:%dx%d", for every stream one, with
// commas between: what does not fit stays as it was in the group before, but for a codec of one or two.
TEST(ResolutionText, IsReadAsFarAsItFits) {
    const struct {
        int streams;
        const char* text;
        std::vector<std::string> entries;
    } cases[] = {
        {1, "H264:1x2", {"1: 1x2 H264 "}},
        {1, ":3x4;:5x6", {"1: 0x0 :3x4 :5x6 "}},
        {1, " H264:\t1x\v2;H265:\n3x4;", {"2: 1x2 3x4 H264 H265 "}},
        {1, "H264 :5x6;H264: 7 x8;", {"2: 0x0 7x0 H264 "}},
        {1, "H26455:1x1;H26 :2x2;MJPG:3x3;", {"2: 0x0 3x3 H264 MJPG "}},
        {1,
         "H264:+3x-4;H265:x4;MJPG:5;JPEG:--1x1;HEVC:6x+;",
         {"3: 3x65532 5x65532 6x65532 H264 H265 MJPG JPEG HEVC "}},
        {1, "H264:1x2;;H265:1x3;;H264:1x2;", {"2: 1x2 1x3 H264 ;H26 H265 "}},
        {1,
         "H264:2147483647x2147483648;H265:-2147483648x-2147483649;MJPG:07x008;",
         {"3: 65535x65535 0x0 7x8 H264 H265 MJPG "}},
        {2, "H264:1x2,H265:3x4;MJPG:5x6", {"1: 1x2 H264 ", "1: 3x4 H265 "}},
        {2, "H264:1x2,H265:3x4;MJPG:5x6,JPEG:7x8", {"2: 1x2 5x6 H264 MJPG ", "2: 3x4 7x8 H265 JPEG "}},
        {2, "H264:1x2 ,H265:3x4;MJPG:5x6,JPEG:7;", {"2: 1x2 5x6 H264 MJPG ", "2: 0x0 7x0  JPEG "}},
        {2, "H264:1x2H265:3x4;,;MJPG:5x6, JPEG:7x8;", {"2: 1x2 5x6 H264 ,;MJ MJPG ", "2: 0x0 7x8   JPEG "}},
        {3,
         "H264:1x1,H265:2x2,MJPG:3x3; :4x4,:5x5;JPEG:6x6, :7x7,H264:8x8;",
         {"2: 1x1 6x6 H264 :4x4 JPEG ", "1: 2x2 H265 :7x7 ", "1: 3x3 MJPG "}},
        {3, "H264:1x1,H265:2x2,MJPG:3x3;xxxx;", {"1: 1x1 H264 xxxx ", "1: 2x2 H265 ", "1: 3x3 MJPG "}},
    };
    int (*const parsers[])(void*, const char*) = {Parse_SinResolution, Parse_DouResolution,
                                                  Parse_ThrResolution};
    for (const auto& row : cases) {
        Scope scope;
        EXPECT_EQ(parsers[row.streams - 1](scope.record.entries, row.text), 0);
        std::vector<std::string> entries;
        for (int i = 0; i < row.streams; ++i) entries.push_back(scope.text(i));
        EXPECT_EQ(entries, row.entries) << row.text;
        EXPECT_TRUE(scope.untouched(row.streams));
    }
    std::string seventeen = "H265:2x2;";
    for (int i = 0; i < 16; ++i) seventeen = "H264:1x1;" + seventeen;
    Scope scope;
    Parse_SinResolution(scope.record.entries, seventeen.c_str());
    EXPECT_EQ(scope.text(0), "1: 1x1 H264 ") << "the last one is too many";
}

}  // namespace
}  // namespace lenswire::test
