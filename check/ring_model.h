// What a host's receive rings must hold, from what the library has done with them. The bytes themselves are
// known by samples, so that a ring of 4 MiB takes 32 KiB here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lenswire/host_objects.h"

namespace lenswire::check {

// One ring. Used by the thread that receives into it, under the check's lock because of rings_opened.
class Ring {
  public:
    static constexpr uint32_t kHeader = 32;

    // A pass begins: the room that the ring offers. False when it holds less than before and offers none.
    bool offers(int room);
    int room() const { return room_; }
    void starts_at(const uint8_t* start) { start_ = start; }
    const uint8_t* start() const { return start_; }

    // The library's operations, before (commits) and after (all others) the host has done them.
    void commits(uint32_t length);
    void looks(const uint8_t* bytes);
    // Whether the bytes are those that were written.
    bool pops(const uint8_t* bytes, uint32_t length);
    // Whether a header that is popped is the one that was looked at last.
    bool is_as_seen(const uint8_t* bytes, uint32_t length);

    // What the last operation was that changes what a ring holds, or must not.
    enum class Last : uint8_t { kNothing, kOpening, kCommit, kPop, kLook };
    // Compares the host's count with what it must be, and goes on from the host's.
    struct Count {
        bool is_right;
        Last last;
        uint32_t expected;
    };
    Count counts(uint32_t used);

  private:
    friend Ring& ring_at(const void* address);
    friend void ring_opened(const void* buffer, int channel, int stream);
    friend void ring_idle(int channel, int stream);

    static constexpr uint32_t kSampleEvery = 128;
    static constexpr uint32_t kSamples = LENSWIRE_RING_LEAST / kSampleEvery + 1;

    uint64_t held() const { return written_ - popped_; }
    void begin(uint64_t held);

    const void* address_;
    int16_t channel_;
    int16_t stream_;
    bool is_opened_;  // by a request, and not used since
    bool is_used_;    // by the library since it was opened, and not done with
    bool is_known_;   // how much it holds
    Last last_;
    bool was_seen_;
    uint8_t seen_[kHeader];
    int room_;
    const uint8_t* start_;
    uint64_t written_;  // bytes since the counting began
    uint64_t popped_;
    uint64_t sampled_from_;
    uint64_t most_;  // that it has held
    uint8_t samples_[kSamples];
};

// The ring of that address, a new one when it is not known. With the check's lock held.
Ring& ring_at(const void* address);

// An open request names a receive buffer: its ring is empty from then on.
void ring_opened(const void* buffer, int channel, int stream);
// The host is told that a stream has ended: nothing of the library uses its ring any more.
void ring_idle(int channel, int stream);

}  // namespace lenswire::check
