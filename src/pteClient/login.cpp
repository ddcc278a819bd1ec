#include "pteClient/login.h"

#include <sys/select.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/wire.h"
#include "lenswire/cipher.h"
#include "lenswire/command.h"
#include "lenswire/host_services.h"
#include "lenswire/socket.h"
#include "pteClient/client_table.h"

using namespace lenswire;
using namespace lenswire::clients;

namespace {

constexpr int kLongestElapsed = 9;
constexpr useconds_t kStepPauseUs = 10'000;
constexpr int kRepliesPerStep = 2;

#pragma pack(push, 1)
struct LoginRecord {
    char szUserName[32];
    uint8_t szPassword[32];
    uint8_t reserved64[4];
    uint8_t serialNum[LENSWIRE_SERIAL_SIZE];
};
struct LoginRequest {
    PrivateCmd header;
    LoginRecord record;
};
#pragma pack(pop)
static_assert(sizeof(LoginRecord) == LENSWIRE_LOGIN_SIZE);
static_assert(offsetof(LoginRecord, serialNum) == 68);

using SerialNum = std::array<uint8_t, LENSWIRE_SERIAL_SIZE>;

// Reads up to two messages and hands each to `take`, which says whether it was the one looked for, until
// one is or nothing more is there.
template <typename Take>
void read_replies(int fd, Take take) {
    for (int i = 0; i < kRepliesPerStep; ++i) {
        uint8_t message[MAX_CMD_SIZE + 1] = {};
        int length = MAX_CMD_SIZE;
        if (PC_RecvCmd(fd, message, &length) != 0 || take(message)) return;
    }
}

int request_serial(CmdClient& client, int fd) {
    const PrivateCmd request = wire::command_header(LENSWIRE_CMD_SERIAL, 0, 0);
    int length = sizeof request;
    if (PC_SendCmd(fd, &request, &length) != 0) return -1;
    client.ulLoginStep = login::kSerialRequested;
    return 0;
}

int receive_serial(CmdClient& client, int fd) {
    read_replies(fd, [&](const uint8_t* message) {
        if (wire::load_header(message).usCmd != LENSWIRE_CMD_SERIAL) return false;
        wire::store(client.serialNum, wire::load_padded<SerialNum>(wire::payload(message)));
        client.ulLoginStep = login::kSerialReceived;
        return true;
    });
    return 0;
}

int send_login(CmdClient& client, int fd) {
    LoginRequest request{};
    request.header = wire::command_header(LENSWIRE_CMD_LOGIN, 1, LENSWIRE_LOGIN_SIZE);
    LoginRecord& record = request.record;
    const LoginInfo& info = client.LoginInfo;
    std::memcpy(record.szUserName, info.szUserName, strnlen(info.szUserName, sizeof record.szUserName - 1));
    PP_DES_Encode(record.szPassword, reinterpret_cast<const uint8_t*>(info.szPassword), client.serialNum,
                  sizeof record.szPassword);
    PP_DES_Encode(record.serialNum, client.serialNum, client.serialNum, sizeof record.serialNum);
    int length = sizeof request;
    if (PC_SendCmd(fd, &request, &length) != 0) return -1;
    client.ulLoginStep = login::kLoginSent;
    return 0;
}

int receive_login(CmdClient& client, int fd) {
    read_replies(fd, [&](const uint8_t* message) {
        const PrivateCmd header = wire::load_header(message);
        if (header.ucState != 0) return true;
        if (header.usCmd != LENSWIRE_CMD_LOGIN) return false;
        store_word(client.ulLoginId, uint32_t{header.ulLoginId});
        FILE_LOG("connect success! id is %d,ip=0x%08x\n", static_cast<int>(header.ulLoginId),
                 client.ulIpAddr);
        client.ulLoginStep = login::kAccepted;
        return true;
    });
    return 0;
}

// The wall clock may be set while a login waits, so elapsed time is taken from the steady one.
time_t steady_seconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

bool host_ends_it(int channel, int stream) {
    return networkGetStreamUsedNum(channel, stream) == 0 || networkGetRunFlag(channel, stream) == 4;
}

// Starts the connection. False when that failed or the client died.
bool connect_client(const Invited& invited) {
    const int fd = SK_ConnectTo(invited.address, invited.port);
    if (fd < 0) {
        std::fprintf(stderr, "RTSP_Client_SubSvr Failed, error line: %d, error file: %s\n", __LINE__,
                     LENSWIRE_LAYER_CLIENT);
        return false;
    }
    if (fd >= FD_SETSIZE) {
        std::fprintf(stderr, "[%s:%s:%d]:**********can not support , socket %d is too big****** \n",
                     LENSWIRE_LAYER_CLIENT, "PcInviteStream", __LINE__, fd);
        close(fd);
        return false;
    }
    if (attach(invited.ref, fd)) return true;
    close(fd);
    return false;
}

// One step with the client held in place. False when it died.
bool step(const Ref& ref, int& result, bool& ready) {
    const Pin pin(ref);
    if (!pin) return false;
    result = PC_TaskProc(ref.client);
    ready = load_word(ref.client->ucClientState) == PC_STATE_READY;
    return true;
}

// Ends a login that succeeded. False when the client died.
bool note_login_time(const Ref& ref) {
    const uint32_t now = uptime();
    const Pin pin(ref);
    if (pin) ref.client->ulLoginUptime = now;
    return static_cast<bool>(pin);
}

int invite(const Invited& invited, int channel, int stream) {
    const Ref& ref = invited.ref;
    if (ref.client == nullptr || !connect_client(invited)) return -1;
    const time_t start = steady_seconds();
    int worst = -1;
    int elapsed = 0;
    for (;;) {
        elapsed = static_cast<int>(steady_seconds() - start);
        if (elapsed > kLongestElapsed || host_ends_it(channel, stream)) break;
        int result = -1;
        bool ready = false;
        if (!step(ref, result, ready)) return -1;
        if (result == -1) {
            std::fprintf(stderr, "RTSP_TaskProc Failed, error line: %d, error file: %s\n", __LINE__,
                         LENSWIRE_LAYER_CLIENT);
            drop(ref);
        }
        worst = std::min(worst, result);
        usleep(kStepPauseUs);
        if (ready) return note_login_time(ref) ? 0 : -1;
    }
    std::printf("[%s:%s:%d]:channel %d stream %d wait private respone time out %d \n", LENSWIRE_LAYER_CLIENT,
                "PcInviteStream", __LINE__, channel, stream, elapsed);
    drop(ref);
    return worst;
}

}  // namespace

int login::PC_CmdLogin(CmdClient* client) {
    if (client == nullptr) return -1;
    const int fd = load_word(client->sockFd);
    if (fd <= 0) return -1;
    switch (client->ulLoginStep) {
        case kNothingSent:
            return request_serial(*client, fd);
        case kSerialRequested:
            return receive_serial(*client, fd);
        case kSerialReceived:
            return send_login(*client, fd);
        case kLoginSent:
            return receive_login(*client, fd);
        default:
            return 0;
    }
}

int PC_Login(StreamConn* unit, uint32_t address, int port, const LoginInfo* info, int channel, int stream) {
    if (unit == nullptr || info == nullptr) return -1;
    bool table_full = false;
    const Invited invited = bind_unit(unit, {address, port, info}, table_full);
    if (table_full) ENGINE_ERROR("add client failed \n");
    return invite(invited, channel, stream);
}

int PcInviteStream(CmdClient* client, int channel, int stream) {
    if (client == nullptr) return -1;
    return invite(bind_again(client), channel, stream);
}
