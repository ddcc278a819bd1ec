#include "recorder/archive/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>

#include "media.h"
#include "recorder/archive/keeper.h"
#include "recorder/archive/verify.h"
#include "support/folder.h"

namespace lenswire::recorder {
namespace {

using media::Bytes;
using testing::ElementsAre;
using testing::SizeIs;

struct Clip {
    const char* file;
    const char* codec;
    uint8_t head_code;
    int width = 640;
    int height = 360;
};
constexpr Clip kH264 = {"h264-main.h264", "h264", 0};
constexpr Clip kH264Small = {"h264-sub.h264", "h264", 0, 320, 180};
constexpr Clip kH265 = {"h265-main.h265", "hevc", 3};
constexpr Clip kJpeg = {"jpeg-main.mjpeg", "mjpeg", 2};
constexpr size_t kKeyDistance = 25;  // of the clips

const std::vector<Bytes>& load(const Clip& clip) {
    static std::map<std::string, std::vector<Bytes>> known;
    std::vector<Bytes>& units = known[clip.file];
    if (units.empty()) units = media::access_units(std::string(LENSWIRE_CLIPS "/") + clip.file, clip.codec);
    return units;
}

// Plays clips into a recording as the frame queue would, 25 pictures a second, and has a keeper write what
// comes of it: the ledger and the files are what is looked at.
class RecordingTest : public testing::Test, public NoteTaker {
  protected:
    void begin(Ms segment = 60'000) {
        recording_.reset();
        disk_.emplace(folder_.emplace().path());
        ledger_.emplace("");
        keeper_.emplace(*disk_, *ledger_, KeepLimits{}, std::vector<std::string>{"front"});
        recording_.emplace(Recording::Target{.stream = 0, .title = "front", .segment = segment}, anchor_,
                           *this, now_ms_);
        connect();
    }
    void connect() {
        sequence_ = 0;
        first_of_connection_ = true;
    }
    void wait(Ms length) {
        now_ms_ += length;
        camera_ms_ += static_cast<uint32_t>(length);
    }

    void pictures(const Clip& clip, size_t first, size_t count) {
        const auto& units = load(clip);
        StreamFrameHead head{};
        head.ucCodec = clip.head_code;
        head.usWidth = static_cast<uint16_t>(clip.width);
        head.usHeight = static_cast<uint16_t>(clip.height);
        head.ucFrameRate = 25;
        for (size_t i = first; i < first + count; ++i) {
            head.ulTimeStamp = camera_ms_;
            wait(40);
            frame(head, units[i % units.size()]);
        }
    }
    void sound(uint8_t fill = 1) {
        StreamFrameHead head{};
        head.ucKind = 1;
        head.ucCodec = 1;
        Bytes data(324, fill);
        std::ranges::copy(Bytes{0x00, 0x01, 0xA0, 0x00}, data.begin());
        frame(head, data);
    }

    // The segments that came of it, finished, in order of time; checked to add up with the gaps.
    std::vector<SegmentRow> finished() {
        recording_->finish(now_ms_);
        for (Keeper::Job& job : keeper_->take_jobs()) {
            Keeper::work(job, *disk_);
            keeper_->done(std::move(job));
        }
        keeper_->settle(anchor_.utc(now_ms_));
        Verdict verdict;
        verify_account(*ledger_, verdict, anchor_.utc(now_ms_), true);
        EXPECT_THAT(verdict.faults, SizeIs(0));
        return ledger_->segments();
    }
    std::vector<std::string> gap_causes() {
        std::vector<std::string> causes;
        for (const GapRow& row : ledger_->gaps()) causes.push_back(row.side + ": " + row.cause);
        return causes;
    }
    std::vector<media::Track> tracks_of(const SegmentRow& segment) const {
        return media::read_file(folder_->path(segment.path));
    }
    void happens(const std::string& story);

