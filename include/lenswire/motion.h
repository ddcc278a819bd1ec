/* Motion detection and alarms: a camera's motion configuration, the motion that it reports by itself, and
 * the extended alarm property.
 *
 * Operations that talk to a camera find its control connection by ip, an IPv4 address in network order.
 * Unless said otherwise they are for the host's own threads, block for a send only, and print one line about
 * a failure. */
#ifndef LENSWIRE_MOTION_H
#define LENSWIRE_MOTION_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads a camera's motion configuration, 168 bytes into out168. channel, 0 to 64, is sent along. 0, or -1
 * with out168 untouched: a bad argument, no free request slot (after up to 5 s), not sent, an error answer,
 * or none within 10 s. */
LENSWIRE_API int Prv_GetIPCMtionDetetionConfigure(uint32_t channel, uint32_t ip, void* out168);

/* Sends a camera its motion configuration, 168 bytes; no answer is awaited. 0 sent, -1 not. */
LENSWIRE_API int Prv_SetIPCMtionDetetionConfigure(uint32_t ip, const void* record168);

/* Sets the host's motion state of a channel, 0 to 64, through VideoMDSetStatus; status 1 starts motion
 * snapshots as well. data is handed on: the channel's struct HostMotionRecord. 0, or -1 for another channel.
 * Callable from any thread; blocks for those services only. */
LENSWIRE_API int Private_VideoMDSetStatus(uint32_t channel, int status, void* data);

/* Takes a motion push, a command LENSWIRE_CMD_MOTION_PUSH that came from the camera at ip: its payload byte 2
 * is the state, 1 for motion; a payload shorter than that reads as 0. For every channel of 0 to 63 that is
 * bound to this camera by LENSWIRE_PROTOCOL: when the channel is armed, the host's motion state becomes the
 * pushed one; when it is not but the host's state shows motion, a motion alarm is queued, the state cleared
 * (with null data) and the snapshots stopped. Called by the event loop; waits for nothing but the host's
 * services. 0, or -1 for a null push or address 0, and when a channel's motion record cannot be had, which
 * ends the scan. */
LENSWIRE_API int Prv_IPCTriggingMtionDetetion(const void* push, uint32_t ip);

/* Switches motion detection off: in the camera, then in the channel's record of LENSWIRE_TABLE_MOTION, then
 * in the host's motion state, with a zeroed record. Stops at the first step that fails. 0 when all is done,
 * else -1. */
LENSWIRE_API int Prv_CloseMD(uint32_t channel, uint32_t ip);

/* Fills in the header of a request for commands of the host's own: flag, tags, code, number and size of
 * payload buffers. The other header bytes stay as they are. 0, or -1 for a null header or a negative number.
 * Pure but for the line about that; callable from any thread. */
LENSWIRE_API int cmd_packet(void* cmd, int usCmd, int bufferNum, int bufferSize);

/* Sends the extended alarm property to the camera at a dotted address; no answer is awaited. Byte 1 of the
 * caller's record becomes 1, also when the send fails. attempts as of Prv_Send_Cmd. 0 sent, -1 not. */
LENSWIRE_API int prv_set_alarm_property_ex(const char* ip, void* record560, int attempts);

/* Does nothing. 0. */
LENSWIRE_API int prv_get_alarm_property_ex(void);

#ifdef __cplusplus
}
#endif

#endif
