#include "recorder/media/access_unit.h"

#include <gtest/gtest.h>

#include <string>

namespace lenswire::recorder {
namespace {

using Bytes = std::vector<uint8_t>;

// Units in Annex B form; each begins with its header byte.
Bytes annex_b(std::initializer_list<Bytes> units) {
    Bytes result;
    bool long_code = true;
    for (const Bytes& unit : units) {
        if (long_code) result.push_back(0);
        result.insert(result.end(), {0, 0, 1});
        result.insert(result.end(), unit.begin(), unit.end());
        long_code = !long_code;
    }
    return result;
}

Bytes long_codes(std::initializer_list<Bytes> units) {
    Bytes result;
    for (const Bytes& unit : units) {
        result.insert(result.end(), {0, 0, 0, 1});
        result.insert(result.end(), unit.begin(), unit.end());
    }
    return result;
}

const Bytes kSps = {0x67, 1, 2, 3}, kPps = {0x68, 4}, kOtherSps = {0x67, 9}, kIdr = {0x65, 0x88, 5},
            kDelta = {0x41, 0x9A, 6}, kSei = {0x06, 7}, kAud = {0x09, 0xF0};
const Bytes kVps5 = {0x40, 1, 2}, kSps5 = {0x42, 1, 3}, kPps5 = {0x44, 1, 4}, kIdr5 = {0x26, 1, 0xAF},
            kCra5 = {0x2A, 1, 0xAF}, kDelta5 = {0x02, 1, 0xD0};

TEST(AccessUnit, FindsKeyFramesAndParameterSetsOfH264) {
    AccessUnitReader reader(VideoCodec::kH264);
    EXPECT_FALSE(reader.read(annex_b({kAud, kDelta})));
    EXPECT_FALSE(reader.ready());
    EXPECT_TRUE(reader.read(annex_b({kAud, kSps, kPps, kSei, kIdr})));
    EXPECT_TRUE(reader.ready());
    EXPECT_EQ(reader.parameter_sets(), long_codes({kSps, kPps}));
    EXPECT_FALSE(reader.read(annex_b({kSei, kDelta})));
    EXPECT_TRUE(reader.read(annex_b({kIdr}))) << "a key frame without sets of its own";
    EXPECT_EQ(reader.parameter_sets(), long_codes({kSps, kPps}));
    EXPECT_TRUE(reader.read(annex_b({kSps, kPps, kSei, kDelta}))) << "an open group of pictures";
    EXPECT_FALSE(reader.read(annex_b({kPps, kDelta})));
}

TEST(AccessUnit, FindsKeyFramesAndParameterSetsOfH265) {
    AccessUnitReader reader(VideoCodec::kH265);
    EXPECT_TRUE(reader.read(annex_b({kSps5, kPps5, kIdr5})));
    EXPECT_FALSE(reader.ready()) << "one kind of three is missing";
    EXPECT_TRUE(reader.read(annex_b({kVps5, kSps5, kPps5, kCra5})));
    EXPECT_EQ(reader.parameter_sets(), long_codes({kVps5, kSps5, kPps5}));
    EXPECT_FALSE(reader.read(annex_b({kDelta5})));
}

TEST(AccessUnit, PutsSetsOfSeparatePacketsTogetherAndTakesChangedOnes) {
    AccessUnitReader reader(VideoCodec::kH264);
    EXPECT_FALSE(reader.read(annex_b({kSps})));
    EXPECT_FALSE(reader.read(annex_b({kPps})));
    EXPECT_TRUE(reader.read(annex_b({kIdr})));
    EXPECT_EQ(reader.parameter_sets(), long_codes({kSps, kPps}));
    EXPECT_TRUE(reader.read(annex_b({kOtherSps, kPps, kIdr})));
    EXPECT_EQ(reader.parameter_sets(), long_codes({kOtherSps, kPps}));
}

TEST(AccessUnit, EndsASetBeforeTheZerosOfTheNextStartCode) {
    AccessUnitReader reader(VideoCodec::kH264);
    Bytes unit = {0, 0, 1, 0x67, 5, 0, 0, 0, 0, 0, 1, 0x68, 6, 0, 0, 0, 1, 0x65, 7};
    EXPECT_TRUE(reader.read(unit));
    EXPECT_EQ(reader.parameter_sets(), long_codes({{0x67, 5}, {0x68, 6}}));
}

TEST(AccessUnit, ReadsNothingBeyondHostileBytes) {
    const Bytes whole = annex_b({kSps, kPps, kIdr});
    for (size_t length = 0; length < whole.size(); ++length) {
        const Bytes piece(whole.begin(),
                          whole.begin() + static_cast<long>(length));  // a heap block of its own
        AccessUnitReader reader(VideoCodec::kH264);
        const bool has_idr_header = length > whole.size() - kIdr.size();
        EXPECT_EQ(reader.read(piece), has_idr_header) << length;
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
