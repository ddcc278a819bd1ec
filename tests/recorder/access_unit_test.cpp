#include "recorder/media/access_unit.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace lenswire::recorder {
namespace {

using Bytes = std::vector<uint8_t>;

// Units by letters: sets v, s and p, another s, one that ends in zero; delimiter a, information e; pictures:
// i and c that stand alone, d that does not.
const std::map<char, Bytes> kH264 = {{'s', {0x67, 1, 2, 3}}, {'p', {0x68, 4}},       {'S', {0x67, 9}},
                                     {'z', {0x67, 9, 0, 0}}, {'i', {0x65, 0x88, 5}}, {'e', {0x06, 7}},
                                     {'a', {0x09, 0xF0}},    {'d', {0x41, 0x9A, 6}}};
const std::map<char, Bytes> kH265 = {{'v', {0x40, 1, 2}},    {'s', {0x42, 1, 3}},    {'p', {0x44, 1, 4}},
                                     {'i', {0x26, 1, 0xAF}}, {'c', {0x2A, 1, 0xAF}}, {'d', {0x02, 1, 0xD0}}};

// In Annex B form, behind start codes of four and three bytes in turn or all of four.
Bytes annex_b(const std::map<char, Bytes>& units, const std::string& letters, bool all_long = false) {
    Bytes result;
    for (size_t i = 0; i < letters.size(); ++i) {
        const Bytes& unit = units.at(letters[i]);
        if (all_long || i % 2 == 0) result.push_back(0);
        result.insert(result.end(), {0, 0, 1});
        result.insert(result.end(), unit.begin(), unit.end());
    }
    return result;
}

// What one reader makes of packets one after the other: a mark behind a key frame's, and the sets known then.
TEST(AccessUnit, FindsKeyFramesAndParameterSets) {
    const std::pair<VideoCodec, const char*> streams[] = {
        {VideoCodec::kH264, "ad: aspei!sp ed:sp i!sp sped!sp pd:sp Spi!Sp"},
        {VideoCodec::kH264, "s: p:sp i!sp"},
        {VideoCodec::kH264, "zpi!Sp"},
        {VideoCodec::kH265, "spi! vspc!vsp d:vsp"},
    };
    for (const auto& [codec, stream] : streams) {
        const auto& units = codec == VideoCodec::kH264 ? kH264 : kH265;
        AccessUnitReader reader(codec);
        std::istringstream packets(stream);
        for (std::string packet; packets >> packet;) {
            SCOPED_TRACE(packet);
            const size_t mark = packet.find_first_of("!:");
            const std::string sets = packet.substr(mark + 1);
            EXPECT_EQ(reader.read(annex_b(units, packet.substr(0, mark))), packet[mark] == '!');
            EXPECT_EQ(reader.ready(), !sets.empty());
            EXPECT_EQ(reader.parameter_sets(), annex_b(units, sets, true));
        }
    }
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
