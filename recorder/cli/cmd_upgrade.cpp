// lenswire upgrade FILE CAMERA...
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "recorder/archive/side_notes.h"
#include "recorder/cli/command_line.h"
#include "recorder/records/firmware_file.h"
#include "recorder/session/upgrade_session.h"

namespace lenswire::recorder {
namespace {

constexpr useconds_t kPollInterval = 100'000;
constexpr unsigned kLineStep = 10;  // percent from one plain line to the next
constexpr int kBarWidth = 40;

struct UpgradeOptions {
    std::string file;
    std::vector<std::string> cameras;
    std::string directory = "recordings";
    bool yes = false;
    double restart = 120;
};

using Camera = UpgradeSession::Camera;

std::string bar(const Camera& camera) {
    const int filled = static_cast<int>(std::min(camera.percent, 100u)) * kBarWidth / 100;
    std::string text = camera.name;
    text.resize(std::max<size_t>(text.size() + 1, 24), ' ');
    text += "[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] ";
    return text + std::to_string(camera.percent) + "% " + upgrade_state_name(camera.state) + "\n";
}

// Bars that are drawn over each other on a terminal, elsewhere a line per camera now and then; objects, one
// per line, for programs.
class Progress {
  public:
    Progress(Console& console, bool json, bool quiet)
        : console_(console), silent_(quiet), json_(json), bars_(!json && console.out_is_terminal()) {}

    void event(const std::string& line) {
        if (silent_) return;
        erase();
        if (json_) return console_.print(one_line_document({{"event", "alarm"}, {"text", line}}));
        console_.line(line);
    }

    void show(std::vector<Camera> cameras) {
        if (silent_) return;
        std::erase_if(cameras, [](const Camera& camera) { return !camera.reached(); });
        if (!bars_) return lines(cameras);
        erase();
        for (const Camera& camera : cameras) console_.print(bar(camera));
        drawn_ = cameras.size();
    }

  private:
    void erase() {
        if (drawn_ > 0) console_.print("\x1b[" + std::to_string(drawn_) + "A\x1b[J");
        drawn_ = 0;
    }
    void lines(const std::vector<Camera>& cameras) {
        shown_.resize(cameras.size());
        for (size_t i = 0; i < cameras.size(); ++i) {
            const std::pair now(cameras[i].percent / kLineStep, cameras[i].state);
            if (shown_[i] == now) continue;
            shown_[i] = now;
            if (json_) {
                console_.print(one_line_document({{"event", "progress"},
                                                  {"camera", cameras[i].name},
                                                  {"percent", cameras[i].percent},
                                                  {"state", upgrade_state_name(cameras[i].state)}}));
                continue;
            }
            console_.line(cameras[i].name + " " + std::to_string(cameras[i].percent) + "% " +
                          upgrade_state_name(cameras[i].state));
        }
    }

    Console& console_;
    bool silent_;
    bool json_;
    bool bars_;
    size_t drawn_ = 0;
    std::vector<std::pair<unsigned, UpgradeCameraState>> shown_;
};

// What the ledger of the recordings is told: a gap at that time has its reason beside it.
class UpgradeNotes {
  public:
    UpgradeNotes(const std::string& ledger, const std::string& file,
                 const std::vector<CameraAddress>& cameras, const std::vector<std::string>& names)
        : notes_(ledger), file_(file) {
        for (size_t i = 0; i < cameras.size(); ++i) {
            identities_.push_back({.name = names[i],
                                   .host = cameras[i].host,
                                   .port = cameras[i].port,
                                   .channel = cameras[i].channel});
        }
    }
    void begun(const UpgradeSession& session, const std::vector<size_t>& which) {
        for (const size_t i : which)
            notes_.event(identities_[i], "upgrade",
                         "begun with " + file_ + ", firmware is " + session.cameras()[i].firmware);
        notes_.write();
    }
    void over(const UpgradeSession& session, const std::vector<size_t>& which) {
        for (const size_t i : which) {
            const Camera& camera = session.cameras()[i];
            notes_.event(identities_[i], "upgrade",
                         camera.code == kDone ? "done with " + file_ + ", firmware is " +
                                                    camera.firmware_after + ", was " + camera.firmware
                                              : "failed with " + file_ + ", firmware was " + camera.firmware +
                                                    ": " + camera.error);
        }
        notes_.write();
    }
    std::string trouble() const { return notes_.trouble(); }

