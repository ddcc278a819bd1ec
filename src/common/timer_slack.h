// How finely the kernel honours the waits of the calling thread. A polling thread with some slack is woken
// together with others, or once for several events, instead of at the exact end of each short wait; data
// that arrives in a select wakes it at once all the same.
#pragma once

#include <sys/prctl.h>

namespace lenswire {

// For waits that only come round to look whether something has begun.
constexpr unsigned long kIdleSlackUs = 120'000;

// Sets the thread's slack for a scope.
class TimerSlack {
  public:
    explicit TimerSlack(unsigned long microseconds)
        : before_ns_(static_cast<unsigned long>(prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0))) {
        prctl(PR_SET_TIMERSLACK, microseconds * 1000, 0, 0, 0);
    }
    ~TimerSlack() { prctl(PR_SET_TIMERSLACK, before_ns_, 0, 0, 0); }
    TimerSlack(const TimerSlack&) = delete;
    TimerSlack& operator=(const TimerSlack&) = delete;

  private:
    unsigned long before_ns_;
};

}  // namespace lenswire
