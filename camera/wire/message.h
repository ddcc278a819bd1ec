// The command messages of a control connection, as the camera reads and builds them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "camera/wire/bytes.h"

namespace lenswire::camera {

// One command message. buffer_size and buffer_num are the header's; what follows is `payload`.
struct Command {
    uint16_t flag = 0;
    uint8_t tag1 = 1;
    uint8_t tag2 = 1;
    uint16_t code = 0;
    uint16_t state = 0;
    uint32_t login_id = 0;
    uint32_t buffer_size = 0;
    uint32_t buffer_num = 0;
    bool reserved_clear = true;  // of a received command: whether its last 12 header bytes were 0
    Bytes payload;
};

// The payload length that a header announces: a 32-bit product.
uint32_t announced_length(const Command& command);

// The header at the start of `bytes`, at least 32 of them, without a payload.
Command parse_header(std::span<const uint8_t> bytes);

// Takes whole messages out of a byte stream that arrives in any pieces.
class CommandReader {
  public:
    void add(std::span<const uint8_t> bytes);
    // The header that stands at the front once its 32 bytes are there.
    std::optional<Command> header() const;
    // The front message once it is whole. Only for headers that announce a message of legal size.
    std::optional<Command> take();
    // Everything behind the front header: the beginning of what does not fit into a message.
    Bytes take_rest();

  private:
    Bytes bytes_;
};

// An answer to a request: its code, its login id, one buffer with the payload.
Command answer_to(const Command& request, Bytes payload, uint16_t state = 0);

// A message as it goes out: header and payload exactly as they stand in `command`.
Bytes to_bytes(const Command& command);

}  // namespace lenswire::camera
