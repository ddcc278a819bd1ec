/* What a host must export by name for the library. A host that loads the library with dlopen has to
 * be linked so that these names are in its dynamic symbol table (-rdynamic).
 *
 * Threads: the library calls a service from the thread named at it; "host threads" are those that call into
 * the library. It holds no lock of its own meanwhile, so a service may call back into the library; one that
 * the event loop calls cannot wait for an answer of a camera, though, since nobody would read it. Several
 * threads may be in one service at once. The library's threads block signals: see connection.h.
 *
 * Blocking: as little as possible. All cameras share the event loop, all streams share the receive loop, and
 * PC_UnInitCtx waits for a service that one of them is in. A service must return: no exception, longjmp or
 * end of the thread may pass through the library.
 *
 * Ownership: what a pointer argument names is the library's and good until the service returns, unless said
 * otherwise. A result of which nothing is said is not looked at.
 *
 * The numbered rules, here and in host_objects.h, are what liblenswire-check.so watches: a plug-in with the
 * same exports that reports each one that a host breaks (docs/checks.md). Of every service it expects:
 * - LW-01 service-slow: a service returns within 50 ms.
 * - LW-02 service-left: a service is left by returning, not by longjmp or an exception.
 * - LW-03 signal-mask: a service leaves its thread's signal mask as it was.
 * - LW-04 stop-inside: PC_UnInitCtx is not called from inside a service.
 * - LW-05 wait-inside: a service that the event loop called waits for no answer. */
#ifndef LENSWIRE_HOST_SERVICES_H
#define LENSWIRE_HOST_SERVICES_H

#include "lenswire/host_objects.h"
#include "lenswire/host_tables.h"
#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* -- Channel database. */

/* Fills in a channel's camera: address as dotted text, control port, credentials. Returns -1 when the channel
 * has no camera; any other result is a camera. The library uses the address, an upgrade the port as well; it
 * wipes its copy of the password at once. A text may fill its 64 bytes without a NUL. Called from host
 * threads; with channels 0 to 63 also from the event loop, up to 64 times per motion push, and from upgrade
 * threads.
 * - LW-06 channel-overrun: each text of a channel fits its 64 bytes.
 * - LW-07 channel-address: a channel with a camera has a dotted IPv4 address.
 * - LW-08 channel-port: a control port is 0 to 65535. */
int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]);

/* Reads or writes one record of a host table. table is of enum LenswireHostTable, operation of enum
 * LenswireHostOperation, key points to the channel as a 32-bit value or to LENSWIRE_KEY_ALL_CHANNELS,
 * keyLength is 4. bufferLength is the size of the table's record; what a short read leaves out keeps the
 * value it had, zero but for cruise lines. Returns the bytes read or written, -1 on failure. What
 * becomes of the result:
 * - 17, one channel read: GetFiashEve returns it; Private_SetPtzSpeed takes a failure for no fisheye camera.
 * - 17, all channels read: another length than 28800 is logged, and Prv_ipc_upgrade goes on.
 * - 21, read and written: -1 ends Prv_CloseMD with -1.
 * - 24 and 62, written: nothing.
 * - 62, read: -1 leaves the channel's lines in memory, and is returned by those that load a channel.
 * Called from host threads.
 * - LW-09 table-result: a read gives the bytes read, at most those asked for, or -1.
 * - LW-10 table-written: a write gives the bytes written, all of them, or -1.
 * - LW-11 table-overrun: a read writes no more than bufferLength bytes.
 * - LW-12 table-beyond: a read writes no more bytes than it says.
 * - LW-13 table-part: a read gives whole records of the table's size.
 * - LW-14 table-input: a write leaves the record as it is.
 * - LW-15 table-key: an operation leaves the key as it is. */
int databaseOperate(int table, int operation, void* key, int keyLength, void* buffer, int bufferLength);

/* Returns the number of channels in use. Only channels below it are loaded by Private_ptzCruiseInit, which
 * asks before each, and asked by Private_Protocol_GetStreamType. Called from host threads.
 * - LW-16 display-number: the number of channels is 0 to 256. */
int configGetDisplayNum(void);

/* Returns the protocol number of a channel, 0 to 63; LENSWIRE_PROTOCOL makes it one of this library. Called
 * from the event loop for every motion push.
 * - LW-17 protocol-number: a protocol number is 0 to 255. */
