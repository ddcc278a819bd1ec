// The cameras' side of the stream benchmarks: a process of its own that paces all streams, so that what the
// receiving process spends is measured alone.
#pragma once

#include <semaphore.h>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "bench/cameras/video.h"
#include "bench/support/process.h"

namespace lenswire::bench {

enum class Pacing {
    kWhole,    // every packet at once when it is due
    kSpread,   // segment by segment, as a link of 100 Mbit/s to each camera spreads it
    kUnpaced,  // as fast as the receiver takes it
};

enum class Protocol { kCamera, kRtsp };

struct SenderOptions {
    uint32_t streams;
    Pacing pacing;
    Protocol protocol;
    int64_t longest_ms;  // that the streams will run
};

// What the two processes share.
struct SenderBoard {
    sem_t begin;  // waited for without waking up: a silent sender costs nothing
    std::atomic<bool> stop;
    std::atomic<int> port;
    std::atomic<uint32_t> connected;
    std::atomic<bool> finished;
    std::atomic<int64_t> worst_delay_ns;  // how far behind its own schedule the sender fell
    std::atomic<int64_t> cpu_ns;
};

class Sender {
  public:
    // Starts the process.
    explicit Sender(const SenderOptions& options);

    // Where it listens, on 127.0.0.1.
    int port() const { return board_->port; }
    // Begins to send once every stream is connected.
    void go();
    // Stops the sending; the connections stay open until this object is gone.
    void stop();

    // Of each packet, the time just before its last byte went to the kernel; 0 for packets that are not out
    // yet.
    std::span<std::atomic<int64_t>> sent_at(uint32_t stream) const {
        return {sent_at_ + stream * packets_, packets_};
    }
    // The same of the last of those bytes beyond it that the receiver has to see.
    std::span<std::atomic<int64_t>> completed_at(uint32_t stream) const {
        return {completed_at_ + stream * packets_, packets_};
    }
    // How many of a stream's packets are complete.
    uint32_t completed(uint32_t stream) const { return completed_[stream]; }
    const SenderBoard& board() const { return *board_; }

  private:
    SenderOptions options_;
    size_t packets_;  // that have a time, of each stream
    SharedMemory shared_;
    SenderBoard* board_;
    std::atomic<int64_t>* sent_at_;
    std::atomic<int64_t>* completed_at_;
    std::atomic<uint32_t>* completed_;
    ChildProcess process_;
};

}  // namespace lenswire::bench
