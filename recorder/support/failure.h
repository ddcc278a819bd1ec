// How a command ends: with one line for the user and the exit code that goes with it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace lenswire::recorder {

enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kBadInput = 2,
    kUnreachable = 3,
    kTimedOut = 4,
    kLoginRefused = 5,
    kCameraRefused = 6,
    kFileDoesNotFit = 7,
    kPartlyDone = 8,
};

struct ExitCodeRow {
    ExitCode code;
    std::string_view cause;  // what --json calls it
    std::string_view text;
};
// What --help says.
inline constexpr ExitCodeRow kExitCodes[] = {
    {kDone, "done", "all done"},
    {kFailed, "failed", "something on this machine: the library, the database, the disk"},
    {kBadInput, "usage", "the command line, or a file it names, cannot be used; nothing was sent"},
    {kUnreachable, "unreachable", "no connection to the camera, or the camera closed it"},
    {kTimedOut, "timed-out", "the camera took the connection, and did not answer within --timeout"},
    {kLoginRefused, "login-refused", "the camera refused user or password"},
    {kCameraRefused, "camera-refused", "the camera answered with an error, or did not take a value"},
    {kFileDoesNotFit, "does-not-fit", "the firmware file is not for the camera"},
    {kPartlyDone, "partly-done",
     "some of it: a gap in a recording, one of several cameras, a setting that differs"},
};

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

// The library, the database or the disk did not play along.
inline Failure local_failure(const std::string& line) {
    return {kFailed, line};
}

}  // namespace lenswire::recorder
