// What a recording has to know of a coded picture: whether decoding can begin with it, and the parameter
// sets it carries.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lenswire::recorder {

enum class VideoCodec { kH264, kH265, kJpeg };

const char* codec_name(VideoCodec codec);

// The codec that a frame head's code stands for.
std::optional<VideoCodec> codec_of_head(uint8_t code);

// Follows one stream's access units and keeps the parameter sets last seen.
class AccessUnitReader {
  public:
    explicit AccessUnitReader(VideoCodec codec) : codec_(codec) {}

    // Reads up to the first picture data. True when decoding can begin with this access unit.
    bool read(std::span<const uint8_t> access_unit);

    // The parameter sets in Annex B form; empty until all kinds have been seen. JPEG needs none.
    const std::vector<uint8_t>& parameter_sets() const { return complete_; }
    bool ready() const { return codec_ == VideoCodec::kJpeg || !complete_.empty(); }
    VideoCodec codec() const { return codec_; }

  private:
    void collect(std::span<const uint8_t> unit, int kind);

    VideoCodec codec_;
    std::vector<uint8_t> run_;       // sets seen since the last picture
    uint32_t kinds_ = 0;             // which kinds `run_` holds, one bit each
    bool picture_since_run_ = true;  // the next set begins a new run
    std::vector<uint8_t> complete_;
};

}  // namespace lenswire::recorder
