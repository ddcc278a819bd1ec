// lenswire set CAMERA WHAT FIELD=VALUE... [--from FILE]
#include <CLI/CLI.hpp>

#include "recorder/cli/command_line.h"
#include "recorder/session/settings.h"
#include "recorder/support/files.h"
#include "recorder/support/text.h"

namespace lenswire::recorder {
namespace {

struct SetOptions {
    std::string camera;
    std::string what;
    std::vector<std::string> assignments;
    std::string from;
};

// The record to begin with: the file's, or the camera's own, or an empty one where that cannot be read.
Bytes starting_record(ControlSession& session, const Setting& setting, const std::string& from) {
    if (!from.empty()) return read_file(from, setting.layout->whole_size());
    if (setting.get != nullptr) return read_setting(session, setting);
    return Bytes(setting.layout->whole_size());
}

int set(const SetOptions& options, const CommonOptions& common, Console& console) {
    const Setting& setting = writable_setting(options.what);
    const auto fields = fields_of(*setting.layout);
    if (options.assignments.empty() && options.from.empty())
        throw bad_input("nothing to set: name a FIELD=VALUE or --from FILE");
    // Bad input shows before the camera is troubled.
    Bytes trial = options.from.empty() ? Bytes(setting.layout->whole_size())
                                       : read_file(options.from, setting.layout->whole_size());
    for (const std::string& assignment : options.assignments) apply_assignment(fields, assignment, trial);

    auto session = log_in(options.camera, common, console);
    Bytes record = starting_record(*session, setting, options.from);
    std::vector<NamedField> asked;
    for (const std::string& assignment : options.assignments) {
        asked.push_back(apply_assignment(fields, assignment, record));
    }
    if (!options.from.empty()) asked = fields;
    write_setting(*session, setting, record);
    const Bytes now = setting.get != nullptr ? read_setting(*session, setting) : record;
    if (setting.steady) check_taken(*session, asked, record, now);
    console.note(common.json ? setting_json(*session, setting, now)
                             : fit_lines(record_text(*setting.layout, now), console.terminal_columns()));
    return kDone;
}

}  // namespace

void add_set(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<SetOptions>();
    CLI::App* command = app.add_subcommand("set", "Change a setting of a camera");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    command->add_option("WHAT", options->what, writable_names())->required();
    command->add_option("FIELD=VALUE", options->assignments,
                        "What to change; the rest stays as the camera has it");
    command->add_option("--from", options->from,
                        "Start from the bytes in this file, as `get --raw` writes it");
    run_when_chosen(command, options, common, chosen, set);
}

}  // namespace lenswire::recorder
