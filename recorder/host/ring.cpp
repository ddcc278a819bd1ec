#include "recorder/host/ring.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "lenswire/records.h"

namespace lenswire::recorder {

// Mapped rather than allocated: pages that no packet has reached yet cost nothing.
Ring::Ring(uint32_t capacity, uint32_t slack) : capacity_(capacity), slack_(slack) {
    void* memory =
        mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    bytes_ = static_cast<uint8_t*>(memory);
    static_assert(LENSWIRE_RING_OFFSET + offsetof(Ring, used_) == LENSWIRE_RING_FILL_OFFSET);
}

Ring::~Ring() {
    munmap(bytes_, capacity_);
}

void Ring::make_room() {
    if (used_ != 0 && read_ <= slack_) return;
    std::memmove(bytes_, bytes_ + read_, used_);
    read_ = 0;
}

uint32_t Ring::free_size() {
    make_room();
    return capacity_ - read_ - used_;
}

uint8_t* Ring::write_position() {
    make_room();
    return bytes_ + read_ + used_;
}

bool Ring::commit(uint32_t length) {
    if (length > capacity_ - read_ - used_) return false;
    used_ += length;
    note_end();
    return true;
}

void Ring::note_end() {
    StreamHeadInfo head{};
    const bool headless = used_ < sizeof head;
    if (!headless) std::memcpy(&head, bytes_ + read_, sizeof head);
    const bool cut =
        headless ? used_ > 0 : used_ - sizeof head < head.ulDataInfo >> LENSWIRE_PACKET_LENGTH_SHIFT;
    ends_in_packet_.store(cut, std::memory_order_relaxed);
}

uint32_t Ring::peek(void* destination, uint32_t length) const {
    const uint32_t count = std::min(length, used_);
    std::memcpy(destination, bytes_ + read_, count);
    return count;
}

uint32_t Ring::pop(void* destination, uint32_t length, uint32_t capacity) {
    const uint32_t count = std::min(length, used_);
    peek(destination, std::min(count, capacity));
    read_ += count;
    used_ -= count;
    note_end();
    return count;
}

}  // namespace lenswire::recorder
