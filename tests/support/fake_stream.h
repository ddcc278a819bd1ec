// The host's objects of one stream: the receive buffer with its ring, and the stream object with its frame
// queue and private information. Laid out at the offsets that the library touches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "lenswire/host_objects.h"
#include "support/camera_bytes.h"
#include "support/notes.h"

namespace lenswire::test {

// The ring's fill count is the word that the library clears, so that clearing it makes the ring empty. No
// lock: only the receive loop uses the ring, as hosts have it.
struct RingObject {
    uint8_t host_part[LENSWIRE_RING_OFFSET];
    uint32_t capacity;
    uint32_t read_position;
    uint32_t unused;
    uint32_t fill;
    uint8_t* data;
    bool unusable;  // ring_get_start_buf gives null
};
static_assert(offsetof(RingObject, fill) == LENSWIRE_RING_FILL_OFFSET);

class ReceiveBuffer {
  public:
    explicit ReceiveBuffer(uint32_t capacity = 1 << 20);
    void* object() { return &object_; }  // what DevChannelInfo.pRecvBuf holds
    RingObject& ring() { return object_; }

    // For tests that play the receive loop themselves.
    void holds(const Bytes& bytes);
    // The place where the ring wraps: the next byte is written so many bytes from the start.
    void starts_at(uint32_t position) { object_.read_position = position; }

  private:
    std::unique_ptr<uint8_t[]> data_;
    RingObject object_;
};

// A frame as the library inserted it. Bytes of the head that it never wrote hold kUntouched.
struct Frame {
    Bytes head;     // 36 bytes
    Bytes payload;  // as many as the library asked for
};
inline constexpr uint8_t kUntouched = 0xEE;

class FakeStream;

struct StreamObject {
    HostStreamObject words;
    FakeStream* self;
};

class FakeStream {
  public:
    FakeStream();
    FakeStream(const FakeStream&) = delete;
    FakeStream& operator=(const FakeStream&) = delete;
    void* object() { return &object_; }  // what DevChannelInfo.pStream holds

    Notes<Frame> frames;
    // The queue has no buffer for some of the frames to come, counted from now on.
    void refuses_buffers(size_t after, size_t count);

    void has_private_info(bool has) { has_info_ = has; }
    // What stands there now; kUntouched where the library never wrote.
    Bytes private_info() const { return Bytes(info_, info_ + sizeof info_); }

    // The services' side.
    void* get_buffer(int size);
    void lock();
    void insert(void* frame);
    void unlock();
    void* info() { return has_info_ ? info_ : nullptr; }

  private:
    mutable std::mutex mutex_;
    bool locked_ = false;
    std::map<void*, Bytes> buffers_;
    size_t asked_ = 0;
    size_t refuse_from_ = SIZE_MAX;
    size_t refuse_to_ = 0;
    bool has_info_ = true;
    alignas(HostStreamInfo) uint8_t info_[128];
    StreamObject object_;
};

}  // namespace lenswire::test
