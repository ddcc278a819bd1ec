/* For the monotonic clock in strict C99. */
#define _POSIX_C_SOURCE 200809L

#include "frame_queue.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "lenswire/host_services.h"

/* Buffers of alike size serve each other's frames. */
static const uint32_t kGranule = 16384;

void frame_queue_open(struct FrameQueue* queue, int first, int second, uint32_t limit) {
    pthread_condattr_t monotonic;
    memset(queue, 0, sizeof *queue);
    queue->object.lFirst = first;
    queue->object.lSecond = second;
    queue->limit = limit;
    pthread_mutex_init(&queue->mutex, NULL);
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&queue->arrived, &monotonic);
    pthread_condattr_destroy(&monotonic);
}

static void free_frames(struct Frame* frame) {
    while (frame != NULL) {
        struct Frame* next = frame->next;
        free(frame);
        frame = next;
    }
}

void frame_queue_close(struct FrameQueue* queue) {
    free_frames(queue->oldest);
    free_frames(queue->unused);
    pthread_cond_destroy(&queue->arrived);
    pthread_mutex_destroy(&queue->mutex);
}

/* -- The library's side: the receive loop, one frame at a time. */

/* The first unused buffer that is large enough, or null. */
static struct Frame* take_unused(struct FrameQueue* queue, uint32_t bytes) {
    struct Frame** link = &queue->unused;
    while (*link != NULL && (*link)->capacity < bytes) link = &(*link)->next;
    struct Frame* frame = *link;
    if (frame != NULL) *link = frame->next;
    return frame;
}

/* A new buffer. Unused ones, which are too small, make way for it where the limit wants it; null when frames
 * that wait for the consumer fill the queue. */
static struct Frame* allocate(struct FrameQueue* queue, uint32_t bytes) {
    const uint32_t capacity = (bytes / kGranule + 1) * kGranule;
    while (queue->unused != NULL && queue->allocated + capacity > queue->limit) {
        struct Frame* frame = take_unused(queue, 0);
        queue->allocated -= frame->capacity;
        free(frame);
    }
    if (queue->allocated + capacity > queue->limit) return NULL;
    struct Frame* frame = (struct Frame*)malloc(sizeof *frame + capacity);
    if (frame == NULL) return NULL;
    frame->capacity = capacity;
    queue->allocated += capacity;
    return frame;
}

void* streamGetFrameQueueBuffer(void* stream, int size) {
    struct FrameQueue* queue = (struct FrameQueue*)stream;
    const uint32_t bytes = (uint32_t)sizeof(struct StreamFrameHead) + (uint32_t)size;
    pthread_mutex_lock(&queue->mutex);
    struct Frame* frame = take_unused(queue, bytes);
    if (frame == NULL) frame = allocate(queue, bytes);
    if (frame == NULL) ++queue->lost;
    pthread_mutex_unlock(&queue->mutex);
    return frame != NULL ? frame + 1 : NULL;
}

int streamFrameQueueLock(void* stream) { return pthread_mutex_lock(&((struct FrameQueue*)stream)->mutex); }

int steramFrameQueueUnlock(void* stream) {
    return pthread_mutex_unlock(&((struct FrameQueue*)stream)->mutex);
}

int streamInsertFrameToFrameQueue(void* stream, void* inserted) {
    struct FrameQueue* queue = (struct FrameQueue*)stream;
    struct Frame* frame = (struct Frame*)inserted - 1;
    frame->next = NULL;
    if (queue->oldest == NULL) {
        queue->oldest = frame;
    } else {
        queue->newest->next = frame;
    }
    queue->newest = frame;
    pthread_cond_signal(&queue->arrived);
    return 0;
}

/* -- The consumer's side. */

static struct timespec after(int milliseconds) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += milliseconds / 1000;
    time.tv_nsec += milliseconds % 1000 * 1000000L;
    if (time.tv_nsec >= 1000000000L) {
        time.tv_nsec -= 1000000000L;
        ++time.tv_sec;
    }
    return time;
}

struct Frame* frame_queue_wait(struct FrameQueue* queue, int milliseconds) {
    const struct timespec deadline = after(milliseconds);
    pthread_mutex_lock(&queue->mutex);
    while (queue->oldest == NULL && pthread_cond_timedwait(&queue->arrived, &queue->mutex, &deadline) == 0) {
    }
    struct Frame* frame = queue->oldest;
    if (frame != NULL) queue->oldest = frame->next;
    pthread_mutex_unlock(&queue->mutex);
    return frame;
}

void frame_queue_give_back(struct FrameQueue* queue, struct Frame* frame) {
    pthread_mutex_lock(&queue->mutex);
    frame->next = queue->unused;
    queue->unused = frame;
    pthread_mutex_unlock(&queue->mutex);
}

uint32_t frame_queue_lost(struct FrameQueue* queue) {
    pthread_mutex_lock(&queue->mutex);
    const uint32_t lost = queue->lost;
    pthread_mutex_unlock(&queue->mutex);
    return lost;
}

const struct StreamFrameHead* frame_head(const struct Frame* frame) {
    return (const struct StreamFrameHead*)(const void*)(frame + 1);
}

const uint8_t* frame_data(const struct Frame* frame) {
    return (const uint8_t*)(frame + 1) + sizeof(struct StreamFrameHead);
}
