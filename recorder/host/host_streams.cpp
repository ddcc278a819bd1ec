// Host services: stream requests, restarts and statistics.
#include "lenswire/host_services.h"
#include "recorder/host/host.h"

using lenswire::recorder::Host;
using lenswire::recorder::RecorderStream;

namespace {

constexpr int kRestartMessage = 3;
constexpr int kRunning = 1;
constexpr int kStopped = 4;

RecorderStream* find(int channel, int stream) {
    Host* host = Host::current();
    return host != nullptr ? host->stream(channel, stream) : nullptr;
}

}  // namespace

int Private_Protocol_GetRequestFromQueue(StreamRequest* request) {
    Host* host = Host::current();
    return host != nullptr && request != nullptr && host->requests.take(*request) ? 0 : -1;
}

int networkInsertMessageToQueue(int channel, int stream, void* message, int kind) {
    Host* host = Host::current();
    if (host == nullptr || message == nullptr || kind != kRestartMessage) return -1;
    if (static_cast<const StreamRequest*>(message)->ulType != STREAM_REQ_RESTART) return -1;
    return host->restart_wanted(channel, stream) ? 0 : -1;
}

// A login that is not for a stream may take its time.
int networkGetStreamUsedNum(int channel, int stream) {
    const RecorderStream* found = find(channel, stream);
    return found == nullptr || found->login_allowed() ? 1 : 0;
}

int networkGetRunFlag(int channel, int stream) {
    Host* host = Host::current();
    return host == nullptr || host->login_over(channel, stream) ? kStopped : kRunning;
}

void* networkGetStreampPrivateInfo(int first, int second) {
    RecorderStream* stream = find(first, second);
    return stream != nullptr ? &stream->private_info() : nullptr;
}

int Private_Protocol_SetRecvBit(int channel, int stream, int bytesPerSecond, int, int) {
    RecorderStream* found = find(channel, stream);
    if (found == nullptr) return -1;
    found->set_data_rate(bytesPerSecond);
    return 0;
}

int libVideoInfoSetNetworkParam(int channel, int stream, int, int frameRate, int) {
    RecorderStream* found = find(channel, stream);
    if (found == nullptr) return -1;
    found->set_frame_rate(frameRate);
    return 0;
}
