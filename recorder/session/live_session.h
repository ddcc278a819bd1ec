// A stream of a camera, read along as it comes, over a control session.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "recorder/host/recorder_stream.h"
#include "recorder/session/control_session.h"

namespace lenswire::recorder {

class LiveSession : private FrameQueue::Listener, private RestartListener {
  public:
    using Clock = std::chrono::steady_clock;

    // Has the camera begin its stream. Throws a Failure when it does not.
    explicit LiveSession(ControlSession& session);
    ~LiveSession();
    LiveSession(const LiveSession&) = delete;
    LiveSession& operator=(const LiveSession&) = delete;

    // The frames that came since the last call, which it takes back; waits for the first of them, but not
    // beyond `until`.
    const std::vector<FrameBuffer*>& next(Clock::time_point until);
    // The library gave the stream up.
    bool broken() const;
    // Frames for which there was no room.
    uint64_t lost() const { return queue_.lost(); }

  private:
    void frames_waiting() override;
    void restart_wanted(int channel, int stream) override;
    void post(StreamRequestType type);
    bool slot_open() const;

    ControlSession& session_;
    StreamObject object_;
    ReceiveBuffer receive_buffer_;
    FrameQueue queue_;
    std::vector<FrameBuffer*> frames_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool waiting_ = false;  // mutex_, like the next
    bool broken_ = false;
};

}  // namespace lenswire::recorder
