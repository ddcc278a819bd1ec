// One Matroska file: a video track, and a sound track if there is sound. Streams are copied as they come
// from the camera, nothing is encoded again.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
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

class MatroskaWriter {
  public:
    // Creates the file, which must not exist, and writes its head. Null with a reason in `error` when that
    // fails; no file is left behind then.
    static std::unique_ptr<MatroskaWriter> create(const std::string& path, const TrackParameters& parameters,
                                                  const std::string& title, int frame_rate,
                                                  std::string& error);
    ~MatroskaWriter();  // finishes the file
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;

    // One access unit or one run of samples; false when the disk refused it. 64 bytes beyond the data must
    // be readable.
    bool write_video(std::span<const uint8_t> data, int64_t time_ms, bool key);
    bool write_audio(std::span<const uint8_t> data, int64_t time_ms);

    // Writes the index and closes the file; false when that failed. Later calls do nothing.
    bool finish();

  private:
    explicit MatroskaWriter(AVFormatContext* context) : context_(context) {}
    bool write(std::span<const uint8_t> data, int64_t time_ms, int track, int flags);

    AVFormatContext* context_;
};

}  // namespace lenswire::recorder
