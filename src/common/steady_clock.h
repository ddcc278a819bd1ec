// The clock that nobody sets. A reading can fail; what waits by it then does without it.
#pragma once

#include <cstdint>
#include <ctime>

namespace lenswire {

// Microseconds since some moment in the past, or -1 when the clock cannot be read.
inline int64_t steady_us() {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return -1;
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1'000;
}

}  // namespace lenswire
