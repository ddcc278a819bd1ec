// The records of the upgrade jobs: who runs, and how far each camera is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lenswire/upgrade.h"

namespace lenswire::upgrade {

struct Job;

// A running job's record, as its thread writes it.
class JobRecord {
  public:
    // The record that is bound to the calling thread; false in a condition when there is none.
    static JobRecord of_this_thread();
    explicit operator bool() const { return job_ != nullptr; }

    // Whether the context that the job was started in has been stopped, or the library is being unloaded.
    bool is_stopped() const;
    void sets_camera(size_t k, uint32_t channel, uint32_t state) const;
    void sets_camera_count(size_t count) const;
    void sets_state(size_t k, uint32_t state) const;
    void sets_percent(size_t k, uint32_t percent) const;
    // Free for the next job from here on; the values stay until then.
    void releases() const;

  private:
    explicit JobRecord(Job* job) : job_(job) {}

    Job* job_;
};

}  // namespace lenswire::upgrade
