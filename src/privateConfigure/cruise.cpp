#include "lenswire/cruise.h"

#include <unistd.h>

#include <algorithm>

#include "common/log.h"
#include "lenswire/host_services.h"
#include "lenswire/ptz.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/cruise_table.h"
#include "privateConfigure/exchange.h"
#include "privateConfigure/ptz_channel.h"

using namespace lenswire;
using exchange::Row;

namespace {

constexpr Row kSet{.operation = "Private_PTZ_CRUISE",
                   .wire = {.command = LENSWIRE_CMD_CRUISE_SET, .records = {LENSWIRE_CRUISE_SIZE}},
                   .wording = {.refused = "IP  error"}};
constexpr Row kGet{
    .operation = "Private_PTZ_CRUISE_GET",
    .wire = {.command = LENSWIRE_CMD_CRUISE_GET, .records = {LENSWIRE_CRUISE_SIZE}, .built_apart = true},
    .wording = {.form = exchange::Form::kBare, .refused = "IP  error"}};

constexpr int kRecordSize = sizeof(CruiseLine);
constexpr int kStart = 1;
constexpr uint8_t kEnabled = 1;
constexpr uint8_t kUsed = 1;
constexpr uint8_t kTimeUnits = 6;  // the camera's in one of the host's
constexpr useconds_t kBetweenLinesUs = 2000;
constexpr useconds_t kAfterStopUs = 500000;

bool is_line(uint32_t channel, uint32_t line) {
    return channel < cruise::kChannels && line < cruise::kLines;
}

// A record handed in, copied. When there is none that is logged, and its line number is 255.
CruiseLine record_from(const char* operation, const void* record390) {
    if (record390 != nullptr) return wire::load<CruiseLine>(record390);
    exchange::refuse(operation);
    CruiseLine none{};
    none.ucLineNo = UINT8_MAX;
    return none;
}

void store_in_database(uint32_t channel, CruiseLine line) {
    databaseOperate(LENSWIRE_TABLE_CRUISE, LENSWIRE_TABLE_WRITE, &channel, sizeof channel, &line,
                    sizeof line);
}

uint8_t ptz_channel_of(uint32_t channel) {
    return ptz_channel(static_cast<uint8_t>(is_channel_fish_eye(static_cast<int>(channel))), 0);
}

CameraCruise to_camera(const CruiseLine& line, uint8_t ptz) {
    CameraCruise out{};
    out.ucPtzChannel = ptz;
    out.ucLineNo = line.ucLineNo;
    out.ucEnable = line.ucEnable;
    for (int i = 0; i < LENSWIRE_CRUISE_POINTS; ++i) {
        const CruisePoint& point = line.points[i];
        if (point.ucUsed != kUsed || point.ucTime == 0) continue;
        CameraCruisePoint& sent = out.points[i];
        sent.ucPtzChannel = ptz;
        sent.ucLineNo = line.ucLineNo;
        sent.ucPoint = static_cast<uint8_t>(i);
        sent.ucUsed = kUsed;
        sent.ucPreset = static_cast<uint8_t>(point.usPreset - 1);
        sent.ucTime = static_cast<uint8_t>(point.ucTime * kTimeUnits);
        sent.ulSpeed = point.ucSpeed;
    }
    return out;
}

CruiseLine from_camera(const CameraCruise& cruise) {
    CruiseLine line{};
    line.ucLineNo = cruise.ucLineNo;
    for (int i = 0; i < LENSWIRE_CRUISE_POINTS; ++i) {
        const CameraCruisePoint& received = cruise.points[i];
        if (received.ucUsed != kUsed || received.ucTime == 0) continue;
        CruisePoint& point = line.points[i];
        point.ucUsed = kUsed;
        point.ucTime = received.ucTime / kTimeUnits;
        point.ucSpeed = static_cast<uint8_t>(received.ulSpeed);
        point.usPreset = static_cast<uint16_t>(received.ucPreset + 1);
    }
    return line;
}

PtzOption start_or_stop(const CruiseLine& line) {
    PtzOption option{};
    option.ucOperation = line.ucEnable == kEnabled ? LENSWIRE_PTZ_START_CRUISE : LENSWIRE_PTZ_STOP_CRUISE;
    option.ucArgument = line.ucLineNo;
    return option;
}

void start_line(uint32_t channel, uint32_t line) {
    CruiseLine other;
    if (cruise::disable_other(channel, line, other)) {
        store_in_database(channel, other);
        usleep(kBetweenLinesUs);
    }
    const CruiseLine started = cruise::set_enable(channel, line, kEnabled);
    store_in_database(channel, started);
    Private_SetPtzCruiseAllPreset(channel, &started, kStart);
}

void stop_all_lines(uint32_t channel) {
    for (uint32_t line = 0; line < cruise::kLines; ++line) {
        store_in_database(channel, cruise::set_enable(channel, line, 0));
    }
    usleep(kAfterStopUs);
}

}  // namespace

int Private_ptzCruiseInit(void) {
    cruise::clear_table();
    for (uint32_t channel = 0; channel < cruise::kChannels; ++channel) {
        if (static_cast<int>(channel) >= configGetDisplayNum()) break;
        Private_ptzInitCruiseInfo(channel);
    }
    return 0;
}

