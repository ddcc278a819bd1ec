#include "recorder/archive/recording.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace lenswire::recorder {
namespace {

constexpr uint8_t kVideo = 0;
constexpr uint8_t kAudio = 1;
constexpr size_t kAudioPrefix = 4;  // stands before the samples of every audio frame
constexpr Ms kHold = 600;
constexpr size_t kHoldFrames = 100;
// What a cut loses at most of what came in; with the disk's syncs, one a second, it stays below two seconds.
constexpr Ms kCluster = 500;
constexpr size_t kPadding = 64;  // readable bytes that the writer wants beyond the data
constexpr Ms kLongestInterval = 2000;
constexpr Ms kSoundOnly = 10'000;
constexpr Ms kShortestRestart = 3000;
constexpr const char* kUnwritable = "a picture cannot be written";

}  // namespace

Recording::Recording(Target target, const UtcAnchor& anchor, NoteTaker& notes, Ms now)
    : target_(std::move(target)), anchor_(anchor), notes_(notes), account_(anchor.utc(now), target_.resumes) {
    picture_received_ = now;
    gap_from_ = watch_from_ = anchor.utc(now);
    gap_cause_ = Cause::kNotRunning;
}

void Recording::frame(const StreamFrameHead& head, std::span<const uint8_t> data, bool first_of_connection,
                      Ms now) {
    received_ = now;
    if (first_of_connection) {
        if (begun_) gap(now, Cause::kLost, "");
        need_key_ = true;
        new_connection_ = true;
        connected_ = now;
        timeline_.connection_began();
    }
    const uint64_t missing = follow_sequence(head.usSequence, first_of_connection);
    count(head, data.size(), missing);
    if (missing > 0) {
        const bool full = std::exchange(queue_was_full_, false);
        if (begun_) gap(now, full ? Cause::kQueueFull : Cause::kMissing, std::to_string(missing) + " frames");
    }
    if (head.ucKind == kVideo) video(head, data);
    if (head.ucKind == kAudio && data.size() > kAudioPrefix) audio(data.subspan(kAudioPrefix));
    send();
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
    const Ms away = received_ - picture_received_;
    const bool anew =
        head.ulTimeStamp < camera_ms_ && Ms{head.ulTimeStamp} <= away && away >= kShortestRestart;
    if (std::exchange(new_connection_, false) && anew) {
        account_.camera_restarted();
        event(received_, "restart", "the camera was started anew");
    }
    const Ms at = timeline_.video(head.ulTimeStamp, received_);
    if (const auto jump = timeline_.take_jump()) {
        event(received_, "clock", "the camera's clock jumped by " + std::to_string(*jump) + " ms");
    }
    camera_ms_ = head.ulTimeStamp;
    picture_received_ = received_;
    const bool key = reader_->read(data);
    if (begun_ && !lasts(at)) gap(received_, Cause::kSilent, "no picture");
    if (!room()) return skip(&RecordingReport::refused);
    if (key && reader_->ready()) key_frame(head, at);
    if (need_key_ || !begun_) return skip(&RecordingReport::skipped);
    put({.video = true, .key = key, .at = at}, data);
}

// Whether a picture taken then follows the latest one without a gap.
bool Recording::lasts(Ms at) const {
    return at - last_at_ <= std::max(kLongestInterval, 3 * interval_);
}

void Recording::audio(std::span<const uint8_t> data) {
    audio_seen_ = true;
    sound_received_ = received_;
    if (need_key_ || !begun_) return skip(&RecordingReport::skipped);
    if (!audio_decided_) parameters_.audio = true;
    if (!parameters_.audio)
        return skip(&RecordingReport::skipped);  // the next key frame begins a segment with a sound track
    const Ms at = timeline_.audio(received_, static_cast<uint32_t>(data.size()));
    put({.video = false, .key = true, .at = at}, data);
}

// Whether the disk keeps up. When it does not, what comes is left out up to a key frame that finds room.
bool Recording::room() {
    const auto trouble = notes_.trouble();
    if (trouble) gap(received_, trouble->cause, trouble->detail);
    return !trouble;
}

// Goes on with the segment begun, or begins one.
void Recording::key_frame(const StreamFrameHead& head, Ms at) {
    TrackParameters now{.codec = reader_->codec(),
                        .width = head.usWidth,
                        .height = head.usHeight,
                        .parameter_sets = reader_->parameter_sets(),
                        .audio = audio_decided_ ? audio_seen_ : parameters_.audio};
    if (begun_ && now == parameters_ && at - segment_from_ < target_.segment) return;
    if (now.width == 0 || now.height == 0) {
        gap(received_, Cause::kMissing, "no picture size");
        if (!std::exchange(complained_, true))
            event(received_, "trouble", "no picture size from the camera, nothing is recorded");
        return;
    }
    begin(std::move(now), head, at);
}

