// The clock of a simulated camera: runs on from the time that it was set to.
#pragma once

#include <cstdint>

#include "camera/wire/bytes.h"

namespace lenswire::camera {

class ClockModel {
  public:
    // Shows the time of `now_us`, microseconds since 1970, at that moment.
    explicit ClockModel(int64_t now_us);

    // A whole time record. Hours, minutes and seconds beyond their range count on: minute 65 is 5 past. A
    // record without a date is kept as it is, and its clock stands still.
    void set(const Bytes& record, int64_t now_us);
    // The record as it was set, with date and time as they are now.
    Bytes record(int64_t now_us) const;

    int64_t set_at_us() const { return set_at_us_; }
    const Bytes& as_set() const { return as_set_; }

  private:
    Bytes as_set_;
    int64_t set_at_us_;
};

}  // namespace lenswire::camera
