// lenswire ptz CAMERA left|right|up|down|zoom-in|zoom-out|stop|preset N|set-preset N|speed N
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <optional>

#include "lenswire/ptz_codes.h"
#include "recorder/cli/command_line.h"
#include "recorder/support/text.h"

namespace lenswire::recorder {
namespace {

struct PtzOptions {
    std::string camera;
    std::string operation;
    std::optional<int> number;
};

struct Move {
    std::string_view name;
    int code;
};
constexpr Move kMoves[] = {
    {"left", LENSWIRE_PTZ_LEFT}, {"right", LENSWIRE_PTZ_RIGHT},     {"up", LENSWIRE_PTZ_UP},
    {"down", LENSWIRE_PTZ_DOWN}, {"zoom-in", LENSWIRE_PTZ_ZOOM_IN}, {"zoom-out", LENSWIRE_PTZ_ZOOM_OUT},
    {"stop", LENSWIRE_PTZ_STOP},
};
constexpr int kMostPresets = 255;
constexpr int kHighestSpeed = 255;

bool move(ControlSession& session, const Move& move, int speed) {
    return session.library().Private_PtzCmd(static_cast<uint32_t>(session.channel()), move.code, speed, 0) ==
           0;
}

// The library answers a preset operation with 4, whatever became of it.
bool recall(ControlSession& session, int number) {
    const auto preset = static_cast<uint16_t>(number);
    return session.library().Private_RecallPreset(static_cast<uint32_t>(session.channel()), &preset) == 4;
}
bool store(ControlSession& session, int number) {
    const auto preset = static_cast<uint16_t>(number);
    return session.library().Private_SetPreset(static_cast<uint32_t>(session.channel()), &preset) == 4;
}
bool set_speed(ControlSession& session, int speed) {
    return session.library().Private_SetPtzSpeed(static_cast<uint32_t>(session.channel()), speed) == 0;
}

struct Numbered {
    std::string_view name;
    int highest;
    bool (*run)(ControlSession& session, int number);
};
constexpr Numbered kNumbered[] = {{"preset", kMostPresets, recall},
                                  {"set-preset", kMostPresets, store},
                                  {"speed", kHighestSpeed, set_speed}};

constexpr const char* kOperations =
    "left, right, up, down, zoom-in, zoom-out, stop, preset, set-preset or speed";

// What to do, once the camera is there.
std::function<bool(ControlSession&)> plan(const PtzOptions& options) {
    const auto plain = std::ranges::find(kMoves, options.operation, &Move::name);
    const auto numbered = std::ranges::find(kNumbered, options.operation, &Numbered::name);
    if (plain == std::end(kMoves) && numbered == std::end(kNumbered)) {
        throw bad_input("'" + options.operation + "' is no PTZ operation; there are " + kOperations);
    }
    const int highest = numbered != std::end(kNumbered) ? numbered->highest : kHighestSpeed;
    if (numbered != std::end(kNumbered) && !options.number)
        throw bad_input(options.operation + " needs a number");
    if (options.number && (*options.number < 1 || *options.number > highest)) {
        throw bad_input(options.operation + ": the number must be from 1 to " + std::to_string(highest));
    }
    const int number = options.number.value_or(0);
    if (plain != std::end(kMoves))
        return [=](ControlSession& session) { return move(session, *plain, number); };
    return [=](ControlSession& session) { return numbered->run(session, number); };
}

int ptz(const PtzOptions& options, const CommonOptions& common, Console& console) {
    const auto operation = plan(options);
    auto session = log_in(options.camera, common, console);
    session->tell("the PTZ operation", [&] { return operation(*session); });
    // The camera works off its commands in order, so this shows it after the operation was taken.
    const Setting& property = readable_setting("ptz");
    const Bytes record = read_setting(*session, property);
    console.note(common.json ? setting_json(*session, property, record)
                             : fit_lines(record_text(*property.layout, record), console.terminal_columns()));
    return kDone;
}

}  // namespace

void add_ptz(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<PtzOptions>();
    CLI::App* command = app.add_subcommand("ptz", "Move a camera");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    command->add_option("OPERATION", options->operation, kOperations)->required();
    command->add_option("NUMBER", options->number,
                        "Preset, counted from 1, or speed; a move takes a speed, too");
    run_when_chosen(command, options, common, chosen, ptz);
}

}  // namespace lenswire::recorder
