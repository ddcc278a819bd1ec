// The least that receiving the same bytes can cost: one thread with select and recv, which throws the bytes
// away or copies each of them once into buffers as the library's host has them. It may let them gather
// between its passes for as long as the library does.
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "bench/cameras/sender.h"
#include "bench/cameras/video.h"
#include "bench/host/frame_queue.h"
#include "bench/receivers/receiver.h"
#include "bench/support/measure.h"

namespace lenswire::bench {

namespace {

constexpr size_t kReceiveBytes = 256 * 1024;
constexpr int64_t kGatherNs = 3'200'000;  // from the start of one pass to that of the next

// What happens to the bytes that a stream brought.
class ThrowAway {
  public:
    explicit ThrowAway(uint32_t) {}
    void takes(uint32_t, const uint8_t*, size_t) {}
    std::vector<Role> consuming() const { return {}; }
};

// Copies them into a buffer of the pool per stream; full ones go to the stream's queue, which the same
// consumer empties as in the library's host.
class CopyOnce : public FrameReader {
  public:
    explicit CopyOnce(uint32_t streams) : consumer_(pool_, streams, *this), buffers_(streams) {}

    void takes(uint32_t stream, const uint8_t* bytes, size_t count) {
        Buffer& buffer = buffers_[stream];
        while (count > 0) {
            if (buffer.start == nullptr && (buffer.start = pool_.take(kBufferBytes)) == nullptr) {
                give_up("the copying loop has no buffer");
            }
            const size_t part = std::min(count, kBufferBytes - buffer.used);
            std::memcpy(buffer.start + buffer.used, bytes, part);
            bytes += part;
            count -= part;
            buffer.used += part;
            if (buffer.used == kBufferBytes) hand_over(stream);
        }
    }

    void read_frame_of(uint32_t, const uint8_t*) override {}
    std::vector<Role> consuming() const { return {{"consumer", consumer_.thread()}}; }

  private:
    static constexpr size_t kBufferBytes = kSmallFrame;
    struct Buffer {
        uint8_t* start = nullptr;
        size_t used = 0;
    };

    void hand_over(uint32_t stream) {
        FrameQueue& queue = consumer_.queue(stream);
        const std::lock_guard lock(queue.mutex());
        if (!queue.push(buffers_[stream].start)) give_up("the copying loop's queue is full");
        buffers_[stream] = {};
    }

    Pool pool_;
    Consumer consumer_;
    std::vector<Buffer> buffers_;
};

template <class Sink>
class LoopReceiver : public Receiver {
  public:
    explicit LoopReceiver(const ReceiverOptions& options, int64_t period_ns = 0)
        : streams_(options.streams), period_ns_(period_ns), sink_(options.streams) {}

    ~LoopReceiver() override {
        stop_ = true;
        thread_.join();
        for (const int fd : sockets_) close(fd);
    }

    void start(const Sender& sender) override {
        FD_ZERO(&watched_);
        for (uint32_t stream = 0; stream < streams_; ++stream) {
            sockets_.push_back(connect_to(kLoopback, sender.port()));
            FD_SET(sockets_.back(), &watched_);
        }
        thread_ = std::thread([this] { run(); });
        while (id_ == 0) sleep_ms(1);
    }

    std::vector<Role> receiving() const override { return {{"loop", id_}}; }
    std::vector<Role> consuming() const override { return sink_.consuming(); }
    uint64_t bytes() const override { return bytes_; }

  private:
    void run() {
        id_ = gettid();
        std::vector<uint8_t> received(kReceiveBytes);
        const int count = *std::max_element(sockets_.begin(), sockets_.end()) + 1;
        while (!stop_) {
            fd_set readable = watched_;
            timeval wait{.tv_sec = 0, .tv_usec = 1000};
            if (select(count, &readable, nullptr, nullptr, &wait) <= 0) continue;
            const int64_t pass_start = period_ns_ > 0 ? now_ns() : 0;
            for (uint32_t stream = 0; stream < streams_; ++stream) {
                if (!FD_ISSET(sockets_[stream], &readable)) continue;
                const ssize_t length = recv(sockets_[stream], received.data(), received.size(), 0);
                if (length <= 0) continue;
                sink_.takes(stream, received.data(), static_cast<size_t>(length));
                bytes_.store(bytes_.load(std::memory_order_relaxed) + static_cast<size_t>(length),
                             std::memory_order_relaxed);
            }
            if (period_ns_ > 0) sleep_until(pass_start + period_ns_);
        }
    }

    uint32_t streams_;
    int64_t period_ns_;
    Sink sink_;
    std::vector<int> sockets_;
    fd_set watched_;
    std::atomic<uint64_t> bytes_{0};
    std::atomic<bool> stop_{false};
    std::atomic<pid_t> id_{0};
    std::thread thread_;
};

}  // namespace

std::unique_ptr<Receiver> make_bare_loop(const ReceiverOptions& options) {
    return std::make_unique<LoopReceiver<ThrowAway>>(options);
}

std::unique_ptr<Receiver> make_gathering_loop(const ReceiverOptions& options) {
    return std::make_unique<LoopReceiver<ThrowAway>>(options, kGatherNs);
}

std::unique_ptr<Receiver> make_copying_loop(const ReceiverOptions& options) {
    return std::make_unique<LoopReceiver<CopyOnce>>(options);
}

}  // namespace lenswire::bench
