// What is known of the host's stream requests.
#pragma once

#include <cstddef>

namespace lenswire::check {

// Entries of the smallest of the host's audio tables, 256 at most.
size_t audio_channels();

}  // namespace lenswire::check
