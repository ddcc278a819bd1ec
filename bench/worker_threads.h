// The library's own threads, as a host can tell them apart: by the order in which PC_InitCtx starts them.
#pragma once

#include <vector>

#include "bench/receiver.h"

namespace lenswire::bench {

// Starts the library's context.
std::vector<Role> start_library();

}  // namespace lenswire::bench
