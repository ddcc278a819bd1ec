#include "pteClient/message_cutter.h"

#include "common/wire.h"

namespace lenswire {

FrontMessage front_message(std::span<const uint8_t> bytes) {
    // A length is believed only once it is known to fit a message; 64 bits keep a huge one from looking
    // small.
    if (bytes.size() < ARG_HEAD_LEN) return {Front::kIncomplete, 0};
    const PrivateCmd header = wire::load_header(bytes.data());
    const uint64_t length = wire::message_length(header);
    if (wire::is_over_long(header)) return {Front::kOverLong, length};
    return {length <= bytes.size() ? Front::kWhole : Front::kIncomplete, length};
}

Cut cut_messages(std::span<const uint8_t> bytes) {
    size_t at = 0;
    for (;;) {
        const FrontMessage front = front_message(bytes.subspan(at));
        if (front.kind != Front::kWhole) return {at, front};
        at += static_cast<size_t>(front.length);
    }
}

}  // namespace lenswire
