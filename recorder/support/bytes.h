#pragma once

#include <cstdint>
#include <vector>

namespace lenswire::recorder {

using Bytes = std::vector<uint8_t>;

}  // namespace lenswire::recorder
