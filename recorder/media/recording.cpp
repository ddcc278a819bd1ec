#include "recorder/media/recording.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace lenswire::recorder {
namespace {

constexpr uint8_t kVideo = 0;
constexpr uint8_t kAudio = 1;
constexpr size_t kAudioPrefix = 4;  // stands before the samples of every audio frame
constexpr int64_t kHoldMs = 1000;
constexpr size_t kHoldFrames = 100;
constexpr int64_t kRetryMs = 10'000;
constexpr size_t kPadding = 64;  // readable bytes that the writer wants beyond the data

int64_t reception(const StreamFrameHead& head) {
    return int64_t{head.ulSeconds} * 1000 + head.ulMicroseconds / 1000;
}

}  // namespace

Recording::Recording(Target target, Complain complain)
    : target_(std::move(target)), complain_(std::move(complain)) {}

Recording::~Recording() {
    finish();
}

void Recording::frame(const StreamFrameHead& head, std::span<const uint8_t> data, bool first_of_connection) {
    if (first_of_connection) {
        need_key_ = true;
        new_run_ = true;
        timeline_.connection_began();
    }
    received_ms_ = reception(head);
    count(head, data.size(), follow_sequence(head.usSequence, first_of_connection));
    if (head.ucKind == kVideo) video(head, data);
    if (head.ucKind == kAudio && data.size() > kAudioPrefix) audio(data.subspan(kAudioPrefix));
}

// Makes the 16 bits of a head part of a count that goes on. The number of frames left out.
uint64_t Recording::follow_sequence(uint16_t sequence, bool first_of_connection) {
    if (first_of_connection) {
        sequence_ = sequence;
        return 0;
    }
    const auto step = static_cast<uint16_t>(sequence - static_cast<uint16_t>(sequence_));
    sequence_ += step;
    return step > 0 ? step - 1u : 0;
}

void Recording::count(const StreamFrameHead& head, size_t bytes, uint64_t missing) {
    const auto codec = codec_of_head(head.ucCodec);
    const std::lock_guard lock(report_mutex_);
    ++report_.frames;
    report_.bytes += bytes;
    report_.missing += missing;
    if (head.ucKind != kVideo) return;
    ++report_.pictures;
    report_.width = head.usWidth;
    report_.height = head.usHeight;
    if (!codec) ++report_.unwritten;
    if (codec && report_.codec != codec_name(*codec)) report_.codec = codec_name(*codec);
}

void Recording::video(const StreamFrameHead& head, std::span<const uint8_t> data) {
    const auto codec = codec_of_head(head.ucCodec);
    if (!codec) return;
    if (!reader_ || reader_->codec() != *codec) {
        reader_.emplace(*codec);
        need_key_ = true;
    }
    const bool key = reader_->read(data);
    if (key && reader_->ready()) key_frame(head);
    if (need_key_ || !begun_) return skip();
    put({.video = true,
         .key = key,
         .time_ms = timeline_.video(head.ulTimeStamp, received_ms_),
         .sequence = sequence_},
        data);
}

void Recording::audio(std::span<const uint8_t> data) {
    audio_seen_ = true;
    if (need_key_ || !begun_) return skip();
    if (!writer_) parameters_.audio = true;
    if (!parameters_.audio) return skip();  // the next key frame begins a file that has a sound track
    const int64_t time_ms = timeline_.audio(received_ms_, static_cast<uint32_t>(data.size()));
    put({.video = false, .key = true, .time_ms = time_ms, .sequence = sequence_}, data);
}

// Goes on with the file begun, or begins one.
void Recording::key_frame(const StreamFrameHead& head) {
    need_key_ = false;
    TrackParameters now{.codec = reader_->codec(),
                        .width = head.usWidth,
                        .height = head.usHeight,
                        .parameter_sets = reader_->parameter_sets(),
                        .audio = audio_seen_};
    if (begun_ && now == parameters_) return;
    close_file();
    if (received_ms_ < retry_ms_) return;
    if (now.width == 0 || now.height == 0) {
        if (!complained_) complain_("no picture size from the camera, nothing is recorded");
        complained_ = true;
        return;
    }
    parameters_ = std::move(now);
    frame_rate_ = head.ucFrameRate;
    timeline_ = {};
    new_run_ = true;
    begun_ = true;
}

