// The settings of one camera: what its commands read, write and move.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "camera/device/clock_model.h"
#include "camera/device/defaults.h"
#include "camera/device/ptz_model.h"
#include "camera/device/store.h"
#include "camera/wire/bytes.h"
#include "camera/wire/message.h"

namespace lenswire::camera {

// The states of answers that are no success.
inline constexpr uint16_t kStateRefused = 1;      // login refused
inline constexpr uint16_t kStateNotLoggedIn = 2;  // a command without the login id it needs
inline constexpr uint16_t kStateUnsupported = 3;  // no such command, channel or stream
inline constexpr uint16_t kStateBadRequest = 4;   // the payload is not what the command takes
inline constexpr uint16_t kStateNoRoom = 5;       // no room for the firmware

using WallClock = std::function<int64_t()>;  // microseconds since 1970
int64_t wall_us();

class Settings {
  public:
    explicit Settings(Surroundings surroundings, WallClock clock = wall_us);

    // Takes what the state folder keeps in place of the defaults. False and a reason when there is no folder.
    bool load(std::string* error);
    void set_port(uint16_t port);

    struct Outcome {
        std::optional<Command> answer;  // nothing for a command that has none
        bool understood = true;         // false for a payload that is not what the command takes
    };
    Outcome handle(const Command& request);

    // The record behind a get command (a set command that has no get); encoding and cruise lines as all three
    // in one.
    Bytes record(uint16_t code);
    // Any size is taken, so that a camera can be made to answer the wrong one.
    void set_record(uint16_t code, Bytes bytes);

    bool detects_motion() const;
    const DeviceConfig& device() const { return around_.device; }
    void take_new_firmware(const std::string& name);

  private:
    using Handler = Outcome (Settings::*)(const Command&);
    struct Exchange {
        uint16_t code;
        uint32_t size;
        uint32_t number;
        Handler handler;
    };
    static const Exchange kExchanges[];

    Outcome get_plain(const Command& request);
    Outcome set_plain(const Command& request);
    Outcome get_time(const Command& request);
    Outcome set_time(const Command& request);
    Outcome get_encoding(const Command& request);
    Outcome set_encoding(const Command& request);
    Outcome get_fish_encoding(const Command& request);
    Outcome get_ptz(const Command& request);
    Outcome set_ptz(const Command& request);
    Outcome operate_ptz(const Command& request);
    Outcome get_cruise(const Command& request);
    Outcome set_cruise(const Command& request);

    Bytes ptz_record();
    void use_cruise_line(size_t line);
    void keep(uint16_t code);
    void keep_clock();
    void keep_presets();
    void load_clock();
    void load_presets();

    Surroundings around_;
    WallClock clock_source_;
    std::map<uint16_t, Bytes> records_;
    ClockModel clock_;
    PtzModel ptz_;
    Store store_;
};

// The last number in a firmware name counted one up: "A_B_1.0.9" becomes "A_B_1.0.10".
std::string next_firmware_name(const std::string& name);

}  // namespace lenswire::camera
