// Host services: the frame queue, and the audio detection tables beside it.
#include "lenswire/host_services.h"
#include "recorder/host/frame_queue.h"
#include "recorder/host/recorder_stream.h"

using lenswire::recorder::FrameQueue;
using lenswire::recorder::StreamObject;

// One entry per value that a request's channel byte can have. Written by the receive loop.
uint8_t ucAudioTypeFlag[256];
uint32_t uFreamCount[256];
uint32_t uFreamType[256];

namespace {

FrameQueue* queue_of(void* stream) {
    return stream != nullptr ? static_cast<StreamObject*>(stream)->queue : nullptr;
}

}  // namespace

void* streamGetFrameQueueBuffer(void* stream, int size) {
    FrameQueue* queue = queue_of(stream);
    return queue != nullptr ? queue->take(size) : nullptr;
}

int streamFrameQueueLock(void* stream) {
    FrameQueue* queue = queue_of(stream);
    if (queue == nullptr) return -1;
    queue->lock();
    return 0;
}

int streamInsertFrameToFrameQueue(void* stream, void* frame) {
    FrameQueue* queue = queue_of(stream);
    return queue != nullptr && queue->insert(frame) ? 0 : -1;
}

int steramFrameQueueUnlock(void* stream) {
    FrameQueue* queue = queue_of(stream);
    if (queue == nullptr) return -1;
    queue->unlock();
    return 0;
}
