// What `get` and `set` can name: a row each.
#pragma once

#include <string_view>
#include <vector>

#include "lenswire/cruise.h"
#include "recorder/records/layouts.h"
#include "recorder/session/control_session.h"

namespace lenswire::recorder {

struct Setting {
    std::string_view name;  // on the command line
    const char* what;       // in messages
    const Layout* layout;
    // One of the two may be missing. True when the library did it.
    bool (*get)(ControlSession& session, uint8_t* record);
    bool (*set)(ControlSession& session, uint8_t* record);
    // Reads back as it was set; a clock and a camera that moves do not.
    bool steady = true;
};

// Throws a bad-input Failure, with the known names, when there is none or it cannot be read or set.
const Setting& readable_setting(std::string_view name);
const Setting& writable_setting(std::string_view name);
// Those that can be read and set and stay as they were set.
std::vector<const Setting*> lasting_settings();
// "image, osd, ..." for help texts.
std::string readable_names();
std::string writable_names();

// Throws a Failure that says which way it failed.
Bytes read_setting(ControlSession& session, const Setting& setting);
void write_setting(ControlSession& session, const Setting& setting, Bytes& record);
// A set has no answer, so only a look shows whether the camera took it. Throws a Failure when it did not.
void check_taken(const ControlSession& session, std::span<const NamedField> asked,
                 std::span<const uint8_t> wanted, std::span<const uint8_t> now);

// Cruise lines count from 1. With `start_or_stop` the camera runs the line, or no longer, as its ucEnable
// says.
CruiseLine read_cruise_line(ControlSession& session, int line);
void write_cruise_line(ControlSession& session, const CruiseLine& line, bool start_or_stop);

}  // namespace lenswire::recorder
