// The settings of a camera out of its box.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "camera/device/device.h"
#include "camera/wire/bytes.h"

namespace lenswire::camera {

// What a stream of the camera is like, for its encoding record.
struct StreamShape {
    uint8_t codec = 0;
    uint16_t width = 1920;
    uint16_t height = 1080;
    uint8_t frame_rate = 25;
    uint32_t kbit_rate = 4096;
    bool audio = false;
    bool there = true;
};

struct Surroundings {
    DeviceConfig device;
    std::string address;
    uint16_t port = 0;
    std::vector<StreamShape> streams;  // main, sub, third
};

// The record behind every get or set command that has a fixed one, by the code of its get (of its set where
// there is no get). Encoding: three records in one, behind both codes' get.
std::map<uint16_t, Bytes> default_records(const Surroundings& surroundings);

// The texts that change when the firmware does.
void put_device(Bytes& device_info, const DeviceConfig& device);

}  // namespace lenswire::camera
