#include "check/ring_model.h"

#include <algorithm>
#include <cstring>

#include "check/memory.h"

namespace lenswire::check {

namespace {

constexpr int kRings = 256;
Ring g_rings[kRings];
int g_next_ring;

uint64_t first_sample_from(uint64_t position, uint32_t every) {
    return (position + every - 1) / every * every;
}

}  // namespace

Ring& ring_at(const void* address) {
    for (Ring& ring : g_rings) {
        if (ring.address_ == address) return ring;
    }
    Ring& ring = g_rings[g_next_ring];
    g_next_ring = (g_next_ring + 1) % kRings;
    ring.address_ = address;
    ring.channel_ = -1;
    ring.is_opened_ = ring.is_used_ = ring.is_known_ = false;
    ring.room_ = 0;
    ring.start_ = nullptr;
    ring.most_ = 0;
    return ring;
}

// A ring that the library may still be receiving into, on another thread, is not known until that is over.
void ring_opened(const void* buffer, int channel, int stream) {
    if (buffer == nullptr) return;
    const Lock lock;
    Ring& ring = ring_at(static_cast<const uint8_t*>(buffer) + LENSWIRE_RING_OFFSET);
    ring.channel_ = static_cast<int16_t>(channel);
    ring.stream_ = static_cast<int16_t>(stream);
    ring.is_known_ = false;
    ring.is_opened_ = !ring.is_used_;
    ring.most_ = 0;
}

void ring_idle(int channel, int stream) {
    const Lock lock;
    for (Ring& ring : g_rings) {
        if (ring.address_ != nullptr && ring.channel_ == channel && ring.stream_ == stream)
            ring.is_used_ = false;
    }
}

void Ring::begin(uint64_t held) {
    is_known_ = true;
    popped_ = 0;
    written_ = held;
    sampled_from_ = held;
    most_ = std::max(most_, held);
    was_seen_ = false;
    last_ = Last::kNothing;
}

bool Ring::offers(int room) {
    if (is_opened_) {
        begin(0);
        last_ = Last::kOpening;
    }
    is_opened_ = false;
    is_used_ = true;
    room_ = room;
    start_ = nullptr;
    was_seen_ = false;
    return room > 0 || !is_known_ || held() >= most_;
}

void Ring::commits(uint32_t length) {
    if (!is_known_) return;
    for (uint64_t at = first_sample_from(written_, kSampleEvery); at < written_ + length;
         at += kSampleEvery) {
        if (start_ == nullptr) break;
        samples_[at / kSampleEvery % kSamples] = start_[at - written_];
    }
    if (start_ == nullptr) sampled_from_ = written_ + length;
    written_ += length;
    most_ = std::max(most_, held());
    if (last_ != Last::kOpening) last_ = Last::kCommit;
}

void Ring::looks(const uint8_t* bytes) {
    std::memcpy(seen_, bytes, sizeof seen_);
    was_seen_ = true;
    last_ = Last::kLook;
}

bool Ring::is_as_seen(const uint8_t* bytes, uint32_t length) {
    const bool compares = was_seen_ && length == kHeader;
    was_seen_ = false;
    return !compares || std::memcmp(seen_, bytes, kHeader) == 0;
}

bool Ring::pops(const uint8_t* bytes, uint32_t length) {
    last_ = Last::kPop;
    if (!is_known_ || held() < length) return true;
    const uint64_t oldest =
        std::max(sampled_from_, written_ - std::min<uint64_t>(written_, LENSWIRE_RING_LEAST));
    bool right = true;
    for (uint64_t at = first_sample_from(std::max(popped_, oldest), kSampleEvery); at < popped_ + length;
         at += kSampleEvery) {
        right = right && samples_[at / kSampleEvery % kSamples] == bytes[at - popped_];
    }
    popped_ += length;
    if (!right) sampled_from_ = written_;
    return right;
}

Ring::Count Ring::counts(uint32_t used) {
    const Count count{!is_known_ || last_ == Last::kNothing || used == held(), last_,
                      static_cast<uint32_t>(held())};
    if (!is_known_ || used != held()) begin(used);
    last_ = Last::kNothing;
    return count;
}

}  // namespace lenswire::check
