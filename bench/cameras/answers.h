// What a camera of the benchmarks answers: as a rule the request itself.
#pragma once

#include <cstdint>
#include <vector>

namespace lenswire::bench {

// What the device information of these cameras says, and a name that a firmware file for them begins with.
constexpr uint8_t kDeviceType = 60;
constexpr const char* kFirmwareName = "BENCH_W";
constexpr const char* kFirmwareFile = "BENCH_W.bin";

// Takes the first whole message out of the bytes and returns the answer to it; empty when none is whole yet.
// A heartbeat is answered by a pushed motion alarm.
std::vector<uint8_t> answer_first_of(std::vector<uint8_t>& bytes);

}  // namespace lenswire::bench
