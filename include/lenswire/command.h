/* Command messages: sending and receiving one, the table of pending requests that brings an answer to
 * the thread that waits for it, and delivery by camera address.
 *
 * A request goes: Prv_PacketMsg (take a slot) -> build the message -> Prv_Send_Cmd -> Prv_GetCond_Property
 * (wait) -> read slot->recvData -> prv_destroy_msg. The configuration operations of the other headers do
 * all of this; a host needs these functions only for commands of its own. */
#ifndef LENSWIRE_COMMAND_H
#define LENSWIRE_COMMAND_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* -- One message on a socket. pLen holds the caller's buffer length on entry, at most 4096, and the bytes
 * moved on return; bad arguments give -1 and leave it as it is. None of the three closes the socket or tries
 * again, and none waits for it when it is non-blocking, as those of SK_ConnectTo are. Socket and buffers stay
 * the caller's. Callable from any thread: any number may send on one socket, one at a time may receive. */

/* Sends the whole message that starts at pData; its length follows from its header and must not be
 * above *pLen. One send, no SIGPIPE. 0 with *pLen = the length when all of it went out; -1 otherwise:
 * *pLen is 0 after a short send and when nothing could be sent now (after a pause of 5 ms). */
LENSWIRE_API int PC_SendCmd(int sockFd, const void* pData, int* pLen);

/* Reads exactly one message into a buffer of at least 32 bytes: 32 bytes of header, then the payload it
 * announces, one read each. 0 with *pLen = the message's length, or -1 with *pLen = 0: nothing there (after a
 * pause of 100 ms), closed, ulFlag not 0, longer than *pLen, or a payload that is not wholly there yet. Text
 * of a broken message that is logged is bounded by the bytes received. */
LENSWIRE_API int PC_RecvCmd(int sockFd, void* pCmd, int* pLen);

/* One read of up to *pLen bytes, message boundaries ignored. 0 with *pLen = bytes read; 1 when there is
 * nothing to read (*pLen unchanged); -1 with *pLen = 0 at the end of the stream or on an error. A length of 0
 * is a bad argument. */
LENSWIRE_API int PC_RecvCmd1(int sockFd, void* buf, int* pLen);

/* -- Pending requests: 128 slots, matched by command code and camera address. Callable from any thread;
 * a slot belongs to the thread that took it until prv_destroy_msg.
 *
 * An answer names its command and comes from its camera, and nothing else tells requests apart. When two
 * threads ask one camera the same thing at once, the slot of the lower number gets every answer until its
 * owner gives it back; the other one waits for an answer that comes after that, in vain as a rule. An answer
 * that comes too late serves the next request for the same thing. So a host asks a camera for one thing on
 * one thread at a time; different things and different cameras do not disturb each other. */

/* The table, for a host that wants to look at it, and the number of slots taken. Read only, and without the
 * lock only for display: a slot changes under the reader's eyes. */
extern LENSWIRE_API struct RecvSendSlot g_recvsendlist[128];
extern LENSWIRE_API int32_t g_rs_num;

/* The table's lock is made with the library and stays until it is unloaded, so both have nothing to do and
 * return 0. PC_InitCtx calls the first. */
LENSWIRE_API int Prv_cmd_Init(void);
LENSWIRE_API int Prv_cmd_Delectl(void);

/* Takes a slot for answers to cmd from the camera at ip (network order). reserved must not be
 * negative; pass 0. The slot owns 4096 zeroed bytes of the host's allocator. Returns the slot,
 * (struct RecvSendSlot *)1 when all 128 are taken, null on a bad argument or without memory. Never waits. */
LENSWIRE_API struct RecvSendSlot* Init_Cond_Msg(int cmd, int reserved, uint32_t ip);

/* The same, trying up to attempts times, one second apart, while the table is full: blocks for attempts
 * seconds at most. Returns the slot or null. */
LENSWIRE_API struct RecvSendSlot* Prv_PacketMsg(int cmd, int reserved, int attempts, uint32_t ip);

/* Waits for the slot's answer, up to the given seconds. 0 when it is in slot->recvData (an answer
 * without payload leaves recvData as it was); -1 when the camera answered with an error state, nothing
 * came in time, or an argument is bad. Only the first answer counts. The time is that of the monotonic clock:
 * setting the wall clock changes nothing. If that clock cannot be read, only an answer that is there counts.
 */
LENSWIRE_API int Prv_GetCond_Property(struct RecvSendSlot* slot, int seconds);

/* Wake the slot's owner with success or with an error. 0, also when the slot has been posted to already and
 * keeps that; -1 for a slot of the table that is not taken, or null. Callable from any thread. */
LENSWIRE_API int cond_post(struct RecvSendSlot* slot);
LENSWIRE_API int cond_post_error(struct RecvSendSlot* slot);

/* Gives the slot and its buffer back; waits while an answer is just being put into it. Owed once for every
 * slot taken, also after a failed wait; recvData is then no longer the caller's. 0, or -1 for a null slot and
 * for one that is not of the table. */
LENSWIRE_API int prv_destroy_msg(struct RecvSendSlot* slot);

/* Bring a received message to the slot that waits for it: as a success (0, or -1 when no slot waits), as
 * an error (always -1), or as its ucState says (0, or -1 for a null message or address). Of the length that
 * the header announces, 4096 bytes at most are read and copied; the caller vouches for those. The event loop
 * hands on whole messages only. */
LENSWIRE_API int Prv_CmdStaRgt(const void* message, uint32_t ip);
LENSWIRE_API int Prv_CmdStaErr(const void* message, uint32_t ip);
LENSWIRE_API int Private_Protocol_RecvProcess(const void* message, uint32_t ip);

/* -- Delivery. pCmd is the message's header and pData the whole message; callers pass one buffer for
 * both. The client's ulLoginId is written into pCmd. */

/* Sends the message on the control connection of the first client with that address, whatever its state. 0
 * sent, -1 not: no client, no socket, or the send failed, which is logged. time must not be negative. Blocks
 * for one send on a non-blocking socket, and 5 ms more when the socket takes nothing. */
LENSWIRE_API int Private_Protocol_CMDDelivery(uint32_t ip, void* pCmd, void* pData, int time);

/* The same with the configuration layer's checks and log line; time is the caller's
 * attempt budget: with 0 the message goes out and -1 comes back, any other value makes one attempt. */
LENSWIRE_API int Prv_Send_Cmd(uint32_t ip, void* pCmd, void* pData, int time);

#ifdef __cplusplus
}
#endif

#endif