void Recording::put(const Sample& sample, std::span<const uint8_t> data) {
    if (writer_) return write(sample, data);
    hold(sample, data);
    const bool known = parameters_.audio || sample.time_ms >= kHoldMs || held_.size() >= kHoldFrames;
    if (known && open_file()) write_held();
}

void Recording::hold(const Sample& sample, std::span<const uint8_t> data) {
    Held held{.sample = sample, .data = std::vector<uint8_t>(data.size() + kPadding), .size = data.size()};
    std::ranges::copy(data, held.data.begin());
    held_.push_back(std::move(held));
}

bool Recording::open_file() {
    std::string path;
    do {
        ++number_;
        const std::string suffix = number_ == 1 ? "" : "-" + std::to_string(number_);
        path = target_.directory + "/" + target_.base + suffix + ".mkv";
    } while (access(path.c_str(), F_OK) == 0);
    std::string error;
    writer_ = MatroskaWriter::create(path, parameters_, target_.title, frame_rate_, error);
    if (!writer_) {
        --number_;
        give_up(error, held_.size());
        return false;
    }
    complained_ = false;
    FileReport file;
    file.path = path;
    file.codec = codec_name(parameters_.codec);
    file.width = parameters_.width;
    file.height = parameters_.height;
    file.audio = parameters_.audio;
    const std::lock_guard lock(report_mutex_);
    report_.files.push_back(std::move(file));
    return true;
}

void Recording::write_held() {
    const std::vector<Held> all = std::exchange(held_, {});
    for (const Held& held : all) write(held.sample, std::span(held.data).first(held.size));
}

void Recording::write(const Sample& sample, std::span<const uint8_t> data) {
    const bool written = writer_ && (sample.video ? writer_->write_video(data, sample.time_ms, sample.key)
                                                  : writer_->write_audio(data, sample.time_ms));
    if (written) return note_written(sample, data.size());
    if (writer_) return give_up(report().files.back().path + " cannot be written", 1);
    const std::lock_guard lock(report_mutex_);
    ++report_.unwritten;
}

// The disk does not take the recording: what there is of the file is finished, another is begun later.
void Recording::give_up(const std::string& why, uint64_t frames) {
    if (!std::exchange(complained_, true)) complain_(why);
    {
        const std::lock_guard lock(report_mutex_);
        report_.unwritten += frames;
    }
    held_.clear();
    retry_ms_ = received_ms_ + kRetryMs;
    close_file();
}

void Recording::note_written(const Sample& sample, size_t bytes) {
    const std::lock_guard lock(report_mutex_);
    FileReport& file = report_.files.back();
    if (std::exchange(new_run_, false) || file.runs.empty()) {
        file.runs.push_back({.first = sample.sequence, .last = sample.sequence});
    }
    SequenceRun& run = file.runs.back();
    run.last = sample.sequence;
    ++run.frames;
    ++(sample.video ? file.video_frames : file.audio_frames);
    file.bytes += bytes;
    file.duration_ms = std::max(file.duration_ms, sample.time_ms);
}

void Recording::close_file() {
    if (begun_ && !writer_ && !held_.empty() && open_file()) write_held();
    begun_ = false;
    held_.clear();
    if (!writer_) return;
    const bool finished = writer_->finish();
    writer_.reset();
    const std::lock_guard lock(report_mutex_);
    report_.files.back().finished = finished;
}

void Recording::skip() {
    const std::lock_guard lock(report_mutex_);
    ++report_.skipped;
}

void Recording::finish() {
    close_file();
}

RecordingReport Recording::report() const {
    const std::lock_guard lock(report_mutex_);
    return report_;
}

}  // namespace lenswire::recorder
