// One picture of a stream as a JPEG file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "recorder/media/access_unit.h"

namespace lenswire::recorder {

// The bytes of a JPEG file made of a key frame; a JPEG stays as it is. Empty, with a reason in `error`, when
// it cannot be decoded. 64 bytes beyond the data must be readable.
std::vector<uint8_t> jpeg_of_key_frame(VideoCodec codec, std::span<const uint8_t> data, std::string& error);

}  // namespace lenswire::recorder