void Recording::begin(TrackParameters parameters, const StreamFrameHead& head, Ms at) {
    if (head.ucFrameRate > 0 && !begun_) interval_ = std::max<Ms>(1, 1000 / head.ucFrameRate);
    open_held();
    const Ms from = anchor_.monotonic(account_.footage(anchor_.utc(at), anchor_.utc(at + interval_)));
    close_file(from);
    parameters_ = std::move(parameters);
    frame_rate_ = head.ucFrameRate;
    segment_from_ = from;
    camera_at_start_ = head.ulTimeStamp;
    last_at_ = at;
    segment_frames_ = 0;
    need_key_ = false;
    begun_ = true;
    if (audio_decided_) open_file();
}

void Recording::put(const Sample& sample, std::span<const uint8_t> data) {
    if (sample.video) {
        if (segment_frames_ > 0) interval_ = std::clamp<Ms>(sample.at - last_at_, 1, kLongestInterval);
        last_at_ = sample.at;
        camera_last_ = camera_ms_;
        account_.footage(anchor_.utc(sample.at), anchor_.utc(sample.at + interval_));
    }
    if (writer_) {
        if (!write(sample, data)) give_up_from(sample.at, kUnwritable);
        return;
    }
    if (sample.video) ++segment_frames_;
    Held held{.sample = sample, .data = std::vector<uint8_t>(data.size() + kPadding), .size = data.size()};
    std::ranges::copy(data, held.data.begin());
    held_.push_back(std::move(held));
    if (parameters_.audio || sample.at - segment_from_ >= kHold || held_.size() >= kHoldFrames) open_file();
}

// Before the account of what is held back is closed: it may come to nothing.
void Recording::open_held() {
    if (begun_ && !writer_ && !held_.empty()) open_file();
}

// The file's head, and whatever was held back.
void Recording::open_file() {
    std::string error;
    const Ms from = anchor_.utc(segment_from_);
    audio_decided_ = true;
    writer_ = MatroskaWriter::create(parameters_, target_.title, frame_rate_, from, error);
    if (!writer_) {
        event(received_, "trouble", "cannot be recorded: " + error);
        held_.clear();
        return give_up_from(segment_from_, error);
    }
    outbox_.emplace_back(SegmentBegins{target_.stream, from, camera_at_start_});
    cluster_from_ = segment_from_;
    {
        const std::lock_guard lock(report_mutex_);
        ++report_.segments;
    }
    const std::vector<Held> all = std::exchange(held_, {});
    segment_frames_ = 0;
    for (const Held& held : all) {
        if (!write(held.sample, std::span(held.data).first(held.size)))
            return give_up_from(held.sample.at, kUnwritable);
    }
    if (!all.empty()) end_cluster();
}

// What was taken for footage from then on is none. A segment's first picture may be older than the segment.
void Recording::give_up_from(Ms at, const std::string& why) {
    account_.footage_lost(anchor_.utc(std::max(at, segment_from_)));
    gap(received_, Cause::kMissing, why);
}

// False when a picture is missing then. Those behind it stand on it, so that the segment has to end.
bool Recording::write(const Sample& sample, std::span<const uint8_t> data) {
    if (sample.at - cluster_from_ >= kCluster) {
        end_cluster();
        cluster_from_ = sample.at;
    }
    const Ms time = std::max<Ms>(0, sample.at - segment_from_);
    const bool written =
        sample.video ? writer_->write_video(data, time, sample.key) : writer_->write_audio(data, time);
    const std::lock_guard lock(report_mutex_);
    if (!written) {
        ++report_.unwritten;
    } else {
        ++(sample.video ? report_.video_frames : report_.audio_frames);
    }
    if (written && sample.video) ++segment_frames_;
    return written || !sample.video;
}

void Recording::end_cluster() {
    writer_->end_cluster();
    post_pieces();
    cluster_from_ = std::max(cluster_from_, last_at_);
}

void Recording::post_pieces() {
    for (MatroskaWriter::Piece& piece : writer_->take()) {
        outbox_.emplace_back(SegmentGrows{target_.stream, piece.offset, std::move(piece.bytes),
                                          anchor_.utc(last_at_ + interval_)});
    }
}

