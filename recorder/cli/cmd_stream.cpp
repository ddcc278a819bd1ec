// lenswire stream CAMERA [-o -] [--format FORMAT]
// lenswire snapshot CAMERA -o FILE
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <climits>
#include <cstring>

#include "recorder/cli/command_line.h"
#include "recorder/media/live_writer.h"
#include "recorder/media/still.h"
#include "recorder/session/live_session.h"
#include "recorder/support/files.h"

namespace lenswire::recorder {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint8_t kVideo = 0;
constexpr size_t kAudioPrefix = 4;  // before the samples of a frame
constexpr size_t kPadding = 64;     // that readers of video data look beyond its end
constexpr int64_t kHoldMs = 300;    // until then it must show whether there is sound
constexpr auto kTick = std::chrono::milliseconds(100);

volatile sig_atomic_t g_stopped = 0;

void stop_at_signals() {
    g_stopped = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { g_stopped = 1; };
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
}

struct FormatRow {
    std::string_view name;
    LiveFormat format;
    std::optional<VideoCodec> codec;  // that the stream must have
};
constexpr FormatRow kFormats[] = {{"matroska", LiveFormat::kMatroska, std::nullopt},
                                  {"mpegts", LiveFormat::kMpegTs, std::nullopt},
                                  {"h264", LiveFormat::kVideo, VideoCodec::kH264},
                                  {"h265", LiveFormat::kVideo, VideoCodec::kH265},
                                  {"mjpeg", LiveFormat::kVideo, VideoCodec::kJpeg}};

const FormatRow& format_called(const std::string& name) {
    const auto found = std::ranges::find(kFormats, name, &FormatRow::name);
    if (found != std::end(kFormats)) return *found;
    throw bad_input("'" + name + "' is no format; there are matroska, mpegts, h264, h265 and mjpeg");
}

// Where the bytes go. A reader that pauses is waited for, but not beyond a signal.
class Output {
  public:
    Output(const std::string& path, Console& console) {
        if (path == "-") {
            if (console.out_is_terminal())
                throw bad_input("this goes to a file or a pipe: -o FILE, or | ffplay -");
            fd_ = console.out_descriptor();
            return;
        }
        fd_ = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd_ < 0) throw bad_input("cannot write " + path + ": " + std::strerror(errno));
        own_ = true;
    }
    ~Output() {
        if (own_) close(fd_);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // False when nobody reads any more, or a signal came.
    bool write(std::span<const uint8_t> bytes) {
        while (!bytes.empty()) {
            if (g_stopped != 0) return false;
            pollfd out{.fd = fd_, .events = POLLOUT, .revents = 0};
            if (poll(&out, 1, static_cast<int>(kTick.count())) <= 0) continue;
            // A pipe that has room takes that much without blocking.
            const ssize_t written = ::write(fd_, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
            if (written < 0 && errno != EINTR && errno != EAGAIN) return full_or_gone();
            if (written > 0) bytes = bytes.subspan(static_cast<size_t>(written));
        }
        return true;
    }

  private:
    static bool full_or_gone() {
        if (errno == EPIPE) return false;
        throw local_failure(std::string("cannot write: ") + std::strerror(errno));
    }

    int fd_ = -1;
    bool own_ = false;
};

// Follows the frames of a stream to its key frames.
class FrameReader {
  public:
    struct Picture {
        TrackParameters parameters;
        int frame_rate = 0;
        int64_t at_ms = 0;
        bool key = false;
    };

    // A picture that can be decoded with all since the last key frame; none otherwise.
    std::optional<Picture> video(const StreamFrameHead& head, std::span<const uint8_t> data, int64_t now_ms) {
        const auto codec = codec_of_head(head.ucCodec);
        if (!codec) return std::nullopt;
        if (!reader_ || reader_->codec() != *codec) reader_.emplace(*codec);
        const bool key = reader_->read(data) && reader_->ready();
        const int64_t at = timeline_.video(head.ulTimeStamp, now_ms);
        if (key) whole_ = true;
        if (!whole_) return std::nullopt;
        return Picture{{.codec = *codec,
                        .width = head.usWidth,
                        .height = head.usHeight,
                        .parameter_sets = reader_->parameter_sets()},
                       head.ucFrameRate,
                       at,
                       key};
    }
    // When sound was made; none while no picture goes with it.
    std::optional<int64_t> audio(size_t samples, int64_t now_ms) {
        if (!whole_) return std::nullopt;
        return timeline_.audio(now_ms, static_cast<uint32_t>(samples));
    }
    void follow(const StreamFrameHead& head) {
        const auto expected = static_cast<uint16_t>(sequence_ + 1);
        if (begun_ && head.usSequence != expected) whole_ = false;
        begun_ = true;
        sequence_ = head.usSequence;
    }

  private:
    std::optional<AccessUnitReader> reader_;
    Timeline timeline_;
    bool whole_ = false;  // nothing is missing since a key frame
    bool begun_ = false;
    uint16_t sequence_ = 0;
};

int64_t now_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
}

// Frames in, the bytes of a format out.
class Pipe {
  public:
    Pipe(const FormatRow& format, Output& output, std::string camera, uint64_t most_frames)
        : format_(format), output_(output), camera_(std::move(camera)), most_frames_(most_frames) {}

