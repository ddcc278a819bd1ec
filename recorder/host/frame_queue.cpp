#include "recorder/host/frame_queue.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace lenswire::recorder {
namespace {

// Readers of video data look a few bytes beyond its end.
constexpr uint32_t kPadding = 64;

}  // namespace

FrameBuffer::FrameBuffer(uint32_t capacity)
    : capacity_(capacity), bytes_(std::make_unique<uint8_t[]>(capacity + kPadding)) {}

StreamFrameHead FrameBuffer::head() const {
    StreamFrameHead head;
    std::memcpy(&head, bytes_.get(), sizeof head);
    return head;
}

std::span<const uint8_t> FrameBuffer::data() const {
    const uint32_t room = capacity_ - sizeof(StreamFrameHead);
    return {bytes_.get() + sizeof(StreamFrameHead), std::min<uint32_t>(head().ulDataSize, room)};
}

FrameQueue::FrameQueue(Listener* listener, size_t limit) : listener_(listener), limit_(limit) {}

void* FrameQueue::take(int size) {
    FrameBuffer* buffer = nullptr;
    if (size >= 0 && static_cast<uint32_t>(size) <= kLargestFrame) {
        const std::lock_guard lock(mutex_);
        buffer = take_buffer(static_cast<uint32_t>(size) + sizeof(StreamFrameHead));
    }
    if (buffer == nullptr) {
        lost_.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    }
    return buffer->bytes_.get();
}

FrameBuffer* FrameQueue::take_buffer(uint32_t bytes) {
    // One buffer is out at a time; one that was never inserted is free again.
    if (handed_out_ != nullptr) unused_[size_class(handed_out_->capacity_)].push_back(handed_out_);
    handed_out_ = nullptr;
    for (int i = size_class(bytes); i < kSizes && handed_out_ == nullptr; ++i) {
        if (unused_[i].empty()) continue;
        handed_out_ = unused_[i].back();
        unused_[i].pop_back();
    }
    if (handed_out_ == nullptr) handed_out_ = allocate(size_class(bytes));
    return handed_out_;
}

FrameBuffer* FrameQueue::allocate(int size_class) {
    const size_t capacity = size_t{kSmallest} << size_class;
    free_unused(capacity);
    if (allocated_ + capacity > limit_) return nullptr;
    buffers_.push_back(std::make_unique<FrameBuffer>(static_cast<uint32_t>(capacity)));
    allocated_ += capacity;
    return buffers_.back().get();
}

// Unused buffers of a smaller size make way for one of the size that is needed now.
void FrameQueue::free_unused(size_t needed) {
    for (auto& list : unused_) {
        while (!list.empty() && allocated_ + needed > limit_) {
            FrameBuffer* victim = list.back();
            list.pop_back();
            allocated_ -= victim->capacity_;
            std::erase_if(buffers_, [victim](const auto& buffer) { return buffer.get() == victim; });
        }
    }
}

int FrameQueue::size_class(uint32_t bytes) {
    const uint32_t units = (bytes + kSmallest - 1) / kSmallest;
    return std::bit_width(units - 1);
}

bool FrameQueue::insert(void* frame) {
    if (handed_out_ == nullptr || frame != handed_out_->bytes_.get()) return false;
    handed_out_->first_of_connection_ = begin_connection_;
    begin_connection_ = false;
    if (listener_ != nullptr) handed_out_->received_ = listener_->now();
    waiting_.push_back(handed_out_);
    handed_out_ = nullptr;
    inserted_ = true;
    return true;
}

void FrameQueue::unlock() {
    const bool tell = inserted_ && listener_ != nullptr;
    inserted_ = false;
    mutex_.unlock();
    if (tell) listener_->frames_waiting();
}

void FrameQueue::begin_connection() {
    const std::lock_guard lock(mutex_);
    begin_connection_ = true;
}

void FrameQueue::drain(std::vector<FrameBuffer*>& frames) {
    const std::lock_guard lock(mutex_);
    frames.insert(frames.end(), waiting_.begin(), waiting_.end());
    waiting_.clear();
}

void FrameQueue::give_back(std::span<FrameBuffer* const> frames) {
    const std::lock_guard lock(mutex_);
    for (FrameBuffer* frame : frames) unused_[size_class(frame->capacity_)].push_back(frame);
}

size_t FrameQueue::allocated_bytes() const {
    const std::lock_guard lock(mutex_);
    return allocated_;
}

}  // namespace lenswire::recorder
