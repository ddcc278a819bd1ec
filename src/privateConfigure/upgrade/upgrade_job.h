// The records of the upgrade jobs: who runs, and how far each camera is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lenswire/upgrade.h"

namespace lenswire::upgrade {

// A running job's record, as its thread writes it.
class JobRecord {
  public:
    // The record that is bound to the calling thread; false in a condition when there is none.
    static JobRecord of_this_thread();
    explicit operator bool() const { return status_ != nullptr; }

    void set_camera(size_t k, uint32_t channel, uint32_t state) const;
    void set_camera_count(size_t count) const;
    void set_state(size_t k, uint32_t state) const;
    void set_percent(size_t k, uint32_t percent) const;
    // Free for the next job from here on; the values stay until then.
    void release() const;

  private:
    explicit JobRecord(UpgradeJobStatus* status) : status_(status) {}

    UpgradeJobStatus* status_;
};

}  // namespace lenswire::upgrade