// Pictures are missing from the latest one on.
void Recording::gap(Ms at, Cause cause, const std::string& detail) {
    need_key_ = true;
    open_held();
    account_.trouble(anchor_.utc(at), cause, detail);
    if (begun_) close_file(anchor_.monotonic(account_.footage_end()));
}

void Recording::close_file(Ms to) {
    begun_ = false;
    if (!writer_) return;
    writer_->finish();
    post_pieces();
    outbox_.emplace_back(SegmentEnds{target_.stream, anchor_.utc(to), camera_last_, segment_frames_});
    writer_.reset();
}

void Recording::trouble(Ms at, Cause cause, const std::string& detail) {
    trouble_at_ = at;
    if (at <= connected_ && begun_) return;
    // A camera may be recorded although its control connection is gone.
    if (begun_ && (cause == Cause::kUnreachable || cause == Cause::kRefused)) return;
    // While the disk takes nothing, that is the reason, whatever else happens; the notes of it need memory.
    if (account_.in_gap() && notes_.trouble()) return;
    // A connection that is given up in the end says nothing new of a gap that has its reason.
    if (account_.in_gap() && cause == Cause::kLost) return;
    const Ms away = at - std::max(picture_received_, connected_);
    const bool silent = begun_ && cause == Cause::kLost && away >= kLongestInterval;
    gap(at, silent ? quiet(at) : cause, silent ? "no picture, started again" : detail);
    send();
}

void Recording::event(Ms at, const std::string& kind, const std::string& text) {
    outbox_.emplace_back(EventNote{target_.stream, anchor_.utc(at), kind, text});
}

void Recording::tick(Ms now) {
    if (writer_ && now - cluster_from_ >= 2 * kCluster) end_cluster();
    const Ms patience = hears(now) ? kSoundOnly : kSilence;
    if (begun_ && now - picture_received_ >= patience) gap(now, quiet(now), "no picture");
    if (!begun_ && (!opened_ || now - std::max(picture_received_, *opened_) >= patience)) tick_gap(now);
    send();
}

// Why a camera that agreed to send, if it did, brings no picture.
Cause Recording::quiet(Ms now) const {
    if (!opened_ && connected_ == 0) return Cause::kUnreachable;
    if (hears(now)) return Cause::kSoundOnly;
    return in_packet_ ? Cause::kStalled : Cause::kSilent;
}

// A gap that began with the connection's end goes on for another reason when there is one again.
void Recording::tick_gap(Ms now) {
    account_.tick(anchor_.utc(now), quiet(now));
    const Cause cause = account_.cause();
    const bool connection = cause == Cause::kLost || cause == Cause::kUnreachable || cause == Cause::kRefused;
    if (account_.in_gap() && connection && opened_ && *opened_ > trouble_at_)
        account_.trouble(anchor_.utc(now), quiet(now), "no picture");
}

void Recording::finish(Ms now) {
    open_held();
    if (begun_ && now - picture_received_ >= kLongestInterval) gap(now, quiet(now), "no picture");
    account_.end(anchor_.utc(now), quiet(now));
    close_file(anchor_.monotonic(account_.footage_end()));
    send();
}

// The account's entries, for the ledger and for the sums.
void Recording::post_account() {
    using Kind = AccountEntry::Kind;
    const std::lock_guard lock(report_mutex_);
    for (AccountEntry& entry : account_.take()) {
        switch (entry.kind) {
            case Kind::kWatchBegins:
                watch_from_ = entry.at;
                break;
            case Kind::kWatchEnds:
                break;
            case Kind::kGapBegins:
                gap_from_ = entry.at;
                gap_cause_ = entry.cause;
                break;
            case Kind::kGapEnds:
                report_.gaps[gap_cause_] += entry.at - gap_from_;
                break;
            case Kind::kGapWasRestart:
                gap_cause_ = Cause::kRestarted;
                break;
        }
        outbox_.emplace_back(AccountNote{target_.stream, std::move(entry)});
    }
    Ms gaps = 0;
    for (const auto& [cause, length] : report_.gaps) gaps += length;
    report_.watched = account_.footage_end() - watch_from_;
    report_.footage = report_.watched - gaps;
}

void Recording::send() {
    post_account();
    if (!outbox_.empty()) notes_.take(std::exchange(outbox_, {}));
}

void Recording::skip(uint64_t RecordingReport::*counter) {
    const std::lock_guard lock(report_mutex_);
    ++(report_.*counter);
}

RecordingReport Recording::report() const {
    const std::lock_guard lock(report_mutex_);
    return report_;
}

}  // namespace lenswire::recorder
