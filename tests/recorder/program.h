// The whole program in this process: its arguments go in, what it printed and its exit code come out; and
// simulated cameras that it talks to.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "camera/serve/farm.h"
#include "support/folder.h"

namespace lenswire::recorder {

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
    std::vector<std::string> arguments;  // as a process list shows them afterwards

    // What --json printed; null, with a failed expectation, when that is no JSON.
    nlohmann::json json() const;
};

class ProgramTest : public testing::Test {
  protected:
    // Each camera has an address of its own, and sends so many pictures a stream, or without end.
    camera::Camera& add_camera(camera::DeviceConfig device = {}, const std::string& clip = "",
                               uint64_t frames = 0, const std::string& sound = "");

    // Runs a command line, words between spaces, where CAM is the first camera and DIR/ the test's folder.
    // Nothing else may write to the standard streams meanwhile.
    Outcome lenswire(const std::string& line, const std::string& library = LENSWIRE_LIBRARY);

    camera::CameraFarm farm_;
    std::vector<std::string> addresses_;  // as the command line names the cameras
    test::Folder folder_;
};

}  // namespace lenswire::recorder
