// One thread that serves many descriptors and many timers, and the lock under which it does.
#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace lenswire::camera {

// Where a loop takes its time from: microseconds that never go back. One that stands still until it is moved
// makes every delay of a camera exact.
using Clock = std::function<int64_t()>;
int64_t steady_us();

// Something with a descriptor in the loop. Edge-triggered: on_ready must go on until the descriptor would
// block.
class Watched {
  public:
    virtual ~Watched() = default;
    virtual void on_ready(uint32_t events) = 0;
};

class Loop;

// A one-shot timer; re-arming moves it, destroying it disarms it.
class Timer {
  public:
    Timer(Loop& loop, std::function<void()> action) : loop_(loop), action_(std::move(action)) {}
    ~Timer() { disarm(); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void arm(int64_t due_us);
    void disarm();

  private:
    friend class Loop;
    Loop& loop_;
    std::function<void()> action_;
    int64_t due_us_ = -1;
};

// The lock is recursive, so that what the loop calls (an answer hook, say) may use the cameras' own
// interface. Everything that the loop serves is created, used and destroyed under it.
class Loop {
  public:
    using Guard = std::unique_lock<std::recursive_mutex>;

    explicit Loop(Clock clock = steady_us);
    ~Loop();

    bool start(std::string* error);
    // Joins the thread: no callback runs after it. Called without the lock.
    void stop();

    Guard lock();
    int64_t now_us() const { return clock_(); }
    // Returns when all that was there to be served at the call, and due by then, has been served. Never
    // called from inside a hook.
    void settle();
    // Waits under the guard until the predicate holds, false when the time runs out first. The predicate is
    // looked at after every pass of the loop that reported a change.
    bool wait(Guard& guard, int64_t timeout_ms, const std::function<bool()>& predicate);
    void report_change();

    bool watch(int fd, Watched* watched);
    // Keeps an object alive until the events of this pass are served: they may still point to it.
    void bury(std::unique_ptr<Watched> watched) { graveyard_.push_back(std::move(watched)); }

  private:
    friend class Timer;
    void run();
    void serve(std::span<const epoll_event> events);
    void run_due_timers();
    int timeout_ms() const;
    void wake();

    Clock clock_;
    std::recursive_mutex mutex_;
    std::atomic<int> waiting_ = 0;  // callers of lock() who do not have it yet
    std::condition_variable_any change_;
    std::thread thread_;
    int epoll_fd_ = -1;
    int wake_fd_ = -1;
    std::thread::id runner_;
    int64_t pass_us_ = 0;
    int64_t put_off_us_ = 0;  // what was put off to the next pass is due then, even if the clock stands
    uint64_t passes_ = 0;
    int settling_ = 0;
    bool stopping_ = false;
    bool changed_ = false;
    std::set<std::pair<int64_t, Timer*>> timers_;
    std::vector<std::unique_ptr<Watched>> graveyard_;
};

}  // namespace lenswire::camera
