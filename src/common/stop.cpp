#include "common/stop.h"

namespace lenswire {

std::atomic<uint32_t> g_complete_stops;

}  // namespace lenswire
