#include "recorder/host/recorder_stream.h"

#include <utility>

namespace lenswire::recorder {

RecorderStream::RecorderStream(int channel, int stream, FrameWorker& worker, Recording::Target target,
                               const ArchiveClock& clock, const UtcAnchor& anchor, NoteTaker& notes)
    : clock_(clock),
      worker_(worker),
      queue_(this),
      recording_(std::move(target), anchor, notes, clock.monotonic()) {
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
        const std::lock_guard lock(words_mutex_);
        troubles_.push_back({clock_.monotonic(), cause, detail});
    }
    look();
}

void RecorderStream::event(const std::string& kind, const std::string& text) {
    const std::lock_guard lock(words_mutex_);
    events_.push_back({clock_.monotonic(), kind, text});
}

void RecorderStream::opened() {
    receive_buffer_.ring.forget_end();
    opened_ = clock_.monotonic();
}

// What came before the word of a break is recorded before it: the words are taken first, the frames that wait
// by then go before them.
void RecorderStream::record_waiting_frames() {
    std::vector<Trouble> troubles;
    std::vector<Event> events;
    {
        const std::lock_guard lock(words_mutex_);
        troubles.swap(troubles_);
        events.swap(events_);
    }
    queue_.drain(frames_);
    const Ms now = clock_.monotonic();
    if (const uint64_t lost = queue_.lost(); lost != std::exchange(lost_, lost)) recording_.queue_was_full();
    if (const Ms opened = opened_; opened > 0) recording_.stream_opened(opened);
    recording_.stopped_in_packet(receive_buffer_.ring.ends_in_packet());
    for (const FrameBuffer* frame : frames_) {
        recording_.frame(frame->head(), frame->data(), frame->first_of_connection(), frame->received());
    }
    queue_.give_back(frames_);
    frames_.clear();
    for (const Event& event : events) recording_.event(event.at, event.kind, event.text);
    for (const Trouble& trouble : troubles) recording_.trouble(trouble.at, trouble.cause, trouble.detail);
    recording_.tick(now);
}

void RecorderStream::finish_recording() {
    recording_.finish(clock_.monotonic());
}

}  // namespace lenswire::recorder
