#include "recorder/media/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "media.h"

namespace lenswire::recorder {
namespace {

namespace fs = std::filesystem;
using media::Bytes;
using testing::ElementsAre;
using testing::SizeIs;

struct Clip {
    const char* file;
    const char* format;
    uint8_t head_code;
    const char* codec;
    int width = 640;
    int height = 360;
};
constexpr Clip kH264 = {"h264-main.h264", "h264", 0, "h264"};
constexpr Clip kH264Small = {"h264-sub.h264", "h264", 0, "h264", 320, 180};
constexpr Clip kH265 = {"h265-main.h265", "hevc", 3, "hevc"};
constexpr Clip kJpeg = {"jpeg-main.mjpeg", "mjpeg", 2, "mjpeg"};
constexpr size_t kKeyDistance = 25;  // of the clips

std::vector<Bytes> load(const Clip& clip) {
    return media::access_units(std::string(LENSWIRE_CLIPS "/") + clip.file, clip.format);
}

// Plays clips into a recording as the frame queue would: 25 pictures a second, and one reception clock.
class RecordingTest : public testing::Test {
  protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        directory_ = fs::path(testing::TempDir()) / (std::string("lenswire-") + info->name());
        fs::remove_all(directory_);
        fs::create_directories(directory_);
        begin();
    }
    void TearDown() override {
        recording_.reset();
        fs::remove_all(directory_);
    }

    void begin() {
        recording_.emplace(Recording::Target{directory_.string(), "ch00-stream0", "test"},
                           [this](const std::string& line) { complaints_.push_back(line); });
        sequence_ = 0;
        first_of_connection_ = true;
    }

    void picture(const Clip& clip, const Bytes& access_unit) {
        StreamFrameHead head{};
        head.ucCodec = clip.head_code;
        head.usWidth = static_cast<uint16_t>(clip.width);
        head.usHeight = static_cast<uint16_t>(clip.height);
        head.ucFrameRate = 25;
        head.ulTimeStamp = camera_ms_;
        camera_ms_ += 40;
        now_ms_ += 40;
        frame(head, access_unit);
    }

    void pictures(const Clip& clip, const std::vector<Bytes>& units, size_t first, size_t count) {
        for (size_t i = first; i < first + count; ++i) picture(clip, units[i % units.size()]);
    }

    void sound(const Bytes& samples) {
        StreamFrameHead head{};
        head.ucKind = 1;
        head.ucCodec = 1;
        Bytes data = {0x00, 0x01, 0xA0, 0x00};
        data.insert(data.end(), samples.begin(), samples.end());
        frame(head, data);
    }

    void restart() {
        sequence_ = 0;
        first_of_connection_ = true;
        now_ms_ += 2000;
    }

    RecordingReport finished() {
        recording_->finish();
        return recording_->report();
    }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory_)) names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }

    media::Track video_of(const std::string& name) const {
        const auto tracks = media::read_file(directory_ / name);
        return tracks.empty() ? media::Track{} : tracks.front();
    }

    fs::path directory_;
    std::optional<Recording> recording_;
    std::vector<std::string> complaints_;
    uint16_t sequence_ = 0;
    uint32_t camera_ms_ = 0xFFFFFC00;  // its clock wraps after a second
    int64_t now_ms_ = 1'700'000'000'000;

  private:
    void frame(StreamFrameHead& head, const Bytes& bytes) {
        head.usSequence = sequence_++;
        head.ulSeconds = static_cast<uint32_t>(now_ms_ / 1000);
        head.ulMicroseconds = static_cast<uint32_t>(now_ms_ % 1000 * 1000);
        Bytes padded = bytes;
        padded.resize(bytes.size() + 64);
        recording_->frame(head, std::span(padded).first(bytes.size()),
                          std::exchange(first_of_connection_, false));
    }

    bool first_of_connection_ = true;
};

