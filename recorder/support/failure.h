// How a command ends early: one line for the user and the exit code that goes with it.
#pragma once

#include <stdexcept>
#include <string>

namespace lenswire::recorder {

enum ExitCode { kDone = 0, kCameraFailed = 1, kBadInput = 2, kFootageMissing = 8 };

class Failure : public std::runtime_error {
  public:
    Failure(ExitCode code, const std::string& line) : std::runtime_error(line), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

// What the user typed, or a file the user named, cannot be used.
inline Failure bad_input(const std::string& line) {
    return {kBadInput, line};
}

// The camera, the plug-in or the disk did not play along.
inline Failure camera_failed(const std::string& line) {
    return {kCameraFailed, line};
}

}  // namespace lenswire::recorder
