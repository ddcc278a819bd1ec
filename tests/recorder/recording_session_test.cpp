// Whole recordings: simulated cameras in this process, the library loaded as the program loads it.
#include "recorder/session/recording_session.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "camera/serve/farm.h"
#include "media.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::SizeIs;

class RecordingSessionTest : public testing::Test {
  protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        directory_ = fs::path(testing::TempDir()) / (std::string("lenswire-") + info->name());
        fs::remove_all(directory_);
        fs::create_directories(directory_);
    }
    void TearDown() override {
        session_.reset();
        fs::remove_all(directory_);
    }

    // A camera that sends `frames` pictures as fast as they are taken, then nothing.
    camera::Camera& add_camera(uint64_t frames, bool audio = false) {
        camera::CameraConfig config;
        config.address = camera::address_above("127.0.0.1", static_cast<uint32_t>(farm_.size()));
        std::string error;
        for (camera::StreamConfig& stream : config.streams) {
            stream.video = camera::Clip::open(LENSWIRE_CLIPS "/h264-main.h264", &error);
            if (audio) stream.audio = camera::Clip::open(LENSWIRE_CLIPS "/tone.alaw", &error);
            stream.pace = camera::Pace::kUnpaced;
            stream.max_frames = frames;
        }
        camera::Camera* camera = farm_.add(config, &error);
        EXPECT_NE(camera, nullptr) << error;
        return *camera;
    }

    void record() {
        RecordingSession::Options options;
        for (size_t i = 0; i < farm_.size(); ++i) {
            const camera::Camera& camera = farm_[i];
            const std::string text = "admin:admin@" + camera.address() + ":" + std::to_string(camera.port());
            options.cameras.push_back(camera_addresses({text}, "").front());
        }
        options.directory = directory_;
        options.library = LENSWIRE_LIBRARY;
        session_.emplace(options);
    }

    // Watches until what is expected of a stream holds; false after a long time.
    bool until(size_t index, const std::function<bool(const StreamStatus&)>& holds) {
        const auto patience_ends = std::chrono::steady_clock::now() + 30s;
        while (!holds(session_->status().at(index))) {
            if (std::chrono::steady_clock::now() > patience_ends) return false;
            std::this_thread::sleep_for(5ms);
        }
        return true;
    }
    bool until_pictures(size_t index, uint64_t count) {
        return until(index, [count](const StreamStatus& s) { return s.recording.pictures >= count; });
    }

    StreamStatus stopped(size_t index) {
        session_->stop();
        return session_->status().at(index);
    }

    // The finished segments of a stream, in order of time.
    std::vector<SegmentRow> segments(size_t index) {
        return Ledger(directory_ / "lenswire.db").segments(session_->status().at(index).title);
    }

    fs::path directory_;
    camera::CameraFarm farm_;
    std::optional<RecordingSession> session_;
};

// The library takes a packet out when more has followed, so each stream's last one stays behind.
TEST_F(RecordingSessionTest, RecordsEveryFrameOfSeveralCameras) {
    for (int i = 0; i < 3; ++i) add_camera(201, i == 2);
    record();
    for (size_t i = 0; i < 3; ++i) ASSERT_TRUE(until_pictures(i, 200)) << i;
    session_->stop();
    const auto clip = media::access_units(LENSWIRE_CLIPS "/h264-main.h264", "h264");
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const StreamStatus status = session_->status()[i];
        EXPECT_EQ(status.lost() + status.recording.skipped, 0u);
        EXPECT_THAT(status.recording.gaps, SizeIs(0));
        const auto files = segments(i);
        ASSERT_THAT(files, SizeIs(1));
        EXPECT_EQ(files[0].state, "finished");
        const auto tracks = media::read_file(directory_ / files[0].path);
        ASSERT_THAT(tracks, SizeIs(i == 2 ? 2 : 1));
        ASSERT_GE(tracks[0].packets.size(), 200u);
        for (size_t k = 0; k < tracks[0].packets.size(); ++k) {
            ASSERT_EQ(media::units_of_packet(tracks[0].packets[k].data),
                      media::units_of_annex_b(clip[k % clip.size()]));
        }
    }
}

TEST_F(RecordingSessionTest, BeginsASegmentWhenAStreamBreaks) {
    camera::Camera& camera = add_camera(100);
    camera::StreamFault fault;
    fault.kind = camera::StreamFaultKind::kCloseMid;
    fault.at_frame = 60;
    camera.add_fault(fault);
    record();
    ASSERT_TRUE(until_pictures(0, 60 + 99));
    const StreamStatus status = stopped(0);
    EXPECT_EQ(status.view.restarts, 1u);
    EXPECT_EQ(camera.stats().logins, 1u) << "the control connection was sound";
    EXPECT_EQ(status.recording.missing, 0u);
    EXPECT_THAT(segments(0), SizeIs(2));
    EXPECT_EQ(status.recording.video_frames, 159u);
    EXPECT_THAT(status.recording.gaps, testing::ElementsAre(testing::Key(Cause::kLost)));
}

