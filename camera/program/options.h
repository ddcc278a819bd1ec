// What the command line of lenswire-camera asks for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "camera/serve/camera_config.h"
#include "camera/serve/faults.h"

namespace lenswire::camera {

struct Options {
    unsigned threads = 1;
    double seconds = 0;  // run time; 0: until a signal
    bool show = false;   // every received command in words
    std::vector<CameraConfig> cameras;
    std::vector<std::pair<size_t, Fault>> faults;  // which camera, from 0
};

// Exit code in `exit_code` when the program is to end at once: 0 after --help, 2 after one line on standard
// error that says what is wrong.
std::optional<Options> parse_options(int argc, char** argv, int* exit_code);

}  // namespace lenswire::camera
