#include "recorder/host/recorder_stream.h"

#include <utility>

namespace lenswire::recorder {

namespace {

Ms monotonic() {
    return SystemClock().monotonic();
}

}  // namespace

RecorderStream::RecorderStream(int channel, int stream, FrameWorker& worker, Recording::Target target,
                               const UtcAnchor& anchor, NoteTaker& notes)
    : worker_(worker), queue_(this), recording_(std::move(target), anchor, notes, monotonic()) {
    object_.words.lFirst = channel;
    object_.words.lSecond = stream;
    object_.queue = &queue_;
}

void RecorderStream::describe(DevChannelInfo& info, StreamConn* unit) {
    info.ucChannelNo = static_cast<uint8_t>(channel());
    info.ucStreamNo = static_cast<uint8_t>(stream());
    info.pStreamConn = unit;
    info.pRecvBuf = &receive_buffer_;
    info.pStream = &object_;
}

void RecorderStream::allow_login_for(Clock::duration limit) {
    login_deadline_ = (Clock::now() + limit).time_since_epoch().count();
}

bool RecorderStream::login_allowed() const {
    return Clock::now().time_since_epoch().count() < login_deadline_;
}

void RecorderStream::trouble(Cause cause, const std::string& detail) {
    {
        const std::lock_guard lock(troubles_mutex_);
        troubles_.push_back({monotonic(), cause, detail});
    }
    look();
}

// What came before the word of a break is recorded before it: the words are taken first, the frames that wait by
// then go before them.
void RecorderStream::record_waiting_frames() {
    std::vector<Trouble> troubles;
    {
        const std::lock_guard lock(troubles_mutex_);
        troubles.swap(troubles_);
    }
    queue_.drain(frames_);
    const Ms now = monotonic();
    if (const uint64_t lost = queue_.lost(); lost != std::exchange(lost_, lost)) recording_.queue_was_full();
    if (opened_) recording_.stream_opened();
    for (const FrameBuffer* frame : frames_) {
        recording_.frame(frame->head(), frame->data(), frame->first_of_connection(), now);
    }
    queue_.give_back(frames_);
    frames_.clear();
    for (const Trouble& trouble : troubles) recording_.trouble(trouble.at, trouble.cause, trouble.detail);
    recording_.tick(now);
}

void RecorderStream::finish_recording() {
    recording_.finish(monotonic());
}

}  // namespace lenswire::recorder
