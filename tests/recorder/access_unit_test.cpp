#include "recorder/media/access_unit.h"

#include <gtest/gtest.h>

#include <string>

namespace lenswire::recorder {
namespace {

using Bytes = std::vector<uint8_t>;
using Units = std::vector<Bytes>;

// Units in Annex B form, behind start codes of four and three bytes in turn or all of four.
Bytes annex_b(const Units& units, bool all_long = false) {
    Bytes result;
    for (size_t i = 0; i < units.size(); ++i) {
        if (all_long || i % 2 == 0) result.push_back(0);
        result.insert(result.end(), {0, 0, 1});
        result.insert(result.end(), units[i].begin(), units[i].end());
    }
    return result;
}

const Bytes kSps = {0x67, 1, 2, 3}, kPps = {0x68, 4}, kOtherSps = {0x67, 9}, kIdr = {0x65, 0x88, 5},
            kDelta = {0x41, 0x9A, 6}, kSei = {0x06, 7}, kAud = {0x09, 0xF0};
const Bytes kVps5 = {0x40, 1, 2}, kSps5 = {0x42, 1, 3}, kPps5 = {0x44, 1, 4}, kIdr5 = {0x26, 1, 0xAF},
            kCra5 = {0x2A, 1, 0xAF}, kDelta5 = {0x02, 1, 0xD0};

// What one reader makes of packets one after the other.
struct Packet {
    Units units;
    bool key;
    Units sets;  // known after it; empty while one is missing
};
const std::vector<Packet> kH264[] = {
    {{{kAud, kDelta}, false, {}},
     {{kAud, kSps, kPps, kSei, kIdr}, true, {kSps, kPps}},
     {{kSei, kDelta}, false, {kSps, kPps}},
     {{kIdr}, true, {kSps, kPps}},                      // a key frame without sets of its own
     {{kSps, kPps, kSei, kDelta}, true, {kSps, kPps}},  // an open group of pictures
     {{kPps, kDelta}, false, {kSps, kPps}},
     {{kOtherSps, kPps, kIdr}, true, {kOtherSps, kPps}}},
    {{{kSps}, false, {}}, {{kPps}, false, {kSps, kPps}}, {{kIdr}, true, {kSps, kPps}}},
    {{{{0x67, 5, 0}, {0x68, 6, 0, 0}, kIdr}, true, {{0x67, 5}, {0x68, 6}}}},  // zeros before a start code
};
const std::vector<Packet> kH265[] = {
    {{{kSps5, kPps5, kIdr5}, true, {}},
     {{kVps5, kSps5, kPps5, kCra5}, true, {kVps5, kSps5, kPps5}},
     {{kDelta5}, false, {kVps5, kSps5, kPps5}}},
};

void expect(VideoCodec codec, std::span<const std::vector<Packet>> streams) {
    for (const auto& stream : streams) {
        AccessUnitReader reader(codec);
        for (const Packet& packet : stream) {
            SCOPED_TRACE(testing::Message() << codec_name(codec) << " stream " << &stream - streams.data()
                                            << " packet " << &packet - stream.data());
            EXPECT_EQ(reader.read(annex_b(packet.units)), packet.key);
            EXPECT_EQ(reader.ready(), !packet.sets.empty());
            if (!reader.ready()) continue;
            EXPECT_EQ(reader.parameter_sets(), annex_b(packet.sets, true));
        }
    }
}

TEST(AccessUnit, FindsKeyFramesAndParameterSets) {
    expect(VideoCodec::kH264, kH264);
    expect(VideoCodec::kH265, kH265);
}

TEST(AccessUnit, ReadsNothingBeyondHostileBytes) {
    const Bytes whole = annex_b({kSps, kPps, kIdr});
    for (size_t length = 0; length < whole.size(); ++length) {
        const Bytes piece(whole.begin(),
                          whole.begin() + static_cast<long>(length));  // a heap block of its own
        const bool has_idr_header = length > whole.size() - kIdr.size();
        EXPECT_EQ(AccessUnitReader(VideoCodec::kH264).read(piece), has_idr_header) << length;
    }
    AccessUnitReader reader(VideoCodec::kJpeg);
    EXPECT_FALSE(reader.read(Bytes{}));
    EXPECT_FALSE(reader.read(Bytes{0xFF, 0xD8}));
    EXPECT_TRUE(reader.read(Bytes{0xFF, 0xD8, 0xFF}));
    EXPECT_TRUE(reader.ready());
}

TEST(AccessUnit, KnowsTheCodesOfFrameHeads) {
    const std::string expected[] = {"H264", "", "JPEG", "H265", "H264", "H265", ""};
    for (uint8_t code = 0; code < std::size(expected); ++code) {
        const auto codec = codec_of_head(code);
        EXPECT_EQ(codec ? codec_name(*codec) : "", expected[code]) << int{code};
    }
}

}  // namespace
}  // namespace lenswire::recorder
