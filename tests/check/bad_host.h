// A host that does as the fake host does, but for the services in which a test has planted something else.
#pragma once

#include <functional>

#include "lenswire/host_services.h"

namespace lenswire::test {

// The services that a test plants something in: result, name, parameters, arguments. The fake host's own are
// compiled as good_NAME; all others are the fake host's.
#define LENSWIRE_BAD_SERVICES(X)                                                                             \
    X(int, DbMainMsgChannelInfo, (int channel, char* ip, int* port, char* user, char* key), channel, ip,     \
      port, user, key)                                                                                       \
    X(int, databaseOperate, (int table, int what, void* key, int keys, void* buffer, int size), table, what, \
      key, keys, buffer, size)                                                                               \
    X(int, configGetDisplayNum, ())                                                                          \
    X(int, get_channel_protocol, (int channel), channel)                                                     \
    X(int, Private_Protocol_GetRequestFromQueue, (StreamRequest * request), request)                         \
    X(int, networkInsertMessageToQueue, (int channel, int stream, void* message, int kind), channel, stream, \
      message, kind)                                                                                         \
    X(int, networkGetStreamUsedNum, (int channel, int stream), channel, stream)                              \
    X(void*, networkGetStreampPrivateInfo, (int first, int second), first, second)                           \
    X(int, ring_free_size_ex, (void* ring), ring)                                                            \
    X(void*, ring_get_start_buf, (void* ring), ring)                                                         \
    X(int, ring_set_data_end, (void* ring, int length), ring, length)                                        \
    X(int, ring_pop_temp, (void* ring, void* dst, int length), ring, dst, length)                            \
    X(int, ring_pop_n, (void* ring, void* dst, int length, int capacity), ring, dst, length, capacity)       \
    X(void*, streamGetFrameQueueBuffer, (void* stream, int size), stream, size)                              \
    X(int, streamFrameQueueLock, (void* stream), stream)                                                     \
    X(int, streamInsertFrameToFrameQueue, (void* stream, void* frame), stream, frame)                        \
    X(int, VideoMDSetStatus, (int channel, int status, void* data), channel, status, data)                   \
    X(int, motion_data_copy, (int channel, void* data), channel, data)                                       \
    X(int, MD_Disarming_Time, (int channel), channel)                                                        \
    X(int, streamInsertAlarmToAlarmQueue, (int queue, void* record), queue, record)                          \
    X(int, GetTimeZone, (char* name, int* a, int* b), name, a, b)                                            \
    X(int, GetTimeZoneTime, (uint32_t index, uint8_t * hours, uint8_t * minutes), index, hours, minutes)     \
    X(void*, MeMalloc, (int size, const char* file, int line), size, file, line)                             \
    X(void, MeFree, (void* pointer, const char* file, int line), pointer, file, line)                        \
    X(uint32_t, uptime, ())

#define LENSWIRE_GOOD(result, name, parameters, ...) extern "C" result good_##name parameters;
LENSWIRE_BAD_SERVICES(LENSWIRE_GOOD)
#undef LENSWIRE_GOOD

// What stands in for the fake host's services; empty where nothing does.
struct BadHost {
#define LENSWIRE_BAD(result, name, parameters, ...) std::function<result parameters> name;
    LENSWIRE_BAD_SERVICES(LENSWIRE_BAD)
#undef LENSWIRE_BAD
};
inline BadHost bad;

}  // namespace lenswire::test
