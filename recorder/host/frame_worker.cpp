#include "recorder/host/frame_worker.h"

namespace lenswire::recorder {

FrameWorker::FrameWorker() : thread_([this] { run(); }) {}

FrameWorker::~FrameWorker() {
    stop();
}

void FrameWorker::schedule(Stream& stream) {
    if (stream.scheduled_.exchange(true)) return;
    {
        const std::lock_guard lock(mutex_);
        ready_.push_back(&stream);
    }
    wake_.notify_one();
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
