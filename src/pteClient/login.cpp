// Serial number, then credentials encrypted under it. One message a step; the replies are read by the same
// thread, since the event loop leaves a client alone that is not ready.
#include "pteClient/login.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/wire.h"
#include "lenswire/cipher.h"
#include "lenswire/command.h"

using namespace lenswire;

namespace {

// A camera may push something of its own before it answers.
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
