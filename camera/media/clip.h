// A video or audio file that cameras play: read once, shared by every stream that plays it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "camera/media/annexb.h"
#include "camera/wire/bytes.h"

namespace lenswire::camera {

enum class ClipKind { kH264, kH265, kJpeg, kALaw };

// The name that options and summaries use: h264, h265, jpeg, alaw.
const char* clip_kind_name(ClipKind kind);

class Clip {
  public:
    // Opens a file; its kind follows from the ending: .h264 .264 .avc, .h265 .265 .hevc, .mjpeg .mjpg .jpg
    // .jpeg, .alaw .al. An audio file is cut into packets of 40 ms. Nothing and a reason when the file is
    // missing, of another kind, does not begin with a key frame or holds a picture too large for a packet.
    static std::shared_ptr<const Clip> open(const std::string& path, std::string* error);

    ClipKind kind() const { return kind_; }
    bool is_video() const { return kind_ != ClipKind::kALaw; }
    uint8_t codec() const;  // ucCodec of its packets
    uint16_t width() const { return width_; }
    uint16_t height() const { return height_; }

    // The access units, images or audio packets of the file, in order.
    size_t size() const { return units_.size(); }
    std::span<const uint8_t> payload(size_t index) const {
        return std::span(bytes_).subspan(units_[index].offset, units_[index].length);
    }
    bool is_key(size_t index) const { return units_[index].key; }

  private:
    Clip() = default;
    std::string prepare();

    Bytes bytes_;
    ClipKind kind_ = ClipKind::kH264;
    uint16_t width_ = 0;
    uint16_t height_ = 0;
    std::vector<AccessUnit> units_;
};

}  // namespace lenswire::camera
