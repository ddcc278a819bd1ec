// Everything that one recorded stream needs on the host's side: the objects that the library is handed in an
// open request, what it reports of the stream, and the recording.
//
// The objects stay where they are and alive from before the library's context is started until after it is
// stopped.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lenswire/host_objects.h"
#include "recorder/archive/recording.h"
#include "recorder/host/frame_queue.h"
#include "recorder/host/frame_worker.h"
#include "recorder/host/ring.h"

namespace lenswire::recorder {

// The object behind pStream. Its words are channel and stream.
struct StreamObject {
    HostStreamObject words{};
    FrameQueue* queue = nullptr;
};

class RecorderStream final : private FrameQueue::Listener, private FrameWorker::Stream {
  public:
    using Clock = std::chrono::steady_clock;

    RecorderStream(int channel, int stream, FrameWorker& worker, Recording::Target target,
                   const ArchiveClock& clock, const UtcAnchor& anchor, NoteTaker& notes);

    int channel() const { return object_.words.lFirst; }
    int stream() const { return object_.words.lSecond; }

    FrameQueue& queue() { return queue_; }
    HostStreamInfo& private_info() { return private_info_; }
    const Recording& recording() const { return recording_; }

    // Fills in the record of an open or close request.
    void describe(DevChannelInfo& info, StreamConn* unit);

    // -- A login for this stream may go on until then.
    void allow_login_for(Clock::duration limit);
    bool login_allowed() const;

    // -- Measured by the library.
    void set_data_rate(int bytes_per_second) { bytes_per_second_ = bytes_per_second; }
    void set_frame_rate(int frames_per_second) { frames_per_second_ = frames_per_second; }
    int bytes_per_second() const { return bytes_per_second_; }
    int frames_per_second() const { return frames_per_second_; }

    // -- The worker's part, and after it has stopped the program's: writes the frames that wait.
    void record_waiting_frames() override;
    void finish_recording();

    // -- Called by any thread.
    // What keeps pictures away.
    void trouble(Cause cause, const std::string& detail);
    // Something to be noted beside the gaps.
    void event(const std::string& kind, const std::string& text);
    // The camera agreed to send.
    void opened();
    // Time passed: has the worker look, also when no frame comes.
    void look() { worker_.schedule(*this); }

  private:
    struct Trouble {
        Ms at;
        Cause cause;
        std::string detail;
    };
    struct Event {
        Ms at;
        std::string kind, text;
    };
    void frames_waiting() override { worker_.schedule(*this); }
    int64_t now() override { return clock_.monotonic(); }

    const ArchiveClock& clock_;
    FrameWorker& worker_;
    StreamObject object_;
    HostStreamInfo private_info_{};
    ReceiveBuffer receive_buffer_;
    FrameQueue queue_;
    Recording recording_;
    std::vector<FrameBuffer*> frames_;  // the worker's, like the next
    uint64_t lost_ = 0;                 // in the queue, when it was looked at last
    std::mutex words_mutex_;            // of the next two
    std::vector<Trouble> troubles_;
    std::vector<Event> events_;
    std::atomic<Clock::rep> login_deadline_{0};
    std::atomic<Ms> opened_{0};  // when it did so last; 0: never
    std::atomic<int> bytes_per_second_{0};
    std::atomic<int> frames_per_second_{0};
};

}  // namespace lenswire::recorder
