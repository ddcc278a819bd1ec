/* The receive ring of one stream, to take as it is: ring.c is all of the library's ring services.
 *
 * One struct ReceiveBuffer per stream is DevChannelInfo.pRecvBuf. It must stay where it is until PC_UnInitCtx
 * has returned. */
#ifndef EXAMPLES_RING_H
#define EXAMPLES_RING_H

#include "lenswire/host_objects.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ReceiveBuffer {
    uint8_t reserved[LENSWIRE_RING_OFFSET];
    uint32_t capacity;
    uint32_t read; /* where the first byte held is */
    uint32_t spare;
    uint32_t held; /* the word that the library clears when it opens the stream */
    uint8_t* bytes;
};

LENSWIRE_PIN(offsetof(struct ReceiveBuffer, capacity) == LENSWIRE_RING_OFFSET);
LENSWIRE_PIN(offsetof(struct ReceiveBuffer, held) == LENSWIRE_RING_FILL_OFFSET);

/* capacity is LENSWIRE_RING_LEAST, or LENSWIRE_RING_SIZE of the largest frame that the camera sends. Memory
 * that no frame has reached yet costs nothing. Returns 0, or -1 without memory. */
int ring_open(struct ReceiveBuffer* buffer, uint32_t capacity);
void ring_close(struct ReceiveBuffer* buffer);

#ifdef __cplusplus
}
#endif

#endif
