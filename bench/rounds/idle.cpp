// What the library costs while nothing happens: without streams, and with streams and cameras that are
// silent.
#include <memory>
#include <optional>
#include <string>
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
    uint32_t streams = 0;
    int64_t measure_ms = 4000;
    // Longer than the queue is polled closely after something that announces a request.
    int64_t settle_ms = 10'300;
};

Json run(const Options& options) {
    const Sender silent({options.streams, Pacing::kWhole, Protocol::kCamera, 0});
    std::optional<CameraProcess> cameras;
    if (options.streams > 0) cameras.emplace(options.streams);
    Host host(options.streams);
    host.clock_stands = true;
    const std::vector<Role> workers = start_library();
    if (cameras) open_streams(host, silent.port(), log_in(host, *cameras));
    host.consumer().stop();
    sleep_ms(200 + options.settle_ms);

    const int64_t start = now_ns();
    std::vector<int64_t> cpu, sleeps;
    for (const Role& worker : workers) {
        cpu.push_back(thread_cpu_ns(worker.thread));
        sleeps.push_back(thread_sleeps(worker.thread));
    }
    sleep_ms(options.measure_ms);
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
    PC_UnInitCtx();
    if (host.restarts != 0) give_up("a silent stream was given up while it was measured");
    return {{"streams", options.streams}, {"core_percent", all * 100}, {"threads", threads}};
}

}  // namespace

Round add_idle(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--streams", options->streams, "silent ones")->check(CLI::Range(0, 192));
    app.add_option("--measure-ms", options->measure_ms)->check(CLI::PositiveNumber);
    app.add_option("--settle-ms", options->settle_ms, "before it is measured")->check(CLI::NonNegativeNumber);
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
