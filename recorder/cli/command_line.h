// What the subcommands for one camera share.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "recorder/cli/commands.h"
#include "recorder/session/control_session.h"
#include "recorder/session/settings.h"

namespace lenswire::recorder {

inline constexpr const char* kCameraHelp = "[user:password@]host[:port][/channel]";
inline constexpr const char* kStreamHelp = "[user:password@]host[:port][/channel[/stream]]";

// Parses CAMERA, turns the library's lines away and logs in.
std::unique_ptr<ControlSession> log_in(const std::string& camera, const CommonOptions& common,
                                       Console& console);

// The record by which the library's functions for clock and fisheye know a camera.
HostCameraRecord host_record(const ControlSession& session, int channel);

// A setting's record as a whole JSON document.
std::string setting_json(const ControlSession& session, const Setting& setting,
                         std::span<const uint8_t> record);
// The same of anything else.
std::string document(const nlohmann::ordered_json& json);
// And as one line of several.
std::string one_line_document(const nlohmann::ordered_json& json);

// Makes `body(*options, common, console)` the program's work when the user picks the subcommand.
template <typename Options, typename Body>
void run_when_chosen(CLI::App* subcommand, std::shared_ptr<Options> options, CommonOptions& common,
                     Command& chosen, Body body) {
    subcommand->callback([options, &common, &chosen, body] {
        chosen = [options, &common, body](Console& console) { return body(*options, common, console); };
    });
}

}  // namespace lenswire::recorder
