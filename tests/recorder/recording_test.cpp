#include "recorder/archive/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>

#include "media.h"
#include "recorder/archive/keeper.h"

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

// Plays clips into a recording as the frame queue would, 25 pictures a second, and has a keeper write what
// comes of it: the ledger and the files are what is looked at.
class RecordingTest : public testing::Test, public NoteTaker {
  protected:
    void SetUp() override { begin(); }
    void TearDown() override {
        recording_.reset();
        fs::remove_all(directory_);
    }

    void begin(Ms segment = 60'000) {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        directory_ = fs::path(testing::TempDir()) / (std::string("lenswire-") + info->name());
        fs::remove_all(directory_);
        fs::create_directories(directory_);
        disk_.emplace(directory_);
        ledger_.emplace("");
        keeper_.emplace(*disk_, *ledger_, KeepLimits{}, std::vector<std::string>{"front"});
        recording_.emplace(Recording::Target{.stream = 0, .title = "front", .segment = segment}, anchor_,
                           *this, now_ms_);
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

    // The segments that came of it, finished, in order of time; checked to add up with the gaps.
    std::vector<SegmentRow> finished() {
        recording_->finish(now_ms_);
        for (Keeper::Job& job : keeper_->take_jobs()) {
            Keeper::work(job, *disk_);
            keeper_->done(std::move(job));
        }
        keeper_->settle(anchor_.utc(now_ms_));
        expect_no_hole();
        return ledger_->segments();
    }

    void expect_no_hole() {
        std::map<Ms, Ms> spans;
        for (const SegmentRow& row : ledger_->segments()) spans[row.from] = *row.to;
        for (const GapRow& row : ledger_->gaps()) spans[row.from] = *row.to;
        for (const WatchRow& watch : ledger_->watches()) {
            Ms at = watch.from;
            for (auto span = spans.find(at); span != spans.end(); span = spans.find(at)) at = span->second;
            EXPECT_EQ(at, *watch.to);
        }
    }

    std::vector<std::string> gap_causes() {
        std::vector<std::string> causes;
        for (const GapRow& row : ledger_->gaps()) causes.push_back(row.side + ": " + row.cause);
        return causes;
    }

    media::Track video_of(const SegmentRow& segment) const {
        const auto tracks = media::read_file(directory_ / segment.path);
        return tracks.empty() ? media::Track{} : tracks.front();
    }

    fs::path directory_;
    UtcAnchor anchor_{1'000'000, 1'795'442'700'000};
    std::optional<RealDisk> disk_;
    std::optional<Ledger> ledger_;
    std::optional<Keeper> keeper_;
    std::optional<Recording> recording_;
    std::optional<Trouble> disk_trouble_;
    uint16_t sequence_ = 0;
    uint32_t camera_ms_ = 0xFFFFFC00;  // its clock wraps after a second
    Ms now_ms_ = 1'000'000;

    // Nothing but sound, if so, from a camera that agreed to send.
    void quiet(int seconds, bool sounds, bool in_packet) {
        recording_->stream_opened(now_ms_);
        recording_->stopped_in_packet(in_packet);
        for (int i = 0; i < seconds; ++i) {
            if (sounds) sound(Bytes(320, 1));
            now_ms_ += 1000;
            camera_ms_ += 1000;
            recording_->tick(now_ms_);
        }
    }

  private:
    void take(std::vector<Note> notes) override {
        for (Note& note : notes) EXPECT_EQ(keeper_->take(note), 0);
    }
    std::optional<Trouble> trouble() const override { return disk_trouble_; }

    void frame(StreamFrameHead& head, const Bytes& bytes) {
        head.usSequence = sequence_++;
        Bytes padded = bytes;
        padded.resize(bytes.size() + 64);
        recording_->frame(head, std::span(padded).first(bytes.size()),
                          std::exchange(first_of_connection_, false), now_ms_);
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
        const auto segments = finished();
        ASSERT_THAT(segments, SizeIs(1));
        EXPECT_EQ(segments[0].frames, units.size());
        EXPECT_EQ(segments[0].state, "finished");
        EXPECT_EQ(segments[0].path, "front/" + segment_name(segments[0].from));
        EXPECT_EQ(*segments[0].to - segments[0].from, static_cast<Ms>(units.size()) * 40);

        const media::Track track = video_of(segments[0]);
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

TEST_F(RecordingTest, CutsAtKeyFramesWithoutAFrameLostOrDoubled) {
    begin(1500);
    const auto units = load(kH264);
    pictures(kH264, units, 10, 165);  // the first key frame is the 25th
    const auto segments = finished();
    ASSERT_THAT(segments, SizeIs(3));
    size_t next = kKeyDistance;
    for (const SegmentRow& segment : segments) {
        const media::Track track = video_of(segment);
        EXPECT_EQ(track.packets.size(), segment.frames);
        ASSERT_FALSE(track.packets.empty());
        EXPECT_TRUE(track.packets[0].key);
        EXPECT_EQ(track.packets[0].time_ms, 0);
        for (const media::Packet& packet : track.packets) {
            ASSERT_EQ(media::units_of_packet(packet.data),
                      media::units_of_annex_b(units[next++ % units.size()]));
        }
    }
    EXPECT_EQ(next, 175u);
    EXPECT_THAT(gap_causes(), SizeIs(0));
    EXPECT_EQ(recording_->report().skipped, 15u);
}

TEST_F(RecordingTest, PutsSoundWithoutItsPrefixBesideThePictures) {
    const auto units = load(kH264);
    for (size_t i = 0; i < 30; ++i) {
        sound(Bytes(320, static_cast<uint8_t>(i)));
        picture(kH264, units[i]);
    }
    const auto segments = finished();
    EXPECT_EQ(recording_->report().skipped, 1u) << "sound before the first picture";
    EXPECT_EQ(recording_->report().audio_frames, 29u);
    ASSERT_THAT(segments, SizeIs(1));
    const auto tracks = media::read_file(directory_ / segments[0].path);
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

TEST_F(RecordingTest, BeginsASegmentWhereTheStreamChanges) {
    const auto h264 = load(kH264);
    pictures(kH264, h264, 0, 30);
    pictures(kH264Small, load(kH264Small), 0, 30);  // another size
    pictures(kH265, load(kH265), 0, 35);            // another codec
    sound(Bytes(320, 1));
    pictures(kH265, load(kH265), 35, 30);  // sound came late: from the next key frame on
    const auto segments = finished();
    ASSERT_THAT(segments, SizeIs(4));
    EXPECT_EQ(video_of(segments[1]).width, 320);
    EXPECT_THAT(video_of(segments[2]).packets, SizeIs(50));
    EXPECT_THAT(media::read_file(directory_ / segments[3].path), SizeIs(2));
    EXPECT_THAT(gap_causes(), SizeIs(0));
}

// What interrupts a stream of 40 pictures, and what the ledger says of it.
TEST_F(RecordingTest, AccountsForEveryInterruption) {
    struct Case {
        const char* cause;
        std::function<void()> happen;
        Ms length;  // from the last picture's end to the next key frame
    };
    const Case cases[] = {
        {"network: connection lost", [&] { restart(); }, 2000},
        {"camera: restarted",
         [&] {
             camera_ms_ = 5;
             recording_->trouble(now_ms_, Cause::kLost, "");
             now_ms_ += 1000;
             restart();
         },
         3000},
        {"camera: silent",
         [&] {
             now_ms_ += 20'000;
             camera_ms_ += 20'000;
         },
         20'000},
        {"camera: silent",
         [&] {
             now_ms_ += 3000;
             recording_->trouble(now_ms_, Cause::kLost, "");
             restart();
         },
         5000},
        {"camera: pictures missing",
         [&] {
             sequence_ = static_cast<uint16_t>(sequence_ + 3);
             now_ms_ += 120;
             camera_ms_ += 120;
         },
         120},
        {"recorder: queue full",
         [&] {
             recording_->queue_was_full();
             ++sequence_;
             now_ms_ += 40;
             camera_ms_ += 40;
         },
         40},
        {"network: unreachable",
         [&] {
             recording_->trouble(now_ms_, Cause::kLost, "");
             recording_->trouble(now_ms_, Cause::kUnreachable, "x");
             restart();
         },
         2000},
        {"camera: sound but no picture", [&] { quiet(10, true, false); }, 10'000},
        {"network: stalled", [&] { quiet(5, false, true); }, 5000},
        {"camera: silent",
         [&] {
             recording_->trouble(now_ms_ - 1, Cause::kLost, "");
             quiet(9, false, false);
         },
         9000},
        {"recorder: disk full",
         [&] {
             disk_trouble_ = {Cause::kDiskFull, "No space"};
             pictures(kH264, load(kH264), 40, 10);
             disk_trouble_.reset();
         },
         400},
    };
    const auto units = load(kH264);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.cause);
        camera_ms_ = 4'000'000;
        begin();
        pictures(kH264, units, 0, 40);
        c.happen();
        pictures(kH264, units, 40, 40);
        const auto segments = finished();
        ASSERT_THAT(segments, SizeIs(2));
        EXPECT_EQ(segments[0].frames, 40u);
        EXPECT_EQ(segments[1].frames, 30u) << "from the key frame on";
        ASSERT_FALSE(gap_causes().empty());
        EXPECT_EQ(gap_causes().back(), c.cause);
        EXPECT_EQ(segments[1].from - *segments[0].to, c.length + 10 * 40);
        const RecordingReport report = recording_->report();
        EXPECT_EQ(report.footage, 40 * 40 + 30 * 40);
        EXPECT_EQ(report.watched, report.footage + c.length + 10 * 40);
    }
}

TEST_F(RecordingTest, SaysWhatNeverCame) {
    struct Case {
        const char* cause;
        std::function<void()> happen;
    };
    constexpr Clip kNoSize = {"h264-main.h264", "h264", 0, "h264", 0, 0};
    for (const Case& c :
         {Case{"network: unreachable", [&] { recording_->trouble(now_ms_, Cause::kUnreachable, ""); }},
          Case{"network: unreachable", [&] { now_ms_ += 6000; }},
          Case{"camera: silent",
               [&] {
                   recording_->stream_opened(now_ms_);
                   now_ms_ += 6000;
                   recording_->tick(now_ms_);
               }},
          Case{"camera: pictures missing", [&] { pictures(kNoSize, load(kH264), 0, 60); }}}) {
        begin();
        const Ms began = anchor_.utc(now_ms_);
        c.happen();
        now_ms_ += 1000;
        EXPECT_THAT(finished(), SizeIs(0));
        EXPECT_THAT(gap_causes(), ElementsAre(c.cause));
        EXPECT_EQ(ledger_->gaps()[0].from, began);
    }
}

}  // namespace
}  // namespace lenswire::recorder
