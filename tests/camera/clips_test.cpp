// Cutting clips into access units and images, and what their headers say about the pictures.
#include "camera/media/clip.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "camera/media/annexb.h"
#include "support/camera_bytes.h"

namespace lenswire::test {
namespace {

using camera::AccessUnit;
using camera::Clip;

Bytes file_bytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Clips, OfTheRepositoryAreCutPictureByPicture) {
    const struct {
        const char* name;
        size_t units, keys;
        int codec, width, height;
    } cases[] = {
        {"h264-main.h264", 100, 4, 0, 640, 360},  {"h264-sub.h264", 100, 4, 0, 320, 180},
        {"h265-main.h265", 100, 4, 1, 640, 360},  {"h265-sub.h265", 100, 4, 1, 320, 180},
        {"jpeg-main.mjpeg", 25, 25, 3, 640, 360}, {"jpeg-sub.mjpeg", 25, 25, 3, 320, 180},
        {"tone.alaw", 50, 50, 16, 0, 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        std::string error;
        const auto clip = Clip::open(std::string(LENSWIRE_CLIPS "/") + each.name, &error);
        ASSERT_NE(clip, nullptr) << error;
        Bytes joined;
        size_t keys = 0;
        for (size_t i = 0; i < clip->size(); ++i) {
            joined.insert(joined.end(), clip->payload(i).begin(), clip->payload(i).end());
            keys += clip->is_key(i) ? 1 : 0;
        }
        EXPECT_EQ(clip->size(), each.units);
        EXPECT_EQ(keys, each.keys);
        EXPECT_EQ(clip->codec(), each.codec);
        EXPECT_EQ(clip->width(), each.width);
        EXPECT_EQ(clip->height(), each.height);
        EXPECT_TRUE(joined == file_bytes(std::string(LENSWIRE_CLIPS "/") + each.name));
    }
}

// One NAL unit behind a start code of three or four bytes.
Bytes nal(const Bytes& body, bool long_code = true) {
    return (long_code ? Bytes{0, 0, 0, 1} : Bytes{0, 0, 1}) + body;
}

// The lengths of the units, negative for those that are no key frames.
std::vector<int> shape(const std::vector<AccessUnit>& units) {
    std::vector<int> lengths;
    for (const AccessUnit& unit : units) {
        const int length = static_cast<int>(unit.length);
        lengths.push_back(unit.key ? length : -length);
    }
    return lengths;
}

const Bytes kIdrFirst = {0x65, 0x88, 0x11}, kIdrNext = {0x65, 0x40, 0x11};
const Bytes kPlainFirst = {0x41, 0x9A, 0x22}, kPlainNext = {0x41, 0x20, 0x22};
const Bytes kSps = {0x67, 0x42}, kPps = {0x68, 0xCE}, kDelimiter = {0x09, 0xF0}, kInformation = {0x06, 0x05};

TEST(SplitH264, KeepsSlicesTogetherAndHeadersWithTheirPicture) {
    const struct {
        const char* what;
        Bytes stream;
        std::vector<int> units;
    } cases[] = {
        {"parameter sets go with the key frame",
         nal(kSps) + nal(kPps) + nal(kIdrFirst) + nal(kPlainFirst),
         {19, -7}},
        {"three slices, short codes",
         nal(kIdrFirst) + nal(kIdrNext, false) + nal(kIdrNext, false) + nal(kPlainFirst),
         {19, -7}},
        {"delimiters open",
         nal(kDelimiter) + nal(kIdrFirst) + nal(kDelimiter) + nal(kPlainFirst) + nal(kPlainNext),
         {13, -20}},
        {"information opens", nal(kIdrFirst) + nal(kInformation) + nal(kPlainFirst), {7, -13}},
        {"filler stays behind its picture", nal(kIdrFirst) + nal({0x0C, 0xFF}) + nal(kPlainFirst), {13, -7}},
        {"rubbish before the first code",
         Bytes{9, 9, 9} + nal(kIdrFirst, false) + nal(kPlainFirst, false),
         {6, -6}},
        {"an empty unit", nal(kIdrFirst) + nal({}) + nal(kPlainFirst), {11, -7}},
        {"headers without a picture", nal(kIdrFirst) + nal(kSps), {7}},
        {"nothing at all", {}, {}},
        {"no start code", {1, 2, 3, 4}, {}},
    };
    for (const auto& each : cases) EXPECT_EQ(shape(camera::split_h264(each.stream)), each.units) << each.what;
}

TEST(SplitH265, KnowsItsOwnUnitTypes) {
    const Bytes vps = {0x40, 1}, sps = {0x42, 1}, pps = {0x44, 1}, prefix = {0x4E, 1}, suffix = {0x50, 1};
    const Bytes idr = {0x28, 1, 0xAF}, idr_next = {0x28, 1, 0x2F}, trail = {0x02, 1, 0xD0},
                cra = {0x2A, 1, 0xA0};
    const Bytes stream = nal(vps) + nal(sps) + nal(pps) + nal(idr) + nal(idr_next) + nal(suffix) +
                         nal(trail) + nal(prefix) + nal(trail) + nal(cra);
    EXPECT_EQ(shape(camera::split_h265(stream)), (std::vector<int>{38, -7, -13, 7}));
}

TEST(SplitJpeg, AThumbnailInsideASegmentEndsNothing) {
    const Bytes thumbnail = {0xFF, 0xD8, 0x01, 0xFF, 0xD9};
    const Bytes scan = {0xFF, 0xDA, 0x00, 0x03, 0x00, 0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56};
    const Bytes image = Bytes{0xFF, 0xD8, 0xFF, 0xE1, 0x00, 0x07} + thumbnail + scan + Bytes{0xFF, 0xD9};
    const auto length = static_cast<int>(image.size());
    EXPECT_EQ(shape(camera::split_jpeg(image + image)), (std::vector<int>{length, length}));
    EXPECT_EQ(shape(camera::split_jpeg(image + slice(image, 0, image.size() - 1))),
              (std::vector<int>{length}));
    EXPECT_EQ(shape(camera::split_jpeg(Bytes{0xFF, 0xD8, 0xFF, 0xE1, 0xFF})), (std::vector<int>{}));
}

TEST(Clips, SayWhyTheyCannotBePlayed) {
    const auto folder = std::filesystem::temp_directory_path() / ("clips_test." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const struct {
        const char* name;
        Bytes bytes;
        const char* reason;
    } cases[] = {
        {"text.txt", {1}, "not a kind of clip"},
        {"empty.h264", {}, "holds no picture"},
        {"tail.h264", nal(kPlainFirst), "does not begin with a key frame"},
        {"bare.h264", nal(kIdrFirst), "does not say how large"},
        {"cut.h264", nal({0x67, 0x64}) + nal(kIdrFirst), "does not say how large"},
        {"short.alaw", Bytes(319), "holds no picture or sound"},
    };
    for (const auto& each : cases) {
        const auto path = folder / each.name;
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(each.bytes.data()),
                   static_cast<std::streamsize>(each.bytes.size()));
        std::string error;
        EXPECT_EQ(Clip::open(path.string(), &error), nullptr) << each.name;
        EXPECT_NE(error.find(each.reason), std::string::npos) << error;
    }
    std::string error;
    EXPECT_EQ(Clip::open((folder / "missing.h264").string(), &error), nullptr);
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace lenswire::test
