#include "ring.h"

#include <stdlib.h>
#include <string.h>

#include "lenswire/host_services.h"

/* The bytes lie in one piece, so that every receive has all the room there is. The library's receive loop is
 * the only one in here: no lock. */

int ring_open(struct ReceiveBuffer* buffer, uint32_t capacity) {
    memset(buffer, 0, sizeof *buffer);
    buffer->bytes = (uint8_t*)malloc(capacity);
    if (buffer->bytes == NULL) return -1;
    buffer->capacity = capacity;
    return 0;
}

void ring_close(struct ReceiveBuffer* buffer) {
    free(buffer->bytes);
    memset(buffer, 0, sizeof *buffer);
}

/* The services get the address of the ring inside its buffer. */
static struct ReceiveBuffer* buffer_of(void* ring) {
    return (struct ReceiveBuffer*)(void*)((uint8_t*)ring - LENSWIRE_RING_OFFSET);
}

/* What is held moves to the front when at least as much in front of it has been read, so that no more bytes
 * are moved than have come in, and when there is no room behind it. So a ring that the library has emptied
 * begins at its front, wherever it had stopped. */
static void make_room(struct ReceiveBuffer* buffer) {
    if (buffer->read < buffer->held && buffer->read + buffer->held < buffer->capacity) return;
    memmove(buffer->bytes, buffer->bytes + buffer->read, buffer->held);
    buffer->read = 0;
}

int ring_free_size_ex(void* ring) {
    struct ReceiveBuffer* buffer = buffer_of(ring);
    make_room(buffer);
    return (int)(buffer->capacity - buffer->held - buffer->read);
}

void* ring_get_start_buf(void* ring) {
    struct ReceiveBuffer* buffer = buffer_of(ring);
    return buffer->bytes + buffer->read + buffer->held;
}

int ring_set_data_end(void* ring, int length) {
    buffer_of(ring)->held += (uint32_t)length;
    return 0;
}

uint32_t ring_used_size(void* ring) { return buffer_of(ring)->held; }

int ring_pop_temp(void* ring, void* dst, int length) {
    struct ReceiveBuffer* buffer = buffer_of(ring);
    memcpy(dst, buffer->bytes + buffer->read, (size_t)length);
    return length;
}

int ring_pop_n(void* ring, void* dst, int length, int capacity) {
    struct ReceiveBuffer* buffer = buffer_of(ring);
    if (length > capacity) return -1;
    ring_pop_temp(ring, dst, length);
    buffer->read += (uint32_t)length;
    buffer->held -= (uint32_t)length;
    return length;
}
