// lenswire-cost-recorder FOLDER CLIPS: the whole recorder's work on the frames of two streams, from the
// socket to the ledger, on one thread and by a clock of its own, for callgrind to count. Prints the count of
// frames. What the recorder does on threads of its own is done here at the end of each pass, in the same
// pieces.
#include <unistd.h>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bench/cost/work.h"
#include "camera/media/frame_source.h"
#include "recorder/archive/keeper.h"
#include "recorder/host/host.h"

namespace lenswire::bench::cost {

namespace {

using namespace recorder;
using camera::Clip;
using camera::Frame;
using camera::FrameSource;

constexpr int kStreams = 2;
constexpr int64_t kStepUs = 40'000;
constexpr Ms kSegment = 4'000;
constexpr int kWarmUpSteps = 100;
constexpr int kCountedSteps = 400;

// What recordings say, until the keeper takes it.
class Notes : public NoteTaker {
  public:
    void take(std::vector<Note> notes) override {
        for (Note& note : notes) waiting.push_back(std::move(note));
    }
    std::optional<Trouble> trouble() const override { return std::nullopt; }
    std::vector<Note> waiting;
};

std::unique_ptr<FrameSource> play(const std::string& clips) {
    std::string error;
    camera::StreamConfig config;
    config.video = Clip::open(clips + "/h264-main.h264", &error);
    config.audio = Clip::open(clips + "/tone.alaw", &error);
    auto source = FrameSource::make(config, 0);
    if (source == nullptr) throw std::runtime_error("the clips cannot be played: " + error);
    return source;
}

class Recorder {
  public:
    Recorder(const std::string& folder, const std::string& clips)
        : disk_(folder), ledger_(folder + "/ledger.db"), keeper_(disk_, ledger_, {}, {"one", "two"}) {
        worker_.stop();  // its work is done in keep()
        for (int i = 0; i < kStreams; ++i) {
            const Recording::Target target{.stream = i, .title = "camera", .segment = kSegment};
            auto& stream = host_.add_stream(
                std::make_unique<RecorderStream>(i, 0, worker_, target, clock_, anchor_, notes_));
            arrayfd[i] = fds_[i] = dup(STDERR_FILENO);
            stream.describe(devchannelinfo[i], nullptr);
            stream.opened();
            sources_[i] = play(clips);
        }
    }

    void run(int steps) {
        run_receive_loop([this, steps]() mutable {
            keep();
            if (steps-- == 0) return false;
            network().now_us += kStepUs;
            for (int i = 0; i < kStreams; ++i) send(i);
            return true;
        });
    }

    uint64_t recorded() const {
        uint64_t frames = 0;
        for (const auto& stream : host_.streams()) frames += stream->recording().report().frames;
        return frames;
    }
    bool keeps_segments() { return disk_.list().size() > kStreams; }

  private:
    // A picture and the sound of its time, in one piece.
    void send(int stream) {
        const Frame picture = sources_[stream]->next();
        const Frame sound = sources_[stream]->next();
        network().brings(fds_[stream],
                         {to_bytes(picture.head), picture.payload, to_bytes(sound.head), sound.payload});
    }

    void keep() {
        for (const auto& stream : host_.streams()) stream->record_waiting_frames();
        for (Note& note : notes_.waiting) keeper_.take(note);
        notes_.waiting.clear();
        if (network().now_us < next_settling_us_) return;
        next_settling_us_ = network().now_us + 1'000'000;
        const Ms now = anchor_.utc(clock_.monotonic());
        keeper_.alive(now);
        keeper_.settle(now);
        work_off(keeper_.take_jobs());
        work_off(keeper_.take_digests());
    }

    void work_off(std::vector<Keeper::Job> jobs) {
        for (Keeper::Job& job : jobs) {
            Keeper::work(job, disk_);
            keeper_.done(std::move(job));
        }
    }

    Host host_;
    RealDisk disk_;
    Ledger ledger_;
    Keeper keeper_;
    SystemClock clock_;
    UtcAnchor anchor_{clock_.monotonic(), 1'795'442'700'000};
    Notes notes_;
    FrameWorker worker_;
    int fds_[kStreams]{};
    std::unique_ptr<FrameSource> sources_[kStreams];
    int64_t next_settling_us_ = 0;
};

int count_frames(const std::string& folder, const std::string& clips) {
    Recorder recorder(folder, clips);
    recorder.run(kWarmUpSteps);
    const uint64_t before = recorder.recorded();
    count_instructions([&] { recorder.run(kCountedSteps); });
    if (!recorder.keeps_segments()) throw std::runtime_error("no segments were finished");
    return static_cast<int>(recorder.recorded() - before);
}

}  // namespace
}  // namespace lenswire::bench::cost

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::fprintf(stderr, "%d\n", lenswire::bench::cost::count_frames(argv[1], argv[2]));
    std::fflush(nullptr);
    _exit(0);
}
