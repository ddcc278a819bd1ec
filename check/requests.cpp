// Stream requests, logins and statistics.
#include "check/requests.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstring>

#include "check/call.h"
#include "check/memory.h"
#include "check/ring_model.h"
#include "check/services.h"
#include "check/thread.h"
#include "lenswire/stream.h"

using namespace lenswire::check;

namespace lenswire::check {

namespace {

constexpr uint32_t kNoType = 0xA5C3'965Au;  // of a request that nobody has filled in
constexpr int kLargestSocket = 1023;
constexpr size_t kChannels = 256;
constexpr size_t kObjectAlignment = 4;

// Entries of a table of the host's, from its symbol; as many as can be used when that does not say.
template <typename T>
size_t entries(const T* table) {
    Dl_info info;
    void* symbol = nullptr;
    if (dladdr1(table, &info, &symbol, RTLD_DL_SYMENT) == 0 || symbol == nullptr || info.dli_saddr != table)
        return kChannels;
    const size_t size = static_cast<const ElfW(Sym)*>(symbol)->st_size;
    return size == 0 ? kChannels : size / sizeof(T);
}

// Read while the library is loaded, before there are threads that ask.
const size_t g_audio_channels =
    std::min({kChannels, entries(ucAudioTypeFlag), entries(uFreamCount), entries(uFreamType)});

// Open slots other than the request's own are looked at on the thread that opens them all.
template <typename Is>
bool is_in_a_slot(Is is) {
    for (int i = 0; i < LENSWIRE_STREAM_SLOTS; ++i) {
        const int32_t socket = __atomic_load_n(&arrayfd[i], __ATOMIC_ACQUIRE);
        if (socket != 0 && is(socket, devchannelinfo[i])) return true;
    }
    return false;
}

void check_objects(const Call& call, const DevChannelInfo& info) {
    const int channel = info.ucChannelNo;
    const int stream = info.ucStreamNo;
    call.expect(is_aligned(info.pRecvBuf, kObjectAlignment) && is_aligned(info.pStream, kObjectAlignment),
                kOpenUnaligned, "channel %d, stream %d, receive buffer %p, stream object %p", channel, stream,
                info.pRecvBuf, info.pStream);
    const bool is_used =
        is_in_a_slot([&](int, const DevChannelInfo& other) { return other.pRecvBuf == info.pRecvBuf; });
    call.expect(!is_used, kOpenBufferTwice, "channel %d, stream %d, receive buffer %p is of an open stream",
                channel, stream, info.pRecvBuf);
    if (!is_used) ring_opened(info.pRecvBuf, channel, stream);
}

void check_open(const Call& call, const DevChannelInfo& info) {
    const int channel = info.ucChannelNo;
    const int stream = info.ucStreamNo;
    call.expect(static_cast<size_t>(channel) < audio_channels(), kOpenChannel,
                "channel %d, stream %d, and the tables end at %u", channel, stream,
                static_cast<unsigned>(audio_channels()));
    if (!call.expect(info.pStreamConn != nullptr && info.pRecvBuf != nullptr && info.pStream != nullptr,
                     kOpenNull, "channel %d, stream %d, unit %p, receive buffer %p, stream object %p",
                     channel, stream, static_cast<void*>(info.pStreamConn), info.pRecvBuf, info.pStream))
        return;
    const int socket = __atomic_load_n(&info.pStreamConn->sockFd, __ATOMIC_RELAXED);
    if (!call.expect(socket > 0 && socket <= kLargestSocket, kOpenSocket, "channel %d, stream %d, socket %d",
                     channel, stream, socket))
        return;
    const bool is_used = is_in_a_slot([&](int other, const DevChannelInfo&) { return other == socket; });
    call.expect(!is_used, kOpenSocketTwice, "channel %d, stream %d, socket %d is of an open stream", channel,
                stream, socket);
    check_objects(call, info);
}

void check_request(const Call& call, const StreamRequest& request) {
    if (!call.expect(request.ulType != kNoType, kRequestEmpty, "a request of no type")) return;
    call.expect(request.ulType == STREAM_REQ_OPEN || request.ulType == STREAM_REQ_CLOSE, kRequestType,
                "type %u", request.ulType);
    if (request.ulType == STREAM_REQ_OPEN) check_open(call, request.info);
}

}  // namespace

size_t audio_channels() {
    return g_audio_channels;
}

}  // namespace lenswire::check

extern "C" {

int checked_Private_Protocol_GetRequestFromQueue(StreamRequest* request) {
    Call call(Service::Private_Protocol_GetRequestFromQueue);
    const uint32_t type = request->ulType;
    request->ulType = kNoType;
    const Lent lent(request, sizeof *request);
    const int result = call.into(real_Private_Protocol_GetRequestFromQueue, lent.bytes<StreamRequest>());
    if (call.expect(lent.is_intact(), kRequestOverrun, "bytes around the record are written") && result != -1)
        check_request(call, *lent.bytes<StreamRequest>());
    lent.give_back();
    if (request->ulType == kNoType) request->ulType = type;
    return result;
}

int checked_networkInsertMessageToQueue(int channel, int stream, void* message, int kind) {
    Call call(Service::networkInsertMessageToQueue);
    if (role() == Role::kReceiveLoop) ring_idle(channel, stream);
    const Kept kept(message, sizeof(StreamRequest));
    const int result = call.into(real_networkInsertMessageToQueue, channel, stream, message, kind);
    call.expect(!kept.is_changed(), kMessageChanged, "channel %d, stream %d, the message is changed", channel,
                stream);
    return result;
}

int checked_networkGetStreamUsedNum(int channel, int stream) {
    Call call(Service::networkGetStreamUsedNum);
    const int count = call.into(real_networkGetStreamUsedNum, channel, stream);
    call.expect(count >= 0, kUsedNumber, "channel %d, stream %d, %d", channel, stream, count);
    return count;
}

int checked_networkGetRunFlag(int channel, int stream) {
    Call call(Service::networkGetRunFlag);
    return call.into(real_networkGetRunFlag, channel, stream);
}

void* checked_networkGetStreampPrivateInfo(int first, int second) {
    Call call(Service::networkGetStreampPrivateInfo);
    void* info = call.into(real_networkGetStreampPrivateInfo, first, second);
    call.expect(is_aligned(info, kObjectAlignment), kInfoUnaligned, "words %d and %d, %p", first, second,
                info);
    return info;
}

int checked_Private_Protocol_SetRecvBit(int channel, int stream, int bytesPerSecond, int width, int height) {
    Call call(Service::Private_Protocol_SetRecvBit);
    return call.into(real_Private_Protocol_SetRecvBit, channel, stream, bytesPerSecond, width, height);
}

int checked_libVideoInfoSetNetworkParam(int channel, int stream, int kind, int frameRate,
                                        int bytesPerSecond) {
    Call call(Service::libVideoInfoSetNetworkParam);
    return call.into(real_libVideoInfoSetNetworkParam, channel, stream, kind, frameRate, bytesPerSecond);
}
}
