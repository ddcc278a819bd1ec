// How soon the library takes up what happens: a stream request, the frame that waits in a stream that opens,
// a close, the first answer after a login, its own end.
#include <sys/socket.h>
#include <unistd.h>
#include <memory>
#include <string>
#include <vector>

#include "bench/cameras/video.h"
#include "bench/receivers/library_clients.h"
#include "bench/rounds/round.h"
#include "bench/support/measure.h"
#include "lenswire/connection.h"
#include "lenswire/settings.h"
#include "lenswire/stream.h"

namespace lenswire::bench {

namespace {

struct Options {
    int samples = 100;
    int quiet_samples = 2;
    int64_t quiet_ms = 10'300;  // longer than requests are expected after something that announces them
};

constexpr int64_t kLongestNs = 5'000'000'000;

// Looks without a pause, so that the library's time is measured and not this thread's.
template <typename Happened>
int64_t time_until(Happened happened) {
    const int64_t start = now_ns();
    while (!happened()) {
        if (now_ns() - start > kLongestNs) give_up("something that never happened");
    }
    return now_ns() - start;
}

bool slot_is_open() {
    return std::atomic_ref(arrayfd[0]).load() > 0;
}

// A stream whose camera has sent a packet of sound already, and what pushes it out.
class WaitingStream {
  public:
    explicit WaitingStream(StreamConn* unit) : unit_(unit) {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair) != 0) give_up("a socket pair");
        camera_ = pair[0];
        unit_->sockFd = pair[1];
        CameraPackets packets(1);
        for (const uint32_t number : {1, 3}) {
            const PacketBytes packet = packets.packet(0, number);
            for (const auto bytes : {packet.head, packet.body}) {
                if (write(camera_, bytes.data(), bytes.size()) < 0) give_up("sending a packet");
            }
        }
    }
    // The receive loop may look at the socket once more: the other end goes first.
    ~WaitingStream() {
        close(camera_);
        close(unit_->sockFd);
    }
    WaitingStream(const WaitingStream&) = delete;
    WaitingStream& operator=(const WaitingStream&) = delete;

  private:
    StreamConn* unit_;
    int camera_;
};

struct Times {
    std::vector<int64_t> request_to_slot, request_to_frame, close_to_cleared;
};

void open_and_close(Host& host, StreamConn* unit, Times& times) {
    const WaitingStream stream(unit);
    const uint32_t before = host.stream(0).inserted;
    const int64_t start = now_ns();
    host.post_open(0, unit);
    times.request_to_slot.push_back(time_until(slot_is_open));
    time_until([&] { return host.stream(0).inserted > before; });
    times.request_to_frame.push_back(now_ns() - start);
    sleep_ms(2);
    host.post_close(0);
    times.close_to_cleared.push_back(time_until([] { return !slot_is_open(); }));
    sleep_ms(2);
}

int64_t time_of_a_get() {
    uint8_t image[LENSWIRE_IMAGE_SIZE];
    const int64_t start = now_ns();
    if (Prv_GetIPCImageProperty(0, CameraProcess::address(0), image) != 0) give_up("a get failed");
    return now_ns() - start;
}

void log_in_and_ask(StreamConn* unit, const CameraProcess& cameras, std::vector<int64_t>& first,
                    std::vector<int64_t>& later) {
    const LoginInfo info{"admin", "12345", {}};
    if (PC_Login(unit, CameraProcess::address(0), cameras.port(0), &info, 0, 0) != 0) give_up("PC_Login");
    first.push_back(time_of_a_get());
    for (int i = 0; i < 10; ++i) later.push_back(time_of_a_get());
}

Json spread_of(const std::vector<int64_t>& times) {
    const auto ms = [&](double share) { return static_cast<double>(percentile(times, share)) * 1e-6; };
    return {{"median", ms(0.5)}, {"max", ms(1)}};
}

Json run(const Options& options) {
    const CameraProcess cameras(1);
    Host host(1);
    stay_on_processor(1);
    start_library();
    stay_on_processor(0);
    StreamConn* unit = PC_CreateNew();
    if (unit == nullptr) give_up("PC_CreateNew");

    Times times, quiet;
    for (int i = 0; i < options.samples; ++i) open_and_close(host, unit, times);
    std::vector<int64_t> first, later;
    for (int i = 0; i < options.samples / 4; ++i) log_in_and_ask(unit, cameras, first, later);
    for (int i = 0; i < options.quiet_samples; ++i) {
        sleep_ms(options.quiet_ms);
        open_and_close(host, unit, quiet);
    }
    PC_Delete(unit);
    const int64_t stop = now_ns();
    PC_UnInitCtx();
    const int64_t stopped = now_ns();
    return {{"request_to_slot_ms", spread_of(times.request_to_slot)},
            {"quiet_request_to_slot_ms", spread_of(quiet.request_to_slot)},
            {"request_to_frame_ms", spread_of(times.request_to_frame)},
            {"close_to_cleared_ms", spread_of(times.close_to_cleared)},
            {"first_answer_ms", spread_of(first)},
            {"later_answer_ms", spread_of(later)},
            {"stop_ms", static_cast<double>(stopped - stop) * 1e-6}};
}

}  // namespace

Round add_prompt(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--samples", options->samples)->check(CLI::Range(4, 10'000));
    app.add_option("--quiet-samples", options->quiet_samples)->check(CLI::Range(0, 100));
    app.add_option("--quiet-ms", options->quiet_ms, "before each of these")->check(CLI::NonNegativeNumber);
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
