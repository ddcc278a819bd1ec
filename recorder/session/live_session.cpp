#include "recorder/session/live_session.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace lenswire::recorder {
namespace {

constexpr auto kClosePatience = std::chrono::seconds(1);
// What a reader that pauses may leave behind.
constexpr size_t kQueueBytes = 32 * 1024 * 1024;

}  // namespace

LiveSession::LiveSession(ControlSession& session) : session_(session), queue_(this, kQueueBytes) {
    object_.words.lFirst = session.channel();
    object_.words.lSecond = session.camera().stream;
    object_.queue = &queue_;
    session_.ask("a stream", [&] { return session_.link().invite(); });
    session_.host().set_restart_listener(this);
    post(STREAM_REQ_OPEN);
}

// The library knows the objects in here until the slot is free.
LiveSession::~LiveSession() {
    post(STREAM_REQ_CLOSE);
    const auto patience_ends = Clock::now() + kClosePatience;
    while (slot_open() && Clock::now() < patience_ends) usleep(1000);
    session_.end();
    session_.host().set_restart_listener(nullptr);
}

void LiveSession::post(StreamRequestType type) {
    DevChannelInfo info{};
    info.ucChannelNo = static_cast<uint8_t>(session_.channel());
    info.ucStreamNo = static_cast<uint8_t>(session_.camera().stream);
    info.pStreamConn = session_.link().unit();
    info.pRecvBuf = &receive_buffer_;
    info.pStream = &object_;
    session_.host().requests.post(type, info);
}

bool LiveSession::slot_open() const {
    return std::ranges::any_of(*session_.library().arrayfd, [](int32_t& fd) {
        return std::atomic_ref(fd).load(std::memory_order_acquire) != 0;
    });
}

const std::vector<FrameBuffer*>& LiveSession::next(Clock::time_point until) {
    queue_.give_back(frames_);
    frames_.clear();
    {
        std::unique_lock lock(mutex_);
        wake_.wait_until(lock, until, [this] { return waiting_ || broken_; });
        waiting_ = false;
    }
    queue_.drain(frames_);
    return frames_;
}

bool LiveSession::broken() const {
    const std::lock_guard lock(mutex_);
    return broken_;
}

void LiveSession::frames_waiting() {
    {
        const std::lock_guard lock(mutex_);
        waiting_ = true;
    }
    wake_.notify_one();
}

void LiveSession::restart_wanted(int, int) {
    {
        const std::lock_guard lock(mutex_);
        broken_ = true;
    }
    wake_.notify_one();
}

}  // namespace lenswire::recorder
