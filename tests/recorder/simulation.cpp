// archive_simulation [--seed N] [--seeds COUNT] [--cameras N] [--hours N] [--frame SECONDS] [--segment
// SECONDS]
//                    [--limit SECONDS] [--jobs N]
//
// Cameras over days in virtual time: outages, flapping, silence, lying clocks, restarts and power cuts of the
// recorder, full disks, a wall clock that is set. After every incident and every simulated quarter of an hour
// the ledger must add up, name only what there is, and stay below the quota. A seed that fails is printed as
// the command that shows it again.
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <iostream>
#include <new>
#include <optional>
#include <sstream>

#include "media.h"
#include "recorder/archive/keeper.h"
#include "recorder/archive/recording.h"
#include "recorder/archive/verify.h"
#include "sim_disk.h"

namespace lenswire::recorder {
namespace {

namespace fs = std::filesystem;

struct Scale {
    int cameras = 4;
    int hours = 6;
    Ms frame = 2000;  // between pictures; every fifth is a key frame
    Ms segment = 60'000;
};

constexpr Ms kAlive = 4000;  // less often than a recorder says so: each costs a transaction
constexpr size_t kBufferPerCamera = 64 * 1024;
constexpr Ms kDay = 86'400'000;
constexpr uint64_t kQuotaPerCamera = 400'000;

// A camera, its clock, and what it is up to.
struct Camera {
    enum class State { kStreams, kSilent, kAway, kRefuses };
    State state = State::kStreams;
    Ms until = 0;
    double rate = 1;
    uint32_t clock = 0;
    bool clock_stands = false;
    bool first_of_connection = true;
    uint16_t sequence = 0;
    unsigned picture = 0;
};

// A board whose monotonic clock runs fast or slow, and whose wall clock is right but for being set.
struct Board : ArchiveClock {
    Ms monotonic() const override { return 5'000'000 + elapsed + elapsed * drift_ppm / 1'000'000; }
    Ms wall() const override { return 1'795'442'700'000 + elapsed + set; }
    Ms elapsed = 0, set = 0;
    Ms drift_ppm = 0;
};

class Simulation : public NoteTaker {
  public:
    Simulation(unsigned seed, const Scale& scale, const std::vector<media::Bytes>& clip)
        : random_(seed),
          scale_(scale),
          clip_(clip),
          folder_(make_folder(seed)),
          ledger_file_(folder_ / "ledger.db"),
          ledger_holder_(ledger_file_),
          quota_(kQuotaPerCamera * static_cast<uint64_t>(scale.cameras)),
          disk_(quota_ * 2, folder_ / "scratch"),
          cameras_(static_cast<size_t>(scale.cameras)) {
        for (size_t i = 0; i < cameras_.size(); ++i) names_.push_back("camera" + std::to_string(i));
        board_.drift_ppm = static_cast<Ms>(random_() % 1001) - 500;
    }
    ~Simulation() {
        recordings_.clear();
        stop();
        fs::remove_all(folder_);
    }

    // What went wrong first; empty when nothing did.
    std::string run() {
        try {
            live_on();
        } catch (const std::exception& error) {
            fault(error.what());
        }
        return fault_;
    }

    uint64_t frames() const { return frames_; }

