// lenswire upgrade FILE CAMERA...
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>

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
};

using Camera = UpgradeSession::Camera;

std::string bar(const Camera& camera) {
    const int filled = static_cast<int>(std::min(camera.percent, 100u)) * kBarWidth / 100;
    std::string text = camera.name;
    text.resize(std::max<size_t>(text.size() + 1, 24), ' ');
    text += "[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] ";
    return text + std::to_string(camera.percent) + "% " + upgrade_state_name(camera.state) + "\n";
}

// Bars that are drawn over each other on a terminal, elsewhere a line per camera now and then.
class Progress {
  public:
    Progress(Console& console, bool silent)
        : console_(console), silent_(silent), bars_(console.out_is_terminal()) {}

    void event(const std::string& line) {
        if (silent_) return;
        erase();
        console_.line(line);
    }

    void show(const std::vector<Camera>& cameras) {
        if (silent_) return;
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
            console_.line(cameras[i].name + " " + std::to_string(cameras[i].percent) + "% " +
                          upgrade_state_name(cameras[i].state));
        }
    }

    Console& console_;
    bool silent_;
    bool bars_;
    size_t drawn_ = 0;
    std::vector<std::pair<unsigned, UpgradeCameraState>> shown_;
};

std::vector<std::string> watch(UpgradeSession& session, Progress& progress) {
    std::vector<std::string> alarms;
    for (bool running = true; running;) {
        running = session.poll();
        while (auto event = session.host().motion.next_event()) {
            progress.event(*event);
            alarms.push_back(std::move(*event));
        }
        progress.show(session.cameras());
        if (running) usleep(kPollInterval);
    }
    return alarms;
}

std::string result_json(const std::string& file, const std::vector<Camera>& cameras,
                        const std::vector<std::string>& alarms) {
    auto list = nlohmann::ordered_json::array();
    for (const Camera& camera : cameras) {
        list.push_back({{"camera", camera.name},
                        {"channel", camera.channel},
                        {"state", upgrade_state_name(camera.state)},
                        {"percent", camera.percent}});
    }
    return document({{"file", file}, {"cameras", std::move(list)}, {"alarms", alarms}});
}

int upgrade(const UpgradeOptions& options, const CommonOptions& common, Console& console) {
    look_at_firmware(options.file);
    const auto addresses = camera_addresses(options.cameras, common.password_file);
    console.divert_library(common.log, common.verbose);
    UpgradeSession session(addresses, common);
    const auto objections = session.objections(options.file);
    for (const std::string& line : objections) console.error_line(line);
    if (!objections.empty()) return kFailed;
    session.start(options.file);
    Progress progress(console, common.json);
    const auto alarms = watch(session, progress);
    if (common.json) console.print(result_json(options.file, session.cameras(), alarms));
    const bool all_done = std::ranges::all_of(
        session.cameras(), [](const Camera& camera) { return camera.state == UPGRADE_DONE; });
    return all_done ? kDone : kPartlyDone;
}

}  // namespace

void add_upgrade(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<UpgradeOptions>();
    CLI::App* command = app.add_subcommand("upgrade", "Send a firmware file to cameras");
    command->add_option("FILE", options->file)->required();
    command->add_option("CAMERA", options->cameras, "user:password@host:port")->required();
    run_when_chosen(command, options, common, chosen, upgrade);
}

}  // namespace lenswire::recorder
