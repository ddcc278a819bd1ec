// Whole recordings: simulated cameras in this process, the library loaded as the program loads it.
#include "recorder/session/recording_session.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "media.h"
#include "program.h"
#include "recorder/support/failure.h"
#include "support/capture.h"

namespace lenswire::recorder {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::SizeIs;

const char kClip[] = LENSWIRE_CLIPS "/h264-main.h264";

class RecordingSessionTest : public ProgramTest {
  protected:
    void record() {
        session_.emplace(RecordingSession::Options{.cameras = camera_addresses(addresses_, ""),
                                                   .directory = folder_.path(),
                                                   .library = LENSWIRE_LIBRARY,
                                                   .database = ""});
    }
    // Watches until what is expected of a stream holds; false after a long time.
    bool until(size_t index, const std::function<bool(const StreamStatus&)>& holds) {
        return test::wait_until([&] { return holds(session_->status().at(index)); });
    }
    bool until_pictures(size_t index, uint64_t count) {
        return until(index, [count](const StreamStatus& s) { return s.recording.pictures >= count; });
    }

    std::optional<RecordingSession> session_;
};

// The first camera is switched off and on again, the stream of the second breaks off, the third has sound and
// sees motion. The library takes a packet out when more has followed, so each stream's last one stays behind.
TEST_F(RecordingSessionTest, RecordsEveryFrameOfSeveralCamerasWhateverHappensToTheOthers) {
    for (int i = 0; i < 3; ++i) add_camera({}, kClip, 201, i == 2 ? LENSWIRE_CLIPS "/tone.alaw" : "");
    camera::StreamFault fault;
    fault.kind = camera::StreamFaultKind::kCloseMid;
    fault.at_frame = 60;
    farm_[1].add_fault(fault);
    record();
    const uint64_t pictures[] = {200, 60 + 200, 200};
    for (size_t i = 0; i < 3; ++i) ASSERT_TRUE(until_pictures(i, pictures[i])) << i;
    EXPECT_THAT(session_->status()[1].recording.gaps, testing::ElementsAre(testing::Key(Cause::kLost)));
    EXPECT_THAT(session_->status()[2].recording.gaps, SizeIs(0));
    for (const uint8_t state : {1, 0}) {
        farm_[2].push_motion(state);
        ASSERT_TRUE(
            until(2, [&](const auto& s) { return s.motion.motions == 1 && s.motion.motion == state; }));
    }
    farm_[0].stop();
    std::string error;
    ASSERT_TRUE(farm_[0].start(&error)) << error;
    ASSERT_TRUE(until_pictures(0, 400));
    session_->tick();
    session_->stop();
    const auto clip = media::access_units(kClip, "h264");
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const StreamStatus status = session_->status()[i];
        EXPECT_EQ(status.lost() + status.recording.skipped, 0u);
        EXPECT_EQ(status.view.restarts > 0, i != 2);
        if (i > 0) {
            EXPECT_EQ(farm_[i].stats().logins, 1u);
            EXPECT_EQ(farm_[i].stats().connections, 4 - i) << "one control connection, and the streams";
        }
        const auto files = Ledger(folder_.path("lenswire.db")).segments(status.title);
        ASSERT_THAT(files, SizeIs(i == 2 ? 1 : 2));
        for (const SegmentRow& file : files) {
            EXPECT_EQ(file.state, "finished");
            const auto tracks = media::read_file(folder_.path(file.path));
            ASSERT_THAT(tracks, SizeIs(i == 2 ? 2 : 1));
            ASSERT_GE(tracks[0].packets.size(), i == 1 && file.from == files[0].from ? 60u : 200u);
            for (size_t k = 0; k < tracks[0].packets.size(); ++k) {
                ASSERT_EQ(media::units_of_packet(tracks[0].packets[k].data),
                          media::units_of_annex_b(clip[k % clip.size()]));
            }
        }
    }
    const auto events = session_->events();
    EXPECT_THAT(events, Contains("motion on channel 2"));
    EXPECT_THAT(events, Contains("motion ended on channel 2"));
}

// What the process has that a session must give back.
std::tuple<int, int, bool> belongings() {
    void* loaded = dlopen(LENSWIRE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (loaded != nullptr) dlclose(loaded);
    return {test::open_descriptors(), test::thread_count(), loaded != nullptr};
}

TEST_F(RecordingSessionTest, LeavesNothingBehindWhenItStops) {
    for (int i = 0; i < 4; ++i) add_camera({}, kClip, 30);
    std::optional<std::tuple<int, int, bool>> first;
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
        EXPECT_EQ(belongings(), first);
        EXPECT_FALSE(std::get<2>(*first)) << "the library is still there";
    }
}

TEST_F(RecordingSessionTest, SaysInOneLineWhyItCannotBegin) {
    const std::string one = "a:b@127.0.0.1:1", other = "a:b@127.0.0.2:1";
    using Texts = std::vector<std::string>;
    const std::tuple<Texts, Texts, std::string, const char*> cases[] = {
        {{one}, {}, folder_.path("none.so"), "cannot be loaded"},
        {{one}, {}, "libm.so.6", "libm.so.6: the library has no "},
        {{one + "/0/1", one, one + "/0/1"},
         {},
         LENSWIRE_LIBRARY,
         "two streams would be called 127.0.0.1-1-sub"},
        {{one, one}, {"front", "back"}, LENSWIRE_LIBRARY, "the same stream is listed twice"},
        {{one, other}, {"front", "front"}, LENSWIRE_LIBRARY, "two streams would be called front"}};
    for (const auto& [cameras, names, library, words] : cases) {
        try {
            RecordingSession({.cameras = camera_addresses(cameras, ""),
                              .names = names,
                              .directory = folder_.path(),
                              .library = library,
                              .database = ""});
            ADD_FAILURE() << words;
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr(words));
        }
    }
}

}  // namespace
}  // namespace lenswire::recorder
