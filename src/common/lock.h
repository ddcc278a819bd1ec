// Locks over plain pthreads: nothing that throws, nothing beyond libc.
#pragma once

#include <pthread.h>

namespace lenswire {

// Holds a mutex for its scope; unlock() gives it back earlier.
class Lock {
  public:
    explicit Lock(pthread_mutex_t& mutex) : mutex_(&mutex) { pthread_mutex_lock(mutex_); }
    ~Lock() { unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void unlock() {
        if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
        mutex_ = nullptr;
    }
    void wait(pthread_cond_t& cond) { pthread_cond_wait(&cond, mutex_); }

  private:
    pthread_mutex_t* mutex_;
};

}  // namespace lenswire
