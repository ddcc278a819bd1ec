// The host's stream requests. A record from the host is checked before a slot is made of it; the sockets in
// it were made by an invitation, or by the host itself.
#include <sys/select.h>
#include <unistd.h>
#include <cstring>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/timer_slack.h"
#include "lenswire/host_services.h"
#include "lenswire/stream.h"
#include "pteClient/client_table.h"
#include "pteClient/expected_requests.h"
#include "pteClient/streams/stream_slots.h"
#include "pteClient/waits.h"

using namespace lenswire;

namespace {

constexpr char kThread[] = "PC_GetQueueThread";
// Into the receive-buffer object: the word of the host's ring that says how much it holds.
constexpr size_t kRingFillOffset = LENSWIRE_RING_FILL_OFFSET;

// The socket that an open request hands over; 0 when there is nothing to receive, or nowhere to.
int socket_to_serve(const DevChannelInfo& info) {
    if (info.pStreamConn == nullptr || info.pRecvBuf == nullptr || info.pStream == nullptr) return 0;
    const int fd = load_word(info.pStreamConn->sockFd);
    return fd > 0 && fd < FD_SETSIZE ? fd : 0;
}

void open_stream(const DevChannelInfo& info) {
    const int fd = socket_to_serve(info);
    if (fd == 0) {
        ENGINE_ERROR_AS(kThread, "channel:%d,stream:%d,open request without a stream to receive \n",
                        info.ucChannelNo, info.ucStreamNo);
        PostRestartMessageToQueue(info.ucChannelNo, info.ucStreamNo);
        return;
    }
    if (!streams::has_free_slot()) return;
    // The host is asked before the slot is locked, and asked twice, as a slot has two times.
    const auto tv1 = static_cast<int32_t>(uptime());
    const auto nodatatime = static_cast<int32_t>(uptime());
    std::memset(static_cast<uint8_t*>(info.pRecvBuf) + kRingFillOffset, 0, sizeof(uint32_t));
    if (!clients::has_client(info.pStreamConn)) ENGINE_ERROR_AS(kThread, "holy shit.... \n");
    streams::open_slot(info, fd, tv1, nodatatime);
}

void act_on(const StreamRequest& request) {
    switch (request.ulType) {
        case STREAM_REQ_OPEN:
            open_stream(request.info);
            break;
        case STREAM_REQ_CLOSE:
            streams::close_slot(request.info.ucChannelNo, request.info.ucStreamNo);
            break;
        default:
            break;
    }
}

void pause_between_polls() {
    const TimerSlack slack(is_stream_request_expected() ? 0 : waits::kQuietPollLateUs);
    usleep(waits::kPollUs);
}

}  // namespace

void PC_GetQueueThread(void) {
    while (load_word(PC_G_RecvQueue) != 0) {
        StreamRequest request{};
        while (Private_Protocol_GetRequestFromQueue(&request) != -1) {
            expect_stream_request();
            act_on(request);
        }
        pause_between_polls();
    }
}