int get_channel_protocol(int channel);

/* Returns other than 0 when a camera is bound to the channel, 0 to 63. Called as get_channel_protocol. */
int get_channel_bindstatus(int channel);

/* Returns the fisheye byte of a channel in the low 8 bits, 0 for an ordinary camera. Called from host threads
 * for cruise lines. */
int is_channel_fish_eye(int channel);

/* -- Stream requests, logins and statistics. channel and stream are those of the open request, of PC_Login or
 * of PostRestartMessageToQueue. */

/* Copies the oldest pending request out and removes it. Returns -1 when there is none; any other result is a
 * request. Called from the queue thread, over and over while idle: must not block. A request
 * carries host pointers, see Ownership in stream.h; one of another type than open and close is ignored.
 * - LW-18 request-empty: a request that was given out is filled in.
 * - LW-19 request-overrun: a request fits its record.
 * - LW-20 request-type: a request is an open or a close.
 * - LW-21 open-null: an open request brings unit, receive buffer and stream object.
 * - LW-22 open-socket: the socket of an open request is 1 to 1023.
 * - LW-23 open-socket-twice: a socket serves one open stream at a time.
 * - LW-25 open-buffer-twice: a receive buffer serves one open stream at a time.
 * - LW-26 open-channel: the audio tables have an entry for every channel opened. */
int Private_Protocol_GetRequestFromQueue(struct StreamRequest* request);

/* Takes a message of the library for a stream; kind 3 is a struct StreamRequest of STREAM_REQ_RESTART, all
 * else in it 0. PostRestartMessageToQueue returns the result; the library's own threads do not look at it, so
 * a message that was not taken is not sent again. Called from the receive loop, the queue thread and host
 * threads.
 * - LW-27 message-changed: a message of the library stays as it is. */
int networkInsertMessageToQueue(int channel, int stream, void* message, int kind);

/* Both are asked before every step of a login, about once a second or more often, from the thread that logs
 * in: 0 of the first, or 4 of the second, ends the attempt.
 * - LW-28 used-number: the number of a stream's users is 0 or more. */
int networkGetStreamUsedNum(int channel, int stream);
int networkGetRunFlag(int channel, int stream);

/* Returns the private information of a stream, a struct HostStreamInfo at its start, or null for none, which
 * is then not written. The arguments are the two words of struct HostStreamObject. Called from the receive
 * loop once per frame that has a buffer; the library writes right after the call and keeps no pointer.
 * - LW-29 info-unaligned: the private information is aligned to 4 bytes. */
void* networkGetStreampPrivateInfo(int first, int second);

/* Take the statistics of a stream, one after the other, each time that 3 seconds or more have passed; kind is
 * 2. Bytes are payloads and packet headers, frames are those of video alone. Called from the receive loop. */
int Private_Protocol_SetRecvBit(int channel, int stream, int bytesPerSecond, int width, int height);
int libVideoInfoSetNetworkParam(int channel, int stream, int kind, int frameRate, int bytesPerSecond);

/* -- Receive ring of a stream. ring is the address of HostReceiveBuffer.aucRing. Called from the receive loop
 * only, so a ring needs no lock; its size stands in host_objects.h. The three that move bytes must do exactly
 * what they are asked: never is more asked for than ring_used_size and ring_free_size_ex have just given. */

/* Returns the bytes that can be written in one piece at the write position. 0 or less fails the stream, so a
 * ring that has room anywhere must offer some of it. Asked first, once per receive.
 * - LW-30 ring-room: a ring offers at most 256 MiB in one piece.
 * - LW-31 ring-no-room: a ring that holds less than it has held before offers room. */
int ring_free_size_ex(void* ring);
/* Returns the write position, with that much room behind it; null fails the stream. Asked right after.
 * - LW-32 ring-start-null: a ring that offered room has a write position.
 * - LW-33 ring-start-outside: the room offered is memory of this process. */
void* ring_get_start_buf(void* ring);
/* Commits bytes just written at the write position, 1 to what ring_free_size_ex gave.
 * - LW-35 ring-commit: a commit adds just its bytes to what the ring holds. */
