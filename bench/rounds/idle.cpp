// What the library costs while nothing happens: without streams, and with streams and cameras that are
// silent.
#include <sys/prctl.h>
#include <unistd.h>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/cameras/sender.h"
#include "bench/host/host.h"
#include "bench/receivers/library_clients.h"
#include "bench/rounds/round.h"
#include "bench/support/measure.h"
#include "lenswire/connection.h"

namespace lenswire::bench {

namespace {

struct Options {
    std::string way = "library";
    uint32_t streams = 0;
    int64_t measure_ms = 4000;
    // Longer than the queue is polled closely after something that announces a request.
    int64_t settle_ms = 10'300;
};

// What threads spend in a while.
Json measure(const std::vector<Role>& workers, int64_t measure_ms) {
    const int64_t start = now_ns();
    std::vector<int64_t> cpu, sleeps;
    for (const Role& worker : workers) {
        cpu.push_back(thread_cpu_ns(worker.thread));
        sleeps.push_back(thread_sleeps(worker.thread));
    }
    sleep_ms(measure_ms);
    const double elapsed_ns = static_cast<double>(now_ns() - start);
    double all = 0;
    Json threads;
    for (size_t i = 0; i < workers.size(); ++i) {
        const pid_t thread = workers[i].thread;
        const double share = static_cast<double>(thread_cpu_ns(thread) - cpu[i]) / elapsed_ns;
        const auto slept = static_cast<double>(thread_sleeps(thread) - sleeps[i]);
        threads[workers[i].name] = {{"core_percent", share * 100},
                                    {"sleeps_per_s", slept / elapsed_ns * 1e9}};
        all += share;
    }
    return {{"core_percent", all * 100}, {"threads", threads}};
}

Json run_library(const Options& options) {
    const Sender silent({options.streams, Pacing::kWhole, Protocol::kCamera, 0});
    std::optional<CameraProcess> cameras;
    if (options.streams > 0) cameras.emplace(options.streams);
    Host host(options.streams);
    host.clock_stands = true;
    const std::vector<Role> workers = start_library();
    if (cameras) open_streams(host, silent.port(), log_in(host, *cameras));
    host.consumer().stop();
    sleep_ms(200 + options.settle_ms);
    const Json result = measure(workers, options.measure_ms);
    PC_UnInitCtx();
    if (host.restarts != 0) give_up("a silent stream was given up while it was measured");
    return result;
}

// The least that polling costs: a thread that only sleeps, 100 us and up to 4.9 ms more.
Json run_poller(const Options& options) {
    std::atomic<bool> stop{false};
    std::atomic<pid_t> id{0};
    std::thread thread([&] {
        id = gettid();
        prctl(PR_SET_TIMERSLACK, 4'900'000UL, 0, 0, 0);
        while (!stop) usleep(100);
    });
    while (id == 0) sleep_ms(1);
    const Json result = measure({{"queue", id}}, options.measure_ms);
    stop = true;
    thread.join();
    return result;
}

Json run(const Options& options) {
    Json result{{"streams", options.streams}};
    result.update(options.way == "library" ? run_library(options) : run_poller(options));
    return result;
}

}  // namespace

Round add_idle(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--way", options->way)->check(CLI::IsMember({"library", "poller"}));
    app.add_option("--streams", options->streams, "silent ones")->check(CLI::Range(0, 192));
    app.add_option("--measure-ms", options->measure_ms)->check(CLI::PositiveNumber);
    app.add_option("--settle-ms", options->settle_ms, "before it is measured")->check(CLI::NonNegativeNumber);
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
