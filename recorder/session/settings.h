// What `get` and `set` can name: a row each.
#pragma once

#include <string_view>
#include <vector>

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
// "image, osd, ..." for help texts.
std::string readable_names();
std::string writable_names();

// Throws a Failure that says which way it failed.
Bytes read_setting(ControlSession& session, const Setting& setting);
void write_setting(ControlSession& session, const Setting& setting, Bytes& record);

}  // namespace lenswire::recorder
