// Host services: time zones.
#include <cstring>

#include "lenswire/host_services.h"
#include "recorder/host/host.h"

using lenswire::recorder::Host;
using lenswire::recorder::or_nothing;
using lenswire::recorder::Zone;

namespace {

constexpr size_t kNameSize = 12;

std::optional<Zone> zone_at(uint32_t index) {
    const Host* host = Host::current();
    if (host == nullptr || index >= 256) return std::nullopt;
    return or_nothing([&] { return host->store.zone(static_cast<int>(index)); });
}

}  // namespace

int GetTimeZone(char* name12, int* a, int* b) {
    const Host* host = Host::current();
    if (host == nullptr || name12 == nullptr) return -1;
    const auto zone = or_nothing([&] { return std::optional(host->store.current_zone()); });
    if (!zone) return -1;
    std::memset(name12, 0, kNameSize - 1);
    zone->name.copy(name12, kNameSize - 1);
    if (a != nullptr) *a = zone->hours;
    if (b != nullptr) *b = zone->minutes;
    return zone->index << 8;
}

int GetTimeZoneTime(uint32_t zoneIndex, uint8_t* hours, uint8_t* minutes) {
    const auto zone = zone_at(zoneIndex);
    if (hours != nullptr) *hours = zone ? static_cast<uint8_t>(zone->hours) : 0;
    if (minutes != nullptr) *minutes = zone ? static_cast<uint8_t>(zone->minutes) : 0;
    return zone ? 0 : -1;
}

uint32_t GetIpcTimeZoneMap(uint32_t hostZoneIndex) {
    const auto zone = zone_at(hostZoneIndex);
    return zone ? static_cast<uint32_t>(zone->camera_index) : hostZoneIndex;
}
