#include "support/fake_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "lenswire/host_services.h"
#include "support/fake_host.h"

namespace lenswire::test {

namespace {

RingObject& ring_of(void* ring) {
    return *reinterpret_cast<RingObject*>(static_cast<uint8_t*>(ring) - offsetof(RingObject, capacity));
}

FakeStream& stream_of(void* stream) {
    return *static_cast<StreamObject*>(stream)->self;
}

// A host that is told wrong says so.
bool holds(bool right, const char* complaint) {
    if (!right) host().complaints.add(complaint);
    return right;
}

uint32_t write_position(const RingObject& ring) {
    return ring.capacity == 0 ? 0 : (ring.read_position + ring.fill) % ring.capacity;
}

uint32_t free_piece(const RingObject& ring) {
    const uint32_t to_the_end = ring.capacity - write_position(ring);
    return std::min(ring.capacity - ring.fill, to_the_end);
}

bool copy_out(const RingObject& ring, void* dst, int length) {
    if (!holds(length >= 0 && static_cast<uint32_t>(length) <= ring.fill,
               "more bytes taken from a ring than it holds"))
        return false;
    const auto count = static_cast<uint32_t>(length);
    const uint32_t first = std::min(count, ring.capacity - ring.read_position);
    std::memcpy(dst, ring.data + ring.read_position, first);
    std::memcpy(static_cast<uint8_t*>(dst) + first, ring.data, count - first);
    return true;
}

}  // namespace

// Allocated to the byte, so that a sanitizer sees the first byte beyond.
ReceiveBuffer::ReceiveBuffer(uint32_t capacity) : data_(new uint8_t[capacity]), object_{} {
    object_.capacity = capacity;
    object_.data = data_.get();
    std::memset(object_.host_part, kUntouched, sizeof object_.host_part);
}

void ReceiveBuffer::holds(const Bytes& bytes) {
    for (uint8_t byte : bytes) {
        object_.data[write_position(object_)] = byte;
        ++object_.fill;
    }
}

// Its address is what the two words say.
FakeStream::FakeStream() : object_{} {
    std::memset(&object_.words, kUntouched, sizeof object_.words);
    std::memset(info_, kUntouched, sizeof info_);
    object_.self = this;
    const auto address = uint64_t{reinterpret_cast<uintptr_t>(this)};
    object_.words.lFirst = static_cast<int32_t>(address);
    object_.words.lSecond = static_cast<int32_t>(address >> 32);
}

void FakeStream::refuses_buffers(size_t after, size_t count) {
    const std::lock_guard lock(mutex_);
    refuse_from_ = asked_ + after;
    refuse_to_ = refuse_from_ + count;
}

void* FakeStream::get_buffer(int size) {
    const std::lock_guard lock(mutex_);
    holds(!locked_, "a frame buffer asked for under the queue's lock");
    if (!holds(size >= 0, "a frame buffer of negative size asked for")) return nullptr;
    const size_t number = asked_++;
    if (number >= refuse_from_ && number < refuse_to_) return nullptr;
    Bytes buffer(36 + static_cast<size_t>(size), kUntouched);
    buffer.shrink_to_fit();
    void* start = buffer.data();
    buffers_.emplace(start, std::move(buffer));
    return start;
}

void FakeStream::lock() {
    const std::lock_guard lock(mutex_);
    if (locked_) host().complaints.add("a frame queue locked twice");
    locked_ = true;
}

void FakeStream::insert(void* frame) {
    const std::lock_guard lock(mutex_);
    if (!locked_) host().complaints.add("a frame inserted without the queue's lock");
    const auto found = buffers_.find(frame);
    if (!holds(found != buffers_.end(), "a frame inserted that is no buffer of the queue")) return;
    const Bytes& bytes = found->second;
    frames.add({slice(bytes, 0, 36), slice(bytes, 36, bytes.size())});
    buffers_.erase(found);
}

void FakeStream::unlock() {
    const std::lock_guard lock(mutex_);
    if (!locked_) host().complaints.add("a frame queue unlocked that was not locked");
    locked_ = false;
}

}  // namespace lenswire::test

using namespace lenswire::test;

extern "C" {

int ring_free_size_ex(void* ring) {
    return static_cast<int>(free_piece(ring_of(ring)));
}

void* ring_get_start_buf(void* ring) {
    RingObject& object = ring_of(ring);
    return object.unusable ? nullptr : object.data + write_position(object);
}

int ring_set_data_end(void* ring, int length) {
    RingObject& object = ring_of(ring);
    if (!holds(length >= 0 && static_cast<uint32_t>(length) <= free_piece(object),
               "more bytes put into a ring than it has room for in one piece"))
        return -1;
    object.fill += static_cast<uint32_t>(length);
    return 0;
}

uint32_t ring_used_size(void* ring) {
    return ring_of(ring).fill;
}

int ring_pop_temp(void* ring, void* dst, int length) {
    return copy_out(ring_of(ring), dst, length) ? length : -1;
}

int ring_pop_n(void* ring, void* dst, int length, int capacity) {
    RingObject& object = ring_of(ring);
    if (!holds(length <= capacity, "more bytes taken from a ring than the capacity given with it") ||
        !copy_out(object, dst, length))
        return -1;
    object.read_position = (object.read_position + static_cast<uint32_t>(length)) % object.capacity;
    object.fill -= static_cast<uint32_t>(length);
    return length;
}

void* streamGetFrameQueueBuffer(void* stream, int size) {
    return stream_of(stream).get_buffer(size);
}

int streamFrameQueueLock(void* stream) {
    stream_of(stream).lock();
    return 0;
}

int streamInsertFrameToFrameQueue(void* stream, void* frame) {
    stream_of(stream).insert(frame);
    host().enters(Service::kInsertFrame, 0, 0);
    return 0;
}

int steramFrameQueueUnlock(void* stream) {
    stream_of(stream).unlock();
    return 0;
}

void* networkGetStreampPrivateInfo(int first, int second) {
    const uint64_t address = uint64_t{static_cast<uint32_t>(second)} << 32 | static_cast<uint32_t>(first);
    return reinterpret_cast<FakeStream*>(static_cast<uintptr_t>(address))->info();
}
}
