// The recording of one stream: frames go in, files come out.
//
// A file begins with a key frame and goes on over restarts of the stream as long as codec, picture size and
// parameter sets stay the same; else a new numbered file is begun. After a restart frames are skipped up to
// the next key frame, since nothing before it can be decoded.
//
// Used by one consumer thread; report() may be called by any.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lenswire/records.h"
#include "recorder/media/access_unit.h"
#include "recorder/media/matroska_writer.h"
#include "recorder/media/timeline.h"

namespace lenswire::recorder {

// Frames of one connection in one file, in the stream's own count.
struct SequenceRun {
    uint64_t first = 0;
    uint64_t last = 0;
    uint64_t frames = 0;
    uint64_t missing() const { return last - first + 1 - frames; }
};

struct FileReport {
    std::string path;
    std::string codec;
    int width = 0;
    int height = 0;
    bool audio = false;
    uint64_t video_frames = 0;
    uint64_t audio_frames = 0;
    uint64_t bytes = 0;
    int64_t duration_ms = 0;
    bool finished = false;
    std::vector<SequenceRun> runs;
};

struct RecordingReport {
    std::string codec;  // of the latest frame
    int width = 0;
    int height = 0;
    uint64_t frames = 0;     // received, video and audio
    uint64_t pictures = 0;   // received
    uint64_t bytes = 0;      // received
    uint64_t missing = 0;    // skipped by the sequence numbers within a connection
    uint64_t skipped = 0;    // before a key frame, or sound that had no track yet
    uint64_t unwritten = 0;  // refused by the disk, or of no known kind
    std::vector<FileReport> files;
};

class Recording {
  public:
    struct Target {
        std::string directory;
        std::string base;   // file name without number and ending
        std::string title;  // for the file's head
    };
    using Complain = std::function<void(const std::string& line)>;

    Recording(Target target, Complain complain);
    ~Recording();

    // One frame from the queue, its data after the head.
    void frame(const StreamFrameHead& head, std::span<const uint8_t> data, bool first_of_connection);
    // Finishes the file.
    void finish();

    RecordingReport report() const;

  private:
    struct Sample {
        bool video = false;
        bool key = false;
        int64_t time_ms = 0;
        uint64_t sequence = 0;
    };
    struct Held {
        Sample sample;
        std::vector<uint8_t> data;
        size_t size = 0;
    };

    uint64_t follow_sequence(uint16_t sequence, bool first_of_connection);
    void count(const StreamFrameHead& head, size_t bytes, uint64_t missing);
    void video(const StreamFrameHead& head, std::span<const uint8_t> data);
    void audio(std::span<const uint8_t> data);
    void key_frame(const StreamFrameHead& head);
    void put(const Sample& sample, std::span<const uint8_t> data);
    void hold(const Sample& sample, std::span<const uint8_t> data);
    bool open_file();
    void write_held();
    void write(const Sample& sample, std::span<const uint8_t> data);
    void note_written(const Sample& sample, size_t bytes);
    void give_up(const std::string& why, uint64_t frames);
    void close_file();
    void skip();

    Target target_;
    Complain complain_;
    std::optional<AccessUnitReader> reader_;
    TrackParameters parameters_;  // of the file begun, open or still held back
    int frame_rate_ = 0;
    Timeline timeline_;
    std::unique_ptr<MatroskaWriter> writer_;
    // The first second of a file is held back, since only then it is known whether there is sound.
    std::vector<Held> held_;
    bool begun_ = false;  // a file is open or being held back
    bool need_key_ = true;
    bool audio_seen_ = false;
    bool new_run_ = true;
    bool complained_ = false;
    uint64_t sequence_ = 0;
    int64_t received_ms_ = 0;  // of the latest frame
    int64_t retry_ms_ = 0;     // no new file before this
    int number_ = 0;

    mutable std::mutex report_mutex_;  // report_ only
    RecordingReport report_;
};

}  // namespace lenswire::recorder
