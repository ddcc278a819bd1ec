// lenswire record CAMERA... [--seconds N] [--out DIR]
#include <signal.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "recorder/cli/commands.h"
#include "recorder/cli/recording_summary.h"
#include "recorder/cli/recording_view.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTick = std::chrono::milliseconds(200);

struct RecordOptions {
    std::vector<std::string> cameras;
    std::string directory = "recordings";
    std::string summary;
    double seconds = 0;  // 0: until a signal
    bool disarmed = false;
};

// SIGINT and SIGTERM are taken by waiting for them, in this thread; all others inherit the mask.
class StopSignals {
  public:
    StopSignals() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        sigaddset(&set_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    }
    // True when one came within the time.
    bool wait(std::chrono::nanoseconds time) {
        const auto left = std::max(time, std::chrono::nanoseconds(0));
        const timespec limit{.tv_sec = static_cast<time_t>(left.count() / 1'000'000'000),
                             .tv_nsec = static_cast<long>(left.count() % 1'000'000'000)};
        return sigtimedwait(&set_, nullptr, &limit) > 0;
    }

  private:
    sigset_t set_{};
};

void make_directory(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw bad_input("cannot make " + directory + ": " + error.message());
}

bool tried(const StreamStatus& s) {
    return s.view.login_tried;
}
bool failed(const StreamStatus& s) {
    return s.view.login_tried && s.view.login_result != 0 && !s.view.ever_streamed;
}
bool streamed(const StreamStatus& s) {
    return s.view.ever_streamed;
}

// Watches a session until its time is over, a signal comes, or no camera lets itself be recorded.
class Watch {
  public:
    Watch(RecordingSession& session, RecordingView& view, double seconds)
        : session_(session), view_(view), seconds_(seconds) {}

    void run(StopSignals& signals) {
        while (!over()) {
            const auto until_end = end_ ? *end_ - Clock::now() : Clock::duration(kTick);
            if (signals.wait(std::min<Clock::duration>(kTick, until_end))) return;
            show();
        }
    }

    void show() {
        const auto streams = session_.status();
        for (const std::string& line : session_.events()) view_.event(line);
        reported_.resize(streams.size());
        for (size_t i = 0; i < streams.size(); ++i) {
            if (!failed(streams[i]) || reported_[i]) continue;
            reported_[i] = true;
            view_.error("camera " + streams[i].camera.name() + " " +
                        login_failure(streams[i].view.login_result));
        }
        view_.show(streams);
        nobody_ = std::ranges::all_of(streams, failed);
        const bool running = std::ranges::all_of(streams, tried) || std::ranges::any_of(streams, streamed);
        if (running && !end_ && seconds_ > 0) {
            end_ = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds_));
        }
    }

  private:
    bool over() const { return nobody_ || (end_ && Clock::now() >= *end_); }

    RecordingSession& session_;
    RecordingView& view_;
    double seconds_;
    std::vector<bool> reported_;
    bool nobody_ = false;
    std::optional<Clock::time_point> end_;  // counted from the first stream, or when all have been tried
};

RecordingView::Kind view_kind(Console& console, bool json) {
    if (json) return RecordingView::Kind::kSilent;
    return console.out_is_terminal() ? RecordingView::Kind::kTable : RecordingView::Kind::kLines;
}

int exit_code(const std::vector<StreamStatus>& streams) {
    const bool sound = std::ranges::all_of(
        streams, [](const StreamStatus& s) { return s.view.ever_streamed && s.recording.unwritten == 0; });
    return sound ? kDone : kCameraFailed;
}

void write_summary(const std::string& path, const std::vector<StreamStatus>& streams) {
    std::ofstream file(path);
    file << recording_summary_json(streams) << std::flush;
    if (!file) throw camera_failed("cannot write " + path);
}

int record(const RecordOptions& options, const CommonOptions& common, Console& console) {
    RecordingSession::Options session_options{
        .cameras = camera_addresses(options.cameras, common.password_file),
        .directory = options.directory,
        .library = common.library,
        .database = common.database,
        .armed = !options.disarmed};
    make_directory(options.directory);
    console.divert_library(common.log.empty() ? options.directory + "/lenswire.log" : common.log,
                           common.verbose);
    StopSignals signals;
    RecordingSession session(session_options);
    RecordingView view(console, view_kind(console, common.json));
    Watch watch(session, view, options.seconds);
    watch.run(signals);
    session.stop();
    watch.show();
    const auto streams = session.status();
    for (const StreamStatus& stream : streams) {
        if (streamed(stream) || failed(stream)) continue;
        console.error_line("camera " + stream.camera.name() + " sent no stream");
    }
    if (common.json) console.print(recording_summary_json(streams));
    if (!common.json && std::ranges::any_of(streams, streamed))
        console.print(recording_summary_table(streams));
    if (!options.summary.empty()) write_summary(options.summary, streams);
    return exit_code(streams);
}

}  // namespace

void add_record(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* command = app.add_subcommand("record", "Record cameras to Matroska files");
    command->add_option("CAMERA", options->cameras, "user:password@host:port[/channel[/stream]]")->required();
    command->add_option("--seconds", options->seconds, "How long to record; until a signal when not given")
        ->check([](const std::string& text) {
            double seconds = 0;
            const bool good = CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds < 1e9;
            return good ? std::string() : "must be a number of seconds above 0";
        });
    command->add_option("--out", options->directory, "Folder for the files")->capture_default_str();
    command->add_option("--summary", options->summary, "File for the result as JSON, beside what is shown");
    command->add_flag("--disarmed", options->disarmed, "Begin with motion detection disarmed");
    command->callback([options, &common, &chosen] {
        chosen = [options, &common](Console& console) { return record(*options, common, console); };
    });
}

}  // namespace lenswire::recorder
