// Motion and alarms, and time zones.
#include <cstring>

#include "check/call.h"
#include "check/memory.h"
#include "check/services.h"

using namespace lenswire::check;

namespace {

constexpr size_t kZoneSize = 12;
constexpr int kFirstHour = -12;
constexpr int kLastHour = 14;

}  // namespace

extern "C" {

int checked_VideoMDGetStatus(int channel) {
    Call call(Service::VideoMDGetStatus);
    return call.into(real_VideoMDGetStatus, channel);
}

int checked_VideoMDSetStatus(int channel, int status, void* data) {
    Call call(Service::VideoMDSetStatus);
    const Kept record(data, sizeof(HostMotionRecord));
    const int result = call.into(real_VideoMDSetStatus, channel, status, data);
    call.expect(!record.is_changed(), kMotionInput, "channel %d, the record is changed", channel);
    return result;
}

int checked_snapSetMotion(int channel, int state) {
    Call call(Service::snapSetMotion);
    return call.into(real_snapSetMotion, channel, state);
}

int checked_motion_data_copy(int channel, void* data88) {
    Call call(Service::motion_data_copy);
    Lent lent(data88, sizeof(HostMotionRecord));
    lent.mark_content();
    const int result = call.into(real_motion_data_copy, channel, lent.bytes());
    call.expect(lent.is_intact(), kMotionOverrun, "channel %d, bytes around the record are written", channel);
    const size_t unwritten = lent.take_unwritten();
    call.expect(result < 0 || unwritten == 0, kMotionShort,
                "channel %d, result %d, the last %u bytes are not", channel, result,
                static_cast<unsigned>(unwritten));
    lent.give_back();
    return result;
}

int checked_MD_Disarming_Time(int channel) {
    Call call(Service::MD_Disarming_Time);
    const int armed = call.into(real_MD_Disarming_Time, channel);
    call.expect(armed == 0 || armed == 1, kArmed, "channel %d, %d", channel, armed);
    return armed;
}

int checked_streamInsertAlarmToAlarmQueue(int queue, void* record4) {
    Call call(Service::streamInsertAlarmToAlarmQueue);
    const Kept record(record4, sizeof(HostAlarmRecord));
    const int result = call.into(real_streamInsertAlarmToAlarmQueue, queue, record4);
    call.expect(!record.is_changed(), kAlarmInput, "queue %d, the record is changed", queue);
    return result;
}

int checked_GetTimeZone(char* name12, int* a, int* b) {
    Call call(Service::GetTimeZone);
    const Lent lent(name12, kZoneSize);
    const int result = call.into(real_GetTimeZone, lent.bytes<char>(), a, b);
    const char* text = lent.bytes<char>();
    if (call.expect(lent.is_intact(), kZoneOverrun, "\"%.12s\", bytes around it are written", text) &&
        result != -1 &&
        call.expect(std::memchr(text, '\0', kZoneSize) != nullptr, kZoneEndless, "\"%.12s\"", text)) {
        call.expect(std::memcmp(text, "GMT", 3) == 0, kZoneText, "\"%.12s\"", text);
    }
    lent.give_back();
    return result;
}

int checked_GetTimeZoneTime(uint32_t zoneIndex, uint8_t* hours, uint8_t* minutes) {
    Call call(Service::GetTimeZoneTime);
    const Lent lent_hours(hours, sizeof *hours);
    const Lent lent_minutes(minutes, sizeof *minutes);
    const int result = call.into(real_GetTimeZoneTime, zoneIndex, lent_hours.bytes<uint8_t>(),
                                 lent_minutes.bytes<uint8_t>());
    call.expect(lent_hours.is_intact() && lent_minutes.is_intact(), kZoneTimeOverrun,
                "zone %u, more than a byte is written", zoneIndex);
    const int byte = *lent_hours.bytes<uint8_t>();
    const int signed_hours = byte > INT8_MAX ? byte - 256 : byte;
    call.expect(signed_hours >= kFirstHour && signed_hours <= kLastHour, kZoneHours, "zone %u, %d hours",
                zoneIndex, signed_hours);
    lent_hours.give_back();
    lent_minutes.give_back();
    return result;
}

uint32_t checked_GetIpcTimeZoneMap(uint32_t hostZoneIndex) {
    Call call(Service::GetIpcTimeZoneMap);
    const uint32_t index = call.into(real_GetIpcTimeZoneMap, hostZoneIndex);
    call.expect(index <= UINT8_MAX, kCameraZone, "zone %u, camera's %u", hostZoneIndex, index);
    return index;
}
}
