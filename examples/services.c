/* The services that record.c has little to say to, each with the answer of a host that has one camera, on
 * channel 0, and no database, alarms or time zone. What a recorder answers stands at each in
 * lenswire/host_services.h; start from here and fill in. */
#define _POSIX_C_SOURCE 200809L

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "lenswire/host_services.h"

static int say(int answer, ...) { return answer; } /* whatever was asked */

/* -- Channel database. */
int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]) {
    return say(-1, channel, ip, port, user, password);
}
int databaseOperate(int table, int operation, void* key, int keyLength, void* buffer, int bufferLength) {
    return say(-1, table, operation, key, keyLength, buffer, bufferLength);
}
int configGetDisplayNum(void) { return 1; }
int get_channel_protocol(int channel) { return channel == 0 ? LENSWIRE_PROTOCOL : 0; }
int get_channel_bindstatus(int channel) { return channel == 0; }
int is_channel_fish_eye(int channel) { return say(0, channel); }

/* -- Logins and statistics. A login goes on until it has its answer or its time is up. */
int networkGetStreamUsedNum(int channel, int stream) { return say(1, channel, stream); }
int networkGetRunFlag(int channel, int stream) { return say(1, channel, stream); }
int Private_Protocol_SetRecvBit(int channel, int stream, int bytesPerSecond, int width, int height) {
    return say(0, channel, stream, bytesPerSecond, width, height);
}
int libVideoInfoSetNetworkParam(int channel, int stream, int kind, int frameRate, int bytesPerSecond) {
    return say(0, channel, stream, kind, frameRate, bytesPerSecond);
}
uint8_t ucAudioTypeFlag[256];
uint32_t uFreamCount[256];
uint32_t uFreamType[256];

/* -- Motion and alarms. */
int VideoMDGetStatus(int channel) { return say(0, channel); }
int VideoMDSetStatus(int channel, int status, void* data) { return say(0, channel, status, data); }
int snapSetMotion(int channel, int state) { return say(0, channel, state); }
int motion_data_copy(int channel, void* data88) { return say(-1, channel, data88); }
int MD_Disarming_Time(int channel) { return say(0, channel); }
int streamInsertAlarmToAlarmQueue(int queue, void* record4) { return say(0, queue, record4); }

/* -- Time zones. */
int GetTimeZone(char* name12, int* a, int* b) { return say(-1, name12, a, b); }
int GetTimeZoneTime(uint32_t index, uint8_t* hours, uint8_t* minutes) {
    *hours = *minutes = 0;
    return say(-1, index);
}
uint32_t GetIpcTimeZoneMap(uint32_t index) { return index; }

/* -- Memory, diagnostics, clock. */
void* MeMalloc(int size, const char* file, int line) { return malloc((size_t)say(size, file, line)); }
void MeFree(void* pointer, const char* file, int line) {
    say(0, file, line);
    free(pointer);
}
int dump_printf(const char* file, const char* function, int line, const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return fprintf(stderr, "[%s:%s:%d]:%s\n", file, function, line, text);
}
uint32_t uptime(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint32_t)now.tv_sec;
}
