#include "lenswire/settings.h"

#include "common/log.h"
#include "privateConfigure/exchange.h"

using namespace lenswire;
using exchange::Row;

namespace {

constexpr Row kImageGet{.operation = "Prv_GetIPCImageProperty",
                        .wire = {.command = LENSWIRE_CMD_IMAGE_GET,
                                 .records = {LENSWIRE_IMAGE_SIZE},
                                 .sends_channel = true,
                                 .second_byte = LENSWIRE_ALL_STREAMS}};
constexpr Row kImageSet{.operation = "Prv_SetIPCImageProperty",
                        .wire = {.command = LENSWIRE_CMD_IMAGE_SET, .records = {LENSWIRE_IMAGE_SIZE}},
                        .wording = {.refused = "input paramers error"}};
constexpr Row kNetworkGet{
    .operation = "Prv_GetIPCNetworkProperty",
    .wire = {.command = LENSWIRE_CMD_NETWORK_GET, .records = {LENSWIRE_NETWORK_SIZE}, .sends_channel = true},
    .wording = {.no_answer_names_command = false}};
constexpr Row kOsdGet{
    .operation = "Prv_GetIPCOSD",
    .wire = {.command = LENSWIRE_CMD_OSD_GET, .records = {LENSWIRE_OSD_SIZE}, .sends_channel = true},
    .wording = {.no_answer_names_command = false}};
constexpr Row kOsdSet{.operation = "Prv_SetIPCOSD",
                      .wire = {.command = LENSWIRE_CMD_OSD_SET, .records = {LENSWIRE_OSD_SIZE}},
                      .wording = {.refused = "input paramers error"}};
constexpr Row kWifiGet{.operation = "Prv_GetWifiSignal",
                       .wire = {.command = LENSWIRE_CMD_WIFI_GET, .records = {LENSWIRE_WIFI_SIZE}}};
constexpr Row kCoverGet{
    .operation = "Prv_GetVideoCover",
    .wire = {.command = LENSWIRE_CMD_COVER_GET, .records = {LENSWIRE_COVER_SIZE}, .sends_channel = true},
    .wording = {.no_answer_names_command = false}};
constexpr Row kCoverSet{
    .operation = "Prv_SetVideoCover",
    .wire = {.command = LENSWIRE_CMD_COVER_SET, .records = {LENSWIRE_COVER_SIZE}, .attempts = 10},
    .wording = {.refused = "Prv_SetVideoCover input paramers error",
                .not_sent = "Prv_SetVideoCover Prv_Send_Cmd failed"}};
constexpr Row kSmartIFrameSet{.operation = "Prv_SetSmartIFrame",
                              .wire = {.command = LENSWIRE_CMD_SMART_IFRAME_SET,
                                       .records = {LENSWIRE_SMART_IFRAME_SIZE},
                                       .attempts = 10},
                              .wording = {.refused = "Prv_SetSmartIFrame input paramers error",
                                          .not_sent = "Prv_SetSmartIFrame Prv_Send_Cmd failed"}};

constexpr uint32_t kLastCoverChannel = 64;  // one above the host's last, as with motion

}  // namespace

int Prv_GetIPCImageProperty(int channel, uint32_t ip, void* out36) {
    return exchange::get(kImageGet, channel, ip, out36);
}

int Prv_SetIPCImageProperty(uint32_t ip, const void* record36) {
    return exchange::set(kImageSet, ip, record36);
}

int Prv_GetIPCNetworkProperty(int channel, uint32_t ip, void* out118) {
    return exchange::get(kNetworkGet, channel, ip, out118);
}

int Prv_GetIPCOSD(int channel, uint32_t ip, void* out228) {
    return exchange::get(kOsdGet, channel, ip, out228);
}

int Prv_SetIPCOSD(uint32_t ip, const void* record228) {
    return exchange::set(kOsdSet, ip, record228);
}

int Prv_GetWifiSignal(int channel, uint32_t ip, void* out626) {
    if (ip == 0 || channel < 0 || out626 == nullptr) {
        PRI_LOG("ip : %d , channel : %d,inWifi : %x parameter pass error!\n", static_cast<int>(ip), channel,
                static_cast<unsigned>(reinterpret_cast<uintptr_t>(out626)));
        return -1;
    }
    return exchange::fetch_record(kWifiGet, channel, ip, out626);
}

int Prv_GetVideoCover(uint32_t channel, uint32_t ip, void* out204) {
    if (ip == 0 || channel > kLastCoverChannel || out204 == nullptr) {
        PRI_LOG("Prv_GetVideoCover parameter pass error! ip=%d,outCoverProperty=%p,channel=%d\n",
                static_cast<int>(ip), out204, static_cast<int>(channel));
        return -1;
    }
    return exchange::fetch_record(kCoverGet, static_cast<int>(channel), ip, out204);
}

int Prv_SetVideoCover(int, uint32_t ip, const void* record204) {
    return exchange::set(kCoverSet, ip, record204);
}

int Prv_SetSmartIFrame(int, uint32_t ip, const void* record512) {
    return exchange::set(kSmartIFrameSet, ip, record512);
}
