// The way of frames from the receiving thread to a consumer: a queue per stream and one thread that empties
// all of them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/host/pool.h"

namespace lenswire::bench {

// Filled by the receiving thread, emptied by the consumer in one go.
class FrameQueue {
  public:
    FrameQueue() { frames_.reserve(kLongest); }

    std::mutex& mutex() { return mutex_; }
    bool is_empty() {
        const std::lock_guard lock(mutex_);
        return frames_.empty();
    }
    // Under the mutex. False when the queue is full: the frame stays the caller's.
    bool push(uint8_t* frame) {
        if (frames_.size() == kLongest) return false;
        frames_.push_back(frame);
        return true;
    }
    // Swaps the frames with an empty list that has room for as many.
    void swap_out(std::vector<uint8_t*>& empty) {
        const std::lock_guard lock(mutex_);
        frames_.swap(empty);
    }

    static constexpr size_t kLongest = 8192;

  private:
    std::mutex mutex_;
    std::vector<uint8_t*> frames_;
};

// What a consumer does with each frame of a stream before the buffer goes back to the pool.
class FrameReader {
  public:
    virtual ~FrameReader() = default;
    virtual void read_frame_of(uint32_t stream, const uint8_t* frame) = 0;
};

// Looks at every queue a few hundred times a second, so that nobody has to wake it for each frame.
class Consumer {
  public:
    Consumer(Pool& pool, uint32_t streams, FrameReader& reader);
    ~Consumer();
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;

    FrameQueue& queue(uint32_t stream) { return queues_[stream]; }
    Pool& pool() { return pool_; }
    pid_t thread() const { return id_; }
    // Nothing more is to come: the thread ends.
    void stop();
    // Whether all that was in the queues so far has been read.
    bool is_idle();

  private:
    void run();
    void empty_all();

    Pool& pool_;
    std::vector<FrameQueue> queues_;
    FrameReader& reader_;
    std::vector<uint8_t*> taken_;
    std::atomic<bool> stop_ = false;
    std::atomic<pid_t> id_ = 0;
    std::thread thread_;
};

}  // namespace lenswire::bench
