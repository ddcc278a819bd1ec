// Work on a host's thread that a stop of the context ends: a host that stops the library does not wait for a
// camera that says nothing.
#pragma once

#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "common/shared_word.h"
#include "lenswire/connection.h"

namespace lenswire {

// The longest that such work goes on after the stop.
constexpr int kStopStepMs = 100;

// Raised by each stop once it is complete.
extern std::atomic<uint32_t> g_complete_stops;

// The context as the work found it. Work that began without a running context is not ended by one; work that
// began while the context was stopping ends when that is done.
class RunningContext {
  public:
    bool ended() const { return (ran_ && !runs()) || stops_ != g_complete_stops; }

  private:
    static bool runs() { return load_word(PC_G_EventLoopSwitch) != 0; }

    const bool ran_ = runs();
    const uint32_t stops_ = g_complete_stops;
};

// Sleeps a step at a time, until the context ends.
inline void pause(const RunningContext& context, int milliseconds) {
    for (int left = milliseconds; left > 0 && !context.ended(); left -= kStopStepMs) {
        usleep(static_cast<useconds_t>(std::min(left, kStopStepMs)) * 1000);
    }
}

enum class Ready { kReadable, kWritable };

// Waits up to the given time, a step at a time. False when the descriptor is not ready by then, when the wait
// failed and when ended() says that nobody waits any more. What became of a connect is for the caller to ask
// once it is writable.
template <typename Ended>
bool wait_until_ready(Ended ended, int fd, Ready ready, int milliseconds) {
    if (fd < 0 || fd >= FD_SETSIZE) return false;
    for (int left = milliseconds; left > 0 && !ended(); left -= kStopStepMs) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval step{.tv_sec = 0, .tv_usec = std::min(left, kStopStepMs) * 1000};
        const int count = ready == Ready::kReadable ? select(fd + 1, &set, nullptr, nullptr, &step)
                                                    : select(fd + 1, nullptr, &set, nullptr, &step);
        if (count != 0) return count > 0;
    }
    return false;
}

}  // namespace lenswire
