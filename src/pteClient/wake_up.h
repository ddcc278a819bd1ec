// Ends the wait of a worker thread for what shows on no socket. Each of the two loops watches its own.
#pragma once

#include <sys/select.h>
#include <atomic>

namespace lenswire {

class WakeUp {
  public:
    // Opening may fail; then the thread's waits end in time and nothing ends them early.
    void open();
    // Returns when nobody is raising it any more.
    void close();

    // From any thread, also under a lock: never blocks.
    void raise();

    // The waiting thread's part. watch() adds the descriptor to the set and returns it, -1 when there is
    // none; take() says whether it was raised and lowers it.
    int watch(fd_set& readable) const;
    bool take(const fd_set& readable);
    // Sleeps so long, or until it is raised.
    void wait(unsigned seconds);
    // Does without the descriptor if somebody else has closed it.
    void forget_if_closed();

    bool is_open() const { return fd_ >= 0; }

  private:
    std::atomic<int> fd_{-1};
    std::atomic<int> raising_{0};
};

extern WakeUp g_event_loop_wake_up;   // a client became ready or stopped being so
extern WakeUp g_stream_loop_wake_up;  // a slot opened or closed

}  // namespace lenswire
