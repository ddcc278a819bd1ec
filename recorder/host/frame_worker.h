// A thread that empties the frame queues of the streams given to it into their recordings. A stream stays
// with one worker, so its frames stay in order.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace lenswire::recorder {

class RecorderStream;

class FrameWorker {
  public:
    FrameWorker();
    ~FrameWorker();  // stops
    FrameWorker(const FrameWorker&) = delete;
    FrameWorker& operator=(const FrameWorker&) = delete;

    // Frames of this stream wait. Called by the receive loop; does not block.
    void schedule(RecorderStream& stream);

    // Serves what was scheduled and ends the thread.
    void stop();

  private:
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<RecorderStream*> ready_;  // mutex_
    bool stop_ = false;                   // mutex_
    std::thread thread_;
};

}  // namespace lenswire::recorder
