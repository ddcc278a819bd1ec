#include "recorder/session/probe.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>

#include "recorder/records/camera_clock.h"
#include "recorder/records/layouts.h"
#include "recorder/session/camera_link.h"
#include "recorder/session/camera_request.h"
#include "recorder/support/deadline.h"

namespace lenswire::recorder {
namespace {

using Clock = std::chrono::steady_clock;

// A login ends by itself, within one step of it; only then may the context be stopped over the rest.
constexpr auto kLastStep = std::chrono::milliseconds(250);

// What is still to be learnt when the time is over stays unknown; the rest counts.
class Question {
  public:
    Question(const Plugin& library, CameraLink& link, Clock::time_point end)
        : library_(library), link_(link), end_(end) {}

    void ask(ProbeResult& result) {
        result.camera = link_.address();
        try {
            look_at_port(link_.address(), end_ - Clock::now());
            result.answers = true;
            log_in(result);
            read(result);
        } catch (const Failure& failure) {
            result.code = failure.code();
            result.error = failure.what();
        }
    }

  private:
    void log_in(ProbeResult& result) {
        const int login = link_.login(end_ - Clock::now());
        if (login != kLoggedIn)
            throw Failure(login_exit_code(login),
                          "camera " + result.camera.name() + " " + login_failure(login));
        result.logged_in = true;
    }
    void read(ProbeResult& result) {
        const uint32_t ip = result.camera.ip;
        const auto device = request(library_, ip, LENSWIRE_CMD_DEVICE_INFO, LENSWIRE_DEVICE_INFO_SIZE);
        if (!device) throw unanswered("device information");
        result.device = *device;
        IpcTimeInfo clock{};
        if (library_.Prv_GetTimeProperty(result.camera.channel, ip, &clock) != 0) throw unanswered("clock");
        result.clock_ahead_s = clock_ahead(clock, time(nullptr));
        Bytes encoding(kEncodingLayout.whole_size());
        if (library_.Private_Protocol_GetEncodingProperty(ip, encoding.data()) != 0)
            throw unanswered("encoding settings");
        result.encoding = std::move(encoding);
    }
    Failure unanswered(const char* what) const {
        const std::string camera = "camera " + link_.address().name();
        if (Clock::now() >= end_) return {kTimedOut, camera + " did not answer the request for " + what};
        return {kCameraRefused, camera + " answered the request for " + std::string(what) + " with an error"};
    }

    const Plugin& library_;
    CameraLink& link_;
    Clock::time_point end_;
};

// Cameras of different addresses, for the library tells answers apart by these; in a context of its own,
// which is stopped when time is over.
void probe_round(const std::vector<CameraAddress>& cameras, const std::vector<size_t>& round,
                 const SessionOptions& options, const std::function<void(size_t, const ProbeResult&)>& done) {
    Host host;
    Plugin library(options.library);
    const PluginContext context(library);
    std::mutex mutex;
    std::vector<std::unique_ptr<CameraLink>> links;
    for (const size_t index : round) {
        const int channel = host.store.bind_camera(cameras[index]);
        links.push_back(std::make_unique<CameraLink>(library, cameras[index], channel, 0));
    }
    const auto start = Clock::now();
    const auto end = start + std::max<Clock::duration>(options.timeout() - kLastStep, options.timeout() / 2);
    Deadline deadline([&library] { library.PC_UnInitCtx(); });
    deadline.set(options.timeout());
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < round.size(); ++i) {
        threads.emplace_back([&, i] {
            ProbeResult result;
            Question(library, *links[i], end).ask(result);
            result.took_ms =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
            const std::lock_guard lock(mutex);
            done(round[i], result);
        });
    }
}

}  // namespace

void probe_cameras(const std::vector<CameraAddress>& cameras, const SessionOptions& options,
                   const std::function<void(size_t, const ProbeResult&)>& done) {
    constexpr size_t kMostAtOnce = 64;
    std::vector<size_t> left(cameras.size());
    for (size_t i = 0; i < left.size(); ++i) left[i] = i;
    while (!left.empty()) {
        std::vector<size_t> round;
        std::vector<size_t> later;
        for (const size_t index : left) {
            const bool taken = round.size() == kMostAtOnce || std::ranges::any_of(round, [&](size_t other) {
                                   return cameras[other].ip == cameras[index].ip;
                               });
            (taken ? later : round).push_back(index);
        }
        probe_round(cameras, round, options, done);
        left = std::move(later);
    }
}

}  // namespace lenswire::recorder
