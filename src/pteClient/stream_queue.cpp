#include <sys/select.h>
#include <unistd.h>
#include <cstring>

#include "common/log.h"
#include "common/wire.h"
#include "lenswire/host_services.h"
#include "lenswire/stream.h"
#include "pteClient/client_table.h"
#include "pteClient/stream_slots.h"

using namespace lenswire;

namespace {

constexpr useconds_t kEmptyPauseUs = 100;
// Into the receive-buffer object: the word of the host's ring that says how much it holds.
constexpr size_t kRingFillOffset = 28;

bool can_be_served(const DevChannelInfo& info) {
    if (info.pStreamConn == nullptr || info.pRecvBuf == nullptr || info.pStream == nullptr) return false;
    return info.pStreamConn->sockFd > 0 && info.pStreamConn->sockFd < FD_SETSIZE;
}

void open_stream(const DevChannelInfo& info) {
    if (!can_be_served(info)) {
        std::fprintf(stderr, "[%s:%s:%d]:channel:%d,stream:%d,open request without a stream to receive \n",
                     LENSWIRE_LAYER_CLIENT, "PC_GetQueueThread", __LINE__, info.ucChannelNo, info.ucStreamNo);
        PostRestartMessageToQueue(info.ucChannelNo, info.ucStreamNo);
        return;
    }
    streams::Counters counters{};
    counters.tv1 = static_cast<int32_t>(uptime());
    counters.nodatatime = static_cast<int32_t>(uptime());
    std::memset(static_cast<uint8_t*>(info.pRecvBuf) + kRingFillOffset, 0, sizeof(uint32_t));
    if (clients::client_of(info.pStreamConn) == nullptr) {
        std::fprintf(stderr, "[%s:%s:%d]:holy shit.... \n", LENSWIRE_LAYER_CLIENT, "PC_GetQueueThread",
                     __LINE__);
    }
    streams::open_slot(info, info.pStreamConn->sockFd, counters);
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

}  // namespace

void PC_GetQueueThread(void) {
    while (clients::load(PC_G_RecvQueue) != 0) {
        StreamRequest request{};
        while (Private_Protocol_GetRequestFromQueue(&request) != -1) act_on(request);
        usleep(kEmptyPauseUs);
    }
}
