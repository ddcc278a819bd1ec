#include "lenswire/fisheye.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstring>

#include "common/log.h"
#include "common/scope_exit.h"
#include "common/stop.h"
#include "lenswire/host_services.h"
#include "lenswire/socket.h"
#include "privateConfigure/exchange.h"

using namespace lenswire;
using exchange::Row;

namespace {

constexpr Row kProperty{.operation = "Private_Fish_Protocol_EYE_PROPERTY",
                        .wire = {.command = LENSWIRE_CMD_FISH_PROPERTY_GET,
                                 .records = {LENSWIRE_FISH_PROPERTY_SIZE},
                                 .sends_channel = true},
                        .wording = {.not_sent_names_channel = true}};
constexpr Row kPropertyWithoutLogin{.operation = "Private_Fish_Protocol_EYE_PROPERTY0",
                                    .wire = {.command = LENSWIRE_CMD_FISH_PROPERTY_GET,
                                             .records = {LENSWIRE_FISH_PROPERTY_SIZE},
                                             .sends_channel = true}};

constexpr int kConnectMs = 5000;
constexpr int kAnswerMs = 3000;

bool send_when_connected(const RunningContext& context, int fd, exchange::Message& request) {
    int length = static_cast<int>(request.whole().size());
    return wait_until_ready([&] { return context.ended(); }, fd, Ready::kWritable, kConnectMs) &&
           SK_SelectWaitWriteable(fd, 0) == 0 && PC_SendCmd(fd, request.bytes, &length) == 0;
}

bool receive(const RunningContext& context, int fd, exchange::Message& answer) {
    int length = sizeof answer.bytes;
    if (!wait_until_ready([&] { return context.ended(); }, fd, Ready::kReadable, kAnswerMs)) return false;
    if (PC_RecvCmd(fd, answer.bytes, &length) != 0) return false;
    const uint16_t command = answer.header().usCmd;
    if (command == LENSWIRE_CMD_FISH_PROPERTY_GET) return true;
    std::printf("++++++++++++++[%d]PC_GetStream type:%d len:%d+++++++++++++++\n", answer.channel, command,
                length);
    return false;
}

// The type of a channel whose camera reports type `reported`.
int host_type(int reported, int type, int number, int flag) {
    switch (reported) {
        case 0:
            return flag == 1 ? -1 : 1;
        case 1:
            if (flag == 1) return -1;
            return type == 2 || number == 0 ? 2 : -1;
        case 2:
            if (number != 0 && flag == 1) return -1;
            if (type == 3) return 0;
            return static_cast<unsigned>(number) < 4 ? 3 : -1;
        case 3:
            if (type == 4) return 0;
            return number == 0 ? 4 : -1;
        default:
            return 0;
    }
}

}  // namespace

int Private_Fish_Protocol_EYE_PROPERTY0(int channel, const char* ip, int port, void* out64) {
    if (channel < 0 || ip == nullptr || out64 == nullptr) return exchange::refuse(kPropertyWithoutLogin);
    const RunningContext context;
    const int fd = SK_ConnectTo(inet_addr(ip), port);
    if (fd < 0) return -1;
    const ScopeExit closing([fd] { close(fd); });

    exchange::Message message(kPropertyWithoutLogin, channel);
    if (!send_when_connected(context, fd, message)) return -1;
    std::memset(message.bytes, 0, sizeof message.bytes);
    if (!receive(context, fd, message)) return -1;
    std::memcpy(out64, message.payload(), LENSWIRE_FISH_PROPERTY_SIZE);
    return 0;
}

int Private_Fish_Protocol_EYE_PROPERTY(int channel, uint32_t ip, void* out64) {
    return exchange::get(kProperty, channel, ip, out64);
}

int GetFishType(const void* camera, int type, int number, int flag) {
    uint8_t property[LENSWIRE_FISH_PROPERTY_SIZE];
    if (camera == nullptr) return exchange::refuse(__func__);
    const auto record = wire::load<HostCameraRecord>(camera);
    char ip[sizeof record.szIpAddr + 1] = {};
    std::memcpy(ip, record.szIpAddr, sizeof record.szIpAddr);
    if (Private_Fish_Protocol_EYE_PROPERTY0(record.ucChannelNo, ip, static_cast<int>(record.ulPort),
                                            property) != 0) {
        PRIVATE_LOG("Private_Protocol_GetEncodingScope failed\n");
        return -1;
    }
    return host_type(property[1], type, number, flag);
}

int GetFiashEve(const void* camera, uint8_t* high, uint8_t* low) {
    if (camera == nullptr || high == nullptr || low == nullptr) return exchange::refuse(__func__);
    uint32_t channel = wire::load<HostCameraRecord>(camera).ucChannelNo;
    HostChannelRecord record{};
    const int result = databaseOperate(LENSWIRE_TABLE_CHANNELS, LENSWIRE_TABLE_READ, &channel, sizeof channel,
                                       &record, sizeof record);
    if (record.ucFishEye != 0) {
        *high = record.ucFishEye >> 4;
        *low = record.ucFishEye & 0x0F;
    }
    return result;
}