TEST_F(RecordingTest, CopiesEveryAccessUnitUnchangedWithItsTime) {
    for (const Clip& clip : {kH264, kH265, kJpeg}) {
        SCOPED_TRACE(clip.file);
        begin();
        const auto units = load(clip);
        ASSERT_GE(units.size(), 25u);
        pictures(clip, units, 0, units.size());
        const FileReport file = finished().files.at(0);
        EXPECT_EQ(file.video_frames, units.size());
        EXPECT_TRUE(file.finished);

        const media::Track track = video_of(fs::path(file.path).filename());
        EXPECT_EQ(track.codec, clip.codec);
        EXPECT_EQ(track.width, 640);
        EXPECT_EQ(track.height, 360);
        EXPECT_EQ(track.has_parameter_sets, clip.head_code != kJpeg.head_code);
        ASSERT_EQ(track.packets.size(), units.size());
        for (size_t i = 0; i < units.size(); ++i) {
            ASSERT_EQ(track.packets[i].time_ms, static_cast<int64_t>(i) * 40);
            if (clip.head_code == kJpeg.head_code) {
                ASSERT_EQ(track.packets[i].data, units[i]);
                continue;
            }
            ASSERT_EQ(track.packets[i].key, i % kKeyDistance == 0);
            ASSERT_EQ(media::units_of_packet(track.packets[i].data), media::units_of_annex_b(units[i])) << i;
        }
    }
}

TEST_F(RecordingTest, BeginsAtTheFirstKeyFrame) {
    const auto units = load(kH264);
    pictures(kH264, units, 10, 50);
    const RecordingReport report = finished();
    EXPECT_EQ(report.frames, 50u);
    EXPECT_EQ(report.skipped, 15u);
    EXPECT_EQ(report.missing, 0u);
    const media::Track track = video_of("ch00-stream0.mkv");
    ASSERT_THAT(track.packets, SizeIs(35));
    EXPECT_EQ(media::units_of_packet(track.packets[0].data), media::units_of_annex_b(units[25]));
    EXPECT_EQ(track.packets[0].time_ms, 0);
}

TEST_F(RecordingTest, PutsSoundWithoutItsPrefixBesideThePictures) {
    const auto units = load(kH264);
    for (size_t i = 0; i < 30; ++i) {
        sound(Bytes(320, static_cast<uint8_t>(i)));
        picture(kH264, units[i]);
    }
    const RecordingReport report = finished();
    EXPECT_EQ(report.skipped, 1u) << "sound before the first picture";
    EXPECT_EQ(report.files.at(0).audio_frames, 29u);
    const auto tracks = media::read_file(directory_ / "ch00-stream0.mkv");
    ASSERT_THAT(tracks, SizeIs(2));
    EXPECT_EQ(tracks[1].codec, "pcm_alaw");
    EXPECT_EQ(tracks[1].sample_rate, 8000);
    ASSERT_THAT(tracks[1].packets, SizeIs(29));
    for (size_t i = 0; i < 29; ++i) {
        EXPECT_EQ(tracks[1].packets[i].data, Bytes(320, static_cast<uint8_t>(i + 1)));
        EXPECT_EQ(tracks[1].packets[i].time_ms, static_cast<int64_t>(i) * 40);
    }
    EXPECT_THAT(tracks[0].packets, SizeIs(30));
}

TEST_F(RecordingTest, GoesOnInTheSameFileAfterARestart) {
    const auto units = load(kH265);
    pictures(kH265, units, 0, 40);
    restart();
    camera_ms_ = 5;  // the camera was started anew
    pictures(kH265, units, 20, 40);
    const RecordingReport report = finished();
    EXPECT_THAT(files(), ElementsAre("ch00-stream0.mkv"));
    EXPECT_EQ(report.skipped, 5u);
    EXPECT_EQ(report.missing, 0u);
    ASSERT_THAT(report.files.at(0).runs, SizeIs(2));
    EXPECT_EQ(report.files[0].runs[1].first, 5u);
    EXPECT_EQ(report.files[0].runs[1].last, 39u);
    const media::Track track = video_of("ch00-stream0.mkv");
    ASSERT_THAT(track.packets, SizeIs(75));
    EXPECT_TRUE(track.packets[40].key);
    EXPECT_EQ(track.packets[40].time_ms, 39 * 40 + 2000 + 6 * 40) << "the interruption is kept";
    for (size_t i = 1; i < 75; ++i) ASSERT_LT(track.packets[i - 1].time_ms, track.packets[i].time_ms);
}

