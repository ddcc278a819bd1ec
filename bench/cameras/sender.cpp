#include "bench/cameras/sender.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <functional>
#include <queue>
#include <vector>

#include "bench/cameras/rtsp.h"
#include "bench/support/measure.h"

namespace lenswire::bench {

namespace {

// Where a stream's progress is told.
struct Progress {
    std::span<std::atomic<int64_t>> sent_at;
    std::span<std::atomic<int64_t>> completed_at;
    std::atomic<uint32_t>* completed;
};

constexpr int kSendBufferBytes = 1 << 20;  // a whole I-frame fits
constexpr int64_t kRetryNs = 200'000;
// A segment on the camera's link: what it carries, and how long it takes with all its headers.
constexpr size_t kSegmentBytes = 1448;
constexpr int64_t kSegmentNs = 1538 * 8 * 10;

// One stream's connection and how far its packets have gone out.
class Outlet {
  public:
    Outlet(int fd, uint32_t stream, PacketSource& source, Progress progress)
        : fd_(fd), stream_(stream), source_(&source), progress_(progress) {
        load();
    }

    int fd() const { return fd_; }
    uint32_t number() const { return number_; }
    bool packet_sent() const { return sent_ == bytes_.size(); }
    size_t packet_bytes() const { return bytes_.size(); }
    size_t bytes_sent() const { return sent_; }

    void next() {
        ++number_;
        load();
    }

    // Sends the packet up to the given number of its bytes. How many were accepted.
    size_t send_up_to(size_t limit) {
        const size_t wanted = std::min(limit, bytes_.size());
        if (wanted <= sent_) return 0;
        const int64_t before = now_ns();
        const ssize_t accepted = write_range(sent_, wanted);
        if (accepted <= 0) return 0;
        sent_ += static_cast<size_t>(accepted);
        total_ += static_cast<size_t>(accepted);
        if (packet_sent() && number_ < progress_.sent_at.size()) progress_.sent_at[number_] = before;
        note_completed(before);
        return static_cast<size_t>(accepted);
    }

  private:
    void load() {
        bytes_ = source_->packet(stream_, number_);
        sent_ = 0;
        unseen_.push({number_, total_ + bytes_.size() + source_->bytes_beyond()});
    }

    ssize_t write_range(size_t from, size_t to) const {
        const size_t head = bytes_.head.size();
        iovec parts[2];
        size_t count = 0;
        const auto add = [&](std::span<const uint8_t> part) {
            if (!part.empty()) parts[count++] = {const_cast<uint8_t*>(part.data()), part.size()};
        };
        if (from < head) add(bytes_.head.subspan(from, std::min(to, head) - from));
        if (to > head) {
            const size_t start = std::max(from, head);
            add(bytes_.body.subspan(start - head, to - start));
        }
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        return sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    void note_completed(int64_t at) {
        while (!unseen_.empty() && unseen_.front().complete_at <= total_) {
            const uint32_t number = unseen_.front().number;
            if (number < progress_.completed_at.size()) progress_.completed_at[number] = at;
            *progress_.completed = number + 1;
            unseen_.pop();
        }
    }

    struct Unseen {
        uint32_t number;
        uint64_t complete_at;  // bytes of the stream
    };

    int fd_;
    uint32_t stream_;
    PacketSource* source_;
    Progress progress_;
    uint32_t number_ = 0;
    PacketBytes bytes_;
    size_t sent_ = 0;
    uint64_t total_ = 0;
    std::queue<Unseen> unseen_;
};

// Sends every stream's packets when they are due.
class Schedule {
  public:
    Schedule(std::vector<Outlet>& outlets, PacketSource& source, Pacing pacing, SenderBoard& board)
        : outlets_(outlets), source_(source), pacing_(pacing), board_(board), start_(now_ns()) {
        for (uint32_t stream = 0; stream < outlets.size(); ++stream) plan(due(stream), stream);
    }

    void run() {
        while (!board_.stop) {
            const Event event = events_.top();
            if (const int64_t delay = now_ns() - event.at; delay < 0) {
                sleep_until(std::min(event.at, now_ns() + kFrameNs));
                continue;
            } else if (delay > board_.worst_delay_ns) {
                board_.worst_delay_ns = delay;
            }
            events_.pop();
            serve(event.stream);
        }
    }

  private:
    struct Event {
        int64_t at;
        uint32_t stream;
        bool operator>(const Event& other) const { return at > other.at; }
    };

    void plan(int64_t at, uint32_t stream) { events_.push({at, stream}); }
    int64_t due(uint32_t stream) const { return start_ + due_ns(stream, outlets_[stream].number()); }

    // Sends what is due, in as many pieces as a camera would. False when the connection took nothing.
    bool send_due(Outlet& outlet, size_t allowed) const {
        const size_t piece = source_.bytes_at_once();
        size_t sent = outlet.bytes_sent();
        const size_t before = sent;
        while (sent < allowed && outlet.send_up_to(std::min(allowed - sent, piece) + sent) > 0) {
            sent = outlet.bytes_sent();
        }
        return sent > before;
    }

