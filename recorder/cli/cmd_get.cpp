// lenswire get CAMERA WHAT [--raw FILE]
#include <CLI/CLI.hpp>

#include "recorder/cli/command_line.h"
#include "recorder/session/settings.h"
#include "recorder/support/files.h"
#include "recorder/support/text.h"

namespace lenswire::recorder {
namespace {

struct GetOptions {
    std::string camera;
    std::string what;
    std::string raw;
};

int get(const GetOptions& options, const CommonOptions& common, Console& console) {
    const Setting& setting = readable_setting(options.what);
    auto session = log_in(options.camera, common, console);
    const Bytes record = read_setting(*session, setting);
    if (!options.raw.empty()) write_file(options.raw, record);
    console.print(common.json ? setting_json(*session, setting, record)
                              : fit_lines(record_text(*setting.layout, record), console.terminal_columns()));
    return kDone;
}

}  // namespace

void add_get(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<GetOptions>();
    CLI::App* command = app.add_subcommand("get", "Read a setting of a camera");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    command->add_option("WHAT", options->what, readable_names())->required();
    command->add_option("--raw", options->raw, "Write the record's bytes to this file");
    run_when_chosen(command, options, common, chosen, get);
}

}  // namespace lenswire::recorder
