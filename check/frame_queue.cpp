// The frame queue of a stream, and the audio tables beside it.
#include <pthread.h>

#include <cstring>

#include "check/call.h"
#include "check/memory.h"
#include "check/requests.h"
#include "check/ring_model.h"
#include "check/services.h"
#include "check/thread.h"

using namespace lenswire::check;

namespace {

constexpr size_t kEdge = 36;  // bytes of a frame that are compared, at its begin and its end
constexpr int kMost = 16;

// A buffer that the library has and did not insert yet.
struct Frame {
    const void* stream;
    uint8_t* buffer;  // null: the entry is free
    size_t size;
    pthread_t thread;
    uint64_t number;  // in the order in which buffers were asked for
    bool is_done;     // written by the library
    uint8_t begin[kEdge];
    uint8_t end[kEdge];
};
Frame g_frames[kMost];
uint64_t g_frames_so_far;

// A thread that has locked a queue.
struct Holder {
    const void* stream;  // null: the entry is free
    pthread_t thread;
    int depth;
};
Holder g_holders[kMost];

template <typename Entry, typename Holds>
Entry* find(Entry (&entries)[kMost], Holds holds) {
    for (Entry& entry : entries) {
        if (holds(entry)) return &entry;
    }
    return nullptr;
}

Holder* find_holder(const void* stream, bool is_own) {
    const pthread_t self = pthread_self();
    return find(g_holders, [&](const Holder& holder) {
        return holder.stream == stream && (pthread_equal(holder.thread, self) != 0) == is_own;
    });
}

// What of the host's is known to lie there. With the check's lock held.
const char* object_at(const void* stream, const void* buffer, size_t size) {
    if (overlap(buffer, size, stream, sizeof(HostStreamObject))) return "the stream object";
    const void* address = ring_of_pass();
    if (address == nullptr) return nullptr;
    const auto* object = static_cast<const uint8_t*>(address) - LENSWIRE_RING_OFFSET;
    if (overlap(buffer, size, object, sizeof(HostReceiveBuffer))) return "the receive buffer";
    const Ring& ring = ring_at(address);
    if (ring.start() == nullptr || ring.room() <= 0) return nullptr;
    return overlap(buffer, size, ring.start(), static_cast<size_t>(ring.room())) ? "the ring's room"
                                                                                 : nullptr;
}

void check_buffer(const Call& call, const void* stream, uint8_t* buffer, size_t size) {
    if (!call.expect(is_mapped(buffer, size), kFrameSmall, "stream %p, %p is not memory for %u bytes", stream,
                     static_cast<void*>(buffer), static_cast<unsigned>(size)))
        return;
    const Lock lock;
    const Frame* other = find(g_frames, [&](const Frame& frame) {
        return frame.buffer != nullptr && overlap(buffer, size, frame.buffer, frame.size);
    });
    const bool is_once = call.expect(other == nullptr, kFrameTwice, "stream %p, %u bytes at %p", stream,
                                     static_cast<unsigned>(size), static_cast<void*>(buffer));
    const char* object = is_once ? object_at(stream, buffer, size) : nullptr;
    call.expect(object == nullptr, kFrameOverlap, "stream %p, %u bytes at %p overlap %s", stream,
                static_cast<unsigned>(size), static_cast<void*>(buffer), object == nullptr ? "" : object);
    Frame* free = find(g_frames, [](const Frame& frame) { return frame.buffer == nullptr; });
    if (free == nullptr) return;
    *free = {.stream = stream,
             .buffer = buffer,
             .size = size,
             .thread = pthread_self(),
             .number = ++g_frames_so_far,
             .is_done = false,
             .begin = {},
             .end = {}};
}

// The latest frame that the calling thread has to do with.
template <typename Holds>
Frame* latest(Holds holds) {
    Frame* found = nullptr;
    for (Frame& frame : g_frames) {
        if (frame.buffer == nullptr || pthread_equal(frame.thread, pthread_self()) == 0 || !holds(frame))
            continue;
        if (found == nullptr || frame.number > found->number) found = &frame;
    }
    return found;
}

// The library writes nothing more into the frame for which it locks the queue.
void keep_edges(const void* stream) {
    const Lock lock;
    Frame* frame = latest([&](const Frame& one) { return one.stream == stream; });
    if (frame == nullptr) return;
    std::memcpy(frame->begin, frame->buffer, kEdge);
    std::memcpy(frame->end, frame->buffer + frame->size - kEdge, kEdge);
    frame->is_done = true;
}

// From here on the buffer is the host's. True when it is as the library left it.
bool let_go(const void* buffer) {
    const Lock lock;
    Frame* frame = latest([&](const Frame& one) { return one.buffer == buffer; });
    if (frame == nullptr) return true;
    const bool is_same =
        !frame->is_done || (std::memcmp(frame->begin, frame->buffer, kEdge) == 0 &&
                            std::memcmp(frame->end, frame->buffer + frame->size - kEdge, kEdge) == 0);
    frame->buffer = nullptr;
    return is_same;
}

void check_audio_flags(const Call& call) {
    const size_t count = audio_channels();
    for (size_t i = 0; i < count; ++i) {
        if (!call.expect(ucAudioTypeFlag[i] <= 1, kAudioFlag, "entry %u is %d", static_cast<unsigned>(i),
                         ucAudioTypeFlag[i]))
            return;
    }
}

}  // namespace

extern "C" {

void* checked_streamGetFrameQueueBuffer(void* stream, int size) {
    Call call(Service::streamGetFrameQueueBuffer);
    void* buffer = call.into(real_streamGetFrameQueueBuffer, stream, size);
    check_audio_flags(call);
    if (buffer != nullptr)
        check_buffer(call, stream, static_cast<uint8_t*>(buffer),
                     sizeof(StreamFrameHead) + static_cast<size_t>(size));
    return buffer;
}

int checked_streamFrameQueueLock(void* stream) {
    Call call(Service::streamFrameQueueLock);
    keep_edges(stream);
    {
        // Before the host is asked, which is likely to wait for ever.
        const Lock lock;
        call.expect(find_holder(stream, true) == nullptr, kFrameNested, "stream %p is locked by this thread",
                    stream);
    }
    const int result = call.into(real_streamFrameQueueLock, stream);
    const Lock lock;
    call.expect(find_holder(stream, false) == nullptr, kFrameLock, "stream %p is locked by two threads",
                stream);
    Holder* holder = find_holder(stream, true);
    if (holder == nullptr) holder = find(g_holders, [](const Holder& one) { return one.stream == nullptr; });
    if (holder == nullptr) return result;
    holder->depth = holder->stream == stream ? holder->depth + 1 : 1;
    holder->stream = stream;
    holder->thread = pthread_self();
    return result;
}

int checked_streamInsertFrameToFrameQueue(void* stream, void* frame) {
    Call call(Service::streamInsertFrameToFrameQueue);
    call.expect(let_go(frame), kFrameChanged, "stream %p, frame %p", stream, frame);
    return call.into(real_streamInsertFrameToFrameQueue, stream, frame);
}

int checked_steramFrameQueueUnlock(void* stream) {
    Call call(Service::steramFrameQueueUnlock);
    {
        const Lock lock;
        Holder* holder = find_holder(stream, true);
        if (holder != nullptr && --holder->depth == 0) holder->stream = nullptr;
    }
    return call.into(real_steramFrameQueueUnlock, stream);
}
}