    void serve(uint32_t stream) {
        Outlet& outlet = outlets_[stream];
        const size_t allowed = bytes_due(stream);
        const bool blocked = !send_due(outlet, allowed);
        if (outlet.packet_sent()) {
            outlet.next();
            plan(due(stream), stream);
        } else if (blocked || pacing_ == Pacing::kWhole) {
            plan(now_ns() + kRetryNs, stream);
        } else {
            plan(due(stream) + static_cast<int64_t>(allowed / kSegmentBytes) * kSegmentNs, stream);
        }
    }

    // How much of its packet a stream may have sent by now.
    size_t bytes_due(uint32_t stream) const {
        const size_t all = outlets_[stream].packet_bytes();
        if (pacing_ == Pacing::kWhole) return all;
        const auto segments = static_cast<size_t>((now_ns() - due(stream)) / kSegmentNs) + 1;
        return std::min(all, segments * kSegmentBytes);
    }

    std::vector<Outlet>& outlets_;
    PacketSource& source_;
    Pacing pacing_;
    SenderBoard& board_;
    int64_t start_;
    std::priority_queue<Event, std::vector<Event>, std::greater<>> events_;
};

void send_unpaced(std::vector<Outlet>& outlets, const SenderBoard& board) {
    std::vector<pollfd> waiting;
    for (const Outlet& outlet : outlets) waiting.push_back({outlet.fd(), POLLOUT, 0});
    while (!board.stop) {
        size_t accepted = 0;
        for (Outlet& outlet : outlets) {
            accepted += outlet.send_up_to(SIZE_MAX);
            if (outlet.packet_sent()) outlet.next();
        }
        if (accepted == 0) poll(waiting.data(), waiting.size(), 100);
    }
}

int accept_stream(int listener, const SenderOptions& options) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) give_up("accepting a stream");
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
    if (options.pacing == Pacing::kUnpaced) {
        // What the kernel has beyond what the connection takes at once goes out when the receiver reads, on
        // the receiver's processor and account: so it is one buffer in all, however many the streams.
        const int unsent = kSendBufferBytes / static_cast<int>(options.streams);
        setsockopt(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &unsent, sizeof unsent);
    }
    if (options.protocol == Protocol::kRtsp && !rtsp::answer_until_play(fd)) give_up("an RTSP session");
    return fd;
}

void run_sender(const SenderOptions& options, SenderBoard& board,
                const std::function<Progress(uint32_t)>& progress) {
    prctl(PR_SET_TIMERSLACK, 1);
    int port = 0;
    const int listener = listen_at(kLoopback, port);
    board.port = port;
    std::unique_ptr<PacketSource> source;
    if (options.protocol == Protocol::kCamera) {
        source = std::make_unique<CameraPackets>(options.streams);
    } else {
        source = std::make_unique<rtsp::RtpPackets>(options.streams);
    }
    std::vector<Outlet> outlets;
    for (uint32_t stream = 0; stream < options.streams; ++stream) {
        outlets.emplace_back(accept_stream(listener, options), stream, *source, progress(stream));
        ++board.connected;
    }
    while (sem_wait(&board.begin) != 0) {
    }
    if (options.pacing == Pacing::kUnpaced) {
        send_unpaced(outlets, board);
    } else {
        Schedule(outlets, *source, options.pacing, board).run();
    }
    board.cpu_ns = process_cpu_ns();
    board.finished = true;
    while (true) pause();
}

// One entry per packet that can become due.
size_t timed_packets(const SenderOptions& options) {
    return static_cast<size_t>(options.longest_ms / 1000 + 2) * kFrameRate * 2;
}

SenderBoard* new_board(const SharedMemory& shared) {
    auto* board = reinterpret_cast<SenderBoard*>(shared.bytes());
    sem_init(&board->begin, 1, 0);
    return board;
}

}  // namespace

Sender::Sender(const SenderOptions& options)
    : options_(options),
      packets_(timed_packets(options)),
      shared_(sizeof(SenderBoard) + options.streams * (2 * packets_ * sizeof(int64_t) + sizeof(uint32_t))),
      board_(new_board(shared_)),
      sent_at_(reinterpret_cast<std::atomic<int64_t>*>(board_ + 1)),
      completed_at_(sent_at_ + options.streams * packets_),
      completed_(reinterpret_cast<std::atomic<uint32_t>*>(completed_at_ + options.streams * packets_)),
      process_([this] {
          run_sender(options_, *board_, [this](uint32_t stream) {
              return Progress{sent_at(stream), completed_at(stream), completed_ + stream};
          });
      }) {
    while (board_->port == 0) sleep_ms(1);
}

void Sender::go() {
    while (board_->connected < options_.streams) sleep_ms(1);
    sem_post(&board_->begin);
}

void Sender::stop() {
    board_->stop = true;
    while (!board_->finished) sleep_ms(1);
}

}  // namespace lenswire::bench
