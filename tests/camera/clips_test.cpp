// Cutting clips into access units and images, and what their headers say about the pictures.
#include "camera/media/clip.h"

#include <gtest/gtest.h>

#include "camera/media/picture_size.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

using Units = std::vector<camera::AccessUnit>;

// One NAL unit behind a start code of three or four bytes.
Bytes nal(const Bytes& body, bool long_code = true) {
    return (long_code ? Bytes{0, 0, 0, 1} : Bytes{0, 0, 1}) + body;
}

// The H.265 units of these types, each with three bytes: first slices from 100 on.
Bytes hevc(const std::vector<int>& types) {
    Bytes stream;
    for (const int type : types) {
        stream = stream + nal({static_cast<uint8_t>(type % 100 << 1), 1, uint8_t(type >= 100 ? 0xAF : 0x2F)});
    }
    return stream;
}

const Bytes kKey = {0x65, 0x88, 0x11}, kKeyNext = {0x65, 0x40, 0x11};
const Bytes kPlain = {0x41, 0x9A, 0x22}, kPlainNext = {0x41, 0x20, 0x22};

TEST(Clips, AreCutWhereTheNextPictureBegins) {
    const auto h264 = camera::split_h264, h265 = camera::split_h265, jpeg = camera::split_jpeg;
    const Bytes sps = nal({0x67, 0x42}), pps = nal({0x68, 0xCE}), delimiter = nal({0x09, 0xF0});
    const Bytes key = nal(kKey), plain = nal(kPlain);
    const Bytes thumbnail = {0xFF, 0xE1, 0x00, 0x07, 0xFF, 0xD8, 0x01, 0xFF, 0xD9};
    const Bytes scan = {0xFF, 0xDA, 0x00, 0x03, 0x00, 0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56};
    const Bytes image = Bytes{0xFF, 0xD8} + thumbnail + scan + Bytes{0xFF, 0xD9};
    // The lengths of the units, negative for those that are no key frames.
    const std::tuple<const char*, Units (*)(std::span<const uint8_t>), Bytes, std::vector<int>> cases[] = {
        {"parameter sets go with the key frame", h264, sps + pps + key + plain, {19, -7}},
        {"slices", h264, key + nal(kKeyNext, false) + nal(kKeyNext, false) + plain, {19, -7}},
        {"delimiters", h264, delimiter + key + delimiter + plain + nal(kPlainNext), {13, -20}},
        {"information opens", h264, key + nal({0x06, 0x05}) + plain, {7, -13}},
        {"filler stays behind its picture", h264, key + nal({0x0C, 0xFF}) + plain, {13, -7}},
        {"rubbish at first", h264, Bytes{9, 9, 9} + nal(kKey, false) + nal(kPlain, false), {6, -6}},
        {"an empty unit", h264, key + nal({}) + plain, {11, -7}},
        {"headers without a picture", h264, key + sps, {7}},
        {"nothing at all", h264, {}, {}},
        {"no start code", h264, {1, 2, 3, 4}, {}},
        {"sets, slices, suffix, prefix",
         h265,
         hevc({32, 33, 34, 119, 19, 40, 101, 39, 101, 121}),
         {42, -7, -14, 7}},
        {"key frames are 16 to 23", h265, hevc({115, 116, 123, 124}), {-7, 7, 7, -7}},
        {"a thumbnail ends nothing", jpeg, image + image, {25, 25}},
        {"the last image does not end", jpeg, image + slice(image, 0, 24), {25}},
        {"a cut segment", jpeg, {0xFF, 0xD8, 0xFF, 0xE1, 0xFF}, {}},
    };
    for (const auto& [what, split, stream, expected] : cases) {
        std::vector<int> lengths;
        for (const auto& unit : split(stream)) {
            lengths.push_back(unit.key ? static_cast<int>(unit.length) : -static_cast<int>(unit.length));
        }
        EXPECT_EQ(lengths, expected) << what;
    }
}

TEST(Clips, SayWhatTheyAre) {
    const std::tuple<const char*, size_t, int, int, int> cases[] = {{"h264-main.h264", 100, 0, 640, 360},
                                                                    {"h265-sub.h265", 100, 1, 320, 180},
                                                                    {"jpeg-main.mjpeg", 25, 3, 640, 360},
                                                                    {"tone.alaw", 50, 16, 0, 0}};
    for (const auto& [name, units, codec, width, height] : cases) {
        std::string error;
        const auto clip = camera::Clip::open(std::string(LENSWIRE_CLIPS "/") + name, &error);
        ASSERT_NE(clip, nullptr) << error;
        EXPECT_EQ(std::tuple(clip->size(), clip->codec(), clip->width(), clip->height()),
                  std::tuple(units, codec, width, height));
    }
    // A sequence set of the high profile, with the first of its eight lists there, of 40 by 22 blocks.
    const auto size =
        camera::h264_picture_size(nal({0x67, 0x64, 0x00, 0x1E, 0xAD, 0x84, 0x40, 0x78, 0x14, 0x05, 0xA2}));
    EXPECT_TRUE(size && size->width == 640 && size->height == 352);
}

TEST(Clips, SayWhyTheyCannotBePlayed) {
    const Folder folder;
    const std::tuple<const char*, Bytes, const char*> cases[] = {
        {"text.txt", {1}, "not a kind of clip"},
        {"empty.h264", {}, "holds no picture"},
        {"tail.h264", nal(kPlain), "does not begin with a key frame"},
        {"bare.h264", nal(kKey), "does not say how large"},
        {"cut.h264", nal({0x67, 0x64}) + nal(kKey), "does not say how large"},
        {"short.alaw", Bytes(319), "holds no picture or sound"},
        {"large.h264", nal(kKey) + repeated(1, 4'194'300), "too large for a packet"},
        {"missing/a.h264", {}, "No such file"},
    };
    for (const auto& [name, bytes, reason] : cases) {
        const std::string path = folder.write(name, bytes);
        std::string error;
        EXPECT_EQ(camera::Clip::open(path, &error), nullptr) << name;
        EXPECT_TRUE(error.starts_with(path) && error.find(reason) != std::string::npos) << error;
    }
}

}  // namespace
}  // namespace lenswire::test
