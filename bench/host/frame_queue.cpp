#include "bench/host/frame_queue.h"

#include <unistd.h>
#include <algorithm>

#include "bench/support/measure.h"

namespace lenswire::bench {

namespace {

constexpr int64_t kPauseMs = 3;

}  // namespace

Consumer::Consumer(Pool& pool, uint32_t streams, FrameReader& reader)
    : pool_(pool), queues_(streams), reader_(reader) {
    taken_.reserve(FrameQueue::kLongest);
    thread_ = std::thread([this] { run(); });
    while (id_ == 0) sleep_ms(1);
}

Consumer::~Consumer() {
    stop();
}

void Consumer::stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
}

bool Consumer::is_idle() {
    return std::all_of(queues_.begin(), queues_.end(), [](FrameQueue& queue) { return queue.is_empty(); });
}

void Consumer::run() {
    id_ = gettid();
    while (!stop_) {
        empty_all();
        sleep_ms(kPauseMs);
    }
    empty_all();
}

void Consumer::empty_all() {
    for (uint32_t stream = 0; stream < queues_.size(); ++stream) {
        queues_[stream].swap_out(taken_);
        for (const uint8_t* frame : taken_) reader_.read_frame_of(stream, frame);
        pool_.give_back(taken_);
        taken_.clear();
    }
}

}  // namespace lenswire::bench
