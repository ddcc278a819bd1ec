// Whether anything listens at an address: a connection of our own, closed at once.
#pragma once

#include <chrono>
#include <cstdint>

namespace lenswire::recorder {

// 0, or the errno that the attempt ended with; ETIMEDOUT after `patience`. `ip` is in network order.
int error_of_port(uint32_t ip, int port, std::chrono::steady_clock::duration patience);

}  // namespace lenswire::recorder
