#include "lenswire/ptz.h"

#include <cstring>

#include "common/log.h"
#include "lenswire/host_services.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/exchange.h"
#include "privateConfigure/ptz_channel.h"

using namespace lenswire;
using exchange::Row;

namespace {

// The request is a header alone.
constexpr Row kGet{.operation = "Private_PTZ_GET_Property",
                   .wire = {.command = LENSWIRE_CMD_PTZ_GET, .records = {0, 0}},
                   .wording = {.no_answer_names_command = false}};
constexpr Row kSet{.operation = "Private_PTZ_SET_Property",
                   .wire = {.command = LENSWIRE_CMD_PTZ_SET, .records = {LENSWIRE_PTZ_SIZE}},
                   .wording = {.refused = "IP  error"}};
constexpr Row kOption{.operation = "Private_PTZ_OPTION",
                      .wire = {.command = LENSWIRE_CMD_PTZ_OPTION, .records = {LENSWIRE_PTZ_OPTION_SIZE}},
                      .wording = {.refused = "IP  error"}};

constexpr int kPresetDone = 4;  // what a host is told of a preset, whether it was sent or not

uint8_t fisheye_byte(uint32_t channel) {
    HostChannelRecord record{};
    databaseOperate(LENSWIRE_TABLE_CHANNELS, LENSWIRE_TABLE_READ, &channel, sizeof channel, &record,
                    sizeof record);
    return record.ucFishEye;
}

// The host counts presets from 1, the camera from 0 in one byte.
int preset_operation(const char* name, uint32_t channel, int operation, const uint16_t* preset) {
    if (preset == nullptr) return exchange::refuse(name);
    Private_PtzCmd(channel, operation, (*preset - 1) & 0xFF, 0);
    return kPresetDone;
}

}  // namespace

int Private_PTZ_GET_Property(uint32_t ip, void* out24) {
    if (ip == 0 || out24 == nullptr) return exchange::refuse(kGet);
    exchange::Message message(kGet);
    if (!exchange::fetch(kGet, ip, message)) return -1;
    std::memcpy(out24, message.payload(), LENSWIRE_PTZ_SIZE);
    return 0;
}

int Private_PTZ_SET_Property(uint32_t ip, const void* record24) {
    return exchange::set(kSet, ip, record24);
}

int Private_PTZ_OPTION(uint32_t ip, const void* record20) {
    return exchange::set(kOption, ip, record20);
}

int Private_SetPtzSpeed(uint32_t channel, int speed) {
    const ChannelCamera camera = camera_of_channel(static_cast<int>(channel));
    if (!camera.known) {
        PRI_LOG("DbMainMsgChannelInfo  get channel failed\n\n");
        return -1;
    }
    const uint8_t ptz = ptz_channel(fisheye_byte(channel), static_cast<uint8_t>(channel));
    PtzProperty property;
    if (Private_PTZ_GET_Property(camera.ip, &property) != 0) return -1;
    property.ucPtzChannel = ptz;
    property.ucSpeed = static_cast<uint8_t>(speed);
    Private_PTZ_SET_Property(camera.ip, &property);
    return 0;
}

int Private_PtzCmd(uint32_t channel, int operation, int argument, int secondArgument) {
    const ChannelCamera camera = camera_of_channel(static_cast<int>(channel));
    if (!camera.known) {
        PRI_LOG("DbMainMsgChannelInfo  get channel failed\n\n");
        return -1;
    }
    PtzOption option{};
    option.ucKind = 1;
    option.ucOperation = static_cast<uint8_t>(operation);
    option.ucArgument = static_cast<uint8_t>(secondArgument != 0 ? secondArgument : argument);
    Private_PTZ_OPTION(camera.ip, &option);
    return 0;
}

int Private_SetPreset(uint32_t channel, const uint16_t* preset) {
    return preset_operation(__func__, channel, LENSWIRE_PTZ_SET_PRESET, preset);
}

int Private_RecallPreset(uint32_t channel, const uint16_t* preset) {
    return preset_operation(__func__, channel, LENSWIRE_PTZ_GOTO_PRESET, preset);
}
