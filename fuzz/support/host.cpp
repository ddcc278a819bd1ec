#include "fuzz/support/host.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "fuzz/support/target.h"
#include "lenswire/host_services.h"

using namespace lenswire::fuzz;

namespace {

Stream* g_stream = nullptr;
int g_allocations = 0;
char g_zone[12];
int g_zone_result = 0;

bool is_known(int channel) {
    return channel >= 0 && channel < kChannels;
}

Stream& stream_at(void* stream) {
    require(g_stream != nullptr && stream == g_stream->object(), "a stream object is the host's");
    return *g_stream;
}

}  // namespace

namespace lenswire::fuzz {

int live_allocations() {
    return g_allocations;
}

void set_time_zone(const char* name, int result) {
    std::memset(g_zone, 0, sizeof g_zone);
    std::memcpy(g_zone, name, strnlen(name, sizeof g_zone));
    g_zone_result = result;
}

void set_stream(Stream* stream) {
    g_stream = stream;
}

}  // namespace lenswire::fuzz

uint8_t ucAudioTypeFlag[256];
uint32_t uFreamCount[256];
uint32_t uFreamType[256];

// -- Channels.

int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]) {
    if (!is_known(channel)) return -1;
    std::strcpy(ip, "127.0.0.1");
    *port = 9;
    // As a host does that copies a record: no room is left for a NUL.
    std::memset(user, 'u', 64);
    std::memset(password, 'p', 64);
    return 0;
}

int databaseOperate(int table, int operation, void*, int, void* buffer, int length) {
    require(length >= 0, "a database buffer has a length");
    if (operation == LENSWIRE_TABLE_WRITE) return length;
    std::memset(buffer, table, static_cast<size_t>(length));
    return length;
}

int configGetDisplayNum(void) {
    return LENSWIRE_CHANNELS;
}
int get_channel_protocol(int channel) {
    return is_known(channel) ? LENSWIRE_PROTOCOL : 0;
}
int get_channel_bindstatus(int channel) {
    return is_known(channel) ? 1 : 0;
}
int is_channel_fish_eye(int) {
    return 0;
}

// -- Streams. Nobody runs the loops that would ask for these.

int Private_Protocol_GetRequestFromQueue(StreamRequest*) {
    return -1;
}
int networkInsertMessageToQueue(int, int, void*, int) {
    return 0;
}
int networkGetStreamUsedNum(int, int) {
    return 1;
}
int networkGetRunFlag(int, int) {
    return 0;
}
int Private_Protocol_SetRecvBit(int, int, int, int, int) {
    return 0;
}
int libVideoInfoSetNetworkParam(int, int, int, int, int) {
    return 0;
}

void* networkGetStreampPrivateInfo(int first, int second) {
    require(g_stream != nullptr && first == g_stream->words.lFirst && second == g_stream->words.lSecond,
            "private information is asked for with the words of the stream");
    return &g_stream->info;
}

void* streamGetFrameQueueBuffer(void* object, int size) {
    Stream& stream = stream_at(object);
    require(size >= 0 && size <= LENSWIRE_PACKET_LENGTH_MAX + 4, "a frame has a size that a packet can have");
    require(!stream.handed_out && !stream.locked, "one buffer at a time, and not under the queue's lock");
    if (stream.refuses) return nullptr;
    stream.handed_out = true;
    stream.frame = std::vector<uint8_t>(sizeof(StreamFrameHead) + static_cast<size_t>(size), 0xEE);
    return stream.frame.data();
}

int streamFrameQueueLock(void* object) {
    Stream& stream = stream_at(object);
    require(!stream.locked, "a queue is locked once");
    stream.locked = true;
    return 0;
}

int streamInsertFrameToFrameQueue(void* object, void* frame) {
    Stream& stream = stream_at(object);
    require(stream.locked && stream.handed_out && frame == stream.frame.data(),
            "the buffer that was handed out is inserted, under the lock");
    StreamFrameHead head;
    std::memcpy(&head, frame, sizeof head);
    require(head.ulDataSize == stream.frame.size() - sizeof head, "a frame's head says how long it is");
    stream.handed_out = false;
    ++stream.frames;
    stream.frame_bytes += head.ulDataSize;
    return 0;
}

int steramFrameQueueUnlock(void* object) {
    Stream& stream = stream_at(object);
    require(stream.locked, "a queue is unlocked that was locked");
    stream.locked = false;
    return 0;
}

// -- Motion and alarms.

int VideoMDGetStatus(int) {
    return 1;
}
int VideoMDSetStatus(int channel, int, void* data) {
    static uint8_t copy[sizeof(HostMotionRecord)];
    require(is_known(channel), "motion is told of channels that are bound");
    if (data != nullptr) std::memcpy(copy, data, sizeof copy);
    return 0;
}
int snapSetMotion(int, int) {
    return 0;
}
int motion_data_copy(int channel, void* data88) {
    std::memset(data88, channel, sizeof(HostMotionRecord));
    return 0;
}
int MD_Disarming_Time(int channel) {
    return channel % 2;
}
int streamInsertAlarmToAlarmQueue(int, void*) {
    return 0;
}

// -- Time zones.

int GetTimeZone(char* name12, int* a, int* b) {
    std::memcpy(name12, g_zone, sizeof g_zone);
    if (a != nullptr) *a = 0;
    if (b != nullptr) *b = 0;
    return g_zone_result;
}
int GetTimeZoneTime(uint32_t index, uint8_t* hours, uint8_t* minutes) {
    *hours = static_cast<uint8_t>(index);
    *minutes = static_cast<uint8_t>(index >> 8);
    return 0;
}
uint32_t GetIpcTimeZoneMap(uint32_t index) {
    return index;
}

// -- Memory, diagnostics, clock.

void* MeMalloc(int size, const char*, int) {
    require(size >= 0, "an allocation has a size");
    ++g_allocations;
    return std::malloc(static_cast<size_t>(size));
}
void MeFree(void* pointer, const char*, int) {
    g_allocations -= pointer != nullptr ? 1 : 0;
    std::free(pointer);
}
int dump_printf(const char*, const char*, int, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return 0;
}
uint32_t uptime(void) {
    return 1000;
}
