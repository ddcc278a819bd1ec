// Bytes of a camera on their way into a log line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "lenswire/records.h"

namespace lenswire {

// A message's bytes as text, up to the first NUL. What is not printable in ASCII becomes a dot, so that no
// camera moves the cursor of the terminal that shows the log or ends the line for another one.
class Printable {
  public:
    explicit Printable(std::span<const uint8_t> bytes) {
        const size_t room = std::min(bytes.size(), sizeof text_ - 1);
        size_t length = 0;
        for (; length < room && bytes[length] != 0; ++length) {
            const uint8_t byte = bytes[length];
            text_[length] = byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
        }
        text_[length] = '\0';
    }
    const char* text() const { return text_; }

  private:
    char text_[MAX_CMD_SIZE + 1];
};

}  // namespace lenswire
