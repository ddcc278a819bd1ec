/* What a host must export by name for the library. A host that loads the library with dlopen has to
 * be linked so that these names are in its dynamic symbol table (-rdynamic).
 *
 * Threads: the library calls a service from the thread named at its family. It holds no lock of its
 * own meanwhile, so a service may call back into the library; one that the event loop calls cannot wait for
 * an answer of a camera, though, since nobody would read it. Services must not block for long: all cameras
 * share the event loop, all streams share the receive loop. */
#ifndef LENSWIRE_HOST_SERVICES_H
#define LENSWIRE_HOST_SERVICES_H

#include "lenswire/host_objects.h"
#include "lenswire/host_tables.h"
#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* -- Channel database; called from the host's own threads, the event loop and upgrade threads. */

/* Fills in a channel's camera: address as dotted text, control port, credentials. -1 when the
 * channel has no camera. */
int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]);
/* Reads (operation 2) or writes (operation 1) one record of a host table. The key is the channel as
 * a 32-bit value, keyLength 4; key 250 of table 17 reads all 64 channel records at once. Returns the
 * bytes read or written, -1 on failure. Tables: 17 channel records (450 bytes each), 21 motion records
 * (88), 24 upgrade records (9), 62 cruise lines (reads 3 x 390, writes 390). */
int databaseOperate(int table, int operation, void* key, int keyLength, void* buffer, int bufferLength);
/* Number of channels in use, at most 64. */
int configGetDisplayNum(void);
/* Protocol number of a channel; this library's is 4. */
int get_channel_protocol(int channel);
/* Non-zero when a camera is bound to the channel. */
int get_channel_bindstatus(int channel);
/* Fisheye byte of a channel in the low 8 bits, 0 for an ordinary camera. */
int is_channel_fish_eye(int channel);

/* -- Stream requests and statistics; called from the queue thread and the receive loop, the two
 * questions of a login from the thread that logs in. */

/* Copies the oldest pending request out and removes it; -1 when there is none. Must not block. */
int Private_Protocol_GetRequestFromQueue(struct StreamRequest* request);
/* Takes a message of the library for a stream; kind 3 is a struct StreamRequest of type
 * STREAM_REQ_RESTART. The message belongs to the library and is gone after the call. */
int networkInsertMessageToQueue(int channel, int stream, void* message, int kind);
/* During a login: 0 ends the attempt. */
int networkGetStreamUsedNum(int channel, int stream);
/* During a login: 4 ends the attempt. */
int networkGetRunFlag(int channel, int stream);
/* The host's private information of a stream, or null. The arguments are the two 32-bit words at
 * bytes 724 and 728 of the stream object. The library writes a codec name (5 bytes at byte 8) and an
 * audio kind (32-bit word at byte 72) into it. */
void* networkGetStreampPrivateInfo(int first, int second);
/* Statistics of a stream, every few seconds. */
int Private_Protocol_SetRecvBit(int channel, int stream, int bytesPerSecond, int width, int height);
int libVideoInfoSetNetworkParam(int channel, int stream, int kind, int frameRate, int bytesPerSecond);

/* -- Receive ring of a stream; called from the receive loop only. The ring is the address 16 bytes
 * into the receive-buffer object; the library clears the 32-bit word at byte 28 of that object when
 * it opens the stream. */

/* Bytes that can be written in one piece at the write position; 0 or less means no room. */
int ring_free_size_ex(void* ring);
/* The write position, null if unusable. */
void* ring_get_start_buf(void* ring);
/* Commits bytes just written at the write position. */
int ring_set_data_end(void* ring, int length);
/* Bytes held. */
uint32_t ring_used_size(void* ring);
/* Copies the first bytes held without removing them. */
int ring_pop_temp(void* ring, void* dst, int length);
/* Copies the first bytes held and removes them; capacity is the most that dst takes. */
int ring_pop_n(void* ring, void* dst, int length, int capacity);

/* -- Frame queue of a stream; called from the receive loop, shared with the host's consumers. */

/* A buffer with room for the 36-byte StreamFrameHead and size data bytes, or null. The library fills
 * it and gives it back with streamInsertFrameToFrameQueue. */
void* streamGetFrameQueueBuffer(void* stream, int size);
int streamFrameQueueLock(void* stream);
int streamInsertFrameToFrameQueue(void* stream, void* frame);
int steramFrameQueueUnlock(void* stream);

/* Audio detection, one entry per recorder channel that the host opens streams on. Written by the
 * receive loop. */
extern uint8_t ucAudioTypeFlag[];
extern uint32_t uFreamCount[];
extern uint32_t uFreamType[];

/* -- Motion and alarms; called from the event loop, the host's own threads and upgrade threads. */

/* Current motion state of a channel, 1 motion. */
int VideoMDGetStatus(int channel);
/* Sets it; data is the channel's 88-byte motion record, or null with status 0. */
int VideoMDSetStatus(int channel, int status, void* data);
/* Starts (1) or stops (0) motion snapshots. */
int snapSetMotion(int channel, int state);
/* Fills in the channel's 88-byte motion record; negative on failure. */
int motion_data_copy(int channel, void* data88);
/* 1 when motion detection is armed on the channel at this moment. */
int MD_Disarming_Time(int channel);
/* Queues a 4-byte alarm record: type, channel, two bytes per type. Type 2 is motion, 40 a failed
 * firmware upgrade. */
int streamInsertAlarmToAlarmQueue(int queue, void* record4);

/* -- Time zones; called from the host's own threads. */

/* Writes the recorder's zone text (at most 11 characters) and returns the host's zone index in bits
 * 8 to 15; -1 on failure. */
int GetTimeZone(char* name12, int* a, int* b);
/* Hours (read as signed) and minutes of a host zone index. */
int GetTimeZoneTime(uint32_t zoneIndex, uint8_t* hours, uint8_t* minutes);
/* The camera's zone index for a host zone index. */
uint32_t GetIpcTimeZoneMap(uint32_t hostZoneIndex);

/* -- Memory, diagnostics, clock; called from every thread. */

void* MeMalloc(int size, const char* file, int line);
void MeFree(void* pointer, const char* file, int line);
int dump_printf(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
/* Whole seconds since start. May wrap. */
uint32_t uptime(void);

#ifdef __cplusplus
}
#endif

#endif
