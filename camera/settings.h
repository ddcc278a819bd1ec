// The settings of one camera: what its commands read and write.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "camera/bytes.h"
#include "camera/message.h"

namespace lenswire::camera {

// The states of answers that are no success.
inline constexpr uint16_t kStateRefused = 1;      // login refused
inline constexpr uint16_t kStateNotLoggedIn = 2;  // a command without the login id it needs
inline constexpr uint16_t kStateUnsupported = 3;  // no such command, channel or stream
inline constexpr uint16_t kStateBadRequest = 4;   // the payload is not what the command takes

class Settings {
  public:
    // Carries out a command. The answer, or nothing for a command that has none.
    std::optional<Command> handle(const Command& request);

    // The record behind a get command, as it stands; empty when there is none.
    Bytes record(uint16_t get_code) const;
    void set_record(uint16_t get_code, Bytes bytes);

  private:
    std::map<uint16_t, Bytes> records_;
};

}  // namespace lenswire::camera