    // False when no more is wanted.
    bool frame(const StreamFrameHead& head, std::span<const uint8_t> data) {
        const int64_t now = now_ms();
        reader_.follow(head);
        if (head.ucKind != kVideo) {
            if (data.size() <= kAudioPrefix) return true;
            data = data.subspan(kAudioPrefix);
            const auto at = reader_.audio(data.size(), now);
            return !at || put({.data = {}, .at_ms = *at, .video = false, .key = true}, data);
        }
        const auto picture = reader_.video(head, data, now);
        if (!picture) return true;
        if (picture->key) check(*picture);
        if (!put({.data = {}, .at_ms = picture->at_ms, .video = true, .key = picture->key}, data))
            return false;
        return ++frames_ != most_frames_;
    }
    bool finish() {
        if (!writer_ && !held_.empty() && !open()) return false;
        return !writer_ || writer_->finish();
    }
    bool any() const { return began_; }

  private:
    struct Sample {
        std::vector<uint8_t> data;
        int64_t at_ms;
        bool video;
        bool key;
    };

    // A file has one kind of picture from its begin to its end.
    void check(const FrameReader::Picture& picture) {
        if (format_.codec && *format_.codec != picture.parameters.codec) {
            throw bad_input("camera " + camera_ + " sends " + codec_name(picture.parameters.codec) +
                            ", not " + std::string(format_.name));
        }
        if (began_ && !format_.codec && picture.parameters != parameters_)
            throw Failure(kPartlyDone, "camera " + camera_ + " sends other pictures now; begin again");
        if (std::exchange(began_, true)) return;
        parameters_ = picture.parameters;
        frame_rate_ = picture.frame_rate;
        from_ms_ = picture.at_ms;
    }
    bool put(Sample sample, std::span<const uint8_t> data) {
        if (!began_) return true;
        if (writer_) return write(sample, data);
        const bool decided =
            format_.format != LiveFormat::kMatroska || !sample.video || sample.at_ms - from_ms_ >= kHoldMs;
        sound_ = sound_ || !sample.video;
        sample.data.assign(data.begin(), data.end());
        sample.data.resize(data.size() + kPadding);
        held_.push_back(std::move(sample));
        return !decided || open();
    }
    bool open() {
        std::string error;
        TrackParameters parameters = parameters_;
        parameters.audio = sound_;
        writer_ = LiveWriter::create(
            format_.format, parameters, frame_rate_, [this](auto bytes) { return output_.write(bytes); },
            error);
        if (!writer_) throw local_failure("the stream of " + camera_ + " cannot be written: " + error);
        for (const Sample& sample : std::exchange(held_, {})) {
            if (!write(sample, std::span(sample.data).first(sample.data.size() - kPadding))) return false;
        }
        return true;
    }
    bool write(const Sample& sample, std::span<const uint8_t> data) {
        return writer_->write(data, std::max<int64_t>(sample.at_ms - from_ms_, 0), sample.video, sample.key);
    }

