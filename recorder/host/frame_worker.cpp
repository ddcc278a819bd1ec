#include "recorder/host/frame_worker.h"

#include <chrono>

namespace lenswire::recorder {

namespace {

constexpr auto kGather = std::chrono::milliseconds(20);

}  // namespace

FrameWorker::FrameWorker() : thread_([this] { run(); }) {}

FrameWorker::~FrameWorker() {
    stop();
}

void FrameWorker::schedule(Stream& stream) {
    if (stream.scheduled_.exchange(true)) return;
    bool first = false;
    {
        const std::lock_guard lock(mutex_);
        first = ready_.empty();
        ready_.push_back(&stream);
    }
    if (first) wake_.notify_one();
}

void FrameWorker::stop() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void FrameWorker::run() {
    std::vector<Stream*> streams;
    while (true) {
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stop_ || !ready_.empty(); });
            // Frames know when they came: a few more at a time cost less than one by one.
            wake_.wait_for(lock, kGather, [this] { return stop_; });
            if (ready_.empty()) return;
            streams.swap(ready_);
        }
        for (Stream* stream : streams) {
            // Cleared first: a frame that comes while these are written schedules the stream again.
            stream->scheduled_ = false;
            stream->record_waiting_frames();
        }
        streams.clear();
    }
}

}  // namespace lenswire::recorder
