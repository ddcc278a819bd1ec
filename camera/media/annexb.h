// Cuts H.264 and H.265 byte streams and motion JPEG files into what one stream packet carries: the access
// unit of one picture, with the parameter sets that stand before it, or one image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace lenswire::camera {

struct AccessUnit {
    size_t offset = 0;
    size_t length = 0;
    bool key = false;  // decoding can start here
};

// Where one NAL unit stands: its start code begins at `start`, its first byte is `body`, it ends at `end`.
struct NalUnit {
    size_t start = 0;
    size_t body = 0;
    size_t end = 0;
};

std::vector<NalUnit> find_nal_units(std::span<const uint8_t> stream);

// Bytes before the first start code belong to no unit; pictures may have any number of slices, delimiters
// may be there or not. The units join without gaps.
std::vector<AccessUnit> split_h264(std::span<const uint8_t> stream);
std::vector<AccessUnit> split_h265(std::span<const uint8_t> stream);

// The images of a motion JPEG file. An image that does not end is left out.
std::vector<AccessUnit> split_jpeg(std::span<const uint8_t> stream);

}  // namespace lenswire::camera