    const FormatRow& format_;
    Output& output_;
    std::string camera_;
    uint64_t most_frames_;
    uint64_t frames_ = 0;
    FrameReader reader_;
    std::unique_ptr<LiveWriter> writer_;
    TrackParameters parameters_;
    int frame_rate_ = 0;
    int64_t from_ms_ = 0;
    bool began_ = false;
    bool sound_ = false;
    std::vector<Sample> held_;
};

// Hands frames to `take` until it returns false, time is over, or a signal comes. Throws when the stream
// breaks, and when `began` does not hold after the camera's time for an answer.
template <typename Take, typename Began>
void follow(ControlSession& session, LiveSession& live, double seconds, Take take, Began began) {
    const auto patience_ends = Clock::now() + session.timeout();
    const auto end = seconds > 0 ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                      std::chrono::duration<double>(seconds))
                                 : Clock::time_point::max();
    const std::string camera = "camera " + session.camera().name();
    while (g_stopped == 0 && Clock::now() < end) {
        for (const FrameBuffer* frame : live.next(std::min(end, Clock::now() + kTick))) {
            if (!take(frame->head(), frame->data())) return;
        }
        if (live.broken()) throw Failure(kUnreachable, camera + " ended the stream");
        if (!began() && Clock::now() >= patience_ends) throw Failure(kTimedOut, camera + " sent no picture");
    }
}

struct StreamOptions {
    std::string camera;
    std::string output = "-";
    std::string format = "matroska";
    double seconds = 0;
    uint64_t frames = 0;  // 0: no end
};

int stream(const StreamOptions& options, const CommonOptions& common, Console& console) {
    const FormatRow& format = format_called(options.format);
    Output output(options.output, console);
    stop_at_signals();
    auto session = log_in(options.camera, common, console);
    Pipe pipe(format, output, session->camera().name(), options.frames);
    LiveSession live(*session);
    follow(
        *session, live, options.seconds,
        [&](const StreamFrameHead& head, std::span<const uint8_t> data) { return pipe.frame(head, data); },
        [&] { return pipe.any(); });
    pipe.finish();
    return kDone;
}

struct SnapshotOptions {
    std::string camera;
    std::string output;
};

int snapshot(const SnapshotOptions& options, const CommonOptions& common, Console& console) {
    Output output(options.output, console);
    stop_at_signals();
    auto session = log_in(options.camera, common, console);
    FrameReader reader;
    std::optional<FrameReader::Picture> picture;
    Bytes unit;
    {
        LiveSession live(*session);
        const auto take = [&](const StreamFrameHead& head, std::span<const uint8_t> data) {
            reader.follow(head);
            if (head.ucKind != kVideo) return true;
            picture = reader.video(head, data, now_ms());
            if (!picture) return true;
            unit = picture->parameters.parameter_sets;
            unit.insert(unit.end(), data.begin(), data.end());
            return false;
        };
        follow(*session, live, 0, take, [&] { return picture.has_value(); });
    }
    if (!picture) throw local_failure("ended by a signal");
    std::string error;
    unit.resize(unit.size() + kPadding);
    const Bytes jpeg =
        jpeg_of_key_frame(picture->parameters.codec, std::span(unit).first(unit.size() - kPadding), error);
    if (jpeg.empty()) throw local_failure("camera " + session->camera().name() + ": " + error);
    output.write(jpeg);
    if (options.output == "-") return kDone;
    const std::string size =
        std::to_string(picture->parameters.width) + "x" + std::to_string(picture->parameters.height);
    console.note(common.json ? document({{"camera", session->camera().name()},
                                         {"path", options.output},
                                         {"size", size},
                                         {"bytes", jpeg.size()}})
                             : options.output + ": " + size + "\n");
    return kDone;
}

}  // namespace

void add_stream(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<StreamOptions>();
    CLI::App* command = app.add_subcommand("stream", "Hand a camera's stream on, as it comes");
    command->add_option("CAMERA", options->camera, kStreamHelp)->required();
    command->add_option("-o,--output", options->output, "File, or - for standard output")
        ->capture_default_str();
    command
        ->add_option("--format", options->format,
                     "matroska, mpegts (without sound), or the codec's own bytes: h264, h265, mjpeg")
        ->capture_default_str();
    command->add_option("--seconds", options->seconds, "How long; until a signal or until nobody reads");
    command->add_option("--frames", options->frames, "End after so many pictures");
    command->footer("For example: lenswire stream admin@192.0.2.7 -o - | ffplay -");
    run_when_chosen(command, options, common, chosen, stream);
}

void add_snapshot(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<SnapshotOptions>();
    CLI::App* command = app.add_subcommand("snapshot", "Write a picture of a camera as a JPEG file");
    command->add_option("CAMERA", options->camera, kStreamHelp)->required();
    command->add_option("-o,--output", options->output, "File, or - for standard output")->required();
    run_when_chosen(command, options, common, chosen, snapshot);
}

}  // namespace lenswire::recorder
