// The picture size that a clip's own headers state: sequence parameter set or JPEG frame header.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace lenswire::camera {

struct PictureSize {
    uint16_t width = 0;
    uint16_t height = 0;
};

// Each takes a whole stream and reads the first set it finds; nothing when there is none or it is damaged.
std::optional<PictureSize> h264_picture_size(std::span<const uint8_t> stream);
std::optional<PictureSize> h265_picture_size(std::span<const uint8_t> stream);
std::optional<PictureSize> jpeg_picture_size(std::span<const uint8_t> stream);

}  // namespace lenswire::camera
