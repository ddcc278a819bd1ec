// The frame queue of one stream: buffers that the library fills with frames, and the frames that wait for
// a consumer.
//
// Buffers come in sizes of powers of two and are used again, so that in steady state a frame costs no
// allocation; all buffers of a stream together stay below a limit. When a frame does not fit under it, the
// consumer is too slow, and the frame is refused and counted as lost.
//
// Threads: the receive loop takes, locks, inserts and unlocks; one consumer drains and gives back. mutex_
// guards everything but what `handed_out_` points to, which is the receive loop's until it is inserted.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "lenswire/records.h"

namespace lenswire::recorder {

// One frame: the head that the library writes, and its data.
class FrameBuffer {
  public:
    explicit FrameBuffer(uint32_t capacity);

    StreamFrameHead head() const;
    // The frame's bytes after the head; never more than the buffer holds, whatever the head says.
    std::span<const uint8_t> data() const;
    bool first_of_connection() const { return first_of_connection_; }
    int64_t received() const { return received_; }  // on the listener's clock

  private:
    friend class FrameQueue;
    uint32_t capacity_;
    bool first_of_connection_ = false;
    int64_t received_ = 0;
    std::unique_ptr<uint8_t[]> bytes_;
};

class FrameQueue {
  public:
    // The largest frame, data only: as much as the library ever takes out of a ring in one piece.
    static constexpr uint32_t kLargestFrame = 1024 * 1024;
    static constexpr size_t kDefaultLimit = 8 * 1024 * 1024;

    class Listener {
      public:
        // Called after each unlock that follows an insertion, without the lock.
        virtual void frames_waiting() = 0;
        // Called with each insertion.
        virtual int64_t now() { return 0; }

      protected:
        ~Listener() = default;
    };

    explicit FrameQueue(Listener* listener = nullptr, size_t limit = kDefaultLimit);

    // -- The library's side.
    void* take(int size);
    void lock() { mutex_.lock(); }
    bool insert(void* frame);  // the caller holds the lock
    void unlock();

    // The next frame inserted is the first of a new connection.
    void begin_connection();

    // -- The consumer's side. drain() moves the waiting frames, oldest first, to the end of `frames`.
    void drain(std::vector<FrameBuffer*>& frames);
    void give_back(std::span<FrameBuffer* const> frames);

    uint64_t lost() const { return lost_.load(std::memory_order_relaxed); }
    size_t allocated_bytes() const;

  private:
    static constexpr int kSizes = 10;  // 4 KiB to 2 MiB
    static constexpr uint32_t kSmallest = 4096;

    FrameBuffer* take_buffer(uint32_t bytes);
    FrameBuffer* allocate(int size_class);
    void free_unused(size_t needed);
    static int size_class(uint32_t bytes);

    Listener* listener_;
    size_t limit_;
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<FrameBuffer>> buffers_;
    std::array<std::vector<FrameBuffer*>, kSizes> unused_;
    std::vector<FrameBuffer*> waiting_;
    size_t allocated_ = 0;
    bool begin_connection_ = false;
    bool inserted_ = false;
    FrameBuffer* handed_out_ = nullptr;
    std::atomic<uint64_t> lost_{0};
};

}  // namespace lenswire::recorder
