#include "recorder/host/recorder_stream.h"

namespace lenswire::recorder {

RecorderStream::RecorderStream(int channel, int stream, FrameWorker& worker, Recording::Target target,
                               Recording::Complain complain)
    : worker_(worker), queue_(this), recording_(std::move(target), std::move(complain)) {
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

void RecorderStream::record_waiting_frames() {
    queue_.drain(frames_);
    for (const FrameBuffer* frame : frames_) {
        recording_.frame(frame->head(), frame->data(), frame->first_of_connection());
    }
    queue_.give_back(frames_);
    frames_.clear();
}

}  // namespace lenswire::recorder
