// One stream as bytes for whoever reads along, now: nothing is written again, and every picture goes out as
// soon as it is there.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "recorder/media/matroska_writer.h"

struct AVFormatContext;

namespace lenswire::recorder {

// kVideo is the codec's own byte stream: Annex B, or JPEG pictures one behind the other.
enum class LiveFormat { kMatroska, kMpegTs, kVideo };

class LiveWriter {
  public:
    // Takes bytes; false when nobody wants them any more.
    using Sink = std::function<bool(std::span<const uint8_t>)>;

    // Null with a reason in `error` when the format cannot carry the stream.
    static std::unique_ptr<LiveWriter> create(LiveFormat format, const TrackParameters& parameters,
                                              int frame_rate, Sink sink, std::string& error);
    ~LiveWriter();
    LiveWriter(const LiveWriter&) = delete;
    LiveWriter& operator=(const LiveWriter&) = delete;

    // One access unit or one run of samples, whose time is not before the last one's. False when the sink
    // had enough. 64 bytes beyond the data must be readable.
    bool write(std::span<const uint8_t> data, int64_t time_ms, bool video, bool key);
    bool finish();

  private:
    explicit LiveWriter(Sink sink) : sink_(std::move(sink)) {}
    int open(LiveFormat format, const TrackParameters& parameters, int frame_rate);
    static int receive(void* self, uint8_t* data, int size);

    Sink sink_;
    bool wanted_ = true;
    AVFormatContext* context_ = nullptr;  // none for kVideo
};

}  // namespace lenswire::recorder
