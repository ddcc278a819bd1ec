// Asking a camera for a stream, on a connection of its own and on the host's thread.
#include <unistd.h>
#include <array>
#include <cstdio>

#include "common/stop.h"
#include "common/wire.h"
#include "lenswire/command.h"
#include "lenswire/socket.h"
#include "lenswire/stream.h"
#include "pteClient/client_table.h"
#include "pteClient/expected_requests.h"
#include "pteClient/waits.h"

using namespace lenswire;

namespace {

using StreamAnswer = std::array<uint8_t, LENSWIRE_STREAM_ANSWER_SIZE>;

#pragma pack(push, 1)
struct StreamInvitationRequest {
    PrivateCmd header;
    uint8_t channel;
    uint8_t stream;
    uint8_t reserved34[2];
};
#pragma pack(pop)
static_assert(sizeof(StreamInvitationRequest) == ARG_HEAD_LEN + LENSWIRE_STREAM_REQUEST_SIZE);

StreamInvitationRequest build_request(uint32_t login_id, int channel, int stream) {
    StreamInvitationRequest request{};
    request.header = wire::command_header(LENSWIRE_CMD_STREAM, 1, LENSWIRE_STREAM_REQUEST_SIZE);
    request.header.ulLoginId = login_id;
    request.channel = static_cast<uint8_t>(channel);
    request.stream = static_cast<uint8_t>(stream);
    return request;
}

// Invites on a connection that has been started. False when any step fails or nobody waits any more.
template <typename Ended>
bool exchange(Ended ended, int fd, const clients::StreamInvitation& invitation, int channel, int stream,
              StreamAnswer& answer) {
    const StreamInvitationRequest request = build_request(invitation.login_id, channel, stream);
    int length = sizeof request;
    if (!wait_until_ready(ended, fd, Ready::kWritable, waits::kInvitationMs)) return false;
    if (SK_SelectWaitWriteable(fd, 0) != 0 || PC_SendCmd(fd, &request, &length) != 0) return false;

    uint8_t reply[MAX_CMD_SIZE + 1] = {};
    length = MAX_CMD_SIZE;
    if (!wait_until_ready(ended, fd, Ready::kReadable, waits::kInvitationMs)) return false;
    if (PC_RecvCmd(fd, reply, &length) != 0) return false;
    const PrivateCmd header = wire::load_header(reply);
    if (header.usCmd != LENSWIRE_CMD_STREAM) {
        std::printf("++++++++++++++[%d][%d]PC_GetStream type:%d len:%d+++++++++++++++\n", channel, stream,
                    header.usCmd, length);
        return false;
    }
    answer = wire::load_padded<StreamAnswer>(wire::payload(reply));
    return true;
}

}  // namespace

// The unit may be cleared at any moment, by a stop above all: its socket is taken and published under the
// table's lock, and a socket that no unit will show any more is closed here.
int PC_GetStream(StreamConn* conn, int channel, int stream, void* out32) {
    if (conn == nullptr || channel < 0 || stream < 0) return -1;
    clients::StreamInvitation invitation;
    if (!clients::begin_invitation(conn, invitation)) return -1;
    const RunningContext context;
    const auto ended = [&] { return context.ended() || !clients::is_current(invitation); };
    expect_stream_request();
    if (invitation.old_fd >= 0) close(invitation.old_fd);
    const int fd = SK_ConnectTo(invitation.address, invitation.port);
    StreamAnswer answer;
    const bool done = clients::publish_stream_socket(invitation, fd) && fd >= 0 &&
                      exchange(ended, fd, invitation, channel, stream, answer);
    expect_stream_request();
    if (done && clients::is_current(invitation)) {
        if (out32 != nullptr) wire::store(out32, answer);
        return 0;
    }
    if (!ended()) return -1;  // the unit keeps its socket
    clients::publish_stream_socket(invitation, -1);
    if (fd >= 0) close(fd);
    return -1;
}
