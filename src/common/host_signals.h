// The host's signals go to the host's threads.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace lenswire {

// A thread that is created in this scope starts with the host's signals blocked, as it inherits them. Those
// that a thread brings on itself stay, for the host's crash handler.
class HostSignalsBlocked {
  public:
    HostSignalsBlocked() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
            sigdelset(&blocked, own);
        pthread_sigmask(SIG_SETMASK, &blocked, &before_);
    }
    ~HostSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    HostSignalsBlocked(const HostSignalsBlocked&) = delete;
    HostSignalsBlocked& operator=(const HostSignalsBlocked&) = delete;

  private:
    sigset_t before_;
};

}  // namespace lenswire