TEST_F(RecordingSessionTest, RecordsACameraAgainThatWasSwitchedOffAndOnAndLeavesTheOthersAlone) {
    camera::Camera& broken = add_camera(50);
    camera::Camera& sound = add_camera(50);
    record();
    ASSERT_TRUE(until_pictures(0, 49));
    ASSERT_TRUE(until_pictures(1, 49));
    broken.stop();
    std::string error;
    ASSERT_TRUE(broken.start(&error)) << error;
    ASSERT_TRUE(until_pictures(0, 98));
    session_->stop();
    const auto streams = session_->status();
    EXPECT_GE(streams[0].view.restarts, 1u);
    EXPECT_EQ(streams[1].view.restarts, 0u);
    EXPECT_EQ(sound.stats().logins, 1u);
    EXPECT_EQ(sound.stats().connections, 2u) << "one control connection, one stream";
}

TEST_F(RecordingSessionTest, ShowsMotion) {
    camera::Camera& camera = add_camera(10);
    record();
    ASSERT_TRUE(until_pictures(0, 9));
    camera.push_motion(1);
    ASSERT_TRUE(until(0, [](const StreamStatus& s) { return s.motion.motions == 1; }));
    camera.push_motion(0);
    ASSERT_TRUE(until(0, [](const StreamStatus& s) { return !s.motion.motion; }));
    session_->tick();
    session_->stop();
    EXPECT_THAT(session_->events(),
                AllOf(Contains("motion on channel 0"), Contains("motion ended on channel 0")));
}

// What the process has that a session must give back.
struct Belongings {
    size_t descriptors = 0, threads = 0;
    bool library_loaded = false;
    bool operator==(const Belongings&) const = default;
};

Belongings belongings() {
    const auto count = [](const char* folder) {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    };
    void* loaded = dlopen(LENSWIRE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (loaded != nullptr) dlclose(loaded);
    return {count("/proc/self/fd"), count("/proc/self/task"), loaded != nullptr};
}

TEST_F(RecordingSessionTest, LeavesNothingBehindWhenItStops) {
    for (int i = 0; i < 4; ++i) add_camera(30);
    std::optional<Belongings> first;
    for (int round = 0; round < 4; ++round) {
        record();
        for (size_t i = 0; i < 4; ++i) ASSERT_TRUE(until_pictures(i, 29));
        session_.reset();
        for (size_t i = 0; i < 4; ++i) {
            // The camera's own ends of the connections are descriptors of this process, too.
            ASSERT_TRUE(farm_[i].wait([](const camera::CameraStats& stats) {
                return stats.control_open == 0 && stats.streams_open == 0;
            }));
        }
        if (!first) first = belongings();
        EXPECT_EQ(belongings().descriptors, first->descriptors);
        EXPECT_EQ(belongings().threads, first->threads);
        EXPECT_FALSE(belongings().library_loaded);
    }
}

TEST_F(RecordingSessionTest, SaysInOneLineWhatALibraryLacks) {
    const auto failure_of = [this](const std::string& library) -> std::string {
        RecordingSession::Options options;
        options.cameras = camera_addresses({"admin:admin@127.0.0.1:1"}, "");
        options.directory = directory_;
        options.library = library;
        try {
            RecordingSession session(options);
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "";
    };
    EXPECT_THAT(failure_of(directory_ / "none.so"), HasSubstr("cannot be loaded"));
    EXPECT_THAT(failure_of("libm.so.6"), HasSubstr("libm.so.6: the library has no "));
}

TEST_F(RecordingSessionTest, RefusesAStreamOrANameThatIsListedTwice) {
    RecordingSession::Options options;
    options.cameras =
        camera_addresses({"a:b@127.0.0.1:1/0/1", "a:b@127.0.0.1:1/0/0", "a:b@127.0.0.1:1/0/1"}, "");
    options.directory = directory_;
    options.library = LENSWIRE_LIBRARY;
    EXPECT_THROW(RecordingSession{options}, Failure);
    options.cameras = camera_addresses({"a:b@127.0.0.1:1", "a:b@127.0.0.2:1"}, "");
    options.names = {"front", "front"};
    EXPECT_THROW(RecordingSession{options}, Failure) << "or two of one name";
}

}  // namespace
}  // namespace lenswire::recorder
