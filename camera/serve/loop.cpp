#include "camera/serve/loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <utility>

#include "camera/wire/bytes.h"

namespace lenswire::camera {
namespace {

constexpr int kEventsPerPass = 256;
constexpr int kMostYields = 100;

}  // namespace

int64_t steady_us() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(since).count();
}

void Timer::arm(int64_t due_us) {
    // Not in the pass that is running, or it might never end.
    if (due_us <= loop_.pass_us_) due_us = loop_.put_off_us_ = loop_.pass_us_ + 1;
    const int64_t earliest = loop_.timers_.empty() ? INT64_MAX : loop_.timers_.begin()->first;
    if (due_us_ >= 0) {
        auto node = loop_.timers_.extract({due_us_, this});
        node.value().first = due_us;
        loop_.timers_.insert(std::move(node));
    } else {
        loop_.timers_.insert({due_us, this});
    }
    due_us_ = due_us;
    if (due_us < earliest) loop_.wake();
}

void Timer::disarm() {
    if (due_us_ >= 0) loop_.timers_.erase({due_us_, this});
    due_us_ = -1;
}

Loop::Loop(Clock clock)
    : clock_(std::move(clock)),
      epoll_fd_(epoll_create1(EPOLL_CLOEXEC)),
      wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Loop::~Loop() {
    stop();
    if (epoll_fd_ >= 0) close(epoll_fd_);
    if (wake_fd_ >= 0) close(wake_fd_);
}

bool Loop::start(std::string* error) {
    if (epoll_fd_ < 0 || wake_fd_ < 0 || !watch(wake_fd_, nullptr)) {
        *error = std::string("no event loop: ") + error_text(errno);
        return false;
    }
    const auto guard = lock();  // run() begins with it, so the thread knows who it is
    thread_ = std::thread([this] { run(); });
    runner_ = thread_.get_id();
    return true;
}

void Loop::stop() {
    if (!thread_.joinable()) return;
    {
        const auto guard = lock();
        stopping_ = true;
    }
    wake();
    thread_.join();
    graveyard_.clear();
}

Loop::Guard Loop::lock() {
    ++waiting_;
    Guard guard(mutex_);
    --waiting_;
    return guard;
}

bool Loop::wait(Guard& guard, int64_t timeout_ms, const std::function<bool()>& predicate) {
    return change_.wait_for(guard, std::chrono::milliseconds(timeout_ms), predicate);
}

void Loop::settle() {
    auto guard = lock();
    // The pass that is about to run may have looked for events before the call; the one after it has not.
    const uint64_t whole = passes_ + 2;
    ++settling_;
    while (passes_ < whole) {
        wake();
        change_.wait(guard);
    }
    --settling_;
}

void Loop::report_change() {
    if (std::this_thread::get_id() == runner_) {
        changed_ = true;  // those who wait are told once, at the end of the pass
    } else {
        change_.notify_all();
    }
}

bool Loop::watch(int fd, Watched* watched) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
    event.data.ptr = watched;
    return epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &event) == 0;
}

void Loop::wake() {
    if (std::this_thread::get_id() == runner_) return;  // it looks at the timers before it waits again
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_fd_, &one, sizeof one);
}

void Loop::run() {
    epoll_event events[kEventsPerPass];
    auto guard = lock();
    while (!stopping_) {
        const int timeout = timeout_ms();
        guard.unlock();
        const int ready = epoll_wait(epoll_fd_, events, kEventsPerPass, timeout);
        // A busy loop would take the lock again before anybody else woke up.
        for (int turns = 0; waiting_ > 0 && turns < kMostYields; ++turns) std::this_thread::yield();
        guard.lock();
        serve({events, static_cast<size_t>(std::max(ready, 0))});
        run_due_timers();
        graveyard_.clear();
        ++passes_;
        if (changed_ || settling_ > 0) change_.notify_all();
        changed_ = false;
    }
}

void Loop::serve(std::span<const epoll_event> events) {
    for (const epoll_event& event : events) {
        auto* watched = static_cast<Watched*>(event.data.ptr);
        if (watched != nullptr) {
            watched->on_ready(event.events);
            continue;
        }
        uint64_t count = 0;
        [[maybe_unused]] const auto got = read(wake_fd_, &count, sizeof count);
    }
}

void Loop::run_due_timers() {
    pass_us_ = std::max(now_us(), put_off_us_);
    while (!timers_.empty() && timers_.begin()->first <= pass_us_) {
        Timer* timer = timers_.begin()->second;
        timer->disarm();
        timer->action_();  // may destroy other timers; the owner of this one goes by way of bury()
    }
}

int Loop::timeout_ms() const {
    if (timers_.empty()) return -1;
    const int64_t left = timers_.begin()->first - now_us();
    return static_cast<int>(std::clamp<int64_t>((left + 999) / 1000, 0, INT_MAX));
}

}  // namespace lenswire::camera