int ring_set_data_end(void* ring, int length);
/* Returns the bytes held, 0 right after the word ulFill has been cleared.
 * - LW-34 ring-not-emptied: a ring whose ulFill was cleared is empty. */
uint32_t ring_used_size(void* ring);
/* Copies the first bytes held, 32 of them, without removing them.
 * - LW-37 ring-peek: a look at the first bytes leaves what the ring holds as it is.
 * - LW-38 ring-peek-short: a look fills all of its destination.
 * - LW-39 ring-peek-overrun: a look writes no more than was asked for. */
int ring_pop_temp(void* ring, void* dst, int length);
/* Copies the first bytes held and removes them; capacity is the most that dst takes, never less than length:
 * 1024 for a header and for what is dropped, 1 MiB for a piece of a frame. dst is a frame buffer of the
 * host's or on the stack.
 * - LW-36 ring-pop: a pop takes just its bytes from what the ring holds.
 * - LW-40 ring-pop-overrun: a pop writes no more than was asked for.
 * - LW-41 ring-peek-differs: a pop gives the bytes that a look has shown.
 * - LW-42 ring-bytes: a ring gives back the bytes that were written, in order. */
int ring_pop_n(void* ring, void* dst, int length, int capacity);

/* -- Frame queue of a stream. stream is DevChannelInfo.pStream. Called from the receive loop, shared with the
 * host's consumers. */

/* Returns a buffer with room for the 36-byte StreamFrameHead and size data bytes, 0 to 4194307, at any
 * alignment and not cleared; null drops the frame, for good and without a line. Not under the queue's lock.
 * The library fills the buffer and gives each back with streamInsertFrameToFrameQueue.
 * - LW-43 frame-twice: a buffer that is out is not given a second time.
 * - LW-44 frame-overlap: a buffer lies beside the host's other objects, not in them.
 * - LW-45 frame-small: a buffer holds the head and the bytes asked for. */
void* streamGetFrameQueueBuffer(void* stream, int size);
/* Locks the queue, for one insertion. Should be short: a consumer that holds the lock holds up all streams.
 * - LW-47 frame-nested: no frame is delivered to a queue from inside its lock.
 * - LW-48 frame-lock: the lock of a queue admits one thread at a time. */
int streamFrameQueueLock(void* stream);
/* Takes a frame; from here on it is the host's, whatever the result.
 * - LW-46 frame-changed: nobody writes into a buffer that is not inserted yet. */
int streamInsertFrameToFrameQueue(void* stream, void* frame);
/* Unlocks the queue. */
int steramFrameQueueUnlock(void* stream);

/* Audio detection, one entry per ucChannelNo that the host opens streams with, 256 at most. Written by the
 * receive loop without a lock: the flag is 1 while the channel carries audio, the other two are its memory.
 * - LW-49 audio-flag: an entry of ucAudioTypeFlag is 0 or 1. */
extern uint8_t ucAudioTypeFlag[];
extern uint32_t uFreamCount[];
extern uint32_t uFreamType[];

/* -- Motion and alarms. channel is 0 to 63 from the event loop, which calls all of them for a motion push; a
 * host thread in Private_VideoMDSetStatus or Prv_CloseMD hands its own on, 0 to 64. */

/* Returns the motion state of a channel: 1 motion, anything else none. */
int VideoMDGetStatus(int channel);
/* Sets it: 1 is motion, what a camera pushed may be any byte. data is a struct HostMotionRecord, copied if it
 * is to be kept, or null with status 0. Host threads may call it as well.
 * - LW-52 motion-input: a motion record that is handed over stays as it is. */
int VideoMDSetStatus(int channel, int status, void* data);
/* Starts (1) or stops (0) motion snapshots. Host threads may call it as well. */
int snapSetMotion(int channel, int state);
/* Fills in the channel's struct HostMotionRecord. Returns a negative number on failure, which ends the
 * handling of this push.
 * - LW-50 motion-overrun: a motion record is 88 bytes long.
 * - LW-51 motion-short: all 88 bytes of a motion record are filled in. */
int motion_data_copy(int channel, void* data88);
/* Returns 1 when motion detection is armed on the channel at this moment, despite its name.
 * - LW-53 armed: a channel is armed, 1, or not, 0. */