int Private_ptzInitCruiseInfo(uint32_t channel) {
    if (channel >= cruise::kChannels) return -1;
    // What the host does not write stays as the table has it.
    cruise::Block block = cruise::load_block(channel);
    const int result = databaseOperate(LENSWIRE_TABLE_CRUISE, LENSWIRE_TABLE_READ, &channel, sizeof channel,
                                       &block, sizeof block);
    if (result != -1) cruise::store_block(channel, block);
    return result;
}

int Private_Get_EnableFlagFromMemory(uint32_t channel, uint32_t line) {
    return is_line(channel, line) ? cruise::load_line(channel, line).ucEnable : -1;
}

int Get_Private_EnableFlagFromMemory(uint32_t channel) {
    return channel < cruise::kChannels ? cruise::enabled_line(channel) : -1;
}

int Private_ChangeCruiseLineParam(uint32_t channel, uint32_t line, const void* record390) {
    const CruiseLine record = record_from(__func__, record390);
    if (!is_line(channel, line) || !is_line(channel, record.ucLineNo)) return -1;
    cruise::store_line(channel, record);
    return 0;
}

int Private_ChangeCruiseParamToDB(uint32_t channel, const void* record390) {
    const CruiseLine line = record_from(__func__, record390);
    if (!is_line(channel, line.ucLineNo)) return -1;
    store_in_database(channel, line);
    return kRecordSize;
}

void Private_ChangeCruiseLineEnableFlag(uint32_t channel, uint32_t line, int flag) {
    if (is_line(channel, line)) cruise::set_enable(channel, line, static_cast<uint8_t>(flag));
}

int Private_ChangeCruiseParamToMemory(uint32_t channel, const void* record390) {
    const CruiseLine line = record_from(__func__, record390);
    if (!is_line(channel, line.ucLineNo)) return -1;
    CruiseLine disabled;
    if (cruise::replace_line(channel, line, disabled)) store_in_database(channel, disabled);
    store_in_database(channel, line);
    return 0;
}

int Private_PTZ_CRUISE(uint32_t ip, const void* record980) {
    return exchange::set(kSet, ip, record980);
}

int Private_PTZ_CRUISE_GET(uint32_t ip, void* record980) {
    if (ip == 0 || record980 == nullptr) return exchange::refuse(kGet);
    exchange::Message message(kGet, static_cast<const void*>(record980));
    if (!exchange::fetch(kGet, ip, message)) return -1;
    std::copy_n(message.payload(), LENSWIRE_CRUISE_SIZE, static_cast<uint8_t*>(record980));
    return 0;
}

int Private_GetPtzCruiseAllPreset(uint32_t channel, void* record390) {
    const uint8_t line = record_from(__func__, record390).ucLineNo;
    if (!is_line(channel, line)) return -1;
    CameraCruise cruise{};
    cruise.ucPtzChannel = ptz_channel_of(channel);
    cruise.ucLineNo = line;
    const ChannelCamera camera = camera_of_channel(static_cast<int>(channel));
    if (!camera.known) {
        std::printf(" DbMainMsgChannelInfo\t get channel failed\n channelNo:%d", static_cast<int>(channel));
        return -1;
    }
    if (Private_PTZ_CRUISE_GET(camera.ip, &cruise) != 0) return -1;
    wire::store(record390, from_camera(cruise));
    return kRecordSize;
}

int Private_SetPtzCruiseAllPreset(uint32_t channel, const void* record390, int start) {
    const CruiseLine line = record_from(__func__, record390);
    if (!is_line(channel, line.ucLineNo)) return -1;
    const ChannelCamera camera = camera_of_channel(static_cast<int>(channel));
    if (!camera.known) {
        PRI_LOG("DbMainMsgChannelInfo  get channel failed\n\n");
        return -1;
    }
    const uint8_t ptz = ptz_channel_of(channel);
    Private_ChangeCruiseParamToMemory(channel, &line);
    const CameraCruise sent = to_camera(line, ptz);
    if (Private_PTZ_CRUISE(camera.ip, &sent) != 0) return -1;
    if (start != kStart) return 0;
    const PtzOption option = start_or_stop(line);
    return Private_PTZ_OPTION(camera.ip, &option) == 0 ? 0 : -1;
}

int Private_GetPtzCruiseChannel(uint32_t channel) {
    if (channel >= cruise::kChannels) return -1;
    const int loaded = Private_ptzInitCruiseInfo(channel);
    for (uint32_t number = 0; number < cruise::kLines; ++number) {
        const CruiseLine line = cruise::load_line(channel, number);
        if (line.ucEnable == kEnabled) return Private_SetPtzCruiseAllPreset(channel, &line, kStart);
    }
    return loaded;
}

int Private_StartPtzCruiseLine(uint32_t channel, uint32_t line, int start) {
    if (channel >= cruise::kChannels) return -1;
    if (start != kStart) {
        stop_all_lines(channel);
        return 0;
    }
    if (line >= cruise::kLines) return -1;
    start_line(channel, line);
    return 0;
}
