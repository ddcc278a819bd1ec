#include "lenswire/clock.h"

#include <arpa/inet.h>

#include <cstring>
#include <ctime>

#include "common/log.h"
#include "lenswire/host_services.h"
#include "privateConfigure/exchange.h"
#include "privateConfigure/text/zone_text.h"

using namespace lenswire;
using exchange::Row;

namespace {

// The request gives the record's size but carries no record.
constexpr Row kGet{.operation = "Prv_GetTimeProperty",
                   .wire = {.command = LENSWIRE_CMD_TIME_GET, .records = {LENSWIRE_TIME_SIZE, 0}},
                   .wording = {.no_answer_names_command = false}};
constexpr Row kSet{.operation = "Prv_SetIPCTimeDate",
                   .wire = {.command = LENSWIRE_CMD_TIME_SET, .records = {LENSWIRE_TIME_SIZE}},
                   .wording = {.refused = "input paramers error"}};

constexpr char kTimeServer[] = "time.nist.gov";
static_assert(sizeof kTimeServer == sizeof IpcTimeInfo::szNtpServer);

static_assert(sizeof(time_t) == 8, "seconds in 32 bits end in 2038");

// In an hour's byte -24, the first of those that stand for an hour before midnight; 24 makes them hours
// again.
constexpr int kFirstNegativeHour = 232;

// The recorder's clock, shifted back by the zone's offset: the camera adds the offset of its own zone. Hours
// and minutes of a text may be any number.
time_t shifted(time_t now, const ZoneText& zone) {
    const int64_t offset = zone.sign * (int64_t{3600} * zone.hours + int64_t{60} * zone.minutes);
    return static_cast<time_t>(now - offset);
}

IpcTimeInfo broken_down(time_t moment) {
    // The host may have changed the process's zone; localtime_r alone need not look.
    tzset();
    tm local{};
    localtime_r(&moment, &local);
    IpcTimeInfo info{};
    info.usYear = static_cast<uint16_t>(local.tm_year + 1900);
    info.ucMonth = static_cast<uint8_t>(local.tm_mon + 1);
    info.ucDay = static_cast<uint8_t>(local.tm_mday);
    info.ucHour = static_cast<uint8_t>(local.tm_hour);
    info.ucMinute = static_cast<uint8_t>(local.tm_min);
    info.ucSecond = static_cast<uint8_t>(local.tm_sec);
    return info;
}

// The camera's correction of the hour. Neither the date nor an hour above 23 follows: cameras expect it so.
uint8_t corrected_hour(uint8_t hour, int8_t zone_hours) {
    const auto sum = static_cast<uint8_t>(hour + zone_hours);
    return sum >= kFirstNegativeHour ? static_cast<uint8_t>(sum + 24) : sum;
}

// The recorder's zone; its index is 255 when the host cannot tell it.
struct RecorderZone {
    ZoneText text;
    uint8_t index;
};

RecorderZone recorder_zone(const char* operation) {
    char name[12 + 1] = {};  // the host may fill all of its 12 bytes, the NUL is ours
    int a = 0;
    int b = 0;
    const int result = GetTimeZone(name, &a, &b);
    if (result == -1) PRI_ERROR_AS(operation, ":**********Get timezome err****** \n");
    // Bits 8 to 15 are the host's index; a failure, -1, leaves 255 and the camera is set all the same.
    return {.text = parse_zone(name), .index = static_cast<uint8_t>(result >> 8)};
}

}  // namespace

int Prv_GetTimeProperty(int channel, uint32_t ip, void* out212) {
    return exchange::get(kGet, channel, ip, out212);
}

int Prv_SetIPCTimeDate(uint32_t ip, const void* record212) {
    return exchange::set(kSet, ip, record212);
}

int Prv_TimInfoPacket(void* record212, int zoneMinutes) {
    if (record212 == nullptr) return exchange::refuse(__func__);
    auto info = wire::load<IpcTimeInfo>(record212);
    uint8_t hours = 0;
    uint8_t minutes = 0;
    GetTimeZoneTime(info.ucTimeZone, &hours, &minutes);
    if (info.ucTimeMode == 0) {
        info.ucHour = corrected_hour(info.ucHour, static_cast<int8_t>(hours));
    } else if (info.ucTimeMode == 1) {
        info.ucTimeMode = 2;
    }
    info.reserved9[0] = 0;
    // The minutes of the zone went off with the offset; they come on again here, without a carry.
    info.ucMinute = static_cast<uint8_t>(info.ucMinute + static_cast<unsigned>(zoneMinutes));
    std::memcpy(info.szNtpServer, kTimeServer, sizeof kTimeServer);
    wire::store(record212, info);
    return 0;
}

int Prv_SetIPCTimeAndDate(const void* camera) {
    if (camera == nullptr) {
        PRI_LOG("input paramers error\n");
        return -1;
    }
    const RecorderZone zone = recorder_zone(__func__);
    IpcTimeInfo info = broken_down(shifted(time(nullptr), zone.text));
    // The correction of the hour goes by the host's index, what is sent by the camera's.
    info.ucTimeZone = zone.index;
    Prv_TimInfoPacket(&info, zone.text.minutes);
    info.ucTimeZone = static_cast<uint8_t>(GetIpcTimeZoneMap(info.ucTimeZone));

    const auto record = wire::load<HostCameraRecord>(camera);
    char ip[sizeof record.szIpAddr + 1] = {};
    std::memcpy(ip, record.szIpAddr, sizeof record.szIpAddr);
    return Prv_SetIPCTimeDate(inet_addr(ip), &info) == 0 ? 0 : -1;
}

int TZ_Process(const char* zone) {
    if (zone == nullptr) return -1;
    const ZoneText text = parse_zone(zone);
    if (!text.is_gmt) {
        PRI_LOG("TZ_Process format error\n");
        return -1;
    }
    if (text.sign == 0) return 0;  // GMT alone, where GMT+00:00 is 24
    // Half hours from GMT-12:00 on; any minutes count as one. Unsigned: the hours may be any number.
    const unsigned half_hours = 2u * static_cast<unsigned>(text.hours) + (text.minutes != 0 ? 1 : 0);
    return static_cast<int>(text.sign > 0 ? 24u + half_hours : 24u - half_hours);
}
