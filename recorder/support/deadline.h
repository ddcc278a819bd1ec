// Calls off what takes too long, from a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace lenswire::recorder {

class Deadline {
  public:
    using Clock = std::chrono::steady_clock;

    // `call_off` is called once, when time is over.
    explicit Deadline(std::function<void()> call_off);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    void set(Clock::duration length);
    void clear();
    // Whether time was over once; it stays so.
    bool passed() const;

  private:
    void run(const std::function<void()>& call_off);

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::optional<Clock::time_point> end_;  // mutex_, like the next two
    bool passed_ = false;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace lenswire::recorder
