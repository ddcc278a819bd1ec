// The services that the library imports from its host.
#include "lenswire/host_services.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "bench/host/host.h"
#include "bench/host/thread_notes.h"
#include "bench/support/measure.h"

using namespace lenswire::bench;

namespace {

constexpr int kEndsLogin = 4;

ReceiveBuffer& buffer_of(void* ring) {
    return *reinterpret_cast<ReceiveBuffer*>(static_cast<uint8_t*>(ring) - sizeof ReceiveBuffer::host_part);
}

StreamObject& object_of(void* stream) {
    return *static_cast<StreamObject*>(stream);
}

bool is_known(int channel) {
    return channel >= 0 && static_cast<size_t>(channel) < host().channels.size();
}

// All channel records at once: address and protocol of each channel that there is.
int read_channel_table(uint8_t* records, int bytes) {
    std::memset(records, 0, static_cast<size_t>(bytes));
    for (size_t i = 0; i < host().channels.size(); ++i) {
        HostChannelRecord record{};
        const std::string& address = host().channels[i].address;
        std::copy(address.begin(), address.end(), record.szIpAddr);
        record.ucProtocol = LENSWIRE_PROTOCOL;
        std::memcpy(records + i * sizeof record, &record, sizeof record);
    }
    return bytes;
}

}  // namespace

uint8_t ucAudioTypeFlag[256];
uint32_t uFreamCount[256];
uint32_t uFreamType[256];

// -- Channel database.

int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]) {
    note_this_thread();
    if (!is_known(channel)) return -1;
    const HostChannel& known = host().channels[static_cast<size_t>(channel)];
    std::memcpy(ip, known.address.c_str(), known.address.size() + 1);
    *port = known.port;
    std::strcpy(user, "admin");
    std::strcpy(password, "12345");
    return 0;
}

int databaseOperate(int table, int operation, void*, int, void* buffer, int bufferLength) {
    if (operation == LENSWIRE_TABLE_WRITE) return bufferLength;
    if (table != LENSWIRE_TABLE_CHANNELS) return -1;
    return read_channel_table(static_cast<uint8_t*>(buffer), bufferLength);
}

int configGetDisplayNum(void) {
    return static_cast<int>(host().channels.size());
}
int get_channel_protocol(int channel) {
    return is_known(channel) ? LENSWIRE_PROTOCOL : 0;
}
int get_channel_bindstatus(int channel) {
    note_this_thread();
    return is_known(channel) ? 1 : 0;
}
int is_channel_fish_eye(int) {
    return 0;
}

// -- Stream requests and statistics.

int Private_Protocol_GetRequestFromQueue(StreamRequest* request) {
    note_this_thread();
    return host().next_request(request);
}

int networkInsertMessageToQueue(int channel, int, void*, int) {
    ++host().restarts;
    ++host().stream(static_cast<uint32_t>(channel)).restarts;
    return 0;
}

int networkGetStreamUsedNum(int, int) {
    return 1;
}
int networkGetRunFlag(int channel, int) {
    if (static_cast<uint32_t>(channel) >= host().streams()) return 0;
    return host().stream(static_cast<uint32_t>(channel)).login_steps-- > 0 ? 0 : kEndsLogin;
}

void* networkGetStreampPrivateInfo(int first, int) {
    return &host().stream(static_cast<uint32_t>(first)).info;
}

int Private_Protocol_SetRecvBit(int, int, int, int, int) {
    return 0;
}
int libVideoInfoSetNetworkParam(int, int, int, int, int) {
    return 0;
}

// -- Receive ring.

int ring_free_size_ex(void* ring) {
    ReceiveBuffer& buffer = buffer_of(ring);
    if (buffer.read_at > kReadBeforeMove || buffer.fill == 0) {
        std::memmove(buffer.data, buffer.data + buffer.read_at, buffer.fill);
        buffer.read_at = 0;
    }
    return static_cast<int>(kRingBytes - buffer.read_at - buffer.fill);
}

void* ring_get_start_buf(void* ring) {
    const ReceiveBuffer& buffer = buffer_of(ring);
    return buffer.data + buffer.read_at + buffer.fill;
}

int ring_set_data_end(void* ring, int length) {
    buffer_of(ring).fill += static_cast<uint32_t>(length);
    host().received(static_cast<uint32_t>(length));
    return 0;
}

uint32_t ring_used_size(void* ring) {
    return buffer_of(ring).fill;
}

int ring_pop_temp(void* ring, void* dst, int length) {
    const ReceiveBuffer& buffer = buffer_of(ring);
    std::memcpy(dst, buffer.data + buffer.read_at, static_cast<size_t>(length));
    return length;
}

int ring_pop_n(void* ring, void* dst, int length, int) {
    ReceiveBuffer& buffer = buffer_of(ring);
    std::memcpy(dst, buffer.data + buffer.read_at, static_cast<size_t>(length));
    buffer.read_at += static_cast<uint32_t>(length);
    buffer.fill -= static_cast<uint32_t>(length);
    return length;
}

// -- Frame queue.

void* streamGetFrameQueueBuffer(void* stream, int size) {
    note_this_thread();
    uint8_t* buffer = host().consumer().pool().take(sizeof(StreamFrameHead) + static_cast<size_t>(size));
    if (buffer == nullptr) ++object_of(stream).refused;
    return buffer;
}

int streamFrameQueueLock(void* stream) {
    object_of(stream).queue->mutex().lock();
    return 0;
}

int streamInsertFrameToFrameQueue(void* stream, void* frame) {
    StreamObject& object = object_of(stream);
    auto* bytes = static_cast<uint8_t*>(frame);
    if (object.inserted_room > 0) {
        const uint32_t packet = read_frame(bytes).mark.packet;
        if (packet < object.inserted_room)
            object.inserted_at[packet].store(now_ns(), std::memory_order_relaxed);
    }
    if (!object.queue->push(bytes)) {
        host().consumer().pool().give_back({&bytes, 1});
        ++object.refused;
        return -1;
    }
    object.inserted.store(object.inserted.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return 0;
}

int steramFrameQueueUnlock(void* stream) {
    object_of(stream).queue->mutex().unlock();
    return 0;
}

// -- Motion and alarms.

int VideoMDGetStatus(int) {
    return 0;
}
int VideoMDSetStatus(int, int, void*) {
    return 0;
}
int snapSetMotion(int, int) {
    return 0;
}
int motion_data_copy(int, void* data88) {
    std::memset(data88, 0, sizeof(HostMotionRecord));
    return 0;
}
int MD_Disarming_Time(int) {
    return 1;
}
int streamInsertAlarmToAlarmQueue(int, void*) {
    return 0;
}

// -- Time zones.

int GetTimeZone(char*, int*, int*) {
    return -1;
}
int GetTimeZoneTime(uint32_t, uint8_t*, uint8_t*) {
    return -1;
}
uint32_t GetIpcTimeZoneMap(uint32_t) {
    return 0;
}

// -- Memory, diagnostics, clock.

void* MeMalloc(int size, const char*, int) {
    ++host().allocations;
    return std::malloc(static_cast<size_t>(size));
}
void MeFree(void* pointer, const char*, int) {
    std::free(pointer);
}
int dump_printf(const char*, const char*, int, const char*, ...) {
    return 0;
}
uint32_t uptime(void) {
    return host().clock_stands ? 0 : static_cast<uint32_t>(now_ns() / 1'000'000'000);
}
