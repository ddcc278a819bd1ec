// The tables of the host's database that this layer reads and writes.
#pragma once

#include <cstdint>

namespace lenswire {

constexpr int kRead = 2;
constexpr int kWrite = 1;

constexpr int kChannelTable = 17;
constexpr int kMotionTable = 21;
constexpr int kCruiseTable = 62;

#pragma pack(push, 1)
// One channel's record of the channel table, as far as this layer looks into it.
struct ChannelRecord {
    uint8_t reserved0[192];
    uint8_t ucFishEye;  // 0 for an ordinary camera, otherwise two nibbles
    uint8_t reserved193[257];
};
#pragma pack(pop)
static_assert(sizeof(ChannelRecord) == 450);

}  // namespace lenswire
