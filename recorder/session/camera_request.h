// A request of the recorder's own, for what the library has no function for.
#pragma once

#include <optional>

#include "recorder/records/fields.h"
#include "recorder/session/plugin.h"

namespace lenswire::recorder {

// Sends a request with `size` bytes of zero payload to the camera at `ip` and awaits its answer, 10 seconds
// at most. As many bytes of the answer's payload; what the camera did not send reads as zero. None when it
// was not sent, not answered, or answered with an error.
std::optional<Bytes> request(const Plugin& library, uint32_t ip, uint16_t command, size_t size);

}  // namespace lenswire::recorder
