// The receive ring of one stream: the bytes that the library has received and not yet cut into frames.
//
// The library finds the ring 16 bytes into the receive-buffer object and clears the 32-bit word 12 bytes
// into the ring when it opens a stream. That word is the fill count, and everything else follows from it:
// the write position is the read position plus the fill count, and an empty ring reads and writes at its
// front. So a restarted stream begins with nothing of the old one, wherever the old one stopped.
//
// The bytes lie in one piece. When more than a little in front has been read, the unread rest, part of a
// frame as a rule, moves to the front before the next receive: that keeps the room behind it in one piece
// and the memory in use small. A packet of the largest possible size always fits.
//
// Used by the library's receive loop only, but for what is marked; no lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "lenswire/host_objects.h"

namespace lenswire::recorder {

inline constexpr uint32_t kRingSlack = 128 * 1024;
inline constexpr uint32_t kRingCapacity = LENSWIRE_RING_LEAST + kRingSlack;

class Ring {
  public:
    // capacity must leave `slack` bytes beyond the largest packet expected.
    explicit Ring(uint32_t capacity = kRingCapacity, uint32_t slack = kRingSlack);
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    uint32_t free_size();  // in one piece at write_position()
    uint8_t* write_position();
    bool commit(uint32_t length);
    uint32_t used() const { return used_; }
    uint32_t peek(void* destination, uint32_t length) const;
    // Removes `length` bytes and copies at most `capacity` of them; the number removed.
    uint32_t pop(void* destination, uint32_t length, uint32_t capacity);

    // -- By any thread.
    // Whether the sender stopped within a packet, as far as it has come.
    bool ends_in_packet() const { return ends_in_packet_; }
    void forget_end() { ends_in_packet_ = false; }

  private:
    void make_room();
    void note_end();

    uint32_t capacity_;
    uint32_t slack_;
    uint32_t read_ = 0;
    uint32_t used_ = 0;  // the word that the library clears
    uint8_t* bytes_;
    std::atomic<bool> ends_in_packet_{false};
};

// The object behind pRecvBuf.
struct ReceiveBuffer {
    uint8_t reserved[LENSWIRE_RING_OFFSET] = {};
    Ring ring;

    explicit ReceiveBuffer(uint32_t capacity = kRingCapacity, uint32_t slack = kRingSlack)
        : ring(capacity, slack) {}
};
static_assert(offsetof(ReceiveBuffer, ring) == LENSWIRE_RING_OFFSET);

}  // namespace lenswire::recorder