int MD_Disarming_Time(int channel);
/* Queues an alarm, a struct HostAlarmRecord, copied; queue is 0. Called from upgrade threads as well.
 * - LW-54 alarm-input: an alarm record stays as it is. */
int streamInsertAlarmToAlarmQueue(int queue, void* record4);

/* -- Time zones; called from host threads. */

/* Writes the recorder's zone text, "GMT+08:00" (at most 11 characters), and returns the host's zone index in
 * bits 8 to 15; -1 on failure, which is logged and counts as index 255. a and b are not looked at.
 * - LW-55 zone-overrun: a zone text fits its 12 bytes.
 * - LW-56 zone-endless: a zone text ends in a NUL.
 * - LW-57 zone-text: a zone text begins with GMT. */
int GetTimeZone(char* name12, int* a, int* b);
/* Writes the hours (read as signed) and minutes (not read) of a host zone index, 0 to 255.
 * - LW-58 zone-time-overrun: hours and minutes of a zone are one byte each.
 * - LW-59 zone-hours: the hours of a zone are -12 to 14. */
int GetTimeZoneTime(uint32_t zoneIndex, uint8_t* hours, uint8_t* minutes);
/* Returns the camera's zone index for a host zone index, 0 to 255; its low 8 bits are sent.
 * - LW-60 camera-zone: a camera's zone index is 0 to 255. */
uint32_t GetIpcTimeZoneMap(uint32_t hostZoneIndex);

/* -- Memory, diagnostics, clock. file is a text that stays, line the line of the call. */

/* Returns memory for any object, not cleared, or null: the request or the list operation then fails. 4096
 * bytes per pending request, and list nodes and elements. Called from host threads.
 * - LW-61 memory-unaligned: memory is aligned for any object.
 * - LW-62 memory-twice: memory that was not freed is not given a second time.
 * - LW-63 memory-small: memory is as large as asked for. */
void* MeMalloc(int size, const char* file, int line);
/* Takes memory of MeMalloc back, once. */
void MeFree(void* pointer, const char* file, int line);
/* Prints one diagnostic line. Called from host threads and the event loop. */
int dump_printf(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
/* Returns whole seconds since start; may wrap. Called very often, from host threads, the queue thread, the
 * receive loop and upgrade threads.
 * - LW-64 clock-back: the seconds counter does not go back.
 * - LW-65 clock-fast: the seconds counter counts seconds. */
uint32_t uptime(void);

#ifdef __cplusplus
}
#endif

/* Every name above, for tools: X once for each service, and once for each table. */
#define LENSWIRE_HOST_SERVICES(X)           \
    X(DbMainMsgChannelInfo)                 \
    X(databaseOperate)                      \
    X(configGetDisplayNum)                  \
    X(get_channel_protocol)                 \
    X(get_channel_bindstatus)               \
    X(is_channel_fish_eye)                  \
    X(Private_Protocol_GetRequestFromQueue) \
    X(networkInsertMessageToQueue)          \
    X(networkGetStreamUsedNum)              \
    X(networkGetRunFlag)                    \
    X(networkGetStreampPrivateInfo)         \
    X(Private_Protocol_SetRecvBit)          \
    X(libVideoInfoSetNetworkParam)          \
    X(ring_free_size_ex)                    \
    X(ring_get_start_buf)                   \
    X(ring_set_data_end)                    \
    X(ring_used_size)                       \
    X(ring_pop_temp)                        \
    X(ring_pop_n)                           \
    X(streamGetFrameQueueBuffer)            \
    X(streamFrameQueueLock)                 \
    X(streamInsertFrameToFrameQueue)        \
    X(steramFrameQueueUnlock)               \
    X(VideoMDGetStatus)                     \
    X(VideoMDSetStatus)                     \
    X(snapSetMotion)                        \
    X(motion_data_copy)                     \
    X(MD_Disarming_Time)                    \
    X(streamInsertAlarmToAlarmQueue)        \
    X(GetTimeZone)                          \
    X(GetTimeZoneTime)                      \
    X(GetIpcTimeZoneMap)                    \
    X(MeMalloc)                             \
    X(MeFree)                               \
    X(dump_printf)                          \
    X(uptime)
#define LENSWIRE_HOST_TABLES(X) \
    X(ucAudioTypeFlag)          \
    X(uFreamCount)              \
    X(uFreamType)

#endif
