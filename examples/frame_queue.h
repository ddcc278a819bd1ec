/* The frame queue of one stream, to take as it is: frame_queue.c is all of the library's frame queue
 * services, and what a consumer needs.
 *
 * One struct FrameQueue per stream is DevChannelInfo.pStream. It must stay where it is until PC_UnInitCtx has
 * returned. Buffers are used again, so that a stream that runs allocates nothing; all of one queue together
 * stay below its limit. A consumer that is too slow loses frames, which are counted, and never holds up a
 * stream. */
#ifndef EXAMPLES_FRAME_QUEUE_H
#define EXAMPLES_FRAME_QUEUE_H

#include "lenswire/host_objects.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One frame. A struct StreamFrameHead follows it in memory, and the frame's data that. */
struct Frame {
    struct Frame* next;
    uint32_t capacity; /* bytes for head and data */
};

struct FrameQueue {
    struct HostStreamObject object; /* first: the library reads its two words */
    pthread_mutex_t mutex;          /* all below */
    pthread_cond_t arrived;
    struct Frame *oldest, *newest; /* waiting for the consumer */
    struct Frame* unused;
    uint32_t allocated, limit; /* bytes */
    uint32_t lost;             /* frames */
};

/* first and second come back as the arguments of networkGetStreampPrivateInfo. limit is in bytes; some
 * seconds of the stream and its largest frame should fit. */
void frame_queue_open(struct FrameQueue* queue, int first, int second, uint32_t limit);

/* Frees what waits, too. Nobody may be in the queue, and the consumer has given everything back. */
void frame_queue_close(struct FrameQueue* queue);

/* Returns the oldest frame, after waiting for one; null when none came in that time. The frame is the
 * consumer's until it gives it back. */
struct Frame* frame_queue_wait(struct FrameQueue* queue, int milliseconds);
void frame_queue_give_back(struct FrameQueue* queue, struct Frame* frame);

/* How many frames found no room so far. */
uint32_t frame_queue_lost(struct FrameQueue* queue);

const struct StreamFrameHead* frame_head(const struct Frame* frame);
const uint8_t* frame_data(const struct Frame* frame); /* ulDataSize bytes of it */

#ifdef __cplusplus
}
#endif

#endif
