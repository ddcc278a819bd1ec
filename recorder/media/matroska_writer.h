// One Matroska file: a video track, and a sound track if there is sound. Streams are copied as they come
// from the camera, nothing is encoded again.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "recorder/media/access_unit.h"

struct AVFormatContext;

namespace lenswire::recorder {

// What must stay the same within one file.
struct TrackParameters {
    VideoCodec codec = VideoCodec::kH264;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> parameter_sets;  // Annex B; empty for JPEG
    bool audio = false;                   // G.711 A-law, 8000 samples a second

    bool operator==(const TrackParameters&) const = default;
};

// Makes the bytes of a file; where they go is the caller's business. They come as pieces: first those of
// whole clusters, one behind the other, and at the end some that are written over the head.
class MatroskaWriter {
  public:
    struct Piece {
        int64_t offset = 0;
        std::vector<uint8_t> bytes;
    };

    // Null with a reason in `error` when the parameters cannot be written. `created_ms` is UTC since 1970.
    static std::unique_ptr<MatroskaWriter> create(const TrackParameters& parameters, const std::string& title,
                                                  int frame_rate, int64_t created_ms, std::string& error);
    ~MatroskaWriter();
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;

    // One access unit or one run of samples; false when it cannot be written. 64 bytes beyond the data must
    // be readable.
    bool write_video(std::span<const uint8_t> data, int64_t time_ms, bool key);
    bool write_audio(std::span<const uint8_t> data, int64_t time_ms);
    // What was written so far becomes pieces.
    void end_cluster();
    // The same, and the index and what the head says of the whole.
    void finish();

    std::vector<Piece> take() { return std::exchange(pieces_, {}); }

  private:
    MatroskaWriter() = default;
    int open(const TrackParameters& parameters, const std::string& title, int frame_rate, int64_t created_ms);
    bool write(std::span<const uint8_t> data, int64_t time_ms, int track, int flags);
    static int receive(void* self, uint8_t* data, int size);
    static int64_t seek(void* self, int64_t offset, int whence);

    AVFormatContext* context_ = nullptr;
    int64_t position_ = 0;
    int64_t size_ = 0;
    size_t likely_ = 0;  // size of the next piece
    std::vector<Piece> pieces_;
};

}  // namespace lenswire::recorder
