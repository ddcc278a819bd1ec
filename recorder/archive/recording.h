// The recording of one stream: frames go in, segments and an account of every moment come out.
//
// A segment begins with a key frame and holds footage without a gap: after a gap, when codec, picture size or
// parameter sets change, and at the first key frame after its time, another begins. Frames that cannot be
// decoded, those between a gap and the next key frame, are skipped.
//
// Used by one consumer thread; report() may be called by any.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lenswire/records.h"
#include "recorder/archive/note.h"
#include "recorder/media/access_unit.h"
#include "recorder/media/matroska_writer.h"
#include "recorder/media/timeline.h"

namespace lenswire::recorder {

struct RecordingReport {
    std::string codec;  // of the latest frame
    int width = 0;
    int height = 0;
    uint64_t frames = 0;        // received, video and audio
    uint64_t pictures = 0;      // received
    uint64_t bytes = 0;         // received
    uint64_t missing = 0;       // skipped by the sequence numbers within a connection
    uint64_t skipped = 0;       // before a key frame, or sound that had no track yet
    uint64_t refused = 0;       // for want of room for what the disk does not take
    uint64_t unwritten = 0;     // of no known kind
    uint64_t video_frames = 0;  // recorded
    uint64_t audio_frames = 0;
    uint64_t segments = 0;
    Ms watched = 0;
    Ms footage = 0;
    std::map<Cause, Ms> gaps;
};

class Recording {
  public:
    struct Target {
        int stream = 0;     // the archive's number
        std::string title;  // for the file's head
        Ms segment = 60'000;
        bool resumes = false;  // see Account
    };

    // `anchor` and `notes` must outlive it.
    Recording(Target target, const UtcAnchor& anchor, NoteTaker& notes, Ms now);

    // One frame from the queue, its data after the head, received at that moment of the monotonic clock.
    void frame(const StreamFrameHead& head, std::span<const uint8_t> data, bool first_of_connection, Ms now);
    // What keeps pictures away, as others see it; what is older than the present connection is ignored.
    void trouble(Ms at, Cause cause, const std::string& detail);
    // The camera agreed to send, at that moment the last time.
    void stream_opened(Ms at) { opened_ = at; }
    // Whether what came last ended within a packet: then it is the network that keeps the rest.
    void stopped_in_packet(bool stopped) { in_packet_ = stopped; }
    // Frames found no room in the queue.
    void queue_was_full() { queue_was_full_ = true; }
    void event(Ms at, const std::string& kind, const std::string& text);
    void tick(Ms now);
    // Ends the segment and the account.
    void finish(Ms now);

    RecordingReport report() const;

  private:
    struct Sample {
        bool video = false;
        bool key = false;
        Ms at = 0;  // monotonic
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
    bool room();
    void key_frame(const StreamFrameHead& head, Ms at);
    bool lasts(Ms at) const;
    void begin(TrackParameters parameters, const StreamFrameHead& head, Ms at);
    void put(const Sample& sample, std::span<const uint8_t> data);
    bool write(const Sample& sample, std::span<const uint8_t> data);
    void open_file();
    void open_held();
    void give_up_from(Ms at, const std::string& why);
    void end_cluster();
    void gap(Ms at, Cause cause, const std::string& detail);
    void close_file(Ms to);
    bool hears(Ms now) const { return now - sound_received_ < kSilence; }
    Cause quiet(Ms now) const;
    void tick_gap(Ms now);
    void post_pieces();
    void post_account();
    void send();
    void skip(uint64_t RecordingReport::*counter);

    Target target_;
    const UtcAnchor& anchor_;
    NoteTaker& notes_;
    Account account_;
    std::vector<Note> outbox_;

    std::optional<AccessUnitReader> reader_;
    TrackParameters parameters_;  // of the segment begun, open or still held back
    int frame_rate_ = 0;
    Timeline timeline_;
    std::unique_ptr<MatroskaWriter> writer_;
    // The first moments of a stream are held back, since only then it is known whether there is sound.
    std::vector<Held> held_;
    bool begun_ = false;  // a segment is open or being held back
    bool need_key_ = true;
    bool audio_seen_ = false;
    bool audio_decided_ = false;
    std::optional<Ms> opened_;
    bool in_packet_ = false;
    bool queue_was_full_ = false;
    bool complained_ = false;
    uint64_t sequence_ = 0;
    Ms connected_ = 0;  // when the present connection brought its first frame
    Ms received_ = 0;   // of the latest frame
    Ms picture_received_ = 0;
    Ms sound_received_ = -kSilence;
    Ms trouble_at_ = -1;  // the latest
    uint32_t camera_ms_ = 0;
    uint32_t camera_last_ = 0;      // of the latest picture recorded
    uint32_t camera_at_start_ = 0;  // of the segment
    bool new_connection_ = false;
    Ms segment_from_ = 0;  // monotonic
    Ms cluster_from_ = 0;
    Ms last_at_ = 0;    // of the latest picture recorded
    Ms interval_ = 40;  // between pictures, lately
    uint64_t segment_frames_ = 0;

    Ms gap_from_ = 0;
    Cause gap_cause_ = Cause::kSilent;
    Ms watch_from_ = 0;
    mutable std::mutex report_mutex_;  // report_ only
    RecordingReport report_;
};

}  // namespace lenswire::recorder
