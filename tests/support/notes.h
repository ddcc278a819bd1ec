// What a fake was told, for a test to read: one list a kind, safe to use from any thread.
#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "support/capture.h"

namespace lenswire::test {

template <typename T>
class Notes {
  public:
    void add(T note) {
        const std::lock_guard lock(mutex_);
        notes_.push_back(std::move(note));
    }
    std::vector<T> operator()() const {
        const std::lock_guard lock(mutex_);
        return notes_;
    }
    // Forgets what it gives.
    std::vector<T> takes() {
        const std::lock_guard lock(mutex_);
        return std::exchange(notes_, {});
    }
    size_t size() const {
        const std::lock_guard lock(mutex_);
        return notes_.size();
    }
    bool waits_for(size_t count) const {
        return wait_until([&] { return size() >= count; });
    }

  private:
    mutable std::mutex mutex_;
    std::vector<T> notes_;
};

}  // namespace lenswire::test
