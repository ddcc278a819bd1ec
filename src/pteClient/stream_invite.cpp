#include <unistd.h>
#include <array>
#include <cstdio>

#include "common/wire.h"
#include "lenswire/command.h"
#include "lenswire/socket.h"
#include "lenswire/stream.h"
#include "pteClient/client_table.h"

using namespace lenswire;

namespace {

constexpr int kWaitMs = 3000;

using StreamAnswer = std::array<uint8_t, LENSWIRE_STREAM_ANSWER_SIZE>;

#pragma pack(push, 1)
struct StreamInvitation {
    PrivateCmd header;
    uint8_t channel;
    uint8_t stream;
    uint8_t reserved34[2];
};
#pragma pack(pop)
static_assert(sizeof(StreamInvitation) == ARG_HEAD_LEN + LENSWIRE_STREAM_REQUEST_SIZE);

StreamInvitation invitation(uint32_t login_id, int channel, int stream) {
    StreamInvitation request{};
    request.header = wire::command_header(LENSWIRE_CMD_STREAM, 1, LENSWIRE_STREAM_REQUEST_SIZE);
    request.header.ulLoginId = login_id;
    request.channel = static_cast<uint8_t>(channel);
    request.stream = static_cast<uint8_t>(stream);
    return request;
}

bool send_when_connected(int fd, const StreamInvitation& request) {
    int length = sizeof request;
    return SK_SelectWaitWriteable(fd, kWaitMs) == 0 && PC_SendCmd(fd, &request, &length) == 0;
}

}  // namespace

int PC_GetStream(StreamConn* conn, int channel, int stream, void* out32) {
    if (conn == nullptr || channel < 0 || stream < 0) return -1;
    uint32_t address, login_id;
    int port;
    if (!clients::find_camera(conn, address, port, login_id)) return -1;
    if (conn->sockFd >= 0) close(conn->sockFd);
    conn->sockFd = -1;
    const int fd = conn->sockFd = SK_ConnectTo(address, port);
    if (fd < 0 || !send_when_connected(fd, invitation(login_id, channel, stream))) return -1;

    uint8_t reply[MAX_CMD_SIZE + 1] = {};
    int length = MAX_CMD_SIZE;
    if (SK_SelectWaitReadable(fd, kWaitMs) != 0 || PC_RecvCmd(fd, reply, &length) != 0) return -1;
    const PrivateCmd header = wire::load_header(reply);
    if (header.usCmd != LENSWIRE_CMD_STREAM) {
        std::printf("++++++++++++++[%d][%d]PC_GetStream type:%d len:%d+++++++++++++++\n", channel, stream,
                    header.usCmd, length);
        return -1;
    }
    if (out32 != nullptr) wire::store(out32, wire::load_padded<StreamAnswer>(wire::payload(reply)));
    return 0;
}