  private:
    void live_on() {
        start();
        const Ms end = Ms{scale_.hours} * 3'600'000;
        for (; board_.elapsed < end && fault_.empty(); advance(scale_.frame)) {
            for (size_t i = 0; i < cameras_.size(); ++i) live(i);
            keep();
            if (chance(7200)) incident();
            if (board_.elapsed % 900'000 < scale_.frame) check("in passing");
        }
        if (fault_.empty()) end_run();
        check("at the end");
    }
    static fs::path make_folder(unsigned seed) {
        const fs::path base = fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path();
        const fs::path folder =
            base / ("lenswire-simulation-" + std::to_string(getpid()) + "-" + std::to_string(seed));
        fs::create_directories(folder);
        return folder;
    }
    bool chance(unsigned one_in) { return random_() % one_in == 0; }
    void advance(Ms length) {
        board_.elapsed += length;
        mono_ = clock_->monotonic();
    }

    void start() {
        clock_.emplace(board_);
        mono_ = clock_->monotonic();
        ledger_.emplace(ledger_file_);
        keeper_.emplace(disk_, *ledger_, KeepLimits{.quota = quota_, .free_share = 0.1}, names_);
        keeper_->reopen(UtcAnchor(mono_, board_.wall(), ledger_->last_instant()).utc(mono_));
        anchor_.emplace(mono_, board_.wall(), ledger_->last_instant());
        ahead_at_start_ = anchor_->utc(mono_) - board_.elapsed;
        for (size_t i = 0; i < cameras_.size(); ++i) {
            const auto number = static_cast<int>(i);
            cameras_[i].first_of_connection = true;
            recordings_.push_back(
                std::make_unique<Recording>(Recording::Target{.stream = number,
                                                              .title = names_[i],
                                                              .segment = scale_.segment,
                                                              .resumes = keeper_->resumes(number)},
                                            *anchor_, *this, mono_));
        }
        check("after a start");
    }
    void stop() {
        waiting_.clear();
        buffered_ = 0;
        choked_ = false;
        jobs_.clear();
        keeper_.reset();
        ledger_.reset();
    }
    // As a kill or a power cut leaves it.
    void crash(bool power) {
        // Recordings end first, but what they would say now is heard by nobody.
        deaf_ = true;
        recordings_.clear();
        deaf_ = false;
        stop();
        if (power) disk_.cut_power(random_);
        const Ms cut = anchor_->utc(mono_);
        const bool kept_up = mono_ - behind_at_ > 3 * scale_.frame;
        advance(static_cast<Ms>(random_() % 600'000));
        start();
        if (kept_up) check_loss(cut);
    }
    // A picture is posted with the next one, written then, and synced a step later; signs of life are rarer.
    void check_loss(Ms cut) {
        const Ms most = std::max(4 * scale_.frame, kAlive) + scale_.frame;
        for (const GapRow& gap : ledger_->gaps("", cut - 1, cut + 1)) {
            if (gap.cause == words_of(Cause::kNotRunning).words && gap.from < cut - most)
                fault(gap.stream + ": a cut took " + length_text(cut - gap.from));
        }
    }
    void end_run() {
        disk_.occupy(0);
        for (auto& recording : recordings_) recording->finish(mono_);
        for (int i = 0; i < 3; ++i) keep();
    }

    // One camera for the time of a picture.
    void live(size_t index) {
        Camera& camera = cameras_[index];
        Recording& recording = *recordings_[index];
        if (mono_ >= camera.until) change(camera, recording);
        if (!camera.clock_stands)
            camera.clock += static_cast<uint32_t>(static_cast<double>(scale_.frame) * camera.rate);
        if (camera.state == Camera::State::kAway)
            recording.trouble(mono_, Cause::kUnreachable, "no connection");
        if (camera.state == Camera::State::kRefuses) recording.trouble(mono_, Cause::kRefused, "");
        if (camera.state == Camera::State::kStreams) send(camera, recording);
        recording.tick(mono_);
    }
    void change(Camera& camera, Recording& recording) {
        using State = Camera::State;
        const State before = camera.state;
        const unsigned draw = random_() % 10;
        camera.state = draw < 6   ? State::kStreams
                       : draw < 7 ? State::kSilent
                       : draw < 9 ? State::kAway
                                  : State::kRefuses;
        const bool flaps = chance(4);
        camera.until = mono_ + static_cast<Ms>(random_() % (flaps ? 20'000 : 4'000'000));
        if (before != State::kStreams) return;
        if (camera.state == State::kAway || camera.state == State::kRefuses)
            recording.trouble(mono_, Cause::kLost, "");
        camera.first_of_connection = camera.state != State::kSilent;
        if (chance(5)) camera.clock = random_();  // set, or started anew
        if (chance(5)) camera.rate = 0.8 + 0.4 * static_cast<double>(random_() % 1000) / 1000;
        camera.clock_stands = chance(20);
    }
    void send(Camera& camera, Recording& recording) {
        if (chance(3000)) camera.sequence += 3;  // lost somewhere
        StreamFrameHead head{};
        head.usWidth = 320;
        head.usHeight = 180;
        head.ulTimeStamp = camera.clock;
        head.usSequence = camera.sequence++;
        const media::Bytes& data = clip_[camera.picture++ % clip_.size()];
        recording.frame(head, std::span(data).first(data.size() - 64),
                        std::exchange(camera.first_of_connection, false), mono_);
        ++frames_;
    }

    void incident() {
        const unsigned kind = random_() % 6;
        if (kind == 0) crash(false);
        if (kind == 1) crash(true);
        if (kind == 2) disk_.occupy(random_() % (quota_ * 2));
        if (kind == 3) disk_.occupy(0);
        if (kind == 4) set_clock((chance(2) ? 1 : -1) * (chance(2) ? Ms{3'600'000} : kDay));
        if (kind == 5) stalled_until_ = mono_ + static_cast<Ms>(random_() % 60'000);
        check("after incident " + std::to_string(kind));
    }

    // By a day at most behind what it was before: from a clock that was set back further a recorder takes it
    // that the later time was the wrong one, and records the days once more.
    void set_clock(Ms step) {
        board_.set = std::max(board_.set + step, most_set_ - kDay);
        most_set_ = std::max(most_set_, board_.set);
    }

    // The archive's two threads, one step of each.
    void keep() {
        if (mono_ < stalled_until_) {
            behind_at_ = mono_;
            return;
        }
        clock_->look();
        finish_jobs();
        error_ = 0;
        while (!waiting_.empty()) {
            error_ = keeper_->take(waiting_.front());
            if (keeper_->bytes() > quota_)
                return fault("the quota is exceeded by " + std::to_string(keeper_->bytes() - quota_));
            if (error_ != 0) break;
            buffered_ -= size_of(waiting_.front());
            waiting_.pop_front();
        }
        if (board_.elapsed % kAlive < scale_.frame) keeper_->alive(anchor_->utc(mono_));
        keeper_->settle(anchor_->utc(mono_));
        jobs_ = keeper_->take_jobs();
        std::ranges::move(keeper_->take_digests(), std::back_inserter(jobs_));
        if (error_ != 0) behind_at_ = mono_;
    }

    void finish_jobs() {
        for (Keeper::Job& job : jobs_) {
            Keeper::work(job, disk_);
            keeper_->done(std::move(job));
        }
        jobs_.clear();
    }

    static size_t size_of(const Note& note) {
        const auto* grows = std::get_if<SegmentGrows>(&note);
        return grows != nullptr ? grows->bytes.size() : 0;
    }
    void take(std::vector<Note> notes) override {
        if (deaf_) return;
        for (Note& note : notes) {
            buffered_ += size_of(note);
            waiting_.push_back(std::move(note));
        }
    }
    std::optional<Trouble> trouble() const override {
        const size_t buffer = kBufferPerCamera * cameras_.size();
        if (buffered_ <= buffer / 2) choked_ = false;
        if (buffered_ >= buffer) choked_ = true;
        if (!choked_) return std::nullopt;
        return Trouble{error_ != 0 ? Cause::kDiskFull : Cause::kDiskSlow, ""};
    }

    void check(const std::string& when) {
        if (!fault_.empty() || !ledger_) return;
        finish_jobs();
        keeper_->settle(anchor_->utc(mono_));
        const Ms off = anchor_->utc(mono_) - board_.elapsed - ahead_at_start_;
        if (std::abs(off) > 200) return fault(when + ": dated " + std::to_string(off) + " ms off");
        for (const SegmentRow& row : ledger_->segments()) {
            const int64_t size = disk_.size(row.path);
            if (size < 0) return fault(when + ": the ledger names " + row.path + ", which is not there");
            if (!row.to) continue;
            if (size != static_cast<int64_t>(row.bytes))
                return fault(when + ": " + row.path + " has another size");
            if (disk_.pictures(row.path).value_or(row.frames) != row.frames)
                return fault(when + ": " + row.path + " does not hold " + std::to_string(row.frames) +
                             " pictures");
            const Ms length = *row.to - row.from;
            if (std::abs(length - static_cast<Ms>(row.frames) * scale_.frame) > 10 * scale_.frame)
                return fault(when + ": " + row.path + " lasts " + length_text(length) + " with " +
                             std::to_string(row.frames) + " pictures");
        }
        Verdict verdict;
        verify_account(*ledger_, verdict, anchor_->utc(mono_), true);
        if (!verdict.faults.empty()) fault(when + ": " + verdict.faults.front());
    }
    void fault(const std::string& text) {
        if (fault_.empty()) fault_ = utc_text(anchor_->utc(mono_)) + " " + text;
    }

    std::mt19937 random_;
    Scale scale_;
    const std::vector<media::Bytes>& clip_;
    fs::path folder_;
    std::string ledger_file_;
    Database ledger_holder_;  // it goes with the last who has it open
    uint64_t quota_;
    SimDisk disk_;
    std::vector<Camera> cameras_;
    std::vector<std::string> names_;
    Board board_;
    std::optional<SteeredClock> clock_;
    Ms mono_ = 0;  // as it is steered
    Ms ahead_at_start_ = 0;
    Ms most_set_ = 0;  // of the wall clock, since the beginning
    std::optional<UtcAnchor> anchor_;
    std::optional<Ledger> ledger_;
    std::optional<Keeper> keeper_;
    std::vector<std::unique_ptr<Recording>> recordings_;
    std::deque<Note> waiting_;
    size_t buffered_ = 0;
    mutable bool choked_ = false;
    bool deaf_ = false;
    int error_ = 0;
    Ms stalled_until_ = 0;
    Ms behind_at_ = 0;  // when the disk last did not keep up
    std::vector<Keeper::Job> jobs_;
    uint64_t frames_ = 0;
    std::string fault_;
};

// Key frames every five pictures, and the padding that the writer wants.
std::vector<media::Bytes> load_clip() {
    std::vector<media::Bytes> units = media::access_units(LENSWIRE_CLIPS "/h264-sub.h264", "h264");
    if (units.size() < 5) throw std::runtime_error("the clip cannot be read");
    units.resize(5);
    for (media::Bytes& unit : units) unit.resize(unit.size() + 64);
    return units;
}

// What the processes that share the seeds tell each other.
struct Tally {
    std::atomic<unsigned> begun{0}, done{0}, failed{0};
    std::atomic<uint64_t> frames{0};
};

struct Work {
    unsigned first = 1, count = 1, jobs = 1;
    double frame = 2, segment = 60, limit = 0;
    Scale scale;
};

void run_seeds(const Work& work, Tally& tally, const char* program) {
    const auto clip = load_clip();
    const auto began = std::chrono::steady_clock::now();
    const auto taken = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - began);
    };
    while (work.limit <= 0 || taken().count() < work.limit) {
        const unsigned number = tally.begun++;
        if (number >= work.count) return;
        Simulation simulation(work.first + number, work.scale, clip);
        const std::string fault = simulation.run();
        tally.frames += simulation.frames();
        ++tally.done;
        if (fault.empty()) continue;
        ++tally.failed;
        std::ostringstream text;  // in one piece, since others write, too
        text << fault << "\n  " << program << " --seed " << work.first + number << " --cameras "
             << work.scale.cameras << " --hours " << work.scale.hours << " --frame " << work.frame
             << " --segment " << work.segment << "\n";
        std::cout << text.str() << std::flush;
    }
}

void share_seeds(const Work& work, Tally& tally, const char* program) {
    for (unsigned i = 1; i < work.jobs; ++i) {
        if (fork() != 0) continue;
        run_seeds(work, tally, program);
        _exit(0);
    }
    run_seeds(work, tally, program);
    for (int status = 0; wait(&status) > 0;) {
        if (status == 0) continue;
        ++tally.failed;
        std::cout << "a process ended with status " << status << std::endl;
    }
}

int simulate(int argc, char** argv) {
    CLI::App app("Simulates recordings over days");
    Work work;
    const auto option = [&app](const char* name, auto& value, const char* text = "") {
        return app.add_option(name, value, text)->capture_default_str();
    };
    option("--seed", work.first, "The first seed");
    option("--seeds", work.count, "How many");
    option("--cameras", work.scale.cameras);
    option("--hours", work.scale.hours);
    option("--frame", work.frame, "Seconds between pictures, 2 at most")->check(CLI::Range(0.04, 2.0));
    option("--segment", work.segment, "Seconds of a file")->check(CLI::Range(1.0, 3600.0));
    option("--limit", work.limit, "Begin no other seed after so many seconds; 0: never");
    option("--jobs", work.jobs, "Processes")->check(CLI::Range(1, 64));
    CLI11_PARSE(app, argc, argv);
    work.scale.frame = static_cast<Ms>(work.frame * 1000);
    work.scale.segment = static_cast<Ms>(work.segment * 1000);
    // Ledgers in memory: what a cut leaves of their files is SQLite's promise, and tried by
    // scripts/power-cut.
    sqlite3_vfs_register(sqlite3_vfs_find("memdb"), 1);
    void* shared = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::runtime_error("no memory");
    auto& tally = *new (shared) Tally;
    const auto began = std::chrono::steady_clock::now();
    share_seeds(work, tally, argv[0]);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - began;
    std::cout << tally.done << " of " << work.count << " seeds, " << work.scale.cameras << " cameras, "
              << work.scale.hours << " hours, " << tally.frames << " pictures, " << taken.count()
              << " s: " << tally.failed << " failed" << std::endl;
    return tally.failed > 0 ? 1 : 0;
}

}  // namespace
}  // namespace lenswire::recorder

int main(int argc, char** argv) {
    return lenswire::recorder::simulate(argc, argv);
}
