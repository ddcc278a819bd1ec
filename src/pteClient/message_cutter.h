// Cutting a byte stream into whole command messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace lenswire {

// What stands at the front of the bytes of a control connection.
enum class Front {
    kIncomplete,  // fewer bytes than the header, or the length in it, asks for
    kWhole,
    kOverLong,  // the header announces more than MAX_CMD_SIZE
};

struct FrontMessage {
    Front kind;
    uint64_t length;  // as announced, header included; 0 while the header is incomplete
};

FrontMessage front_message(std::span<const uint8_t> bytes);

// How far whole messages reach from the front, and what stopped them there.
struct Cut {
    size_t whole_bytes;
    FrontMessage rest;  // kIncomplete or kOverLong
};

Cut cut_messages(std::span<const uint8_t> bytes);

}  // namespace lenswire
