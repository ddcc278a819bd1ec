// A thread that has streams record the frames that wait in their queues. A stream stays with one worker, so
// its frames stay in order.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace lenswire::recorder {

class FrameWorker {
  public:
    // What a worker serves.
    class Stream {
      public:
        virtual void record_waiting_frames() = 0;

      protected:
        ~Stream() = default;

      private:
        friend FrameWorker;
        std::atomic<bool> scheduled_{false};  // the worker has been told of waiting frames
    };

    FrameWorker();
    ~FrameWorker();  // stops
    FrameWorker(const FrameWorker&) = delete;
    FrameWorker& operator=(const FrameWorker&) = delete;

    // Frames of this stream wait. Called by the receive loop; does not block.
    void schedule(Stream& stream);

    // Serves what was scheduled and ends the thread.
    void stop();

  private:
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<Stream*> ready_;  // mutex_
    bool stop_ = false;           // mutex_
    std::thread thread_;
};

}  // namespace lenswire::recorder
