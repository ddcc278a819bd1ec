// lenswire cruise CAMERA show|set|start|stop|resend [LINE] [POINT...]
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>

#include "lenswire/host_services.h"
#include "recorder/cli/command_line.h"
#include "recorder/records/cruise_line.h"

namespace lenswire::recorder {
namespace {

struct CruiseOptions {
    std::string camera;
    std::string action;
    int line = 0;  // counted from 1; 0 when not given
    std::vector<std::string> points;
    bool enable = false;
};

uint32_t channel_of(const ControlSession& session) {
    return static_cast<uint32_t>(session.channel());
}

void set(ControlSession& session, const CruiseOptions& options) {
    const CruiseLine record = parse_cruise_line(options.line, options.points, options.enable);
    write_cruise_line(session, record, options.enable);
}

// The library starts a line by sending its own version first. A recorder that has none takes the camera's.
void adopt(ControlSession& session, int line) {
    int32_t channel = session.channel();
    CruiseLine lines[LENSWIRE_CRUISE_LINES];
    databaseOperate(LENSWIRE_TABLE_CRUISE, LENSWIRE_TABLE_READ, &channel, sizeof channel, lines,
                    sizeof lines);
    const CruiseLine& known = lines[line - 1];
    if (std::ranges::any_of(known.points, [](const CruisePoint& point) { return point.ucUsed == 1; })) return;
    const CruiseLine own = read_cruise_line(session, line);
    session.library().Private_ChangeCruiseParamToMemory(channel_of(session), &own);
}

void start(ControlSession& session, const CruiseOptions& options) {
    adopt(session, options.line);
    const auto line = static_cast<uint32_t>(options.line - 1);
    session.tell("the cruise line", [&] {
        return session.library().Private_StartPtzCruiseLine(channel_of(session), line, 1) == 0;
    });
}

// A line that goes out disabled is stopped by it. What the library then switches off in memory and database
// sends the camera nothing.
void stop(ControlSession& session, const CruiseOptions&) {
    const Plugin& library = session.library();
    for (int line = 1; line <= LENSWIRE_CRUISE_LINES; ++line) {
        CruiseLine record = read_cruise_line(session, line);
        if (record.ucEnable == 0) continue;
        record.ucEnable = 0;
        write_cruise_line(session, record, true);
    }
    library.Private_StartPtzCruiseLine(channel_of(session), 0, 0);
}

void resend(ControlSession& session, const CruiseOptions&) {
    session.tell("the cruise line",
                 [&] { return session.library().Private_GetPtzCruiseChannel(channel_of(session)) >= 0; });
}

void nothing(ControlSession&, const CruiseOptions&) {}

struct Action {
    std::string_view name;
    bool needs_line;
    void (*run)(ControlSession& session, const CruiseOptions& options);
};
constexpr Action kActions[] = {{"show", false, nothing},
                               {"set", true, set},
                               {"start", true, start},
                               {"stop", false, stop},
                               {"resend", false, resend}};

const Action& checked_action(const CruiseOptions& options) {
    const auto action = std::ranges::find(kActions, options.action, &Action::name);
    if (action == std::end(kActions))
        throw bad_input("'" + options.action + "' is none of show, set, start, stop and resend");
    if (action->needs_line && options.line == 0) throw bad_input(options.action + " needs a line, 1 to 3");
    if (options.line < 0 || options.line > LENSWIRE_CRUISE_LINES)
        throw bad_input("cruise lines are 1, 2 and 3");
    if (action->name != "set" && !options.points.empty())
        throw bad_input(options.action + " takes no points");
    if (action->name == "set") parse_cruise_line(options.line, options.points, options.enable);
    return *action;
}

int cruise(const CruiseOptions& options, const CommonOptions& common, Console& console) {
    const Action& action = checked_action(options);
    auto session = log_in(options.camera, common, console);
    session->library().Private_ptzCruiseInit();
    action.run(*session, options);
    auto lines = nlohmann::ordered_json::array();
    std::string text;
    for (int line = 1; line <= LENSWIRE_CRUISE_LINES; ++line) {
        if (options.line != 0 && options.line != line) continue;
        const CruiseLine record = read_cruise_line(*session, line);
        text += cruise_text(record);
        lines.push_back(cruise_json(record));
    }
    console.print(common.json ? document({{"camera", session->camera().name()}, {"lines", std::move(lines)}})
                              : text);
    return kDone;
}

}  // namespace

void add_cruise(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<CruiseOptions>();
    CLI::App* command = app.add_subcommand("cruise", "Show, change, start and stop a camera's cruise lines");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    command->add_option("ACTION", options->action, "show, set, start, stop or resend")->required();
    command->add_option("LINE", options->line, "1 to 3; show shows all when not given");
    command->add_option("POINT", options->points, "PRESET[:TIME[:SPEED]], in the order of the tour, for set");
    command->add_flag("--enable", options->enable, "Make it the running line, for set");
    run_when_chosen(command, options, common, chosen, cruise);
}

}  // namespace lenswire::recorder