  private:
    SideNotes notes_;
    const std::string file_;
    std::vector<StreamIdentity> identities_;
};

// Runs a job that was started to its end.
void run(UpgradeSession& session, Progress& progress, std::vector<std::string>& alarms) {
    for (bool running = true; running;) {
        running = session.poll();
        while (auto event = session.host().motion.next_event()) {
            progress.event(*event);
            alarms.push_back(std::move(*event));
        }
        progress.show(session.cameras());
        if (running) usleep(kPollInterval);
    }
}

std::string result_json(const std::string& file, const std::vector<Camera>& cameras,
                        const std::vector<std::string>& alarms) {
    auto list = nlohmann::ordered_json::array();
    for (const Camera& camera : cameras) {
        list.push_back({{"camera", camera.name},
                        {"channel", camera.channel},
                        {"code", int{camera.code}},
                        {"state", camera.code == kDone ? upgrade_state_name(camera.state) : "failed"},
                        {"percent", camera.percent},
                        {"firmware", camera.firmware},
                        {"firmware_after", camera.firmware_after}});
    }
    return one_line_document(
        {{"event", "result"}, {"file", file}, {"cameras", std::move(list)}, {"alarms", alarms}});
}

// A name says little of what is inside: somebody has to stand for it.
void confirm(const UpgradeSession& session, const UpgradeOptions& options, Console& console) {
    for (const Camera& camera : session.cameras()) {
        if (!camera.only_name_fits || options.yes) continue;
        const std::string what =
            "nothing but its name says that " + options.file + " is for camera " + camera.name;
        if (isatty(STDIN_FILENO) == 0) throw bad_input(what + "; --yes sends it all the same");
        console.print(what + ". Send it to all? [y/N] ");
        std::string answer;
        if (!std::getline(std::cin, answer) || (answer != "y" && answer != "yes"))
            throw bad_input("nothing was sent");
        return;
    }
}

// One camera first; the others when it has come back well. The cameras that have the file.
void upgrade_all(UpgradeSession& session, const UpgradeOptions& options, Progress& progress,
                 UpgradeNotes& notes, std::vector<std::string>& alarms) {
    std::vector<size_t> waiting;
    for (size_t i = 0; i < session.cameras().size(); ++i) {
        if (session.cameras()[i].code == kDone) waiting.push_back(i);
    }
    const auto patience = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(options.restart));
    bool well = true;
    for (size_t begin = 0, end = 1; begin < waiting.size() && well; begin = end, end = waiting.size()) {
        const std::vector<size_t> turn(waiting.begin() + static_cast<ptrdiff_t>(begin),
                                       waiting.begin() + static_cast<ptrdiff_t>(end));
        session.start(options.file, turn);
        notes.begun(session, turn);
        run(session, progress, alarms);
        for (const size_t index : turn) {
            session.settle(index, patience);
            const Camera& camera = session.cameras()[index];
            well = well && camera.code == kDone;
            if (camera.code == kDone)
                progress.event(camera.name + " has firmware " + camera.firmware_after + ", had " +
                               camera.firmware);
        }
        notes.over(session, turn);
    }
    if (!well) session.leave_out();
}

int upgrade(const UpgradeOptions& options, const CommonOptions& common, Console& console) {
    const FirmwareFile file = look_at_firmware(options.file);
    std::vector<std::string> cameras_given = options.cameras;
    const std::vector<std::string> names = take_names(cameras_given);
    const auto addresses = camera_addresses(cameras_given, common.password_files());
    console.divert_library(common.log, common.verbose);
    UpgradeSession session(addresses, common);
    const auto objections = session.objections(options.file);
    const auto& cameras = session.cameras();
    for (const Camera& camera : cameras) {
        if (!camera.reached()) console.error_line(camera.error, camera.code);
    }
    for (const std::string& line : objections) console.error_line(line, kFileDoesNotFit);
    const auto objecting = std::ranges::find_if(
        cameras, [](const Camera& camera) { return camera.reached() && camera.code != kDone; });
    if (objecting != cameras.end()) return objecting->code;
    confirm(session, options, console);
    Progress progress(console, common.json, common.quiet);
    std::vector<std::string> alarms;
    UpgradeNotes notes(Ledger::file_of(options.directory, common.database), file.name, addresses, names);
    upgrade_all(session, options, progress, notes, alarms);
    if (!notes.trouble().empty())
        console.error_line("the ledger does not have all of this: " + notes.trouble());
    for (const Camera& camera : cameras) {
        if (camera.reached() && !camera.error.empty()) console.error_line(camera.error, camera.code);
    }
    if (common.json) console.print(result_json(options.file, cameras, alarms));
    const bool alike = std::ranges::all_of(
        cameras, [&](const Camera& camera) { return camera.code == cameras.front().code; });
    return alike ? cameras.front().code : kPartlyDone;
}

}  // namespace

void add_upgrade(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<UpgradeOptions>();
    CLI::App* command = app.add_subcommand("upgrade", "Send a firmware file to cameras");
    command->add_option("FILE", options->file)->required();
    command
        ->add_option("CAMERA", options->cameras,
                     std::string("[name=]") + kCameraHelp + "; the name is what a recorder calls it")
        ->required();
    command
        ->add_option("--out", options->directory,
                     "Folder of the recordings; what became of each camera is noted in their ledger, if any")
        ->capture_default_str();
    command->add_flag("--yes", options->yes, "Send it also when nothing but its name says that it fits");
    command->add_option("--restart", options->restart, "Seconds that a camera may take to come back with it")
        ->check(CLI::Range(0.0, 3600.0))
        ->capture_default_str();
    command->footer(
        "The first camera goes first; the others follow when it has come back. Those that cannot be reached\n"
        "are left out, and the exit code is 8. A camera to which the file does not fit stops it all.");
    run_when_chosen(command, options, common, chosen, upgrade);
}

}  // namespace lenswire::recorder
