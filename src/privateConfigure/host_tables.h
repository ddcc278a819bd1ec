// The tables of the host's database that this layer reads and writes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lenswire {

constexpr int kRead = 2;
constexpr int kWrite = 1;

constexpr int kChannelTable = 17;
constexpr int kMotionTable = 21;
constexpr int kUpgradeTable = 24;
constexpr int kCruiseTable = 62;

#pragma pack(push, 1)
// One channel's record of the channel table, as far as this layer looks into it.
struct ChannelRecord {
    uint8_t reserved0[97];
    uint8_t ucChannelNo;
    uint8_t reserved98[2];
    char szIpAddr[64];
    uint8_t reserved164[22];
    uint8_t ucProtocol;
    uint8_t reserved187[5];
    uint8_t ucFishEye;  // 0 for an ordinary camera, otherwise two nibbles
    uint8_t reserved193[257];
};
#pragma pack(pop)
static_assert(sizeof(ChannelRecord) == 450);
static_assert(offsetof(ChannelRecord, ucProtocol) == 186 && offsetof(ChannelRecord, ucFishEye) == 192);

}  // namespace lenswire
