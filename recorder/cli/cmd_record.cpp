// lenswire record CAMERA... [--seconds N] [--out DIR] [--keep SIZE] ...
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "recorder/archive/dated_log.h"
#include "recorder/cli/commands.h"
#include "recorder/cli/recording_summary.h"
#include "recorder/cli/recording_view.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTick = std::chrono::milliseconds(200);
constexpr rlim_t kOwnDescriptors = 40;       // the ledger, the library's log, the threads' own
constexpr rlim_t kDescriptorsPerStream = 4;  // two sockets, a file, and one that is being finished

struct RecordOptions {
    std::vector<std::string> cameras;
    std::string directory = "recordings";
    std::string summary;
    double seconds = 0;  // 0: until a signal
    double give_up = 0;  // 0: never
    double segment = 60;
    std::string keep;
    double keep_days = 0;
    std::string keep_free = "5%";
    std::string buffer = "128M";
    bool disarmed = false;
};

// The signals that end a recording are taken by waiting for them, in this thread; all others inherit the
// mask.
class StopSignals {
  public:
    StopSignals() {
        sigemptyset(&set_);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set_, number);
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

// 500G, 128M, 1.5T; a plain number is bytes. None when it is nothing of the kind.
std::optional<uint64_t> parse_size(std::string text) {
    uint64_t unit = 1;
    const std::string_view units = "KMGT";
    if (const size_t at = text.empty() ? units.npos : units.find(text.back()); at != units.npos) {
        for (size_t i = 0; i <= at; ++i) unit *= 1000;
        text.pop_back();
    }
    double number = 0;
    if (!CLI::detail::lexical_cast(text, number) || !(number >= 0 && number < 1e15)) return std::nullopt;
    return static_cast<uint64_t>(number * static_cast<double>(unit));
}

std::string check_size(const std::string& text) {
    return parse_size(text) ? std::string() : "must be a size such as 500G or 128M";
}

std::string check_size_or_share(const std::string& text) {
    double share = 0;
    const bool good = text.ends_with('%') &&
                      CLI::detail::lexical_cast(text.substr(0, text.size() - 1), share) && share >= 0 &&
                      share < 100;
    return good ? std::string() : check_size(text);
}

std::string check_seconds(const std::string& text) {
    double seconds = 0;
    const bool good = CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds < 1e9;
    return good ? std::string() : "must be a number of seconds above 0";
}

KeepLimits keep_limits(const RecordOptions& options) {
    KeepLimits limits;
    if (!options.keep.empty()) limits.quota = *parse_size(options.keep);
    limits.age = static_cast<Ms>(options.keep_days * 24 * 3600 * 1000);
    if (options.keep_free.ends_with('%')) {
        limits.free_share = std::stod(options.keep_free) / 100;
    } else {
        limits.free_share = 0;
        limits.free_bytes = *parse_size(options.keep_free);
    }
    return limits;
}

// As many descriptors as the streams need, or a word before anything is begun.
void make_room_for(size_t streams) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t needed = kOwnDescriptors + kDescriptorsPerStream * streams;
    if (limit.rlim_cur < needed) {
        limit.rlim_cur = std::min(needed, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (limit.rlim_cur >= needed) return;
    const rlim_t fit =
        limit.rlim_cur > kOwnDescriptors ? (limit.rlim_cur - kOwnDescriptors) / kDescriptorsPerStream : 0;
    throw bad_input(std::to_string(streams) + " streams need " + std::to_string(needed) +
                    " open files, and the limit is " + std::to_string(limit.rlim_cur) + ", enough for " +
                    std::to_string(fit) + " streams; see ulimit -n");
}

// Clusters come and go some hundred times a second: memory that went back to the system each time would have
// to be cleared by it each time.
void keep_freed_memory() {
    mallopt(M_MMAP_THRESHOLD, 8 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
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

// Watches a session until its time is over, a signal comes, or no camera answered for too long.
class Watch {
  public:
    Watch(RecordingSession& session, RecordingView& view, const RecordOptions& options)
        : session_(session), view_(view), seconds_(options.seconds), give_up_(options.give_up) {}

    // True when a signal ended it.
    bool run(StopSignals& signals) {
        while (!over()) {
            const auto until_end = end_ ? *end_ - Clock::now() : Clock::duration(kTick);
            if (signals.wait(std::min<Clock::duration>(kTick, until_end))) return true;
            session_.tick();
            show();
        }
        return false;
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
        nobody_ = std::ranges::none_of(streams, streamed);
        const bool running = std::ranges::all_of(streams, tried) || !nobody_;
        if (running && !end_ && seconds_ > 0) end_ = Clock::now() + length(seconds_);
    }

    bool gave_up() const { return give_up_ > 0 && nobody_ && Clock::now() - began_ >= length(give_up_); }

  private:
    static Clock::duration length(double seconds) {
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    }
    bool over() const { return gave_up() || (end_ && Clock::now() >= *end_); }

    RecordingSession& session_;
    RecordingView& view_;
    double seconds_;
    double give_up_;
    Clock::time_point began_ = Clock::now();
    std::vector<bool> reported_;
    bool nobody_ = true;
    std::optional<Clock::time_point> end_;  // counted from the first stream, or when all have been tried
};

RecordingView::Kind view_kind(Console& console, bool json, bool quiet) {
    if (quiet) return RecordingView::Kind::kSilent;
    if (json) return RecordingView::Kind::kJson;
    return console.out_is_terminal() ? RecordingView::Kind::kTable : RecordingView::Kind::kLines;
}

int exit_code(const std::vector<StreamStatus>& streams, bool gave_up) {
    if (gave_up) return kUnreachable;
    const bool whole = std::ranges::all_of(
        streams, [](const StreamStatus& s) { return s.recording.gaps.empty() && streamed(s); });
    return whole ? kDone : kPartlyDone;
}

void write_summary(const std::string& path, const std::vector<StreamStatus>& streams) {
    std::ofstream file(path);
    file << recording_summary_json(streams) << std::flush;
    if (!file) throw local_failure("cannot write " + path);
}

void show_result(const RecordOptions& options, const CommonOptions& common, Console& console,
                 const std::vector<StreamStatus>& streams) {
    for (const StreamStatus& stream : streams) {
        if (streamed(stream) || failed(stream)) continue;
        console.error_line("camera " + stream.camera.name() + " sent no stream");
    }
    console.print(common.json ? recording_summary_json(streams) : recording_summary_table(streams));
    if (!options.summary.empty()) write_summary(options.summary, streams);
}

int record(const RecordOptions& options, const CommonOptions& common, Console& console) {
    std::vector<std::string> cameras = options.cameras;
    std::vector<std::string> names = take_names(cameras);
    RecordingSession::Options session_options{.cameras = camera_addresses(cameras, common.password_files()),
                                              .names = std::move(names),
                                              .directory = options.directory,
                                              .library = common.library,
                                              .database = common.database,
                                              .armed = !options.disarmed,
                                              .segment = static_cast<Ms>(options.segment * 1000),
                                              .limits = keep_limits(options),
                                              .buffer = *parse_size(options.buffer)};
    make_room_for(cameras.size());
    keep_freed_memory();
    make_directory(options.directory);
    StopSignals signals;  // before any thread
    const std::string log_file = common.log.empty() ? options.directory + "/lenswire.log" : common.log;
    std::optional<DatedLog> log;
    if (!common.verbose) log.emplace(log_file);
    console.divert_library(log ? log->path() : "", common.verbose);
    console.be_impatient();
    RecordingSession session(session_options);
    RecordingView view(console, view_kind(console, common.json, common.quiet));
    Watch watch(session, view, options);
    const bool stopped = watch.run(signals);
    const bool gave_up = watch.gave_up();
    session.finish();
    watch.show();
    const auto streams = session.status();
    if (!session.complete())
        console.error_line("the ledger lacks the end, the next start takes it in", kFailed);
    const int code = session.complete() ? exit_code(streams, gave_up) : kFailed;
    show_result(options, common, console, streams);
    // Who sent a signal does not wait for cameras that do not answer: every file is finished.
    if (stopped) {
        if (log) log->drain();
        _exit(code);
    }
    session.stop();
    return code;
}

}  // namespace

void add_record(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* command =
        app.add_subcommand("record", "Record cameras to Matroska files and a ledger of every gap");
    command
        ->add_option(
            "CAMERA", options->cameras,
            "[name=]user:password@host:port[/channel[/stream]]; the name is its folder's, else the address")
        ->required();
    command->add_option("--seconds", options->seconds, "How long to record; until a signal when not given")
        ->check(check_seconds);
    command->add_option("--out", options->directory, "Folder for the files and the ledger, lenswire.db")
        ->capture_default_str();
    command->add_option("--segment", options->segment, "Seconds of a file, to the next key frame")
        ->check(CLI::Range(1.0, 86'400.0))
        ->capture_default_str();
    command
        ->add_option("--keep", options->keep, "Keep no more than this, such as 500G; the oldest goes first")
        ->check(check_size);
    command->add_option("--keep-days", options->keep_days, "Keep nothing that is older")
        ->check(CLI::Range(0.0, 36'500.0));
    command
        ->add_option("--keep-free", options->keep_free,
                     "Keep so much of the disk free, as a size or in percent")
        ->check(check_size_or_share)
        ->capture_default_str();
    command->add_option("--buffer", options->buffer, "Memory for what a slow disk has not taken yet")
        ->check(check_size)
        ->capture_default_str();
    command->add_option("--give-up", options->give_up, "End when no camera sent anything for so many seconds")
        ->check(check_seconds);
    command->add_option("--summary", options->summary, "File for the result as JSON, beside what is shown");
    command->add_flag("--disarmed", options->disarmed, "Begin with motion detection disarmed");
    command->footer("Exit code 8: there was a gap. `lenswire footage` lists it.");
    command->callback([options, &common, &chosen] {
        chosen = [options, &common](Console& console) { return record(*options, common, console); };
    });
}

}  // namespace lenswire::recorder
