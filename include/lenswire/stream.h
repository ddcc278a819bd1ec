/* Streams: inviting one, the slots it is received in, and the way of its packets into the host's frame
 * queues.
 *
 * A host invites a stream with PC_GetStream, puts the unit and its own receive-buffer and stream objects
 * into a struct DevChannelInfo and posts an open request in its queue. From then on the receive loop
 * reads the unit's socket until a close request, or until the stream fails or is silent for more than 5
 * seconds; the slot is then freed and the host told by a STREAM_REQ_RESTART message, upon which it
 * invites again and posts a new open request.
 *
 * A close request of a stream whose delivery is under way, from inside a service as well, is final: no
 * restart message follows it, even when that delivery fails. All 192 slots open: an open request is dropped
 * in silence. An open request without unit, receive buffer, stream object or a socket of 1 to 1023 is logged
 * and answered by a restart message.
 *
 * The host's queue is polled every 100 microseconds for 10 seconds after PC_InitCtx, a login, an invitation
 * or a request, and at least every 6 milliseconds later. A slot that opens is read at once.
 *
 * Ownership: the host owns the socket and the objects. After a restart message they are no longer
 * touched. After a close request the pass that is under way may still use them: a host frees the objects
 * after PC_UnInitCtx, or keeps them for the next open, and invites a closed stream again on another unit,
 * or 0.1 seconds after its socket has gone from arrayfd. */
#ifndef LENSWIRE_STREAM_H
#define LENSWIRE_STREAM_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LENSWIRE_STREAM_SLOTS 192

/* The stream slot tables, one entry per slot, written by the library; a host may read them from any thread
 * (single 32-bit loads; the records only while their slot is open). The receive loop works on a copy and
 * brings the counters back when it is done with a slot, so they may be a pass behind the frames. Times are
 * uptime seconds. */
extern LENSWIRE_API int32_t arrayfd[LENSWIRE_STREAM_SLOTS];    /* socket, 0 = slot free */
extern LENSWIRE_API int32_t nodatatime[LENSWIRE_STREAM_SLOTS]; /* last data, or last restart */
extern LENSWIRE_API int32_t tv1[LENSWIRE_STREAM_SLOTS];        /* start of the statistics interval */
extern LENSWIRE_API int32_t bitrate[LENSWIRE_STREAM_SLOTS];    /* bytes in the interval, headers included */
extern LENSWIRE_API int32_t framecount[LENSWIRE_STREAM_SLOTS]; /* video frames in the interval */
extern LENSWIRE_API int32_t framerate[LENSWIRE_STREAM_SLOTS];  /* last measured video frames per second */
extern LENSWIRE_API int32_t width[LENSWIRE_STREAM_SLOTS];      /* of the last video packet, pixels */
extern LENSWIRE_API int32_t height[LENSWIRE_STREAM_SLOTS];
extern LENSWIRE_API int32_t videoFrameNo[LENSWIRE_STREAM_SLOTS]; /* frames delivered, video and audio */
extern LENSWIRE_API int32_t startNo[LENSWIRE_STREAM_SLOTS];      /* videoFrameNo at the interval's start */
extern LENSWIRE_API int32_t frameNo[LENSWIRE_STREAM_SLOTS];      /* 0 */
extern LENSWIRE_API int32_t audioFrameNo[LENSWIRE_STREAM_SLOTS]; /* 0 */
extern LENSWIRE_API struct DevChannelInfo
    devchannelinfo[LENSWIRE_STREAM_SLOTS]; /* the open request's record */

/* Opens a stream connection of its own to the camera of conn's client and asks for one stream of one
 * channel (low 8 bits count). A previous stream socket of conn is closed first; conn must not be in an
 * open slot (see Ownership above for a closed one). out gets the first 32 payload bytes of the camera's
 * answer, zero beyond what it sent, and only on success. Returns 0 or -1; after a failure a socket may remain
 * in conn->sockFd, which the next call closes. Blocks up to 6 seconds. Called from a host thread. When
 * conn is deleted or the library stopped meanwhile, the call fails and leaves no socket open. */
LENSWIRE_API int PC_GetStream(struct StreamConn* conn, int channel, int stream, void* out32);

/* Body of the queue thread: takes the host's stream requests and opens and closes slots, until
 * PC_G_RecvQueue is 0. PC_InitCtx runs it and the next; a host calls neither beside those. */
LENSWIRE_API void PC_GetQueueThread(void);

/* Body of the receive loop, until PC_G_RecvStreamLoopSwitch is 0. */
LENSWIRE_API void PC_RecvStreamLoop(void);

/* Sends the host a restart message for a stream; returns what networkInsertMessageToQueue did. Callable from
 * any thread; blocks as long as that service. */
LENSWIRE_API int PostRestartMessageToQueue(int channel, int stream);

/* One receive from a readable stream socket into the host's ring, then every complete packet out of it.
 * A packet is complete when the ring holds more than its payload and 64 bytes, LENSWIRE_RING_SIZE of
 * host_objects.h. The addresses are those of the stream's counters. 1 bytes were received, 0 nothing to read,
 * -1 the stream failed, with a line that says why: closed, a receive error, a header that is none, a ring
 * that is full or unusable. Waits for nothing but the host's services. Receive loop only. */
LENSWIRE_API int RecvStreamToPacketBuf(int channel, int stream, int32_t* frameNo, int sockFd, int frameRate,
                                       int32_t* bitrate, void* pRecvBuf, void* pStream, int32_t* videoFrameNo,
                                       int32_t* audioFrameNo, int32_t* framecount, int32_t* width,
                                       int32_t* height);

/* Delivers one packet whose 32-byte header is at header and whose payload is first in the ring. A frame
 * for which the host has no buffer is dropped whole. pStream is given twice; byte29 is 0. Always 0. Receive
 * loop only. */
LENSWIRE_API int PacketToFrameQueue(const void* header, int frameRate, void* pRecvBuf, void* pStream,
                                    void* pStreamAgain, int byte29, int32_t* videoFrameNo,
                                    int32_t* audioFrameNo, int32_t* framecount, int32_t* width,
                                    int32_t* height, int channel);

#ifdef __cplusplus
}
#endif

#endif
