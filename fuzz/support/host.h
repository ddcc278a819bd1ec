// The host of the fuzz targets: what the library asks of a recorder, without threads or locks, and strict.
// The receive ring is the recorder's own. A service that is used wrongly is a finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lenswire/host_objects.h"
#include "recorder/host/ring.h"

namespace lenswire::fuzz {

// The one camera that there is: channels 0 to 2 are bound to it, and each is armed or not, in turn.
constexpr uint32_t kCameraAddress = 0x0100007F;  // 127.0.0.1
constexpr int kChannels = 3;

// Allocations of MeMalloc that were not freed.
int live_allocations();

// What GetTimeZone says.
void set_time_zone(const char* name, int result);

// A stream's objects. Frames lie in memory of their exact size and go as they are inserted.
struct Stream {
    HostStreamObject words{};  // first: what the library is handed
    HostStreamInfo info{};
    std::vector<uint8_t> frame;
    bool handed_out = false;
    bool locked = false;
    bool refuses = false;  // has no buffer
    uint64_t frames = 0;
    uint64_t frame_bytes = 0;

    void* object() { return &words; }
};
// The one that networkGetStreampPrivateInfo finds.
void set_stream(Stream* stream);

}  // namespace lenswire::fuzz
