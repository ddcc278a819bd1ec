// Host services: the receive ring.
#include <limits>

#include "lenswire/host_services.h"
#include "recorder/host/ring.h"

using lenswire::recorder::Ring;

namespace {

Ring* ring_at(void* ring) {
    return static_cast<Ring*>(ring);
}

}  // namespace

int ring_free_size_ex(void* ring) {
    return ring != nullptr ? static_cast<int>(ring_at(ring)->free_size()) : 0;
}

void* ring_get_start_buf(void* ring) {
    return ring != nullptr ? ring_at(ring)->write_position() : nullptr;
}

int ring_set_data_end(void* ring, int length) {
    return ring != nullptr && length >= 0 && ring_at(ring)->commit(static_cast<uint32_t>(length)) ? 0 : -1;
}

uint32_t ring_used_size(void* ring) {
    return ring != nullptr ? ring_at(ring)->used() : 0;
}

int ring_pop_temp(void* ring, void* dst, int length) {
    if (ring == nullptr || dst == nullptr || length < 0) return -1;
    return static_cast<int>(ring_at(ring)->peek(dst, static_cast<uint32_t>(length)));
}

int ring_pop_n(void* ring, void* dst, int length, int capacity) {
    if (ring == nullptr || dst == nullptr || length < 0 || capacity < 0) return -1;
    return static_cast<int>(
        ring_at(ring)->pop(dst, static_cast<uint32_t>(length), static_cast<uint32_t>(capacity)));
}
