// The services by their names; those of a stream's objects stand in fake_stream.cpp.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/fake_host.h"

using namespace lenswire::test;

extern "C" {

uint8_t ucAudioTypeFlag[256];
uint32_t uFreamCount[256];
uint32_t uFreamType[256];

int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]) {
    host().enters(Service::kChannelInfo, channel, 0);
    const Channel found = host().channel(channel);
    if (!found.known) return -1;
    // The whole fields are written, as a host does that copies a record.
    std::strncpy(ip, found.address.c_str(), 64);
    *port = found.port;
    std::strncpy(user, found.user.c_str(), 64);
    std::strncpy(password, found.password.c_str(), 64);
    return found.result;
}

int databaseOperate(int table, int operation, void* key, int keyLength, void* buffer, int bufferLength) {
    host().enters(Service::kDatabase, table, operation);
    if (keyLength != 4) {
        host().complaints.add("a database key that is not 4 bytes long");
        return -1;
    }
    uint32_t channel;
    std::memcpy(&channel, key, sizeof channel);
    return host().operate(table, operation, channel, buffer, bufferLength);
}

int configGetDisplayNum(void) {
    return host().displayed;
}

int get_channel_protocol(int channel) {
    return host().channel(channel).protocol;
}

int get_channel_bindstatus(int channel) {
    return host().channel(channel).bound;
}

int is_channel_fish_eye(int channel) {
    return host().channel(channel).fisheye;
}

int Private_Protocol_GetRequestFromQueue(StreamRequest* request) {
    host().enters(Service::kGetRequest, 0, 0);
    return host().next_request(request);
}

int networkInsertMessageToQueue(int channel, int stream, void* message, int kind) {
    StreamRequest request;
    std::memcpy(&request, message, sizeof request);
    host().restarts.add({channel, stream, kind, request});
    host().enters(Service::kInsertMessage, channel, stream);
    return 0;
}

int networkGetStreamUsedNum(int channel, int stream) {
    host().enters(Service::kStreamUsedNum, channel, stream);
    return host().stream_used_num;
}

int networkGetRunFlag(int channel, int stream) {
    host().enters(Service::kRunFlag, channel, stream);
    return host().run_flag;
}

int Private_Protocol_SetRecvBit(int channel, int stream, int bytesPerSecond, int width, int height) {
    host().receive_rates.add({channel, stream, bytesPerSecond, width, height});
    return 0;
}

int libVideoInfoSetNetworkParam(int channel, int stream, int kind, int frameRate, int bytesPerSecond) {
    host().network_params.add({channel, stream, bytesPerSecond, 0, 0, kind, frameRate});
    return 0;
}

int VideoMDGetStatus(int channel) {
    return host().channel(channel).motion;
}

int VideoMDSetStatus(int channel, int status, void* data) {
    const auto* bytes = static_cast<uint8_t*>(data);
    std::optional<Bytes> copy;
    if (bytes != nullptr) copy = Bytes(bytes, bytes + sizeof(HostMotionRecord));
    host().sets_motion({channel, status, copy});
    host().enters(Service::kSetMotionStatus, channel, status);
    return 0;
}

int snapSetMotion(int channel, int state) {
    host().snap_calls.add({channel, state});
    host().enters(Service::kSnapMotion, channel, state);
    return 0;
}

int motion_data_copy(int channel, void* data88) {
    const Channel found = host().channel(channel);
    if (found.motion_data.empty()) return -1;
    std::memcpy(data88, found.motion_data.data(), found.motion_data.size());
    return found.result;
}

int MD_Disarming_Time(int channel) {
    return host().channel(channel).armed;
}

int streamInsertAlarmToAlarmQueue(int queue, void* record4) {
    const auto* bytes = static_cast<uint8_t*>(record4);
    host().alarms.add({queue, Bytes(bytes, bytes + 4)});
    host().enters(Service::kAlarm, queue, 0);
    return 0;
}

int GetTimeZone(char* name12, int* a, int* b) {
    const TimeZone zone = host().zone();
    std::strncpy(name12, zone.name.c_str(), 12);
    if (a != nullptr) *a = 0;
    if (b != nullptr) *b = 0;
    return zone.result;
}

int GetTimeZoneTime(uint32_t index, uint8_t* hours, uint8_t* minutes) {
    host().enters(Service::kZone, static_cast<int>(index), 0);
    const TimeZone zone = host().zone();
    *hours = zone.hours;
    *minutes = zone.minutes;
    return 0;
}

uint32_t GetIpcTimeZoneMap(uint32_t index) {
    host().enters(Service::kZone, static_cast<int>(index), 0);
    return host().zone().camera_index;
}

void* MeMalloc(int size, const char*, int) {
    host().enters(Service::kMalloc, size, 0);
    return host().allocate(size);
}

void MeFree(void* pointer, const char*, int) {
    host().enters(Service::kFree, 0, 0);
    host().release(pointer);
}

int dump_printf(const char*, const char*, int, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    host().dumped.add(text);
    host().enters(Service::kDump, 0, 0);
    return 0;
}

uint32_t uptime(void) {
    host().enters(Service::kUptime, 0, 0);
    return host().clock.now();
}
}
