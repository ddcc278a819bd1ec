#include "recorder/records/camera_clock.h"

#include "recorder/records/zone_name.h"

namespace lenswire::recorder {
namespace {

int zone_offset(const IpcTimeInfo& clock) {
    return (clock.ucTimeZone - kCameraZoneOfGreenwich) * kMinutesOfZone;
}

}  // namespace

time_t clock_seconds(const IpcTimeInfo& clock) {
    tm fields{};
    fields.tm_year = clock.usYear - 1900;
    fields.tm_mon = clock.ucMonth - 1;
    fields.tm_mday = clock.ucDay;
    fields.tm_hour = clock.ucHour;
    fields.tm_min = clock.ucMinute;
    fields.tm_sec = clock.ucSecond;
    return timegm(&fields);
}

std::string clock_text(const IpcTimeInfo& clock) {
    const time_t seconds = clock_seconds(clock);
    tm fields{};
    gmtime_r(&seconds, &fields);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return text;
}

std::string clock_zone(const IpcTimeInfo& clock) {
    if (clock.ucTimeZone >= kCameraZones) return std::to_string(clock.ucTimeZone);
    return std::string(zone_text(zone_offset(clock)).view());
}

long clock_ahead(const IpcTimeInfo& clock, time_t now) {
    return static_cast<long>(clock_seconds(clock) - zone_offset(clock) * 60 - now);
}

}  // namespace lenswire::recorder