    std::optional<test::Folder> folder_;
    UtcAnchor anchor_{1'000'000, 1'795'442'700'000};
    std::optional<RealDisk> disk_;
    std::optional<Ledger> ledger_;
    std::optional<Keeper> keeper_;
    std::optional<Trouble> disk_trouble_;
    std::optional<Recording> recording_;
    uint16_t sequence_ = 0;
    uint32_t camera_ms_ = 0xFFFFFC00;  // its clock wraps after a second
    Ms now_ms_ = 1'000'000;

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

TEST_F(RecordingTest, CutsAtKeyFramesAndCopiesEveryAccessUnitUnchangedWithItsTime) {
    for (const Clip& clip : {kH264, kH265, kJpeg}) {
        SCOPED_TRACE(clip.file);
        begin(1500);
        const auto& units = load(clip);
        const bool jpeg = clip.head_code == kJpeg.head_code;
        pictures(clip, 10, 165);
        const auto segments = finished();
        size_t next = jpeg ? 10 : kKeyDistance;  // the first key frame
        EXPECT_EQ(recording_->report().skipped, next - 10);
        ASSERT_THAT(segments, SizeIs(jpeg ? 5 : 3));
        for (size_t i = 0; i < segments.size(); ++i) {
            const SegmentRow& segment = segments[i];
            EXPECT_EQ(segment.state, "finished");
            EXPECT_EQ(segment.path, "front/" + segment_name(segment.from));
            EXPECT_EQ(*segment.to - segment.from, static_cast<Ms>(segment.frames) * 40);
            EXPECT_EQ(segment.from, i == 0 ? segment.from : *segments[i - 1].to);
            const media::Track track = tracks_of(segment).at(0);
            EXPECT_EQ(track.packets.size(), segment.frames);
            EXPECT_EQ(std::tuple(track.codec, track.width, track.height, track.has_parameter_sets),
                      std::tuple(clip.codec, 640, 360, !jpeg));
            for (int64_t time = 0; const media::Packet& packet : track.packets) {
                const Bytes& unit = units[next % units.size()];
                ASSERT_EQ(packet.time_ms, std::exchange(time, time + 40));
                ASSERT_EQ(packet.key, jpeg || next % kKeyDistance == 0);
                ASSERT_EQ(jpeg ? std::vector<Bytes>{packet.data} : media::units_of_packet(packet.data),
                          jpeg ? std::vector<Bytes>{unit} : media::units_of_annex_b(unit));
                ++next;
            }
        }
        EXPECT_EQ(next, 175u);
        EXPECT_THAT(gap_causes(), SizeIs(0));
    }
}

TEST_F(RecordingTest, PutsSoundWithoutItsPrefixBesideThePictures) {
    begin();
    for (uint8_t i = 0; i < 30; ++i) {
        sound(i);
        pictures(kH264, i, 1);
    }
    const auto segments = finished();
    EXPECT_EQ(recording_->report().skipped, 1u) << "sound before the first picture";
    EXPECT_EQ(recording_->report().audio_frames, 29u);
    ASSERT_THAT(segments, SizeIs(1));
    const auto tracks = tracks_of(segments[0]);
    ASSERT_THAT(tracks, SizeIs(2));
    EXPECT_EQ(tracks[1].codec, "pcm_alaw");
    EXPECT_EQ(tracks[1].sample_rate, 8000);
    ASSERT_THAT(tracks[1].packets, SizeIs(29));
    for (uint8_t i = 0; i < 29; ++i) {
        EXPECT_EQ(tracks[1].packets[i].data, Bytes(320, i + 1));
        EXPECT_EQ(tracks[1].packets[i].time_ms, i * 40);
    }
    EXPECT_THAT(tracks[0].packets, SizeIs(30));
}

TEST_F(RecordingTest, BeginsASegmentWhereTheStreamChanges) {
    begin();
    pictures(kH264, 0, 30);
    pictures(kH264Small, 0, 30);  // another size
    pictures(kH265, 0, 35);       // another codec
    sound();
    pictures(kH265, 35, 30);  // sound came late: from the next key frame on
    const auto segments = finished();
    ASSERT_THAT(segments, SizeIs(4));
    EXPECT_EQ(tracks_of(segments[1]).at(0).width, 320);
    EXPECT_THAT(tracks_of(segments[2]).at(0).packets, SizeIs(50));
    EXPECT_THAT(tracks_of(segments[3]), SizeIs(2));
    EXPECT_THAT(gap_causes(), SizeIs(0));
}

// What happens, in words.
void RecordingTest::happens(const std::string& story) {
    const auto quiet = [&](int seconds, bool sounds) {
        for (int i = 0; i < seconds; ++i) {
            if (sounds) sound();
            wait(1000);
            recording_->tick(now_ms_);
        }
    };
    const std::map<std::string, std::function<void(int)>> verbs = {
        {"connect", [&](int) { connect(); }},
        {"wait", [&](int ms) { wait(ms); }},
        {"restart", [&](int) { camera_ms_ = 5; }},
        {"skip", [&](int count) { sequence_ = static_cast<uint16_t>(sequence_ + count); }},
        {"full", [&](int) { recording_->queue_was_full(); }},
        {"lost", [&](int) { recording_->trouble(now_ms_, Cause::kLost, ""); }},
        {"unreachable", [&](int) { recording_->trouble(now_ms_, Cause::kUnreachable, "x"); }},
        {"opened", [&](int) { recording_->stream_opened(now_ms_); }},
        {"in-packet", [&](int) { recording_->stopped_in_packet(true); }},
        {"sound", [&](int seconds) { quiet(seconds, true); }},
        {"quiet", [&](int seconds) { quiet(seconds, false); }},
        {"no-disk",
         [&](int) {
             disk_trouble_ = {Cause::kDiskFull, "No space"};
         }},
        {"disk", [&](int) { disk_trouble_.reset(); }},
        {"pictures", [&](int count) { pictures(kH264, 40, static_cast<size_t>(count)); }},
        {"no-size", [&](int) {
             pictures({"h264-main.h264", "h264", 0, 0, 0}, 0, 60);
         }}};
    std::istringstream words(story);
    for (std::string word; words >> word;) {
        const size_t mark = word.find('=');
        verbs.at(word.substr(0, mark))(mark == word.npos ? 0 : std::stoi(word.substr(mark + 1)));
    }
}

// What interrupts a stream of 40 pictures, and what the ledger says of it.
TEST_F(RecordingTest, AccountsForEveryInterruption) {
    const std::tuple<const char*, const char*, Ms> cases[] = {
        // and how long it lasts, from the last picture's end to the next key frame
        {"wait=2000 connect", "network: connection lost", 2000},
        {"restart lost wait=3000 connect", "camera: restarted", 3000},
        {"wait=20000", "camera: silent", 20'000},
        {"wait=3000 lost wait=2000 connect", "camera: silent", 5000},
        {"skip=3 wait=120", "camera: pictures missing", 120},
        {"full skip=1 wait=40", "recorder: queue full", 40},
        {"lost unreachable lost wait=2000 connect", "network: unreachable", 2000},
        {"opened sound=10", "camera: sound but no picture", 10'000},
        {"opened in-packet quiet=5", "network: stalled", 5000},
        {"lost wait=1 opened quiet=9", "camera: silent", 9001},
        {"no-disk pictures=10 disk", "recorder: disk full", 400},
    };
    for (const auto& [story, cause, length] : cases) {
        SCOPED_TRACE(story);
        camera_ms_ = 4'000'000;
        begin();
        pictures(kH264, 0, 40);
        happens(story);
        pictures(kH264, 40, 40);
        const auto segments = finished();
        ASSERT_THAT(segments, SizeIs(2));
        EXPECT_EQ(segments[0].frames, 40u);
        EXPECT_EQ(segments[1].frames, 30u) << "from the key frame on";
        ASSERT_FALSE(gap_causes().empty());
        EXPECT_EQ(gap_causes().back(), cause);
        EXPECT_EQ(segments[1].from - *segments[0].to, length + 10 * 40);
        const RecordingReport report = recording_->report();
        EXPECT_EQ(report.footage, 40 * 40 + 30 * 40);
        EXPECT_EQ(report.watched, report.footage + length + 10 * 40);
    }
}

TEST_F(RecordingTest, SaysWhatNeverCame) {
    for (const auto& [story, cause] : {std::pair{"unreachable", "network: unreachable"},
                                       {"wait=6000", "network: unreachable"},
                                       {"opened quiet=6", "camera: silent"},
                                       {"no-size", "camera: pictures missing"}}) {
        begin();
        const Ms began = anchor_.utc(now_ms_);
        happens(story);
        now_ms_ += 1000;
        EXPECT_THAT(finished(), SizeIs(0));
        EXPECT_THAT(gap_causes(), ElementsAre(cause));
        EXPECT_EQ(ledger_->gaps()[0].from, began);
    }
}

}  // namespace
}  // namespace lenswire::recorder
