#include "lenswire/platform.h"

#include <algorithm>

#include "common/log.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/exchange.h"

using namespace lenswire;
using exchange::Row;

namespace {

constexpr Row kPropertyBlock{.operation = "Prv_Get_IPC_PropertyParam",
                             .wire = {.command = LENSWIRE_CMD_PROPERTY_BLOCK,
                                      .records = {LENSWIRE_PROPERTY_BLOCK_SIZE},
                                      .checks_flag = true,
                                      .wait_s = 3},
                             .wording = {.form = exchange::Form::kError, .not_sent = "Prv_Send_Cmd failed"}};
constexpr Row kDeviceInfo{.operation = "Private_Protocol_GetPlatFormType",
                          .wire = {.command = LENSWIRE_CMD_DEVICE_INFO,
                                   .records = {LENSWIRE_DEVICE_INFO_SIZE},
                                   .checks_flag = true},
                          .wording = {.form = exchange::Form::kBlankLine, .refused = "IP  error"}};

// Device types of the special platform family.
constexpr uint8_t kFamily[] = {81,  130, 131, 132, 134, 135, 137, 138, 140, 141, 142, 143, 150, 151,
                               153, 154, 156, 157, 158, 159, 160, 161, 162, 163, 182, 183, 202, 209,
                               210, 211, 215, 221, 222, 230, 231, 232, 233, 234, 235, 241};
constexpr int kFamilyByte = 27;  // of the property block

bool is_in_family(uint8_t device_type) {
    return std::find(std::begin(kFamily), std::end(kFamily), device_type) != std::end(kFamily);
}

bool property_block_names_family(int channel) {
    uint8_t block[LENSWIRE_PROPERTY_BLOCK_SIZE];
    return Prv_Get_IPC_PropertyParam(channel, block) == 0 && block[kFamilyByte] == 1;
}

}  // namespace

int Prv_Get_IPC_PropertyParam(int channel, void* out1024) {
    const ChannelCamera camera = camera_of_channel(channel);
    if (!camera.known) {
        PRI_LOG("DbMainMsgChannelInfo   get channel failed\n\n");
        return -1;
    }
    if (camera.ip == 0) {
        PRI_LOG("IP  error\n\n");
        return -1;
    }
    return out1024 != nullptr ? exchange::fetch_record(kPropertyBlock, 0, camera.ip, out1024)
                              : exchange::refuse(kPropertyBlock);
}

int Private_Protocol_GetPlatFormType(int channel) {
    IpcDeviceInfo info;
    if (exchange::get(kDeviceInfo, 0, camera_of_channel(channel).ip, &info) != 0) return 0;
    return is_in_family(info.ndevType) || property_block_names_family(channel) ? 1 : 0;
}
