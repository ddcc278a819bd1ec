// How late the kernel may end the waits of the calling thread. A thread with some slack is woken together
// with others, or once for several events, instead of at the exact end of each short wait; data that arrives
// in a select wakes it at once all the same.
//
// Set it around a wait of one's own and nothing else: a thread that the host starts inside one of its
// services inherits the slack of the thread that called it.
#pragma once

#include <sys/prctl.h>
#include <cerrno>

namespace lenswire {

// Lets waits end late by so much, for a scope; 0 leaves them as they are. errno survives it. Where the kernel
// refuses, waits end as they would anyway.
class TimerSlack {
  public:
    explicit TimerSlack(unsigned long late_us) {
        if (late_us == 0) return;
        const int error = errno;
        const int own_ns = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
        // A real-time thread has none, and setting it none would set the default.
        if (own_ns > 0 && prctl(PR_SET_TIMERSLACK, late_us * 1000, 0, 0, 0) == 0) own_ns_ = own_ns;
        errno = error;
    }
    ~TimerSlack() {
        if (own_ns_ == 0) return;
        const int error = errno;
        // Refused once, it is asked again: the thread must not take its slack into the host.
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(own_ns_), 0, 0, 0) == 0) break;
        }
        errno = error;
    }
    TimerSlack(const TimerSlack&) = delete;
    TimerSlack& operator=(const TimerSlack&) = delete;

  private:
    int own_ns_ = 0;  // to be restored; 0 when nothing was set
};

}  // namespace lenswire
