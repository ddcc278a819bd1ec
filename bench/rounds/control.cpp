// Round trips of a get: through the library, and the least that the event loop's rhythm allows, a loop of
// select (1 ms) and a pause of 1 ms that does nothing but wake the thread that asked. Requests go out one at
// a time in both.
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/receivers/library_clients.h"
#include "bench/rounds/round.h"
#include "bench/support/measure.h"
#include "lenswire/connection.h"
#include "lenswire/settings.h"

namespace lenswire::bench {

namespace {

struct Options {
    std::string way = "library";
    uint32_t threads = 1;
    int64_t measure_ms = 3000;
    int64_t pause_us = 0;
};

// One get after another; each camera is asked by one thread.
class Asker {
  public:
    virtual ~Asker() = default;
    virtual void ask(uint32_t camera) = 0;
    virtual Json figures() const { return Json::object(); }
};

class LibraryAsker : public Asker {
  public:
    explicit LibraryAsker(const CameraProcess& cameras) {
        workers_ = start_library();
        units_ = log_in(host_, cameras);
    }
    ~LibraryAsker() override {
        for (StreamConn* unit : units_) PC_Delete(unit);
        PC_UnInitCtx();
    }
    void ask(uint32_t camera) override {
        uint8_t image[LENSWIRE_IMAGE_SIZE];
        if (Prv_GetIPCImageProperty(0, CameraProcess::address(camera), image) != 0) give_up("a get failed");
        ++gets_;
    }
    Json figures() const override {
        return {{"host_allocations_per_get", static_cast<double>(host_.allocations) / gets_}};
    }

  private:
    Host host_{1};
    std::vector<Role> workers_;
    std::vector<StreamConn*> units_;
    std::atomic<int> gets_{0};
};

class FloorAsker : public Asker {
  public:
    explicit FloorAsker(const CameraProcess& cameras) : asked_(cameras.cameras()) {
        FD_ZERO(&watched_);
        for (uint32_t camera = 0; camera < cameras.cameras(); ++camera) {
            asked_[camera].fd = connect_to(CameraProcess::address_text(camera).c_str(), cameras.port(camera));
            FD_SET(asked_[camera].fd, &watched_);
        }
        thread_ = std::thread([this] { run(); });
    }
    ~FloorAsker() override {
        stop_ = true;
        thread_.join();
        for (const Asked& one : asked_) close(one.fd);
    }
    void ask(uint32_t camera) override {
        PrivateCmd request{};
        request.usCmd = LENSWIRE_CMD_IMAGE_GET;
        request.ulBufferSize = LENSWIRE_IMAGE_SIZE;
        request.ulBufferNum = 1;
        uint8_t message[sizeof request + LENSWIRE_IMAGE_SIZE] = {};
        std::memcpy(message, &request, sizeof request);
        Asked& one = asked_[camera];
        std::unique_lock lock(one.mutex);
        one.answered = false;
        {
            const std::lock_guard delivery(delivery_);
            if (send(one.fd, message, sizeof message, MSG_NOSIGNAL) != sizeof message) give_up("asking");
        }
        one.condition.wait(lock, [&] { return one.answered; });
    }

  private:
    struct Asked {
        int fd;
        std::mutex mutex;
        std::condition_variable condition;
        bool answered = false;
    };

    void run() {
        int largest = 0;
        for (const Asked& one : asked_) largest = std::max(largest, one.fd);
        while (!stop_) {
            fd_set readable = watched_;
            timeval wait{.tv_sec = 0, .tv_usec = 1000};
            if (select(largest + 1, &readable, nullptr, nullptr, &wait) > 0) {
                for (Asked& one : asked_) {
                    if (FD_ISSET(one.fd, &readable)) take_answer(one);
                }
            }
            usleep(1000);
        }
    }

    static void take_answer(Asked& one) {
        uint8_t answer[MAX_CMD_SIZE];
        if (recv(one.fd, answer, sizeof answer, 0) <= 0) return;
        const std::lock_guard lock(one.mutex);
        one.answered = true;
        one.condition.notify_one();
    }

    std::mutex delivery_;
    std::vector<Asked> asked_;
    fd_set watched_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

std::vector<int64_t> ask_repeatedly(Asker& asker, uint32_t camera, const Options& options) {
    std::vector<int64_t> times;
    const int64_t end = now_ns() + options.measure_ms * 1'000'000;
    while (now_ns() < end) {
        const int64_t start = now_ns();
        asker.ask(camera);
        times.push_back(now_ns() - start);
        if (options.pause_us > 0) sleep_until(now_ns() + options.pause_us * 1000);
    }
    return times;
}

Json run(const Options& options) {
    const CameraProcess cameras(options.threads);
    std::unique_ptr<Asker> asker;
    if (options.way == "library") {
        asker = std::make_unique<LibraryAsker>(cameras);
    } else {
        asker = std::make_unique<FloorAsker>(cameras);
    }
    std::vector<int64_t> all;
    std::mutex mutex;
    std::vector<std::thread> threads;
    for (uint32_t camera = 0; camera < options.threads; ++camera) {
        threads.emplace_back([&, camera] {
            const std::vector<int64_t> times = ask_repeatedly(*asker, camera, options);
            const std::lock_guard lock(mutex);
            all.insert(all.end(), times.begin(), times.end());
        });
    }
    for (std::thread& thread : threads) thread.join();

    const auto us = [&](double share) { return static_cast<double>(percentile(all, share)) * 1e-3; };
    Json result{{"way", options.way},
                {"threads", options.threads},
                {"pause_us", options.pause_us},
                {"round_trips", all.size()},
                {"round_trip_us", {{"median", us(0.5)}, {"p99", us(0.99)}, {"max", us(1)}}}};
    result.update(asker->figures());
    return result;
}

}  // namespace

Round add_control(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--way", options->way)->check(CLI::IsMember({"library", "floor"}));
    app.add_option("--threads", options->threads, "each asks a camera of its own")->check(CLI::Range(1, 128));
    app.add_option("--measure-ms", options->measure_ms)->check(CLI::PositiveNumber);
    app.add_option("--pause-us", options->pause_us, "of each thread between two gets");
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
