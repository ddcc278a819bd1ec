// Streams handed on and pictures taken, from the command line to a simulated camera.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media.h"
#include "program.h"

namespace lenswire::recorder {
namespace {

using StreamTest = ProgramTest;

constexpr size_t kFrames = 30;

TEST_F(StreamTest, IsHandedOnAsTheCameraSendsItAndHasPictures) {
    const std::pair<const char*, const char*> clips[] = {{"h264", "h264-main.h264"},
                                                         {"h265", "h265-main.h265"}};
    for (const auto& [codec, clip] : clips) {
        SCOPED_TRACE(codec);
        const std::string path = std::string(LENSWIRE_CLIPS "/") + clip;
        addresses_.clear();
        add_camera({}, path);
        const std::string frames = " --frames " + std::to_string(kFrames);
        const Outcome raw = lenswire("stream CAM -o DIR/raw --format " + std::string(codec) + frames);
        ASSERT_EQ(raw.code, 0) << raw.err;
        const char* format = codec == std::string("h264") ? "h264" : "hevc";
        const auto sent = folder_.read("raw");
        EXPECT_EQ(media::access_units(folder_.path("raw"), format).size(), kFrames);
        auto expected = test::file_bytes(path);
        expected.resize(sent.size());
        EXPECT_EQ(sent, expected);
        ASSERT_EQ(lenswire("stream CAM -o DIR/file.mkv" + frames).code, 0);
        const auto tracks = media::read_file(folder_.path("file.mkv"));
        ASSERT_EQ(tracks.size(), 1u);
        EXPECT_EQ(tracks[0].packets.size(), kFrames);
        const Outcome picture = lenswire("snapshot CAM -o -");
        EXPECT_EQ(picture.code, 0) << picture.err;
        EXPECT_THAT(picture.out,
                    testing::AllOf(testing::StartsWith("\xFF\xD8\xFF"), testing::EndsWith("\xFF\xD9")));
    }
    const Outcome other = lenswire("stream CAM -o DIR/raw --format mjpeg");
    EXPECT_EQ(other.code, 2);
    EXPECT_THAT(other.err, testing::HasSubstr("sends H265, not mjpeg"));
    camera::StreamFault stall;
    stall.kind = camera::StreamFaultKind::kStall;
    farm_[1].add_fault(stall);
    EXPECT_EQ(lenswire("snapshot CAM -o DIR/picture.jpg --timeout 0.5").code, 4);
}

}  // namespace
}  // namespace lenswire::recorder
