// What a simulated camera is: all of it shows in what its commands answer.
#pragma once

#include <cstdint>
#include <string>

namespace lenswire::camera {

struct DeviceConfig {
    uint8_t type = 20;  // ndevType
    std::string firmware_name = "LW_20_BTAMC_1.0.0";
    std::string platform = {};    // chip name; empty on cameras that do not tell
    std::string sensor = {};      // image sensor name; likewise
    bool special_family = false;  // byte 27 of the property block
    uint8_t fisheye_type = 0;     // 0 to 3
    std::string name = "Camera";  // on the picture and in the network
    std::string state_dir = {};   // settings are kept in this folder; nowhere when empty
};

}  // namespace lenswire::camera