TEST_F(RecordingTest, BeginsANumberedFileWhenTheStreamChanges) {
    std::ofstream(directory_ / "ch00-stream0.mkv") << "an older recording";
    pictures(kH264, load(kH264), 0, 30);
    pictures(kH264Small, load(kH264Small), 0, 30);  // another size
    pictures(kH265, load(kH265), 0, 30);            // another codec
    const RecordingReport report = finished();
    EXPECT_THAT(files(), ElementsAre("ch00-stream0-2.mkv", "ch00-stream0-3.mkv", "ch00-stream0-4.mkv",
                                     "ch00-stream0.mkv"));
    EXPECT_EQ(fs::file_size(directory_ / "ch00-stream0.mkv"), 18u) << "nothing is overwritten";
    for (const char* name : {"ch00-stream0-2.mkv", "ch00-stream0-3.mkv", "ch00-stream0-4.mkv"}) {
        EXPECT_THAT(video_of(name).packets, SizeIs(30)) << name;
    }
    EXPECT_EQ(video_of("ch00-stream0-3.mkv").width, 320);
    EXPECT_EQ(report.missing, 0u);
}

TEST_F(RecordingTest, BeginsAFileWithSoundWhenSoundComesLate) {
    const auto units = load(kH264);
    pictures(kH264, units, 0, 60);
    sound(Bytes(320, 1));
    pictures(kH264, units, 60, 20);
    sound(Bytes(320, 2));
    const RecordingReport report = finished();
    ASSERT_THAT(report.files, SizeIs(2));
    EXPECT_FALSE(report.files[0].audio);
    EXPECT_EQ(report.files[0].video_frames, 75u);
    EXPECT_EQ(report.skipped, 1u) << "the sound that had no track";
    EXPECT_EQ(report.files[1].audio_frames, 1u);
}

TEST_F(RecordingTest, FinishesAFileThatEndsWithinItsFirstSecond) {
    pictures(kH264, load(kH264), 0, 3);
    EXPECT_THAT(finished().files, SizeIs(1));
    EXPECT_THAT(video_of("ch00-stream0.mkv").packets, SizeIs(3));
}

TEST_F(RecordingTest, CountsWhatIsMissingInTheSequence) {
    const auto units = load(kH264);
    sequence_ = 65'500;
    pictures(kH264, units, 0, 50);
    sequence_ = static_cast<uint16_t>(sequence_ + 3);
    pictures(kH264, units, 50, 50);
    const RecordingReport report = finished();
    EXPECT_EQ(report.missing, 3u);
    EXPECT_EQ(report.files.at(0).runs.at(0).first, 65'500u);
    EXPECT_EQ(report.files.at(0).runs.at(0).last, 65'602u);
}

TEST_F(RecordingTest, ComplainsOnceWhenTheDiskRefusesAndTriesAgainLater) {
    const auto units = load(kH264);
    fs::remove_all(directory_);
    pictures(kH264, units, 0, 200);  // eight seconds
    EXPECT_THAT(complaints_, SizeIs(1));
    EXPECT_TRUE(recording_->report().files.empty());
    fs::create_directories(directory_);
    pictures(kH264, units, 0, 100);
    const RecordingReport report = finished();
    ASSERT_THAT(report.files, SizeIs(1));
    EXPECT_THAT(video_of("ch00-stream0.mkv").packets, SizeIs(report.files[0].video_frames));
    EXPECT_EQ(report.frames, report.files[0].video_frames + report.skipped + report.unwritten);
}

TEST_F(RecordingTest, TakesNoSizeForAReasonToRecordNothing) {
    constexpr Clip kNoSize = {"h264-main.h264", "h264", 0, "h264", 0, 0};
    pictures(kNoSize, load(kH264), 0, 60);
    EXPECT_THAT(finished().files, SizeIs(0));
    EXPECT_THAT(complaints_, SizeIs(1));
}

}  // namespace
}  // namespace lenswire::recorder
