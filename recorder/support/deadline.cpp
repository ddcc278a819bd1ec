#include "recorder/support/deadline.h"

namespace lenswire::recorder {

Deadline::Deadline(std::function<void()> call_off)
    : thread_([this, call_off = std::move(call_off)] { run(call_off); }) {}

Deadline::~Deadline() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void Deadline::set(Clock::duration length) {
    {
        const std::lock_guard lock(mutex_);
        end_ = Clock::now() + length;
    }
    wake_.notify_one();
}

void Deadline::clear() {
    const std::lock_guard lock(mutex_);
    end_.reset();
}

bool Deadline::passed() const {
    const std::lock_guard lock(mutex_);
    return passed_;
}

void Deadline::run(const std::function<void()>& call_off) {
    std::unique_lock lock(mutex_);
    while (!stop_) {
        if (!end_) {
            wake_.wait(lock, [this] { return stop_ || end_; });
        } else if (Clock::now() >= *end_) {
            passed_ = true;
            lock.unlock();
            call_off();
            return;
        } else {
            wake_.wait_until(lock, *end_);
        }
    }
}

}  // namespace lenswire::recorder
