// How a camera numbers its PTZ channels.
#pragma once

#include <cstdint>

namespace lenswire {

// The PTZ channel byte of a channel with this fisheye byte; `ordinary` for a camera without fisheye.
constexpr uint8_t ptz_channel(uint8_t fisheye, uint8_t ordinary) {
    const uint8_t high = fisheye >> 4;
    const uint8_t low = fisheye & 0x0F;
    if (fisheye == 0) return ordinary;
    return high == 1 ? low : static_cast<uint8_t>(low + 1);
}

}  // namespace lenswire
