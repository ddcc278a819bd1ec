// What a camera of the benchmarks answers: as a rule the request itself.
#pragma once

#include <cstdint>
#include <vector>

namespace lenswire::bench {

// Takes the first whole message out of the bytes and returns the answer to it; empty when none is whole yet.
// A heartbeat is answered by a pushed motion alarm.
std::vector<uint8_t> answer_first_of(std::vector<uint8_t>& bytes);

}  // namespace lenswire::bench
