// The host of the benchmarks: what the library asks of a recorder, done as cheaply as a good recorder does
// it. One per process, since services have no argument that names a host.
#pragma once

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bench/cameras/video.h"
#include "bench/host/frame_queue.h"
#include "bench/host/pool.h"
#include "lenswire/host_objects.h"

namespace lenswire::bench {

// A stream's receive buffer: 16 bytes of the host's own, then the ring, whose fill count is the word at 28.
// The bytes lie in one piece: when enough of them has been read, the rest moves to the front.
struct ReceiveBuffer {
    uint8_t host_part[LENSWIRE_RING_OFFSET];
    uint32_t read_at;
    uint32_t unused[2];
    uint32_t fill;
    uint8_t* data;
};
static_assert(offsetof(ReceiveBuffer, fill) == LENSWIRE_RING_FILL_OFFSET);
constexpr uint32_t kReadBeforeMove = 32 * 1024;
// What the largest packet needs, and what may be read before the rest moves.
constexpr uint32_t kRingBytes = LENSWIRE_RING_LEAST + kReadBeforeMove;

// A stream object; its first word is the stream's number.
struct StreamObject {
    HostStreamObject words;
    HostStreamInfo info;
    FrameQueue* queue;
    std::atomic<int64_t>* inserted_at;  // of each frame, by the number in its mark
    size_t inserted_room;
    // Written by the receive loop, read by everyone.
    std::atomic<uint32_t> inserted;
    std::atomic<uint32_t> refused;  // for want of a buffer or of room in the queue
    std::atomic<uint32_t> restarts;
    // That logins for this stream may still make.
    std::atomic<int> login_steps{INT_MAX};
};

// A frame in a buffer of the pool, as the sender marked it.
struct MarkedFrame {
    Mark mark;
    uint32_t payload_bytes;
};
MarkedFrame read_frame(const uint8_t* frame);

struct HostChannel {
    std::string address;
    int port = 0;
};

class Host : public FrameReader {
  public:
    // Frames after the first so many of each stream have no time of insertion.
    explicit Host(uint32_t streams, size_t timed_frames = 0);
    ~Host() override;

    uint32_t streams() const { return streams_; }
    void post_open(uint32_t stream, StreamConn* unit);
    void post_close(uint32_t stream);
    int next_request(StreamRequest* request);

    ReceiveBuffer& buffer(uint32_t stream) { return buffers_[stream]; }
    StreamObject& stream(uint32_t number) { return objects_[number]; }
    Consumer& consumer() { return *consumer_; }
    // Bytes that the library received so far.
    uint64_t bytes() const { return bytes_.load(std::memory_order_relaxed); }
    void received(uint32_t bytes) {
        bytes_.store(bytes_.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
    }
    void read_frame_of(uint32_t stream, const uint8_t* frame) override;
    // Frames that were not the next of their stream, or whose bytes were not those sent.
    uint32_t wrong_frames() const { return wrong_; }
    uint32_t frames_read(uint32_t stream) const { return next_packet_[stream]; }

    std::atomic<uint32_t> restarts{0};
    std::atomic<int> allocations{0};
    std::atomic<bool> clock_stands{false};  // no stream is silent for long then
    std::vector<HostChannel> channels;

  private:
    void post(const StreamRequest& request);

    uint32_t streams_;
    std::unique_ptr<ReceiveBuffer[]> buffers_;
    std::unique_ptr<uint8_t[]> rings_;
    std::unique_ptr<StreamObject[]> objects_;
    std::unique_ptr<std::atomic<int64_t>[]> inserted_at_;
    std::unique_ptr<std::atomic<uint32_t>[]> next_packet_;
    Pool pool_;
    std::unique_ptr<Consumer> consumer_;
    std::atomic<uint64_t> bytes_{0};
    std::atomic<uint32_t> wrong_{0};

    std::mutex request_mutex_;
    std::deque<StreamRequest> requests_;
    std::atomic<size_t> waiting_requests_{0};
};

// The one that the services speak for.
Host& host();

}  // namespace lenswire::bench
