// lenswire dump CAMERA
// lenswire diff FILE CAMERA
// lenswire apply FILE CAMERA [--dry-run]
#include <CLI/CLI.hpp>
#include <algorithm>

#include "recorder/cli/command_line.h"
#include "recorder/records/cruise_line.h"
#include "recorder/records/settings_file.h"

namespace lenswire::recorder {
namespace {

struct FileOptions {
    std::string file;
    std::string camera;
    bool dry_run = false;
};

std::vector<FileSetting> known_settings() {
    std::vector<FileSetting> known;
    for (const Setting* setting : lasting_settings()) known.push_back({setting->name, setting->layout});
    return known;
}

// A camera need not have every setting.
int dump(const FileOptions& options, const CommonOptions& common, Console& console) {
    auto session = log_in(options.camera, common, console);
    std::string text = "# Settings of camera " + session->camera().name() + "\n";
    for (const Setting* setting : lasting_settings()) {
        try {
            text += "\n" + settings_table({setting->name, setting->layout}, read_setting(*session, *setting));
        } catch (const Failure& failure) {
            if (failure.code() != kCameraRefused) throw;
            text += "# " + std::string(setting->name) + " is not told\n";
        }
    }
    session->library().Private_ptzCruiseInit();
    for (int line = 1; line <= LENSWIRE_CRUISE_LINES; ++line)
        text += "\n" + settings_table(read_cruise_line(*session, line));
    console.print(text);
    return kDone;
}

struct Difference {
    std::string what;
    std::string camera;
    std::string file;
};

// What the camera has, and what it should have.
struct Change {
    const Setting* setting;
    std::vector<NamedField> fields;
    Bytes record;
};
struct Plan {
    std::vector<Difference> differences;
    std::vector<Change> changes;
    std::vector<std::pair<CruiseLine, bool>> lines;  // and whether the camera runs it now
};

std::string points_of(const CruiseLine& line) {
    const std::string text = cruise_text(line);
    return text.substr(0, text.size() - 1);
}

Plan compare(ControlSession& session, const SettingsFile& file) {
    Plan plan;
    for (const SettingsFile::Table& table : file.tables) {
        const Setting& setting = writable_setting(table.setting);
        Change change{&setting, {}, read_setting(session, setting)};
        for (const SettingsFile::Value& value : table.values) {
            const std::string before = field_text(value.field.field, change.record);
            store_value(value.field, value.text, change.record);
            const std::string after = field_text(value.field.field, change.record);
            if (before == after) continue;
            plan.differences.push_back({table.setting + "." + value.field.name, before, after});
            change.fields.push_back(value.field);
        }
        if (!change.fields.empty()) plan.changes.push_back(std::move(change));
    }
    session.library().Private_ptzCruiseInit();
    for (const CruiseLine& line : file.cruise_lines) {
        const CruiseLine now = read_cruise_line(session, line.ucLineNo + 1);
        if (points_of(now) == points_of(line)) continue;
        plan.differences.push_back(
            {"cruise." + std::to_string(line.ucLineNo + 1), points_of(now), points_of(line)});
        plan.lines.emplace_back(line, now.ucEnable == 1);
    }
    return plan;
}

void show(const Plan& plan, const ControlSession& session, const CommonOptions& common, Console& console) {
    auto list = nlohmann::ordered_json::array();
    for (const Difference& each : plan.differences) {
        list.push_back({{"what", each.what}, {"camera", each.camera}, {"file", each.file}});
        if (!common.json) console.line(each.what + ": " + each.camera + " -> " + each.file);
    }
    if (common.json)
        console.print(document({{"camera", session.camera().name()}, {"differences", std::move(list)}}));
}

// False, with a line for each problem, when the file cannot be used.
bool check(const SettingsFile& file, Console& console) {
    for (const std::string& problem : file.problems) console.error_line(problem, kBadInput);
    return file.problems.empty();
}

int diff(const FileOptions& options, const CommonOptions& common, Console& console) {
    const SettingsFile file = read_settings_file(options.file, known_settings());
    if (!check(file, console)) return kBadInput;
    auto session = log_in(options.camera, common, console);
    const Plan plan = compare(*session, file);
    show(plan, *session, common, console);
    return plan.differences.empty() ? kDone : kPartlyDone;
}

void carry_out(ControlSession& session, Plan& plan) {
    size_t done = 0;
    try {
        for (Change& change : plan.changes) {
            write_setting(session, *change.setting, change.record);
            check_taken(session, change.fields, change.record, read_setting(session, *change.setting));
            ++done;
        }
        for (const auto& [line, runs] : plan.lines) {
            write_cruise_line(session, line, line.ucEnable == 1 || runs);
            const CruiseLine now = read_cruise_line(session, line.ucLineNo + 1);
            if (points_of(now) != points_of(line))
                throw Failure(kCameraRefused, "camera " + session.camera().name() + " did not take cruise " +
                                                  points_of(line));
            ++done;
        }
    } catch (const Failure& failure) {
        if (done == 0) throw;
        throw Failure(kPartlyDone, std::string(failure.what()) + "; what comes before that is set");
    }
}

int apply(const FileOptions& options, const CommonOptions& common, Console& console) {
    const SettingsFile file = read_settings_file(options.file, known_settings());
    if (!check(file, console)) return kBadInput;
    auto session = log_in(options.camera, common, console);
    Plan plan = compare(*session, file);
    if (!options.dry_run) carry_out(*session, plan);
    show(plan, *session, common, console);
    return kDone;
}

CLI::App* add(CLI::App& app, const char* name, const char* text, FileOptions& options) {
    CLI::App* command = app.add_subcommand(name, text);
    command->add_option("FILE", options.file, "Settings, as dump writes them")->required();
    command->add_option("CAMERA", options.camera, kCameraHelp)->required();
    return command;
}

}  // namespace

void add_settings_file(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto of_dump = std::make_shared<FileOptions>();
    CLI::App* command =
        app.add_subcommand("dump", "Print a camera's settings and cruise lines as a TOML file");
    command->add_option("CAMERA", of_dump->camera, kCameraHelp)->required();
    run_when_chosen(command, of_dump, common, chosen, dump);

    auto of_diff = std::make_shared<FileOptions>();
    command = add(app, "diff", "List where a camera's settings differ from a file", *of_diff);
    command->footer("Exit code 8: something differs.");
    run_when_chosen(command, of_diff, common, chosen, diff);

    auto of_apply = std::make_shared<FileOptions>();
    command = add(app, "apply", "Give a camera the settings of a file; nothing is sent before all is checked",
                  *of_apply);
    command->add_flag("--dry-run", of_apply->dry_run, "Only list what would change");
    run_when_chosen(command, of_apply, common, chosen, apply);
}

}  // namespace lenswire::recorder
