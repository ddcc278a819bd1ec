#include "lenswire/motion.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "common/log.h"
#include "common/wire.h"
#include "lenswire/host_services.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/exchange.h"

using namespace lenswire;
using exchange::Row;

namespace {

constexpr Row kGet{
    .operation = "Prv_GetIPCMtionDetetionConfigure",
    .wire = {.command = LENSWIRE_CMD_MOTION_GET, .records = {LENSWIRE_MOTION_SIZE}, .sends_channel = true},
    .wording = {.no_answer_names_command = false}};
constexpr Row kSet{
    .operation = "Prv_SetIPCMtionDetetionConfigure",
    .wire = {.command = LENSWIRE_CMD_MOTION_SET, .records = {LENSWIRE_MOTION_SIZE}, .attempts = 10},
    .wording = {.refused = "input paramers error"}};
constexpr Row kAlarmEx{.operation = "prv_set_alarm_property_ex",
                       .wire = {.command = LENSWIRE_CMD_ALARM_EX, .records = {LENSWIRE_ALARM_EX_SIZE}},
                       .wording = {.refused = "input error"}};

// The host's channel ranges end at 64, one above the last channel that is scanned.
constexpr uint32_t kLastChannel = 64;
constexpr int kMotion = 1;

#pragma pack(push, 1)
// The camera's configuration.
struct IpcMotionConfig {
    uint8_t ucChannel;
    uint8_t ucEnable;
    uint8_t reserved2;
    uint8_t ucByte3;  // byte 7 of the host's record
    uint8_t reserved4[4];
    uint8_t aucArea[72];
    uint8_t reserved80[88];
};
#pragma pack(pop)
static_assert(sizeof(IpcMotionConfig) == LENSWIRE_MOTION_SIZE);
static_assert(offsetof(IpcMotionConfig, aucArea) == 8);

IpcMotionConfig switched_off(const HostMotionRecord& record) {
    IpcMotionConfig config{};
    config.ucByte3 = record.ucByte7;
    std::copy_n(record.aucArea, sizeof record.aucArea, config.aucArea);
    return config;
}

bool belongs_to(int channel, uint32_t ip) {
    if (get_channel_bindstatus(channel) == 0 || get_channel_protocol(channel) != LENSWIRE_PROTOCOL)
        return false;
    const ChannelCamera camera = camera_of_channel(channel);
    return camera.known && camera.ip == ip;
}

void end_motion_with_alarm(int channel) {
    HostAlarmRecord alarm{LENSWIRE_ALARM_MOTION, static_cast<uint8_t>(channel), 0, 0};
    streamInsertAlarmToAlarmQueue(0, &alarm);
    VideoMDSetStatus(channel, 0, nullptr);
    snapSetMotion(channel, 0);
}

}  // namespace

int Prv_GetIPCMtionDetetionConfigure(uint32_t channel, uint32_t ip, void* out168) {
    if (ip == 0 || channel > kLastChannel || out168 == nullptr) {
        PRI_LOG("parameter pass error! ip=%d,outMotionProperty=%p,channel=%d\n", static_cast<int>(ip), out168,
                static_cast<int>(channel));
        return -1;
    }
    return exchange::fetch_record(kGet, static_cast<int>(channel), ip, out168);
}

int Prv_SetIPCMtionDetetionConfigure(uint32_t ip, const void* record168) {
    return exchange::set(kSet, ip, record168);
}

int Private_VideoMDSetStatus(uint32_t channel, int status, void* data) {
    if (channel > kLastChannel) return -1;
    VideoMDSetStatus(static_cast<int>(channel), status, data);
    if (status == kMotion) snapSetMotion(static_cast<int>(channel), 1);
    return 0;
}

int Prv_IPCTriggingMtionDetetion(const void* push, uint32_t ip) {
    if (ip == 0 || push == nullptr) {
        PRI_LOG("input pama error\n");
        return -1;
    }
    const auto payload = wire::payload(push);
    const int state = payload.size() > 2 ? payload[2] : 0;
    for (int channel = 0; channel < LENSWIRE_CHANNELS; ++channel) {
        if (!belongs_to(channel, ip)) continue;
        if (MD_Disarming_Time(channel) == 1) {
            HostMotionRecord data{};
            if (motion_data_copy(channel, &data) < 0) {
                PRI_LOG("channel %d data read error\n", channel);
                return -1;
            }
            if (Private_VideoMDSetStatus(static_cast<uint32_t>(channel), state, &data) != 0) {
                PRI_LOG("Private_VideoMDSetStatus error\n");
                return -1;
            }
        } else if (VideoMDGetStatus(channel) == kMotion) {
            end_motion_with_alarm(channel);
        }
    }
    return 0;
}

int Prv_CloseMD(uint32_t channel, uint32_t ip) {
    if (ip == 0) {
        PRI_LOG("input pama error\n");
        return -1;
    }
    HostMotionRecord record{};
    if (databaseOperate(LENSWIRE_TABLE_MOTION, LENSWIRE_TABLE_READ, &channel, sizeof channel, &record,
                        sizeof record) == -1) {
        PRI_LOG("channel %d databaseOperate read error\n", static_cast<int>(channel));
        return -1;
    }
    const IpcMotionConfig config = switched_off(record);
    if (Prv_SetIPCMtionDetetionConfigure(ip, &config) != 0) {
        PRI_LOG("Prv_SetIPCMtionDetetionConfigure error\n");
        return -1;
    }
    record.ucEnable = 0;
    if (databaseOperate(LENSWIRE_TABLE_MOTION, LENSWIRE_TABLE_WRITE, &channel, sizeof channel, &record,
                        sizeof record) == -1) {
        PRI_LOG("channel %d databaseOperate read error\n", static_cast<int>(channel));
        return -1;
    }
    record = {};
    if (Private_VideoMDSetStatus(channel, 0, &record) != 0) {
        PRI_LOG("Private_VideoMDSetStatus error\n");
        return -1;
    }
    return 0;
}

int cmd_packet(void* cmd, int usCmd, int bufferNum, int bufferSize) {
    if (cmd == nullptr || usCmd < 0 || bufferNum < 0 || bufferSize < 0) {
        PRI_LOG("input error\n");
        return -1;
    }
    PrivateCmd header = wire::load_header(cmd);
    header.ulFlag = LENSWIRE_FLAG_COMMAND;
    header.ucTag1 = 1;
    header.ucTag2 = 1;
    header.usCmd = static_cast<uint16_t>(usCmd);
    header.ulBufferNum = static_cast<uint32_t>(bufferNum);
    header.ulBufferSize = static_cast<uint32_t>(bufferSize);
    wire::store(cmd, header);
    return 0;
}

int prv_set_alarm_property_ex(const char* ip, void* record560, int attempts) {
    if (ip == nullptr || record560 == nullptr) return exchange::refuse(kAlarmEx);
    static_cast<uint8_t*>(record560)[1] = 1;
    Row row = kAlarmEx;
    row.wire.attempts = attempts;
    exchange::Message request(row, record560);
    return exchange::send(row, inet_addr(ip), request);
}

int prv_get_alarm_property_ex(void) {
    return 0;
}
