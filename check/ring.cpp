// The receive ring of a stream.
#include <cstring>

#include "check/call.h"
#include "check/memory.h"
#include "check/ring_model.h"
#include "check/services.h"
#include "check/thread.h"

using namespace lenswire::check;

namespace {

constexpr int kMostRoom = 256 << 20;
constexpr int kMostLent = 1024;

// Which rule a wrong count breaks is said by what came before it.
Rule rule_of(Ring::Last last) {
    switch (last) {
        case Ring::Last::kOpening:
            return kRingNotEmptied;
        case Ring::Last::kPop:
            return kRingPop;
        case Ring::Last::kLook:
            return kRingPeek;
        default:
            return kRingCommit;
    }
}

int pop_lent(Call& call, void* ring, void* dst, int length, int capacity) {
    const Lent lent(dst, static_cast<size_t>(length));
    const int result = call.into(real_ring_pop_n, ring, lent.bytes(), length, capacity);
    call.expect(lent.is_intact(), kRingPopOverrun, "ring %p, %d bytes asked for", ring, length);
    lent.give_back();
    return result;
}

}  // namespace

extern "C" {

int checked_ring_free_size_ex(void* ring) {
    Call call(Service::ring_free_size_ex);
    const int room = call.into(real_ring_free_size_ex, ring);
    call.expect(room <= kMostRoom, kRingRoom, "ring %p, room %d", ring, room);
    note_pass(ring);
    const Lock lock;
    call.expect(ring_at(ring).offers(room), kRingNoRoom, "ring %p, room %d", ring, room);
    return room;
}

void* checked_ring_get_start_buf(void* ring) {
    Call call(Service::ring_get_start_buf);
    void* start = call.into(real_ring_get_start_buf, ring);
    const Lock lock;
    Ring& known = ring_at(ring);
    known.starts_at(nullptr);
    const int room = known.room();
    if (room <= 0 || room > kMostRoom) return start;
    if (!call.expect(start != nullptr, kRingStartNull, "ring %p, room %d", ring, room)) return start;
    call.expect(is_mapped(start, static_cast<size_t>(room)), kRingStartOutside, "ring %p, start %p, room %d",
                ring, start, room);
    known.starts_at(static_cast<const uint8_t*>(start));
    return start;
}

int checked_ring_set_data_end(void* ring, int length) {
    Call call(Service::ring_set_data_end);
    {
        const Lock lock;
        ring_at(ring).commits(static_cast<uint32_t>(length));
    }
    return call.into(real_ring_set_data_end, ring, length);
}

uint32_t checked_ring_used_size(void* ring) {
    Call call(Service::ring_used_size);
    const uint32_t used = call.into(real_ring_used_size, ring);
    const Lock lock;
    const Ring::Count count = ring_at(ring).counts(used);
    call.expect(count.is_right, rule_of(count.last), "ring %p, used %u, expected %u", ring, used,
                count.expected);
    return used;
}

int checked_ring_pop_temp(void* ring, void* dst, int length) {
    Call call(Service::ring_pop_temp);
    Lent lent(dst, static_cast<size_t>(length));
    lent.mark_content();
    const int result = call.into(real_ring_pop_temp, ring, lent.bytes(), length);
    call.expect(lent.is_intact(), kRingPeekOverrun, "ring %p, %d bytes asked for", ring, length);
    const size_t unwritten = lent.take_unwritten();
    call.expect(unwritten == 0, kRingPeekShort, "ring %p, %d bytes asked for, the last %u are not written",
                ring, length, static_cast<unsigned>(unwritten));
    lent.give_back();
    const Lock lock;
    if (length == Ring::kHeader && unwritten == 0) ring_at(ring).looks(lent.bytes<uint8_t>());
    return result;
}

int checked_ring_pop_n(void* ring, void* dst, int length, int capacity) {
    Call call(Service::ring_pop_n);
    const int result = length <= kMostLent ? pop_lent(call, ring, dst, length, capacity)
                                           : call.into(real_ring_pop_n, ring, dst, length, capacity);
    const Lock lock;
    Ring& known = ring_at(ring);
    const auto* bytes = static_cast<const uint8_t*>(dst);
    const auto count = static_cast<uint32_t>(length);
    const bool as_seen = call.expect(known.is_as_seen(bytes, count), kRingPeekDiffers,
                                     "ring %p, the header popped is not the one seen before", ring);
    const bool as_written = known.pops(bytes, count);
    call.expect(!as_seen || as_written, kRingBytes,
                "ring %p, among %d bytes popped are others than were written", ring, length);
    return result;
}
}
